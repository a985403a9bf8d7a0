#pragma once

#include <algorithm>
#include <array>
#include <complex>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "sim/byte_order.h"
#include "sim/image_layout.h"
#include "sim/scene.h"
#include "sim/synthetic_image.h"
#include "support/lines.h"
#include "synthesizer_images.h"

namespace hxr::test {

/// The word ahead of channel 0's taps, 68 registers.
inline constexpr std::uint32_t tapBlockWord = 0x044400FC;

/// The register block that loads taps into channel 0, the same on both rails: all zero but these.
inline Words tapWords(std::span<const std::pair<std::size_t, std::int16_t>> taps) {
    constexpr std::size_t blockWords = 68, zerosAhead = 4;
    Words words(1 + blockWords + 2);
    words[0] = tapBlockWord;
    for (const auto& [tap, value] : taps) {
        words[1 + zerosAhead + tap] = static_cast<std::uint16_t>(value) * 0x10001u;
    }
    return words;
}

/// Taps of full scale that pass the rails on as they are.
inline Words passThrough() {
    constexpr std::array<std::pair<std::size_t, std::int16_t>, 1> middle = {{{31, 32000}}};
    return tapWords(middle);
}

/// Channel 0 at a plain step: LO 3906.25 MHz, band 14, attenuator 0 dB, gain code 8.
inline const Words stepOneHundred = {
    0x0F003340, 0x92183333, 0x92193333, 0x921A8000, 0x921B8000, 0x93001F60, 0x91000008, 0x94001529,
    0x52000100, 0x5100FF88, 0x90002B83, 0x41000018, 0x41002505, 0x41002490, 0x41001701, 0x41001600,
    0x4100103E, 1,          1,          0x4C000000, 0x05000009, 0,          0,          0x04020300,
    0,          0x00300000, 0,          0,          0x05000009, 0,          0,          0x13000001};

/// An image in which all rows of the level table at a temperature index hold one level, and all gain codes
/// are 8.
inline std::vector<std::uint8_t> plainImage(std::array<float, 7> fullScaleDbm) {
    using namespace sim::layout;
    auto image = sim::makeSyntheticImage({.pretest = false, .idealResponse = true});
    constexpr std::size_t slice = channels * attenuations * gridPoints;
    for (std::size_t t = 0; t < temperatures; ++t) {
        sim::putFloat(image, tempAtIndex + 4 * t, -30.0f + 15.0f * static_cast<float>(t));
        for (std::size_t i = 0; i < slice; ++i)
            sim::putFloat(image, gainTable + 4 * (t * slice + i), fullScaleDbm[t]);
    }
    std::fill_n(image.begin() + channelGainCode, channels * gridPoints, std::uint8_t{8});
    return image;
}

inline Samples samplesOf(std::span<const std::uint8_t> payload) {
    const auto rail = [&](std::size_t at) {
        return static_cast<std::int16_t>(static_cast<std::uint16_t>(payload[at] | payload[at + 1] << 8)) /
               32768.0;
    };
    Samples samples;
    for (std::size_t at = 0; at < payload.size(); at += 4) samples.emplace_back(rail(at), rail(at + 2));
    return samples;
}

/// What a source puts on the air around a frequency.
inline Samples listen(const sim::Source& source, double centreHz, std::int64_t first, std::size_t count) {
    std::vector<float> i(count), q(count);
    source.addTo({i, q}, {centreHz, first}, 1.0);
    Samples samples;
    for (std::size_t n = 0; n < count; ++n) samples.emplace_back(i[n], q[n]);
    return samples;
}

}  // namespace hxr::test
