#include "device/holdover_record.h"

#include <array>
#include <cstddef>
#include <new>

#include "platform/files.h"

namespace hxr {
namespace {

constexpr std::size_t recordBytes = 64;
constexpr std::uint64_t mark = 0x00677073;
constexpr std::uint64_t version = 1;

enum Offset : std::size_t { markAt = 0, versionAt = 4, timeAt = 8, coarseTuneAt = 16 };

using Bytes = std::array<std::byte, recordBytes>;

std::uint64_t take(const Bytes& bytes, std::size_t offset, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value |= std::to_integer<std::uint64_t>(bytes[offset + i]) << 8 * i;
    return value;
}

void put(Bytes& bytes, std::size_t offset, std::size_t width, std::uint64_t value) {
    for (std::size_t i = 0; i < width; ++i) bytes[offset + i] = static_cast<std::byte>(value >> 8 * i & 0xFF);
}

std::string fileOf(const CalFolder& folder, std::uint32_t serialNumber) {
    return folder.fileOf("rk", serialNumber, "gps.bin");
}

}  // namespace

std::optional<HoldoverRecord> readHoldoverRecord(const CalFolder& folder, std::uint32_t serialNumber) {
    Bytes bytes{};
    if (!platform::readFile(fileOf(folder, serialNumber), bytes)) return std::nullopt;
    if (take(bytes, markAt, 4) != mark || take(bytes, versionAt, 4) != version) return std::nullopt;
    return HoldoverRecord{take(bytes, timeAt, 8), take(bytes, coarseTuneAt, 8)};
}

void writeHoldoverRecord(const CalFolder& folder, std::uint32_t serialNumber, const HoldoverRecord& record) {
    Bytes bytes{};
    put(bytes, markAt, 4, mark);
    put(bytes, versionAt, 4, version);
    put(bytes, timeAt, 8, record.time);
    put(bytes, coarseTuneAt, 2, record.coarseTune);
    try {
        platform::replaceFile(fileOf(folder, serialNumber), bytes);
    } catch (const std::bad_alloc&) {
        return;  // no memory for the name: no file
    }
}

}  // namespace hxr
