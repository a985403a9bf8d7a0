#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "sim/image_layout.h"

namespace hxr::sim {

/// An IF response as the factory measured it: at point p, 125 MHz / 64 * (p + 1) from the LO, what a filter
/// must do to the rails for them to come out even.
struct ResponsePoints {
    std::array<double, layout::responsePoints> ratio;    ///< amplitude, second rail to first
    std::array<double, layout::responsePoints> phase;    ///< second rail less first, radians
    std::array<double, layout::responsePoints> levelDb;  ///< gain on both
};

/// The generator as the factory measured it at a frequency: its level at each attenuator step with the pattern at half of
/// full scale, and what its modulator does to the rails.
struct GeneratorCalibration {
    std::array<double, layout::vsgSteps> levelDbm;
    double gain, phase;
    double offsetI, offsetQ;  ///< that cancel its feed-through, 2.0 being full scale
};

enum class ResponseGrid { full, low };

/// How a unit really is, at a temperature: as the factory has written it into the flash. A unit without
/// chamber data has even rails, a flat response and full scale at 0 dBm plus its attenuation.
class UnitCalibration {
  public:
    using Image = std::shared_ptr<const std::vector<std::uint8_t>>;

    UnitCalibration(Image image, double temperature);

    /// Level whose amplitude is full scale ahead of the response filter, with the gain code of the
    /// calibration.
    ///
    /// @param k  frequency index, 0 to 513
    double fullScaleDbm(std::size_t channel, int attenuatorDb, std::size_t k) const;
    int gainCode(std::size_t channel, std::size_t k) const;
    /// The offsets of the two rails that cancel the LO's feed-through.
    std::array<int, 2> feedThrough(std::size_t channel, std::size_t k) const;
    /// Phase of the channel against the others, in radians, when all run on the shared LO.
    double channelPhase(std::size_t channel, std::size_t k) const;
    /// A generator that was never measured has an ideal modulator.
    GeneratorCalibration generator(std::size_t k) const;
    /// @param k  row, 0 to 510 of the full grid, 0 to 149 of the low one
    ResponsePoints response(ResponseGrid grid, std::size_t channel, std::size_t k) const;

  private:
    float number(std::size_t offset) const;
    /// An entry of a table with a slice of so many entries for each temperature.
    float atTemperature(std::size_t table, std::size_t slice, std::size_t entry) const;
    void findTemperature(float temperature);

    Image image_;
    bool measured_;
    std::size_t slice_ = 0;
    float fraction_ = 0.0f;
};

}  // namespace hxr::sim
