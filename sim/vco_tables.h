#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace hxr::sim {

/// How a VCO is set: core, band and bias.
struct VcoSetting {
    std::uint8_t a = 0, b = 0, c = 0;

    bool operator==(const VcoSetting&) const = default;
};

/// What the VCOs of a unit's synthesizers settle on when they calibrate themselves: at each frequency the setting at the
/// nearest point of the unit's tuning data, of two equally near the lower one.
class VcoTables {
  public:
    using Image = std::shared_ptr<const std::vector<std::uint8_t>>;

    /// @param image  of what the unit really is; with tuning data
    explicit VcoTables(Image image) : image_(std::move(image)) {}

    VcoSetting low(std::size_t channel, double vcoHz) const;   ///< 4 to 8 GHz
    VcoSetting high(std::size_t channel, double vcoHz) const;  ///< 11 to 22 GHz
    VcoSetting shared(double vcoHz) const;                     ///< 8 to 16 GHz

  private:
    VcoSetting at(std::size_t section, std::size_t tables, std::size_t points, std::size_t table,
                  double position) const;

    Image image_;
};

/// Whether an image has tuning data.
bool hasTuningData(const std::vector<std::uint8_t>& image);

}  // namespace hxr::sim
