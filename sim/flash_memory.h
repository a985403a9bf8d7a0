#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace hxr::sim {

/// The flash pages of 8192 bytes that hold the calibration image. An image can be replaced while the unit
/// serves.
class FlashMemory {
  public:
    static constexpr std::size_t pageBytes = 8192;
    static constexpr std::uint16_t firstPage = 128;
    static constexpr std::uint16_t lastPage = 1151;
    using Page = std::array<std::uint8_t, pageBytes>;

    static constexpr bool holds(std::uint16_t page) { return page >= firstPage && page <= lastPage; }

    /// @throws std::invalid_argument unless the image has exactly `imageBytes`
    explicit FlashMemory(std::vector<std::uint8_t> image);

    void load(std::vector<std::uint8_t> image);
    std::vector<std::uint8_t> image() const;
    /// The image that is in the flash now, which a later load leaves as it is.
    std::shared_ptr<const std::vector<std::uint8_t>> current() const;

    /// A page as it leaves the unit, the bytes of each 32-bit word reversed; erased outside the image.
    Page pageOnWire(std::uint16_t page) const;

  private:
    mutable std::mutex mutex_;
    std::shared_ptr<const std::vector<std::uint8_t>> image_;
};

}  // namespace hxr::sim
