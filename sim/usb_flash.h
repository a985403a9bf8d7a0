#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace hxr::sim {

/// The 64 MiB of flash of a unit, as its USB controller sees them. Writing only clears bits; an erase of a block sets all of
/// them. Memory is taken for blocks that hold something.
class UsbFlash {
  public:
    static constexpr std::size_t pageBytes = 1024;
    static constexpr std::size_t blockPages = 256;
    static constexpr std::size_t blockBytes = pageBytes * blockPages;
    static constexpr std::uint8_t erased = 0xFF;

    /// @param offset  within the page
    void write(std::uint32_t page, std::size_t offset, std::span<const std::uint8_t> bytes);
    /// What a read of these bytes gives; erased behind the end.
    std::vector<std::uint8_t> read(std::uint32_t page, std::size_t count) const;
    void erase(std::uint32_t page);

    /// From now on one bit of a byte keeps its value, whatever is written.
    void stick(std::uint32_t page, std::size_t offset) { stuck_ = page * pageBytes + offset; }

    /// Erases so far.
    std::size_t erases() const { return erases_; }

  private:
    std::map<std::size_t, std::vector<std::uint8_t>> blocks_;
    std::size_t stuck_ = SIZE_MAX;
    std::size_t erases_ = 0;
};

}  // namespace hxr::sim
