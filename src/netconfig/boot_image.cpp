#include "netconfig/boot_image.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "netconfig/little_endian.h"

namespace hxr {
namespace {

constexpr std::string_view placeholder = "11111111", versionMark = "FW Ver";
constexpr std::size_t bytesPerCharacter = 2;
constexpr std::size_t versionBytes = 2;

bool isAt(std::span<const std::byte> image, std::size_t offset, std::string_view text, std::size_t step = 1) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (std::to_integer<char>(image[offset + i * step]) != text[i]) return false;
    }
    return true;
}

struct Sum {
    std::uint32_t words;
    std::size_t place;  ///< of the checksum
};

/// @return nothing if the marks or records aren't there
std::optional<Sum> sumOf(std::span<const std::byte> image) {
    if (!hasBootMark(image)) return std::nullopt;
    std::uint32_t sum = 0;
    auto record = bootRecordAt(image, firstBootRecord);
    for (; record && record->words != 0; record = bootRecordAt(image, record->end())) {
        if (record->end() > image.size()) return std::nullopt;
        for (std::size_t at = record->dataOffset; at < record->end(); at += sizeof sum)
            sum += wordAt(image, at);
    }
    if (!record || record->end() + sizeof sum > image.size()) return std::nullopt;
    return Sum{sum, record->dataOffset};
}

}  // namespace

bool hasBootMark(std::span<const std::byte> image) { return image.size() >= 2 && isAt(image, 0, "CY"); }

std::optional<BootRecord> bootRecordAt(std::span<const std::byte> image, std::uint64_t offset) {
    constexpr std::size_t headBytes = 8;
    if (offset + headBytes > image.size()) return std::nullopt;
    const auto at = static_cast<std::size_t>(offset);
    return BootRecord{wordAt(image, at), wordAt(image, at + 4), at + headBytes};
}

bool verifyChecksum(std::span<const std::byte> image) {
    if (!hasBootMark(image)) return false;
    const auto sum = sumOf(image);
    if (sum && sum->words == wordAt(image, sum->place)) return true;
    std::fputs("Fail to boot due to checksum error\n", stdout);
    return false;
}

void storeChecksum(std::span<std::byte> image) {
    if (const auto sum = sumOf(image)) putWord(image, sum->place, sum->words);
}

void putSerialNumber(std::span<std::byte> image, std::int32_t serial) {
    const std::string digits = std::to_string(serial);
    const std::size_t length = bytesPerCharacter * (placeholder.size() - 1) + 1;
    if (digits.size() != placeholder.size()) return;
    for (std::size_t offset = 0; offset + length <= image.size(); ++offset) {
        if (!isAt(image, offset, placeholder, bytesPerCharacter)) continue;
        for (std::size_t i = 0; i < digits.size(); ++i)
            image[offset + i * bytesPerCharacter] = static_cast<std::byte>(digits[i]);
        storeChecksum(image);
        return;
    }
}

std::optional<std::span<const std::byte, 2>> firmwareVersion(std::span<const std::byte> image) {
    const std::size_t length = versionMark.size() + versionBytes;
    for (std::size_t offset = 0; offset + length < image.size(); ++offset) {
        if (isAt(image, offset, versionMark))
            return image.subspan(offset + versionMark.size()).first<versionBytes>();
    }
    return std::nullopt;
}

}  // namespace hxr
