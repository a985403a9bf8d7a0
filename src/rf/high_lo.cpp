#include <cmath>

#include "rf/channel_lo.h"
#include "rf/register_images.h"
#include "rf/synthesizer_words.h"

namespace hxr {
namespace {

using words::Word;

constexpr double lowestHighVcoHz = 1.1e10;

/// Writes to a channel's `highLo`.
struct HighLo {
    int channel;

    template <typename Value>
    Word operator()(std::uint16_t address, Value value) const {
        return words::highLoWrite(channel, address, static_cast<std::uint8_t>(value));
    }
};

constexpr std::array<Word, 4> pauseFor(std::uint16_t ticks) {
    return {words::pause(ticks), words::noOperation, words::noOperation, words::noOperation};
}
constexpr std::array<Word, 4> settle = pauseFor(0x18);
constexpr std::array<Word, 4> restart = pauseFor(0x20);

/// The output stage's code.
std::uint8_t outputStage(double hz) {
    if (hz <= 6.5625e9) return 6;
    if (hz <= 8.984375e9) return 7;
    if (hz <= 10.9765625e9) return 9;
    return 11;
}

/// The factory's point for an output frequency.
const LoTableRow& tunedRow(const LoContext& context, int channel, double hz) {
    constexpr double spacingHz = 1.5625e7;
    const auto& table = context.highLoTables[static_cast<std::size_t>(channel)];
    const double listedHz = hz < lowestHighVcoHz ? 2 * hz : hz;
    return table[rowIndex((listedHz - lowestHighVcoHz) / spacingHz, table.size())];
}

// A point's VCO setting lies across three registers.
Word coreWord(HighLo write, const LoTableRow& row) { return write(0x35, 0) + row.c; }
Word bandWord(HighLo write, const LoTableRow& row) {
    return write(0x16, (row.b >> 1) + ((row.a & 1) != 0 ? 0x80 : 0));
}
std::uint32_t lowestBits(const LoTableRow& row) { return (row.b & 1) * 0x80 + ((row.a & 2) != 0 ? 0x40 : 0); }

}  // namespace

WordRun buildHighLoImage(int channel) {
    WordRun run;
    for (const auto& [address, value, pauseBehind] : highLoImage) {
        run.push_back(words::highLoWrite(channel, address, value));
        if (pauseBehind) appendRun(run, chipPause(0x50));
    }
    run.push_back(words::channelWord(channel, 2, 0x380001));
    return run;
}

WordRun buildHighLoTune(const LoContext& context, int channel, double hz) {
    const HighLo write{channel};
    constexpr double referenceHz = 2.5e8;
    constexpr double fractions = 512;
    const std::uint32_t halvings = doubledTo(lowestHighVcoHz, hz).halvings;
    // The divider counts the divided output. A tenth of a count keeps exact multiples from falling below.
    const auto ratio = static_cast<std::uint32_t>(std::floor(hz / referenceHz * fractions + 0.1));

    WordRun run{write(0x2B, 0x01)};
    appendRun(run, settle);
    appendRun(run, {write(0x1F, 0x0B), write(0x4D, context.cbbLoaded ? 0x07 : 0x00),
                    write(0x20, context.cbbLoaded ? 0x41 : 0xC1)});
    appendRun(run, restart);

    Word mode = write(0x15, 0x02) + (ratio >> 8 & 1);
    if (context.cbbLoaded) {
        const LoTableRow& row = tunedRow(context, channel, hz);
        appendRun(run, {coreWord(write, row), bandWord(write, row)});
        mode += lowestBits(row);
    }
    appendRun(run, settle);
    appendRun(run, {write(0x29, outputStage(hz)), mode, write(0x14, ratio & 0xFF),
                    write(0x11, 0) + (halvings << 5), write(0x10, 0) + (ratio >> 9)});
    return run;
}

WordRun buildHighLoFollow(const LoContext& context, int channel, double hz) {
    const HighLo write{channel};
    const auto [vcoHz, halvings] = doubledTo(lowestHighVcoHz, hz);
    const bool upperPump = vcoHz > 1.6e10 && vcoHz <= 2e10;
    const LoTableRow& row = tunedRow(context, channel, hz);

    WordRun run{write(0x2B, 0x01)};
    appendRun(run, settle);
    appendRun(run, {write(0x1F, upperPump ? 0x07 : 0x09), write(0x4D, 0x07), write(0x20, 0x01)});
    appendRun(run, restart);
    appendRun(run, {coreWord(write, row), bandWord(write, row)});
    appendRun(run, settle);
    appendRun(run, {write(0x29, outputStage(hz)), write(0x15, 0x06) + lowestBits(row), write(0x14, 0x00),
                    write(0x11, 0) + (halvings << 5), write(0x10, hz > 1e10 ? 0x20 : 0x10)});
    return run;
}

}  // namespace hxr
