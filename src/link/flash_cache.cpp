#include "link/flash_cache.h"

#include <array>
#include <cstdio>
#include <new>

#include "platform/files.h"

namespace hxr {

CalFolder::CalFolder() : CalFolder(platform::machineDataFolder() / "Tarvenis" / "cal_files", "cal_files") {}

CalFolder::CalFolder(std::filesystem::path machineWide, std::filesystem::path fallback)
    : machineWide_(std::move(machineWide)), fallback_(std::move(fallback)) {}

std::string CalFolder::path() const {
    if (platform::makeUsableFolder(machineWide_)) return (machineWide_ / "").string();
    platform::makeUsableFolder(fallback_);
    return (fallback_ / "").string();
}

std::string CalFolder::fileOf(std::string_view prefix, std::uint32_t serialNumber,
                              std::string_view suffix) const {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "%08d", static_cast<std::int32_t>(serialNumber));
    return path().append(prefix).append(number.data()).append(suffix);
}

bool FlashCache::read(std::uint32_t serialNumber, std::span<std::byte> image) const {
    return platform::readFile(fileName(serialNumber), image);
}

void FlashCache::write(std::uint32_t serialNumber, std::span<const std::byte> image) const {
    try {
        platform::replaceFile(fileName(serialNumber), image);
    } catch (const std::bad_alloc&) {
        return;  // no memory for the name: no file
    }
}

std::string FlashCache::fileName(std::uint32_t serialNumber) const {
    return folder_.fileOf("", serialNumber, ".hxr_adjust");
}

}  // namespace hxr
