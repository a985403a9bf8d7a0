#include "netconfig/flash_programming.h"

#include <algorithm>
#include <array>
#include <vector>

#include "netconfig/boot_image.h"
#include "platform/files.h"

namespace hxr {
namespace {

constexpr std::uint32_t blockPages = 256;
constexpr std::uint32_t replyPages = replyBytes / flashPageSize;

std::uint16_t argumentFor(std::uint32_t page) { return static_cast<std::uint16_t>(page); }

/// A file's content, zeros behind it up to a section's length; empty if it can't be read or is longer.
std::vector<std::byte> loadFor(const FlashSection& section, const std::filesystem::path& file) {
    auto content = platform::readWholeFile(file, section.bytes());
    if (!content) return {};
    content->resize(section.bytes());
    return std::move(*content);
}

std::byte reversedBits(std::byte value) {
    auto bits = std::to_integer<unsigned>(value);
    bits = (bits & 0x0F) << 4 | bits >> 4;
    bits = (bits & 0x33) << 2 | (bits >> 2 & 0x33);
    bits = (bits & 0x55) << 1 | (bits >> 1 & 0x55);
    return static_cast<std::byte>(bits);
}

}  // namespace

HXRStatus writeFlashPage(ConfigNetDevice& device, std::uint32_t page, FlashPage data) {
    constexpr struct {
        Opcode opcode;
        std::size_t offset, bytes;
    } parts[] = {{Opcode::pageFirstPart, 0, 384},
                 {Opcode::pageSecondPart, 384, 384},
                 {Opcode::pageThirdPart, 768, 256}};
    for (const auto& part : parts) {
        const HXRStatus sent =
            device.send(part.opcode, argumentFor(page), data.subspan(part.offset, part.bytes));
        if (sent != hxrNoError) return sent;
    }
    return hxrNoError;
}

HXRStatus readFlashPages(ConfigNetDevice& device, std::uint32_t page, std::span<std::byte> data) {
    const HXRStatus status = device.ask(Opcode::readFlash, argumentFor(page));
    if (status == hxrNoError) std::ranges::copy(device.reply(), data.begin());
    return status;
}

HXRStatus eraseFlash(ConfigNetDevice& device, std::uint32_t page) {
    constexpr int rounds = 50;
    constexpr std::chrono::milliseconds pause{200};
    constexpr std::byte busyBit{1};
    const HXRStatus started = device.send(Opcode::eraseBlock, argumentFor(page));
    if (started != hxrNoError) return started;
    for (int round = 0; round < rounds; ++round) {
        const HXRStatus status = device.ask(Opcode::eraseStatus, argumentFor(page));
        if (status != hxrNoError) return status;
        if ((device.reply()[0] & busyBit) == std::byte{0}) break;
        device.clock().sleep(pause);
    }
    return hxrNoError;
}

HXRStatus clearSection(ConfigNetDevice& device, const FlashSection& section) {
    for (std::uint32_t page = 0; page < section.pages; page += blockPages) {
        const HXRStatus erased = eraseFlash(device, section.firstPage + page);
        if (erased != hxrNoError) return erased;
    }
    return hxrNoError;
}

HXRStatus readSection(ConfigNetDevice& device, const FlashSection& section, std::byte* data) {
    for (std::uint32_t page = 0; page < section.pages; page += replyPages) {
        const HXRStatus status =
            readFlashPages(device, section.firstPage + page, {data + page * flashPageSize, replyBytes});
        if (status != hxrNoError) return status;
    }
    return hxrNoError;
}

HXRStatus writeSection(ConfigNetDevice& device, const FlashSection& section,
                       std::span<const std::byte> data) {
    for (std::uint32_t page = 0; page < section.pages; ++page) {
        const auto content = data.subspan(page * flashPageSize).first<flashPageSize>();
        const HXRStatus written = writeFlashPage(device, section.firstPage + page, content);
        if (written != hxrNoError) return written;
    }
    for (std::uint32_t page = 0; page < section.pages; page += replyPages) {
        const auto source = data.subspan(page * flashPageSize, replyBytes);
        const HXRStatus read = device.ask(Opcode::readFlash, argumentFor(section.firstPage + page));
        if (read != hxrNoError || !std::ranges::equal(device.reply(), source)) return hxrFlashIOErr;
    }
    return hxrNoError;
}

HXRStatus writeFirmware(ConfigNetDevice& device, const std::filesystem::path& file, std::int32_t serial) {
    std::vector<std::byte> image = loadFor(firmwareSection, file);
    if (image.empty()) return hxrInvalidParameterErr;
    if (verifyChecksum(image)) putSerialNumber(image, serial);
    const auto version = firmwareVersion(image);
    if (!version) return hxrInvalidParameterErr;
    const std::array copy{(*version)[0], (*version)[1]};  // it may overlap its place
    std::ranges::copy(copy, image.end() - copy.size());
    return writeSection(device, firmwareSection, image);
}

HXRStatus writeBitstream(ConfigNetDevice& device, const std::filesystem::path& file) {
    std::vector<std::byte> bits = loadFor(bitstreamSection, file);
    if (bits.empty()) return hxrInvalidParameterErr;
    std::ranges::transform(bits, bits.begin(), reversedBits);
    return writeSection(device, bitstreamSection, bits);
}

}  // namespace hxr
