#include "link/builders.h"

#include <charconv>
#include <cstring>

#include "link/words.h"

namespace hxr {
namespace {

using words::noOperation;

constexpr std::uint16_t firstDestinationRegister = 0x320;
constexpr std::size_t mostRegistersInBlock = 255;

// What an IPv4 header of the unit's packets holds beside the addresses, summed in 16-bit words: version and
// header length, time to live 16 with protocol 17, and the total length.
constexpr std::uint32_t fixedHeaderSum = 0x4500 + 0x1011;
constexpr std::uint32_t dataPacketBytes = 8244;
constexpr std::uint32_t contextPacketBytes = 140;

constexpr std::uint32_t headerChecksum(std::uint32_t addressSum, std::uint32_t totalLength) {
    std::uint32_t sum = addressSum + fixedHeaderSum + totalLength;
    while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
    return ~sum & 0xFFFF;
}

}  // namespace

void appendRegister(CommandList& list, std::uint16_t address, std::uint32_t value) {
    list.append(words::registerBlock(1, address));
    for (const std::uint32_t word : {value, noOperation, noOperation, noOperation, noOperation})
        list.append(word);
}

void appendRegisterBlock(CommandList& list, std::uint16_t address, std::span<const std::uint32_t> values) {
    list.append(words::registerBlock(static_cast<std::uint32_t>(values.size()), address));
    if (values.size() <= mostRegistersInBlock) list.append(values);
    list.append(noOperation);
    list.append(noOperation);
}

void appendStreamDestination(CommandList& list, int slot, const char* destination, const char* source,
                             std::uint16_t port, std::uint64_t peer) {
    const std::uint32_t to = addressFromText(destination);
    const std::uint32_t from = addressFromText(source);
    const std::uint32_t addressSum = (to >> 16) + (from >> 16) + (to & 0xFFFF) + (from & 0xFFFF);
    const std::uint32_t values[] = {
        to,
        static_cast<std::uint32_t>(port) << 16 | static_cast<std::uint32_t>(peer >> 32 & 0xFFFF),
        static_cast<std::uint32_t>(peer & 0xFFFFFFFF),
        headerChecksum(addressSum, dataPacketBytes) << 16 | headerChecksum(addressSum, contextPacketBytes),
    };
    appendRegisterBlock(list, static_cast<std::uint16_t>(firstDestinationRegister + 4 * slot), values);
}

void appendTimebaseWords(CommandList& list, std::uint16_t dac, std::uint32_t reference, bool gpsUpdate) {
    const bool external = reference == 1;
    constexpr std::uint8_t externalReferenceBit = 0x40;
    list.append(words::expanderWrite(words::generatorAndReference, externalReferenceBit,
                                     external ? externalReferenceBit : 0));
    list.append(words::applyPeripherals);

    const auto ungoverned = external ? words::TimebaseMode::external : words::TimebaseMode::internal;
    list.append(words::timebase(gpsUpdate ? words::TimebaseMode::followGps : ungoverned, dac));
}

void appendChannelRoute(CommandList& list, int unit, const ChannelConfig& channels, int hardwareDecimation,
                        bool localStream, bool littleEndian) {
    std::uint32_t setup = 0;
    for (int input = 0; input < words::channelsPerUnit; ++input) {
        const int channel = words::channelsPerUnit * unit + input;
        const bool streams = channel < static_cast<int>(channels.channelEnabled.size()) &&
                             channels.channelEnabled[static_cast<std::size_t>(channel)] &&
                             channel != channels.focusChannel;
        if (streams) setup |= 1U << input;
    }
    if (channels.focusChannel >= 0 && channels.focusChannel / words::channelsPerUnit == unit) {
        setup |= static_cast<std::uint32_t>(channels.focusChannel % words::channelsPerUnit + 4) << 4;
    }
    const std::uint32_t decimationCode = hardwareDecimation == 1 ? 1 : hardwareDecimation == 2 ? 2 : 3;
    setup |= 0x1000 | decimationCode << 8;
    if (localStream || littleEndian) setup |= 0x2000;
    list.append(words::channelRoute(static_cast<std::uint16_t>(setup)));
}

std::uint32_t addressFromText(const char* text) {
    std::uint32_t address = 0;
    const char* const end = text + std::strlen(text);
    for (int part = 0; part < 4; ++part) {
        unsigned long octet = 0;
        const auto [next, error] = std::from_chars(text, end, octet);
        if (error == std::errc::result_out_of_range || (error == std::errc{} && octet > 255)) return address;
        const bool another = part < 3;
        if (error != std::errc{} || (another && (next == end || *next != '.'))) return 0;
        address |= static_cast<std::uint32_t>(octet) << (24 - 8 * part);
        text = another ? next + 1 : next;
    }
    return address;
}

}  // namespace hxr
