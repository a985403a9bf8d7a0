/// What the tests of the signal operations share: a run on every kernel set, a watch on allocations, test data, and the
/// distance of a float from an exact value.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dsp/instruction_set.h"
#include "dsp/kernels/kernel_table.h"
#include "dsp/samples.h"
#include "support/allocation.h"

namespace hxr {

namespace portable {
extern const KernelTable kernelTable;
}

struct KernelSet {
    const char* name;
    bool (*use)();
};
inline const KernelSet kernelSets[] = {
    {"Avx512", [] { return dspUse(InstructionSet::avx512); }},
    {"Avx2", [] { return dspUse(InstructionSet::avx2); }},
    {"Baseline", [] { return dspUse(InstructionSet::baseline); }},
    {"Portable",
     [] {
         dspUse(portable::kernelTable);
         return true;
     }},
};

/// Each test runs on each kernel set that the processor has.
class EveryKernelSet : public testing::TestWithParam<KernelSet> {
  protected:
    void SetUp() override {
        if (!GetParam().use()) GTEST_SKIP() << "this processor lacks the instruction set";
    }
    void TearDown() override { dspUse(InstructionSet::baseline); }
};

#define HXR_ON_EVERY_KERNEL_SET(suite)                               \
    INSTANTIATE_TEST_SUITE_P(, suite, testing::ValuesIn(kernelSets), \
                             [](const auto& set) { return std::string(set.param.name); })

/// Fails the test if anything allocates during its life.
class NothingAllocated {
  public:
    NothingAllocated() = default;
    ~NothingAllocated() { EXPECT_EQ(test::allocations(), before_) << "an operation allocated memory"; }
    NothingAllocated(const NothingAllocated&) = delete;
    NothingAllocated& operator=(const NothingAllocated&) = delete;

  private:
    const long before_ = test::allocations();
};

/// An array `offset` elements behind an aligned address, with a guard behind and, but at offset 0, before it.
template <typename T>
class Placed {
  public:
    Placed(const std::vector<T>& values, std::size_t offset) : Placed(values.size(), offset) {
        std::copy(values.begin(), values.end(), data());
    }
    Placed(std::size_t count, std::size_t offset) : all_(offset + count + 1, guard), offset_(offset) {}

    T* data() { return all_.data() + offset_; }
    template <typename U>
    U* as() {
        return reinterpret_cast<U*>(data());
    }
    T operator[](std::size_t i) const { return all_[offset_ + i]; }
    bool isGuarded() const { return (offset_ == 0 || all_[offset_ - 1] == guard) && all_.back() == guard; }
    /// All NaN count as the same.
    bool holdsThoseOf(const Placed& other) const {
        return std::equal(all_.begin() + static_cast<std::ptrdiff_t>(offset_), all_.end(),
                          other.all_.begin() + static_cast<std::ptrdiff_t>(other.offset_), other.all_.end(),
                          [](T a, T b) { return a == b || (a != a && b != b); });
    }

  private:
    static constexpr T guard = 77;
    std::vector<T> all_;
    std::size_t offset_;
};

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
