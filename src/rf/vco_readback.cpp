#include "rf/vco_readback.h"

#include <algorithm>

#include "rf/channel_lo.h"
#include "rf/shared_lo.h"
#include "rf/synthesizer_words.h"

namespace hxr {
namespace {

using words::Word;

/// How long a read byte is on its way.
void appendReadPause(WordRun& run) {
    for (int i = 0; i < 3; ++i) appendRun(run, chipPause(0x50));
}

void appendRead(WordRun& run, Word read, std::uint32_t position) {
    run.push_back(read);
    appendReadPause(run);
    run.push_back(words::latchReadByte(position));
}

/// The LO frequency of a point in the tables of `lowLo` and `sharedLo`.
double lowPointHz(int point) { return std::min(point * 3'906'250.0 + 2e9, 3.9999e9); }

/// That of a `highLo`. One that lies below the output's range is tuned at its double, where the VCO is the same.
double highPointHz(int point) {
    constexpr double lowestOutputHz = 8e9;
    const double hz = std::min(point * 7.8125e6 + 5.5e9, 1.09999e10);
    return hz < lowestOutputHz ? 2 * hz : hz;
}

/// Tunes a channel on its own LO, in a band whose way out suits all points.
WordRun tuneChannel(LoContext& context, int channel, int band, double hz) {
    WordRun run = retuneChannelLo(context, channel, band, hz, false, IdleHighLo::off);
    run.push_back(words::applyPeripherals);
    return run;
}

/// Of `lowLo` and `sharedLo`, which are chips of one family: core, band and bias.
WordRun readLow(words::Chip chip) {
    // The chip tells its own choice only while it isn't set to take one from a table.
    constexpr std::uint16_t vcoControl = 0x20, readControl = 0x33;
    constexpr std::uint8_t ownChoice = 0x10, fromTable = 0x18, bandToRead = 0x2C, biasToRead = 0x6C;
    constexpr std::uint16_t core = 0x6F, bandOrBias = 0x6E;
    WordRun run{words::chipWrite(chip, vcoControl, ownChoice),
                words::chipWrite(chip, readControl, bandToRead)};
    appendReadPause(run);
    appendRead(run, words::chipRead(chip, core), 0);
    appendRead(run, words::chipRead(chip, bandOrBias), 1);
    run.push_back(words::chipWrite(chip, readControl, biasToRead));
    appendReadPause(run);
    appendRead(run, words::chipRead(chip, bandOrBias), 2);
    appendRun(run, {words::statusRequest, words::chipWrite(chip, vcoControl, fromTable)});
    return run;
}

WordRun readHigh(int channel) {
    struct Read {
        std::uint16_t address;
        std::uint32_t position;
    };
    // The first read only wakes the line.
    constexpr std::array reads{Read{0x5F, 4}, Read{0x5F, 4}, Read{0x5E, 5}, Read{0x59, 6}, Read{0x5A, 7}};
    WordRun run{words::highLoReadLine(channel, true)};
    appendReadPause(run);
    for (const auto& [address, position] : reads)
        appendRead(run, words::highLoRead(channel, address), position);
    appendRun(run, {words::highLoReadLine(channel, false), words::statusRequest});
    return run;
}

}  // namespace

CommandList planSelfCalibration(LoContext& context, const Synthesizer& synthesizer, int point) {
    constexpr int lowBand = 12, highBand = 18;
    const auto [kind, channel] = synthesizer;
    return planWhole(context, [&, kind = kind, channel = channel] {
        if (kind == Synthesizer::Kind::shared)
            return singlePacket(calibrateSharedLo(context, lowPointHz(point)));
        if (kind == Synthesizer::Kind::low)
            return singlePacket(tuneChannel(context, channel, lowBand, lowPointHz(point)));
        CommandList list = singlePacket(buildHighLoImage(channel));
        list.append({words::pause(100), words::noOperation, words::noOperation});
        list.append(tuneChannel(context, channel, highBand, highPointHz(point)));
        return list;
    });
}

CommandList planVcoReadback(const Synthesizer& synthesizer) {
    const auto [kind, channel] = synthesizer;
    const bool high = kind == Synthesizer::Kind::high;
    const words::Chip chip =
        kind == Synthesizer::Kind::shared ? words::Chip::sharedLo : words::lowLoOf(channel);
    CommandList list = singlePacket(high ? readHigh(channel) : readLow(chip));
    list.expectStatus(1);
    return list;
}

std::array<std::uint8_t, 3> vcoSettingOf(const Synthesizer& synthesizer, std::uint32_t readback) {
    const auto byte = [readback](int position) {
        return static_cast<std::uint8_t>(readback >> 8 * position);
    };
    const bool lastInFourth = synthesizer.kind == Synthesizer::Kind::high && (byte(0) & 2) != 0;
    return {byte(0), byte(1), byte(lastInFourth ? 3 : 2)};
}

}  // namespace hxr
