#include "sim/usb_flash.h"

namespace hxr::sim {

void UsbFlash::write(std::uint32_t page, std::size_t offset, std::span<const std::uint8_t> bytes) {
    std::size_t at = page * pageBytes + offset;
    auto& block = blocks_.try_emplace(at / blockBytes, blockBytes, erased).first->second;
    for (const std::uint8_t byte : bytes) {
        if (at != stuck_) block[at % blockBytes] &= byte;
        ++at;
    }
}

std::vector<std::uint8_t> UsbFlash::read(std::uint32_t page, std::size_t count) const {
    std::vector<std::uint8_t> bytes(count, erased);
    std::size_t at = page * pageBytes;
    for (std::uint8_t& byte : bytes) {
        const auto block = blocks_.find(at / blockBytes);
        if (block != blocks_.end()) byte = block->second[at % blockBytes];
        ++at;
    }
    return bytes;
}

void UsbFlash::erase(std::uint32_t page) {
    blocks_.erase(page * pageBytes / blockBytes);
    ++erases_;
}

}  // namespace hxr::sim
