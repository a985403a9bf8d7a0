#include "device/generator_settings.h"

#include <algorithm>
#include <array>
#include <complex>
#include <cstring>
#include <utility>
#include <vector>

#include "device/setting_limits.h"

namespace hxr {
namespace {

using Pattern = std::vector<std::complex<float>>;

constexpr unsigned patternOfFloats = 1;

bool hasGeneratorData(const HXRCalData& image) {
    constexpr float noData = 1000.0F;
    return image.vsgLevel[0][0] != noData;
}

/// Complex samples that lie anywhere, of a type of their own, as floats.
template <typename Rail>
Pattern readSamples(const void* samples, std::size_t count, float scale) {
    if (count == 0) return {};
    std::vector<std::array<Rail, 2>> pairs(count);
    std::memcpy(pairs.data(), samples, count * sizeof pairs.front());
    Pattern pattern(count);
    std::transform(pairs.begin(), pairs.end(), pattern.begin(), [&](const auto& pair) {
        return std::complex<float>(static_cast<float>(pair[0]) * scale, static_cast<float>(pair[1]) * scale);
    });
    return pattern;
}

}  // namespace

HXRStatus setVSGLevel(HXRDevice& device, double dBm) {
    const HXRStatus stored =
        storeWithin(generatorLevelLimits, static_cast<float>(dBm), device.vsgOutputLevel);
    if (stored == hxrNoError && !hasGeneratorData(*device.corrections->image)) {
        return hxrInvalidConfigurationErr;
    }
    return stored;
}

HXRStatus setVSGPattern(GeneratorSettings& settings, const void* samples, int count, unsigned type) {
    constexpr float fullScaleOf16Bits = 32768.0F;
    if (type > highestSwitch || !patternLimits.contain(count) || count % patternBlock != 0) {
        return hxrInvalidParameterErr;
    }
    const auto size = static_cast<std::size_t>(count);
    Pattern pattern = type == patternOfFloats
                          ? readSamples<float>(samples, size, 1.0F)
                          : readSamples<std::int16_t>(samples, size, 1.0F / fullScaleOf16Bits);
    const auto offset = generatorOffset();
    for (std::size_t n = 0; n < size; ++n) pattern[n] *= offset[n % offset.size()];
    settings.vsgPattern = std::move(pattern);
    return hxrNoError;
}

HXRStatus setVSGPatternDirect(GeneratorSettings& settings, const float* samples, int count) {
    if (count < 0) return hxrInvalidParameterErr;
    settings.vsgPattern = readSamples<float>(samples, static_cast<std::size_t>(count), 1.0F);
    return hxrNoError;
}

HXRStatus setVSGAtten(GeneratorSettings& settings, int step) {
    if (!generatorStepLimits.contain(step)) return hxrInvalidParameterErr;
    settings.vsgAtten = generatorCodesPerStep * static_cast<std::uint32_t>(step);
    return hxrNoError;
}

}  // namespace hxr
