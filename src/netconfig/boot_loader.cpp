#include "netconfig/boot_loader.h"

#include <algorithm>
#include <array>
#include <vector>

#include "netconfig/boot_image.h"
#include "platform/files.h"

namespace hxr {
namespace {

constexpr std::uint8_t memoryRequest = 0xA0;
constexpr std::size_t blockBytes = 2048;
/// More than any controller of this kind has room for.
constexpr std::size_t longestFile = std::size_t{16} << 20;

/// Stores a block and reads it back, three times over. What counts is the last time.
bool loadBlock(CCyControlEndPoint& control, std::uint32_t address, std::span<std::byte> block,
               const platform::Clock& clock) {
    constexpr int rounds = 3;
    std::array<std::byte, blockBytes> readBack;
    bool same = false;
    for (int round = 0; round < rounds; ++round) {
        const auto back = std::span(readBack).first(block.size());
        const bool written = control.vendorRequest(false, memoryRequest, address, block, clock);
        const bool read = control.vendorRequest(true, memoryRequest, address, back, clock);
        same = written && read && control.lastLength == block.size() && std::ranges::equal(block, back);
    }
    return same;
}

bool loadRecord(CCyControlEndPoint& control, const BootRecord& record, std::span<std::byte> image,
                const platform::Clock& clock) {
    for (std::uint64_t at = record.dataOffset; at < record.end(); at += blockBytes) {
        const std::uint64_t length = std::min<std::uint64_t>(record.end() - at, blockBytes);
        if (at + length > image.size()) return false;
        const auto address = static_cast<std::uint32_t>(record.address + (at - record.dataOffset));
        const auto block = image.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(length));
        if (!loadBlock(control, address, block, clock)) return false;
    }
    return true;
}

}  // namespace

bool bootLoaderRuns(CCyControlEndPoint& control, const platform::Clock& clock) {
    std::array<std::byte, 1> answer;
    return control.vendorRequest(true, memoryRequest, 0, answer, clock);
}

void loadFirmware(CCyControlEndPoint& control, const std::filesystem::path& file,
                  const platform::Clock& clock) {
    auto image = platform::readWholeFile(file, longestFile);
    if (!image || !hasBootMark(*image)) return;
    auto record = bootRecordAt(*image, firstBootRecord);
    for (; record && record->words != 0; record = bootRecordAt(*image, record->end())) {
        if (!loadRecord(control, *record, *image, clock)) return;
    }
    if (record) control.vendorRequest(false, memoryRequest, record->address, {}, clock);
}

}  // namespace hxr
