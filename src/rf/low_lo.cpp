#include <algorithm>
#include <cmath>

#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/register_images.h"
#include "rf/synthesizer_words.h"

namespace hxr {
namespace {

using words::Chip;
using words::Word;

constexpr double referenceHz = 125e6;
constexpr double lowestLowVcoHz = 4e9;
constexpr int fractions = 32;

/// The factory's point for a VCO frequency.
const LoTableRow& tunedRow(const std::vector<LoTableRow>& table, double vcoHz) {
    constexpr double spacingHz = 7.8125e6;
    return table[rowIndex((vcoHz - lowestLowVcoHz) / spacingHz, table.size())];
}

}  // namespace

WordRun buildLowLoImage(LoContext& context, int channel) {
    const Chip chip = words::lowLoOf(channel);
    const auto prelude = context.cbbLoaded ? std::array<RegisterValue, 2>{{{0x00, 0x99}, {0x00, 0x00}}}
                                           : std::array<RegisterValue, 2>{{{0x00, 0x18}, {0x01, 0x00}}};
    WordRun run;
    appendRegisters(run, chip, prelude);
    appendRegisters(run, chip, context.cbbLoaded ? lowLoTabledImage : lowLoImage);
    appendRun(run, chipPause(0x20));
    context.lowLoReady[static_cast<std::size_t>(channel)] = true;
    return run;
}

WordRun buildLowLoTune(LoContext& context, int channel, int band, double hz, IdleHighLo idle) {
    const auto index = static_cast<std::size_t>(channel);
    const Chip chip = words::lowLoOf(channel);
    if (band == 0 || isHighBand(band)) {
        context.lowLoReady[index] = false;
        WordRun run{words::synthesizerReset(chip)};
        // The chip takes a tuning for good the second time.
        for (int pass = 0; isHighBand(band) && pass < 2; ++pass)
            appendRun(run, buildHighLoTune(context, channel, hz));
        return run;
    }

    const auto write = [chip](std::uint16_t address, auto value) {
        return words::chipWrite(chip, address, static_cast<std::uint8_t>(value));
    };
    WordRun run;
    if (idle == IdleHighLo::parked) {
        run = buildHighLoTune(context, channel, parkedHighLoHz);
    } else {
        run = {words::highLoOff(channel), write(0x00, 0x18)};
    }

    const auto [vcoHz, halvings] = doubledTo(lowestLowVcoHz, hz);
    const auto ratio = static_cast<std::uint32_t>(std::floor(vcoHz * fractions / referenceHz + 0.5));
    const std::uint32_t integer = ratio / fractions, fraction = ratio % fractions;

    if (context.cbbLoaded) {
        const LoTableRow& row = tunedRow(context.lowLoTables[index], vcoHz);
        appendRun(run, {write(0x34, 0x3E), write(0x38, 0) + row.a * 16 + row.c, write(0x37, row.b),
                        write(0x12, 0x00)});
    }
    appendRun(run, {write(0x25, 0x04) + outputFilterCode(hz), write(0x24, 0x80) + (halvings << 4),
                    write(0x17, fraction >> 4), write(0x16, (fraction & 15) << 4), write(0x10, 0) + integer,
                    words::filler, words::filler});
    return run;
}

}  // namespace hxr
