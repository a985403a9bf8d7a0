#include "sim/synthetic_image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "sim/byte_order.h"
#include "sim/image_layout.h"

namespace hxr::sim {
namespace {

using namespace layout;
using Bytes = std::span<std::uint8_t>;

/// Numbers between -1 and 1 that make each unit a little different from the next, the same at every build.
class UnitVariation {
  public:
    explicit UnitVariation(std::uint32_t serialNumber) : state_(serialNumber) {}

    float next() {
        constexpr std::uint64_t multiplier = 6364136223846793005;
        constexpr std::uint64_t increment = 1442695040888963407;
        state_ = state_ * multiplier + increment;
        constexpr float full = 1 << 23;
        return static_cast<float>(state_ >> 40) / full - 1.0f;
    }

  private:
    std::uint64_t state_;
};

/// A ripple of so many cycles over its length, from -1 to 1.
std::vector<float> ripple(std::size_t length, float cycles, float phase) {
    std::vector<float> values(length);
    const float step = cycles * 2.0f * std::numbers::pi_v<float> / static_cast<float>(length);
    for (std::size_t i = 0; i < length; ++i) values[i] = std::sin(step * static_cast<float>(i) + phase);
    return values;
}

/// How far a temperature index is from the middle one, -1 to 1.
float warmth(std::size_t t) { return (static_cast<float>(t) - 3.0f) / 3.0f; }

float countedFrom0(std::size_t i) { return static_cast<float>(i); }

void putCbb(Bytes image, UnitVariation& variation) {
    constexpr std::array<std::uint8_t, 4> leader = {1, 0, 0, 0};
    std::copy(leader.begin(), leader.end(), image.begin());
    // Three bytes a point: the oscillator core, which doubles from quarter to quarter; the band, falling
    // inside a core; the bias.
    const auto putTables = [&](std::size_t offset, std::size_t tables, std::size_t points) {
        const std::size_t plane = tables * points;
        const std::size_t pointsPerCore = points / 4 + 1;
        for (std::size_t table = 0; table < tables; ++table) {
            const auto shift = static_cast<int>(8.0f * variation.next());
            for (std::size_t i = 0; i < points; ++i) {
                const std::size_t within = i % pointsPerCore;
                const int band = 210 + shift - static_cast<int>(190 * within / pointsPerCore);
                const std::size_t at = offset + table * points + i;
                image[at] = static_cast<std::uint8_t>(1u << (i / pointsPerCore));
                image[at + plane] = static_cast<std::uint8_t>(band);
                image[at + 2 * plane] = static_cast<std::uint8_t>(3 + 7 * within / pointsPerCore);
            }
        }
    };
    putTables(cbbLow, 5, cbbLowPoints);
    putTables(cbbHigh, channels, cbbHighPoints);
}

void putPretest(Bytes image, bool modulatorErrors, UnitVariation& variation) {
    for (std::size_t c = 0; c < channels; ++c) {
        const auto wave = ripple(loftPoints, 3.0f, 3.0f * variation.next());
        const float offsetI = 120.0f * variation.next();
        const float offsetQ = 120.0f * variation.next();
        for (std::size_t i = 0; i < loftPoints; ++i) {
            const std::size_t at = 2 * (c * loftPoints + i);
            putLittle(image, loftI + at, 2,
                      static_cast<std::uint64_t>(std::lround(offsetI + 60.0f * wave[i])));
            putLittle(image, loftQ + at, 2,
                      static_cast<std::uint64_t>(std::lround(offsetQ - 45.0f * wave[i])));
        }
    }
    const auto slow = ripple(gridPoints, 2.0f, variation.next());
    const auto fast = ripple(gridPoints, 9.0f, variation.next());
    for (std::size_t k = 0; k < gridPoints; ++k) {
        const float top = 8.0f - 0.012f * countedFrom0(k) + 0.8f * slow[k];
        for (std::size_t j = 0; j < vsgSteps; ++j) {
            const float level = top - 4.0f * countedFrom0(j) + 0.05f * fast[k] * countedFrom0(j);
            putFloat(image, vsgLevel + 4 * (k * vsgSteps + j), level);
        }
        const float told = modulatorErrors ? 1.0f : 0.0f;
        putFloat(image, vsgGain + 4 * k, 1.0f + told * 0.02f * fast[k]);
        putFloat(image, vsgPhase + 4 * k, told * 0.03f * slow[k]);
        putFloat(image, vsgOffsetI + 4 * k, told * (0.002f * slow[k] + 0.0005f));
        putFloat(image, vsgOffsetQ + 4 * k, told * (0.0015f * fast[k] - 0.0004f));
    }
}

void putHeader(Bytes image, const SyntheticImageOptions& options) {
    putLittle(image, chamberHeader, 4, 1);
    putLittle(image, chamberHeader + 4, 4, imageBytes);
    putLittle(image, serialNumber, 4, options.serialNumber);
    putLittle(image, serialNumber + 4, 4, channels);
    putLittle(image, calDate, 8, options.calDate);
    putLittle(image, calDate + 8, 4, temperatures);
}

void putTimebase(Bytes image, const SyntheticImageOptions& options, UnitVariation& variation) {
    // The crystal's ageing, a value every half year up to the calibration.
    constexpr std::size_t entries = 4;
    constexpr std::uint64_t halfYear = 182 * 86'400;
    constexpr float middle = 32'768.0f;
    const float start = middle + 900.0f * variation.next();
    for (std::size_t i = 0; i < entries; ++i) {
        const auto value = static_cast<std::uint16_t>(start + 37.0f * countedFrom0(i));
        putLittle(image, coarseTuneLog + 2 * i, 2, value);
        putLittle(image, coarseTuneDate + 8 * i, 8, options.calDate - halfYear * (entries - 1 - i));
    }
    for (std::size_t t = 0; t < temperatures; ++t) {
        const float offset = 140.0f * warmth(t) * warmth(t) * warmth(t) - 55.0f * warmth(t);
        putLittle(image, coarseTuneByTemp + 2 * t, 2, static_cast<std::uint64_t>(std::lround(offset)));
        const float nominal = -30.0f + 15.0f * countedFrom0(t);
        putFloat(image, tempAtIndex + 4 * t, nominal + 0.75f * variation.next());
    }
}

void putLevels(Bytes image, UnitVariation& variation) {
    for (std::size_t c = 0; c < channels; ++c) {
        const auto slow = ripple(gridPoints, 1.5f, 3.0f * variation.next());
        const auto fast = ripple(gridPoints, 17.0f, 3.0f * variation.next());
        for (std::size_t k = 0; k < gridPoints; ++k) {
            const std::size_t at = c * gridPoints + k;
            image[channelGainCode + at] = static_cast<std::uint8_t>(std::lround(8.0f + 3.0f * slow[k]));
            putFloat(image, phasePairTable + 8 * at, 2.8f * slow[k]);
            putFloat(image, phasePairTable + 8 * at + 4, 2.8f * slow[k] + 0.2f * fast[k]);
        }
        for (std::size_t t = 0; t < temperatures; ++t) {
            for (std::size_t a = 0; a < attenuations; ++a) {
                const std::size_t row = ((t * channels + c) * attenuations + a) * gridPoints;
                const float base = -12.0f + 5.03f * countedFrom0(a) + 1.1f * warmth(t);
                for (std::size_t k = 0; k < gridPoints; ++k) {
                    const float level = base + 0.006f * countedFrom0(k) + 0.9f * slow[k] + 0.3f * fast[k];
                    putFloat(image, gainTable + 4 * (row + k), level);
                }
            }
        }
    }
}

/// One response table: about `centre`, with a ripple over frequency and points of `swing` that turns with
/// temperature.
void putResponse(Bytes image, const ResponseTable& table, UnitVariation& variation) {
    for (std::size_t c = 0; c < channels; ++c) {
        const auto overFrequency = ripple(table.rows, 5.0f, 3.0f * variation.next());
        const auto overPoints = ripple(responsePoints, 1.3f, 3.0f * variation.next());
        const float shift = 0.3f * table.swing * variation.next();
        for (std::size_t t = 0; t < temperatures; ++t) {
            const float base = table.centre + shift + 0.2f * table.swing * warmth(t);
            const std::size_t slice = (t * channels + c) * table.rows;
            for (std::size_t k = 0; k < table.rows; ++k) {
                const float slow = base + 0.4f * table.swing * overFrequency[k];
                const float depth = table.swing * (0.6f + 0.3f * overFrequency[table.rows - 1 - k]);
                const std::size_t at = table.offset + 4 * (slice + k) * responsePoints;
                for (std::size_t p = 0; p < responsePoints; ++p) {
                    putFloat(image, at + 4 * p, slow + depth * overPoints[p]);
                }
            }
        }
    }
}

}  // namespace

std::vector<std::uint8_t> makeBlankImage() { return std::vector<std::uint8_t>(imageBytes, erased); }

std::vector<std::uint8_t> makeSyntheticImage(const SyntheticImageOptions& options) {
    std::vector<std::uint8_t> image = makeBlankImage();
    UnitVariation variation(options.serialNumber);
    if (options.cbb) putCbb(image, variation);
    if (options.pretest) putPretest(image, options.modulatorErrors, variation);
    if (!options.chamber) return image;

    putHeader(image, options);
    putTimebase(image, options, variation);
    putLevels(image, variation);
    for (ResponseTable table : responseTables) {
        if (options.idealResponse) table.swing = 0.0f;
        putResponse(image, table, variation);
    }
    sealImage(image);
    if (!options.goodChecksum) image[checksum] ^= 1;
    return image;
}

std::uint32_t imageChecksum(std::span<const std::uint8_t> image) {
    // An erased word is minus one modulo 2^32, so every word that counts as erased takes one away.
    constexpr std::size_t erasedWords = (chamberHeader + 4 + (coarseTuneByTemp - coarseTuneLog)) / 4;
    std::uint32_t sum = 0;
    for (std::size_t offset = chamberHeader; offset < checksum; offset += 4)
        sum += getLittle32(image, offset);
    for (std::size_t offset = coarseTuneByTemp; offset < image.size(); offset += 4) {
        sum += getLittle32(image, offset);
    }
    return sum - static_cast<std::uint32_t>(erasedWords);
}

void sealImage(std::span<std::uint8_t> image) { putLittle(image, checksum, 4, imageChecksum(image)); }

}  // namespace hxr::sim
