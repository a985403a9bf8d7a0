#include "vsg/generator_plan.h"

#include <algorithm>
#include <span>
#include <vector>

#include "link/builders.h"
#include "rf/band_plan.h"
#include "rf/generator_path.h"
#include "rf/shared_lo.h"
#include "vsg/output_level.h"
#include "vsg/pattern_words.h"

namespace hxr {
namespace {

constexpr std::uint16_t patternRegister = 4096;

void setLevel(GeneratorSettings& settings, std::span<const float, attenuatorSteps> levels) {
    if (settings.vsgOutputLevel == noOutputLevel) return;
    const auto [step, scale] = outputLevelFor(settings.vsgOutputLevel, levels);
    settings.vsgAtten = generatorCodesPerStep * step;
    settings.vsgScale = scale;
}

/// Loads the pattern memory, in pieces of a packet each.
void appendPattern(CommandList& list, std::span<const std::uint32_t> samples) {
    constexpr std::size_t piece = 100;
    list.beginPacket();
    list.append(words::patternLength(static_cast<std::uint16_t>(samples.size() - 1)));
    for (std::size_t first = 0; first < samples.size(); first += piece) {
        if (first > 0) list.beginPacket();
        appendRegisterBlock(list, static_cast<std::uint16_t>(patternRegister + first),
                            samples.subspan(first, std::min(piece, samples.size() - first)));
    }
}

}  // namespace

std::size_t generatorIndexFor(double hz) {
    constexpr int lowest = 3, highest = 512;
    return static_cast<std::size_t>(std::clamp(1 + static_cast<int>(hz / gridSpacingHz), lowest, highest));
}

CommandList planGenerator(GeneratorSettings& settings, double sharedFreq, LoContext& context,
                          const HXRCalData& image) {
    constexpr double lowestSwappedLoHz = 1e9;
    CommandList list;
    const std::span pattern =
        std::span(settings.vsgPattern).first(std::min(settings.vsgPattern.size(), patternMemory));
    if (pattern.empty()) return list;

    const double loHz = sharedFreq + ifOffsetHz;
    const std::size_t k = generatorIndexFor(sharedFreq);
    setLevel(settings, image.vsgLevel[k]);
    appendPattern(list, patternWords(pattern, ModulatorErrors::measuredAt(image, k), settings.vsgScale,
                                     loHz < lowestSwappedLoHz ? RailOrder::iFirst : RailOrder::qFirst));

    const int band = bandForFrequency(static_cast<float>(sharedFreq));
    list.beginPacket();
    list.append(tuneSharedLo(context, band, loHz));
    list.append(buildGeneratorPath(band, loHz, static_cast<int>(settings.vsgAtten)));
    list.append(words::applyPeripherals);
    return list;
}

}  // namespace hxr
