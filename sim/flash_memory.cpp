#include "sim/flash_memory.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "sim/image_layout.h"
#include "sim/synthetic_image.h"

namespace hxr::sim {

FlashMemory::FlashMemory(std::vector<std::uint8_t> image) { load(std::move(image)); }

void FlashMemory::load(std::vector<std::uint8_t> image) {
    if (image.size() != imageBytes) {
        throw std::invalid_argument("a calibration image has " + std::to_string(imageBytes) + " bytes, not " +
                                    std::to_string(image.size()));
    }
    auto next = std::make_shared<const std::vector<std::uint8_t>>(std::move(image));
    const std::lock_guard lock(mutex_);
    image_ = std::move(next);
}

std::shared_ptr<const std::vector<std::uint8_t>> FlashMemory::current() const {
    const std::lock_guard lock(mutex_);
    return image_;
}

std::vector<std::uint8_t> FlashMemory::image() const { return *current(); }

FlashMemory::Page FlashMemory::pageOnWire(std::uint16_t page) const {
    Page bytes;
    bytes.fill(layout::erased);
    if (!holds(page)) return bytes;
    const auto image = current();
    const std::size_t start = std::size_t{static_cast<std::uint16_t>(page - firstPage)} * pageBytes;
    constexpr std::size_t lastByteOfWord = 3;
    for (std::size_t i = 0; i < pageBytes; ++i) bytes[i ^ lastByteOfWord] = (*image)[start + i];
    return bytes;
}

}  // namespace hxr::sim
