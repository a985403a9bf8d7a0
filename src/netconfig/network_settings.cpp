#include "netconfig/network_settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <utility>

#include "netconfig/flash_programming.h"
#include "netconfig/little_endian.h"

namespace hxr {
namespace {

namespace registers {
constexpr std::uint16_t macHigh = 6, macLow = 7, portAlong = 8, port = 9, ip = 10;
}

constexpr std::uint32_t macPage = 49152, networkPage = 49408;
constexpr std::uint32_t validMark = 1;
/// The words of the records.
namespace word {
constexpr std::size_t mark = 0, macHigh = 1, macLow = 2, port = 1, portAlong = 2, ip = 3;
}

constexpr unsigned macHighBits = 16;
constexpr std::size_t macDigits = 12;
constexpr std::size_t chamberSerialAt = 8;

struct RecordWord {
    std::size_t position;
    std::uint32_t value;
};
using RecordWords = std::initializer_list<RecordWord>;

void put(std::span<std::byte> record, RecordWords words) {
    putWord(record, word::mark, validMark);
    for (const auto& [position, value] : words) putWord(record, sizeof value * position, value);
}

HXRStatus replacePage(ConfigNetDevice& device, std::uint32_t page, FlashPage content) {
    const HXRStatus erased = eraseFlash(device, page);
    return erased != hxrNoError ? erased : writeFlashPage(device, page, content);
}

/// Changes some words of the network record and keeps the others.
HXRStatus updateNetworkRecord(ConfigNetDevice& device, RecordWords words) {
    const HXRStatus read = device.ask(Opcode::readFlash, static_cast<std::uint16_t>(networkPage));
    if (read != hxrNoError) return read;
    std::array<std::byte, flashPageSize> page;
    std::ranges::copy(device.reply().first(page.size()), page.begin());
    put(page, words);
    return replacePage(device, networkPage, page);
}

HXRStatus writeRegister(ConfigNetDevice& device, std::uint16_t which, std::uint32_t value) {
    std::array<std::byte, sizeof value> payload;
    putWord(payload, 0, value);
    return device.send(Opcode::writeRegister, which, payload);
}

HXRStatus readReplyWord(ConfigNetDevice& device, Opcode opcode, std::uint16_t argument, std::uint32_t& value,
                        std::size_t offset = 0) {
    const HXRStatus status = device.ask(opcode, argument);
    if (status == hxrNoError) value = wordAt(device.reply(), offset);
    return status;
}

}  // namespace

std::optional<std::uint32_t> parseIp(std::string_view text) {
    constexpr std::size_t longest = 15, fields = 4;
    constexpr unsigned highest = 255;
    if (text.size() > longest || std::ranges::count(text, '.') + 1 != static_cast<std::ptrdiff_t>(fields))
        return std::nullopt;
    std::uint32_t address = 0;
    for (std::size_t i = 0; i < fields; ++i) {
        const std::string_view field = text.substr(0, text.find('.'));
        unsigned value = 0;
        const auto [behind, error] = std::from_chars(field.data(), field.data() + field.size(), value);
        if (error != std::errc() || behind != field.data() + field.size() || value > highest)
            return std::nullopt;
        address = address << 8 | value;
        text.remove_prefix(std::min(field.size() + 1, text.size()));
    }
    return address;
}

std::string ipText(std::uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(address >> shift & 0xFF) + (shift > 0 ? "." : "");
    return text;
}

std::optional<std::uint64_t> parseMac(std::string_view text) {
    constexpr std::size_t length = 17, apart = 3;
    constexpr int hexadecimal = 16;
    if (text.size() != length) return std::nullopt;
    std::uint64_t address = 0;
    for (std::size_t at = 0; at < length; at += apart) {
        unsigned value = 0;
        const char* const end = text.data() + at + 2;
        const auto [behind, error] = std::from_chars(text.data() + at, end, value, hexadecimal);
        if (error != std::errc() || behind != end) return std::nullopt;
        address = address << 8 | value;
    }
    return address;
}

std::string macText(std::uint64_t address) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = macDigits; i-- > 0;) {
        text += digits[address >> 4 * i & 0xF];
        if (i % 2 == 0 && i > 0) text += ':';
    }
    return text;
}

HXRStatus setMac(ConfigNetDevice& device, std::uint64_t address) {
    const auto high = static_cast<std::uint32_t>(address >> 32), low = static_cast<std::uint32_t>(address);
    std::array<std::byte, flashPageSize> page;
    page.fill(std::byte{0xFF});
    put(page, {{word::macHigh, high}, {word::macLow, low}});
    const HXRStatus kept = replacePage(device, macPage, page);
    if (kept != hxrNoError) return kept;
    const HXRStatus written = writeRegister(device, registers::macHigh, high);
    return written != hxrNoError ? written : writeRegister(device, registers::macLow, low);
}

HXRStatus readMac(ConfigNetDevice& device, std::uint64_t& address) {
    std::uint32_t high = 0, low = 0;
    HXRStatus status = readReplyWord(device, Opcode::readRegister, registers::macHigh, high);
    if (status == hxrNoError) status = readReplyWord(device, Opcode::readRegister, registers::macLow, low);
    if (status != hxrNoError) return status;
    if (high >> macHighBits != 0) return hxrInvalidParameterErr;
    address = std::uint64_t{high} << 32 | low;
    return hxrNoError;
}

HXRStatus setIp(ConfigNetDevice& device, std::uint32_t address, bool persist) {
    const HXRStatus written = writeRegister(device, registers::ip, address);
    if (written != hxrNoError || !persist) return written;
    return updateNetworkRecord(device, {{word::ip, address}});
}

HXRStatus readIp(ConfigNetDevice& device, std::uint32_t& address) {
    return readReplyWord(device, Opcode::readRegister, registers::ip, address);
}

HXRStatus setPort(ConfigNetDevice& device, std::uint32_t port, bool persist) {
    HXRStatus written = writeRegister(device, registers::port, port);
    if (written == hxrNoError) written = writeRegister(device, registers::portAlong, port);
    if (written != hxrNoError || !persist) return written;
    return updateNetworkRecord(device, {{word::port, port}, {word::portAlong, port}});
}

HXRStatus readPort(ConfigNetDevice& device, std::uint32_t& port) {
    return readReplyWord(device, Opcode::readRegister, registers::port, port);
}

HXRStatus readFirmwareVersion(ConfigNetDevice& device, std::uint32_t& version) {
    return readReplyWord(device, Opcode::firmwareVersion, 0, version);
}

HXRStatus readFlashSerial(ConfigNetDevice& device, std::uint32_t& serial) {
    return readReplyWord(device, Opcode::readFlash, static_cast<std::uint16_t>(chamberSection.firstPage),
                         serial, chamberSerialAt);
}

HXRStatus waitForFpga(ConfigNetDevice& device, std::int32_t& state) {
    constexpr int tries = 300;
    constexpr std::chrono::milliseconds pause{100};
    constexpr std::uint32_t stateBits = 3;
    constexpr std::int32_t busy = 1;
    state = busy;
    for (int i = 0; i < tries; ++i) {
        std::uint32_t said = 0;
        const HXRStatus status = readReplyWord(device, Opcode::fpgaStatus, 0, said);
        if (status != hxrNoError) return status;
        if ((said & stateBits) != static_cast<std::uint32_t>(busy)) {
            state = static_cast<std::int32_t>(said & stateBits);
            return hxrNoError;
        }
        device.clock().sleep(pause);
    }
    return hxrNoError;
}

}  // namespace hxr
