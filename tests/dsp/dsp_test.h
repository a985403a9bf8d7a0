/// What the tests of the signal operations share: a run on every kernel set, test data, and the distance of a
/// float from an exact value.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dsp/instruction_set.h"
#include "dsp/samples.h"

namespace hxr {

/// Each test runs on each kernel set that the processor has.
class EveryKernelSet : public testing::TestWithParam<InstructionSet> {
  protected:
    void SetUp() override {
        if (!dspUse(GetParam())) GTEST_SKIP() << "this processor lacks the instruction set";
    }
    void TearDown() override { dspUse(InstructionSet::baseline); }
};

inline std::string kernelSetName(const testing::TestParamInfo<InstructionSet>& info) {
    constexpr const char* names[] = {"Baseline", "Avx2", "Avx512"};
    return names[static_cast<int>(info.param)];
}

#define HXR_ON_EVERY_KERNEL_SET(suite)                                                                    \
    INSTANTIATE_TEST_SUITE_P(                                                                             \
        , suite, testing::Values(InstructionSet::baseline, InstructionSet::avx2, InstructionSet::avx512), \
        kernelSetName)

/// Every length up to a few vectors of the widest kind, and some that end in the middle of one.
inline std::vector<int> testLengths() {
    std::vector<int> lengths;
    for (int n = 0; n <= 67; ++n) lengths.push_back(n);
    lengths.insert(lengths.end(), {255, 1001, 4099});
    return lengths;
}

inline std::vector<cf32> randomSamples(std::size_t count, unsigned seed) {
    std::mt19937 engine(seed);
    std::normal_distribution<float> value(0.0F, 0.3F);
    std::vector<cf32> samples(count);
    for (cf32& sample : samples) sample = {value(engine), value(engine)};
    return samples;
}

/// Distance in units in the last place of the exact value's own binade; 0 for two NaN or two equal
/// infinities.
inline double ulpDistance(float value, double exact) {
    const float rounded = static_cast<float>(exact);
    if (std::isnan(exact)) return std::isnan(value) ? 0.0 : std::numeric_limits<double>::infinity();
    if (std::isinf(rounded) || std::isinf(value)) {
        const float greatest = std::numeric_limits<float>::max();
        if (value == rounded) return 0.0;
        return std::fabs(std::isinf(value) ? rounded : value) == greatest
                   ? 1.0
                   : std::numeric_limits<double>::infinity();
    }
    const int exponent = std::max(std::ilogb(exact == 0.0 ? 1e-300 : exact), -126);
    return std::fabs(static_cast<double>(value) - exact) / std::ldexp(1.0, exponent - 23);
}

}  // namespace hxr
