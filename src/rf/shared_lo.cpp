#include "rf/shared_lo.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "rf/band_plan.h"
#include "rf/ratio_table.h"
#include "rf/register_images.h"
#include "rf/synthesizer_words.h"

namespace hxr {
namespace {

using words::Chip;
using words::Word;

constexpr double lowestOutputHz = 8e9;
constexpr double highestVcoHz = 1.6e10;
constexpr double referenceMHz = 1000.0;

/// What the channels' LO asks of `sharedLo`.
struct SharedOutput {
    double deliveredHz;
    double filteredHz;  ///< decides the output filter
};

/// In the high bands `sharedLo` gives a reference of at most 625 MHz, in band 0 nobody listens.
SharedOutput outputFor(int band, double hz) {
    constexpr double idleHz = 1e9;
    constexpr double highestReferenceHz = 625e6;
    constexpr int mostHalvings = 5;
    if (band == directBand) return {idleHz, idleHz};
    double delivered = hz;
    if (isHighBand(band)) {
        for (int i = 0; i < mostHalvings && delivered > highestReferenceHz; ++i) delivered /= 2;
    }
    return {delivered, hz};
}

std::uint32_t outputDividerExponent(double deliveredHz) {
    constexpr std::array upTo{125e6, 250e6, 500e6, 1e9, 2e9, 4e9};
    const auto limit =
        std::find_if(upTo.begin(), upTo.end(), [&](double edge) { return deliveredHz <= edge; });
    return static_cast<std::uint32_t>(upTo.end() - limit);
}

std::int32_t bandCodeFor(double vcoHz) {
    struct BandCode {
        double belowHz;
        std::int32_t code;
    };
    constexpr std::array codes{BandCode{8.4e9, 227},  BandCode{9.4e9, 195}, BandCode{10e9, 163},
                               BandCode{11.5e9, 131}, BandCode{12.2e9, 99}, BandCode{13.7e9, 67},
                               BandCode{14.5e9, 35}};
    constexpr std::int32_t highest = 3;
    const auto code =
        std::find_if(codes.begin(), codes.end(), [&](const BandCode& row) { return vcoHz < row.belowHz; });
    return code == codes.end() ? highest : code->code;
}

std::uint32_t offsetCountFor(double prescaledMHz) {
    if (prescaledMHz < 3428.5714285714284) return 3;
    if (prescaledMHz < 4444.444444444444) return 4;
    if (prescaledMHz < 5454.545454545455) return 5;
    return 6;
}

/// Plans the loop: the divided output is compared with 1000 MHz plus or minus the DDS.
void planOffset(LoContext& context, double outputMHz) {
    constexpr double tableStartMHz = 7999.0, tableSpacingMHz = 3.90625;
    constexpr double prescalerSwitchMHz = 12'000.0;
    constexpr double upperOffsetMHz = 1042.5, lowerOffsetMHz = 957.5;

    const std::uint32_t ratio =
        ratioTable[rowIndex((outputMHz - tableStartMHz) / tableSpacingMHz, ratioTable.size())];
    const bool byFour = outputMHz > prescalerSwitchMHz;
    const std::uint32_t count = byFour ? ratio / 2 : ratio;
    const double prescaledMHz = (byFour ? 0.25 : 0.5) * outputMHz;
    const std::uint32_t offsetCount = offsetCountFor(prescaledMHz);
    const double dividedMHz = prescaledMHz / offsetCount;
    const double comparedMHz = prescaledMHz / count;
    const bool upper = dividedMHz > 1085.0 || (dividedMHz > 915.0 && dividedMHz < 1000.0);
    const double nominalMHz = upper ? upperOffsetMHz : lowerOffsetMHz;
    const double offsetMHz = nominalMHz > dividedMHz ? dividedMHz + comparedMHz : dividedMHz - comparedMHz;

    context.ddsMHz = std::abs(referenceMHz - offsetMHz);
    context.offsetAboveRef = offsetMHz > referenceMHz;
    context.mainAboveOffset = dividedMHz > offsetMHz;
    context.aboveTwelveGHz = byFour;
    context.offsetCount = offsetCount;
    context.mainDivider = byFour ? 2 * count : count;
}

/// How much the VCO's frequency follows its tuning voltage; the bank of capacitors makes it steeper.
struct TuningGain {
    float perBand;
    float atBand200;
};
constexpr TuningGain tuningGainOf(std::int32_t core) {
    switch (core) {
        case 1:
            return {0.14F, 40};
        case 2:
            return {0.175F, 40};
        case 4:
            return {0.215F, 45};
        default:
            return {0.15F, 50};
    }
}

/// Finds the VCO's setting at the nominal temperature, and the charge pump that gives the loop its bandwidth. Single
/// precision is what the codes were worked out in.
void planVco(LoContext& context, double outputMHz) {
    constexpr double temperature = 25.0, calibratedAt = 33.0, perDegree = 6e-5, bandsPerDegree = 0.077;
    constexpr double lowestMHz = 7996.0, highestMHz = 16'004.0;
    constexpr double tableStartMHz = 7992.2, tableSpacingMHz = 15.625;
    constexpr std::int32_t highestBand = 255, highestBias = 15;
    constexpr double loopBandwidth = 96.0;
    constexpr int leastPump = 4, mostPump = 16;

    double compensatedMHz = ((temperature - calibratedAt) * perDegree + 1.0) * outputMHz;
    std::int32_t bandShift = 0;
    if (compensatedMHz < lowestMHz || compensatedMHz > highestMHz) {
        bandShift =
            static_cast<std::int32_t>(std::floor((calibratedAt - temperature) * bandsPerDegree + 0.5));
        compensatedMHz = outputMHz;
    }
    const SharedVcoRow& row = context.sharedVcoTable[rowIndex(
        (compensatedMHz - tableStartMHz) / tableSpacingMHz, context.sharedVcoTable.size())];
    context.vcoCore = static_cast<std::int32_t>(row.core);
    context.vcoBand = std::clamp(static_cast<std::int32_t>(row.band) + bandShift, 0, highestBand);
    context.vcoBias = row.bias + (temperature < 0.0 && row.bias < highestBias ? 1 : 0);

    const auto [perBand, atBand200] = tuningGainOf(context.vcoCore);
    const float gain = static_cast<float>(200 - context.vcoBand) * perBand + atBand200;
    const auto dividers =
        static_cast<float>(context.aboveTwelveGHz ? 2 * context.offsetCount : context.offsetCount);
    context.pumpCode = static_cast<std::int32_t>(std::clamp(loopBandwidth / (gain / dividers),
                                                            double{leastPump}, double{mostPump})) -
                       1;
}

/// The DDS's 48-bit tuning word, and the write that makes it count.
WordRun ddsWords(double ddsMHz) {
    constexpr double countsPerMHz = 281'474'976'710.656;  // 2^48 / 1000
    constexpr std::uint64_t half = std::uint64_t{1} << 24;
    constexpr int bytes = 6;
    constexpr std::uint16_t firstAddress = 0x01A6;

    const double tuning = ddsMHz * countsPerMHz;
    const double high = std::floor(tuning / half);
    const double low = std::floor(tuning - high * half + 0.5);
    const std::uint64_t word = static_cast<std::uint64_t>(high) * half + static_cast<std::uint64_t>(low);

    WordRun run;
    for (int byte = bytes - 1; byte >= 0; --byte) {
        run.push_back(words::chipWrite(Chip::dds, static_cast<std::uint16_t>(firstAddress + byte),
                                       static_cast<std::uint8_t>(word >> 8 * byte)));
    }
    run.push_back(words::chipWrite(Chip::dds, 0x0005, 0x01));
    return run;
}

Word bandCodeWord(const LoContext& context) {
    return words::chipWrite(Chip::sharedLo, 0x70, 0x00) + static_cast<std::uint32_t>(context.sharedBandCode);
}

}  // namespace

WordRun buildSharedLoImage(SharedLoVco vco) {
    WordRun run{words::chipWrite(Chip::dds, 0x040C, 0x03), words::chipWrite(Chip::dds, 0x040B, 0xFF),
                words::filler};
    appendRegisters(run, Chip::sharedLo, std::array<RegisterValue, 2>{{{0x00, 0x99}, {0x00, 0x18}}});
    appendRegisters(run, Chip::sharedLo, vco == SharedLoVco::tabled ? sharedLoImage : sharedLoReadbackImage);
    return run;
}

WordRun buildSharedLoBringUp(SharedLoVco vco) {
    WordRun run{words::expanderWrite(0x03, 0xFF, 0xD0), words::expanderWrite(0x04, 0xFF, 0x07),
                words::expanderWrite(0x06, 0xFF, 0x72), words::expanderWrite(0x07, 0xFF, 0x24),
                words::applyPeripherals};
    appendRun(run, buildSharedLoImage(vco));
    appendRun(run, converterStart);
    appendRun(run, {words::applyPeripherals, words::pause(0x4000), words::noOperation, words::noOperation});
    appendRun(run, buildSharedLoImage(vco));
    appendRun(run, {words::timebaseDacWrite(words::startingTimebase),
                    words::timebase(words::TimebaseMode::bringUp, words::startingTimebase)});
    return run;
}

// Without the offset loop the chip counts half of its VCO in fractions of its own reference.
WordRun calibrateSharedLo(LoContext& context, double hz) {
    constexpr double referenceHz = 125e6;
    constexpr double fractions = 512;
    const double countedHz = 2 * hz;
    const double integer = std::floor(countedHz / referenceHz);
    const double fraction = std::clamp(
        std::floor((countedHz - integer * referenceHz) * fractions / referenceHz + 0.5), 0.0, fractions - 1);
    const auto ratio = static_cast<std::uint32_t>(fraction);

    const auto write = [](std::uint16_t address, auto value) {
        return words::chipWrite(Chip::sharedLo, address, static_cast<std::uint8_t>(value));
    };
    context.sharedBandCode = bandCodeFor(2 * countedHz);
    return {bandCodeWord(context),   write(0x25, 0x1E),      write(0x24, 0x90),    write(0x1E, 0x18),
            write(0x17, ratio >> 8), write(0x16, ratio),     write(0x10, integer), words::filler,
            words::filler,           words::applyPeripherals};
}

WordRun takeSharedLoFromMaster() {
    return {words::synthesizerReset(Chip::sharedLo), words::expanderWrite(0x04, 0x80, 0x80)};
}

WordRun tuneSharedLo(LoContext& context, int band, double hz) {
    const auto [deliveredHz, filteredHz] = outputFor(band, hz);
    const std::uint32_t exponent = outputDividerExponent(deliveredHz);
    double vcoHz = 2 * deliveredHz * (1U << exponent);
    while (vcoHz > highestVcoHz) vcoHz /= 2;

    const double outputMHz = vcoHz * 1e-6;
    context.sharedBandCode = bandCodeFor(vcoHz);
    planOffset(context, outputMHz);
    planVco(context, outputMHz);

    const auto write = [](std::uint16_t address, std::uint8_t value) {
        return words::chipWrite(Chip::sharedLo, address, value);
    };
    WordRun run{
        bandCodeWord(context),
        write(0x38, 0) + static_cast<std::uint32_t>(context.vcoCore * 16 + context.vcoBias),
        write(0x37, 0) + static_cast<std::uint32_t>(context.vcoBand),
        write(0x25, 0x1C) + outputFilterCode(filteredHz),
        write(0x24, 0x80) + (exponent << 4),
        write(0x1E, 0x00) + (static_cast<std::uint32_t>(context.pumpCode) << 4) +
            (context.mainAboveOffset ? 0U : 8U),
        write(0x10, 0x00) + context.mainDivider,
        words::filler,
        words::filler,
        words::chipWrite(Chip::offset, 0x0004, 0x40),
        words::chipWrite(Chip::offset, 0x0016, 0x18) + context.offsetCount,
        words::filler,
    };
    appendRun(run, ddsWords(context.ddsMHz));
    appendRun(run, {words::filler, bandCodeWord(context)});

    constexpr std::uint8_t upperSideband = 0x20, lowerSideband = 0x80, prescalerByFour = 0x01;
    run.push_back(words::expanderWrite(
        0x03, upperSideband | lowerSideband | prescalerByFour,
        static_cast<std::uint8_t>((context.offsetAboveRef ? upperSideband : lowerSideband) |
                                  (context.aboveTwelveGHz ? prescalerByFour : 0))));
    constexpr std::uint8_t lowerSidebandFilter = 0x10;
    run.push_back(
        words::expanderWrite(0x06, lowerSidebandFilter, context.offsetAboveRef ? 0 : lowerSidebandFilter));
    return run;
}

}  // namespace hxr
