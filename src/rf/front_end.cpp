#include "rf/front_end.h"

#include <algorithm>
#include <cmath>

#include "link/builders.h"
#include "rf/band_plan.h"

namespace hxr {
namespace {

using words::Word;

// A channel's DAC has four outputs: two fixed levels, then the two rails' offsets around its middle.
constexpr std::uint32_t dacOutputs = 0x180000;
constexpr std::uint32_t dacStride = 0x010000;
constexpr std::uint32_t dacMiddle = 0x8000;

/// The preselector's switches, placed above the attenuator's.
std::uint32_t preselectorBits(int band) {
    constexpr std::uint32_t firstHighBand = 1U << 7, secondHighBand = 1U << 6;
    constexpr std::uint32_t lowPath = 3, firstHighPath = 1, secondHighPath = 2, directPath = 4;

    std::uint32_t code = bandSettings(band).preselectorCode;
    std::uint32_t path = lowPath;
    if (band == lastLowBand + 1) {
        code |= firstHighBand;
        path = firstHighPath;
    } else if (band == lastLowBand + 2) {
        code |= secondHighBand;
        path = secondHighPath;
    } else if (isHighBand(band)) {
        path = 0;
    } else if (band <= directBand) {
        path += directPath;
    }
    return (code * 8 + path) * 32;
}

/// The filter behind the LO, a three-bit code.
std::uint32_t loFilter(double loHz) {
    struct Filter {
        double aboveHz;
        std::uint32_t code;
    };
    constexpr std::array filters{Filter{2.85e9, 4}, Filter{1.8e9, 6}, Filter{900e6, 7},
                                 Filter{440e6, 5},  Filter{240e6, 3}, Filter{120e6, 1}};
    constexpr std::uint32_t lowest = 2;
    const auto filter = std::find_if(filters.begin(), filters.end(),
                                     [&](const Filter& candidate) { return loHz > candidate.aboveHz; });
    return filter == filters.end() ? lowest : filter->code;
}

/// The switches of a channel's path: `a` to `d`, and `f` for the high bands.
struct PathSwitches {
    std::uint32_t a, b, c, d, f;
};

constexpr PathSwitches pathSwitches(bool high, bool fullBand) {
    if (!high) return fullBand ? PathSwitches{0, 0, 1, 0, 0} : PathSwitches{1, 0, 0, 0, 0};
    return fullBand ? PathSwitches{1, 1, 0, 0, 1} : PathSwitches{1, 0, 1, 1, 1};
}

/// An NCO's frequency in its counts, negative ones in two's complement.
std::uint64_t ncoCounts(double offsetHz) {
    return static_cast<std::uint64_t>(
        static_cast<std::int64_t>(std::floor(offsetHz / ncoResolutionHz + 0.5)));
}

std::uint16_t ncoRegister(int channel) { return static_cast<std::uint16_t>(0x300 + 2 * channel); }

void appendNcoWord(CommandList& list, std::uint16_t address, std::uint64_t word) {
    appendRegisterBlock(list, address,
                        std::array{static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32)});
}

/// Exchanges the outer two of three bits.
constexpr std::uint32_t mirrored(std::uint32_t code) { return (code & 1) << 2 | (code & 2) | code >> 2; }

}  // namespace

std::array<Word, 8> buildFrontEndImage(const FrontEnd& frontEnd) {
    const auto [channel, band, attenuatorDb, gainCode, loftI, loftQ, firstDacValue] = frontEnd;
    const auto dac = [c = channel](std::uint32_t output, std::uint32_t value) {
        return words::channelWord(c, 2, dacOutputs + output * dacStride) + value;
    };
    constexpr std::uint32_t highBandSwitch = 0x100, lowBandSwitch = 0x101;
    constexpr int lastSwitchedBand = 8;

    return {
        dac(0, firstDacValue),
        dac(1, tunedFirstDacValue),
        // Added as 32-bit numbers: a negative offset borrows from the middle.
        dac(2, dacMiddle + static_cast<std::uint32_t>(loftI)),
        dac(3, dacMiddle + static_cast<std::uint32_t>(loftQ)),
        words::channelWord(channel, 3, preselectorBits(band)) + static_cast<std::uint32_t>(attenuatorDb),
        words::channelWord(channel, 1, 0) + static_cast<std::uint32_t>(gainCode),
        words::channelWord(channel, 4, bandSettings(band).routing),
        words::bandSwitch((band <= lastSwitchedBand ? lowBandSwitch : highBandSwitch) << channel),
    };
}

Word buildPathWord(int channel, int band, bool fullBand, double loHz) {
    const bool high = isHighBand(band);
    const auto [a, b, c, d, f] = pathSwitches(high, fullBand);
    const std::uint32_t e = high ? 0 : loFilter(loHz);

    // Each channel's switches are wired in an order of its own: which of them stand in bits 7 to 4.
    struct Wiring {
        std::uint8_t expanderRegister;
        std::uint32_t bit7, bit6, bit5, bit4;
        std::uint32_t filter;
    };
    const std::array<Wiring, words::channelsPerUnit> wirings{{
        {0x00, a, b, c, d, e},
        {0x01, c, d, a, b, e},
        {0x02, d, c, b, a, e},
        {0x05, c, b, a, d, mirrored(e)},
    }};
    const Wiring& wiring = wirings[static_cast<std::size_t>(channel)];
    constexpr std::uint8_t allBits = 0xFF;
    return words::expanderWrite(
        wiring.expanderRegister, allBits,
        static_cast<std::uint8_t>(wiring.bit7 << 7 | wiring.bit6 << 6 | wiring.bit5 << 5 | wiring.bit4 << 4 |
                                  wiring.filter << 1 | f));
}

void appendInputSelect(CommandList& list, bool fullBand, int channel, int band) {
    constexpr std::uint16_t edgeTicks = 9, lowTicks = 9, highTicks = 39, settleTicks = 10'000;
    constexpr std::uint32_t tunedInput = 0x001, fullBandInput = 0x100, highInput = 0x010;

    const bool high = isHighBand(band);
    const std::uint32_t taken = fullBand ? fullBandInput | (high ? highInput : 0)
                                : high   ? highInput
                                         : tunedInput;
    const auto wait = [&](words::Word pause) {
        list.append({pause, words::noOperation, words::noOperation});
    };
    wait(words::pause(high ? highTicks : lowTicks));
    list.append(words::inputSelect(taken << channel));
    wait(words::settlingPause(settleTicks));
    wait(words::pause(edgeTicks));
}

void appendNco(CommandList& list, int channel, double offsetHz) {
    constexpr std::uint64_t wordBits = (std::uint64_t{1} << 56) - 1;
    appendNcoWord(list, ncoRegister(channel), ncoCounts(offsetHz) & wordBits);
}

void appendStreamNco(CommandList& list, int channel, double offsetHz, bool shared) {
    constexpr std::uint64_t wordBits = (std::uint64_t{1} << 62) - 1, sharedBit = std::uint64_t{1} << 62;
    constexpr std::uint16_t sharedRegister = 0x30E;
    const std::uint64_t counts = ncoCounts(offsetHz);
    appendNcoWord(list, ncoRegister(channel), (counts & wordBits) | (shared ? sharedBit : 0));
    if (shared) appendNcoWord(list, sharedRegister, counts);
}

}  // namespace hxr
