#include "dsp/vector.h"

#include <algorithm>
#include <bit>
#include <functional>

#include "dsp_test.h"

namespace hxr {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

/// Ordinary values with the special ones strewn in, at other places for each length and offset. Without the greatest no
/// product leaves the range of a float.
std::vector<float> awkwardValues(int n, int seed, bool withGreatest = true) {
    const float special[] = {0.0F,    -0.0F,           nan,  infinity, -infinity, 1e-41F,
                             -3e-45F, 1.17549435e-38F, 1.0F, 3.4e38F};
    const std::size_t kinds = std::size(special) - (withGreatest ? 0 : 1);
    std::mt19937 engine(static_cast<unsigned>(seed));
    std::normal_distribution<float> value(0.0F, 2.0F);
    std::vector<float> values(static_cast<std::size_t>(n));
    for (float& x : values) x = engine() % 4 == 0 ? special[engine() % kinds] : value(engine);
    return values;
}

bool agree(double value, double exact, double tolerance) {
    return (std::isnan(value) && std::isnan(exact)) || value == exact ||
           std::fabs(value - exact) <= tolerance;
}

struct RealOperation {
    const char* name;
    std::function<void(const float* a, const float* b, float* dst, int n)> run;
    std::function<double(double a, double b)> exact;
    double ulps;
};

const RealOperation realOperations[] = {
    {"mul const", [](auto a, auto, auto d, int n) { dspMulConstF32(a, 4.3429446F, d, n); },
     [](double a, double) { return a * double{4.3429446F}; }, 0.5},
    {"mul 1", [](auto a, auto, auto d, int n) { dspMulConstF32(a, 1.0F, d, n); },
     [](double a, double) { return a; }, 0},
    {"mul 0", [](auto a, auto, auto d, int n) { dspMulConstF32(a, 0.0F, d, n); },
     [](double, double) { return 0.0; }, 0},
    {"add const", [](auto a, auto, auto d, int n) { dspAddConstF32(a, -1.3F, d, n); },
     [](double a, double) { return a + double{-1.3F}; }, 0.5},
    {"add 0", [](auto a, auto, auto d, int n) { dspAddConstF32(a, 0.0F, d, n); },
     [](double a, double) { return a; }, 0},
    {"add", dspAddF32, [](double a, double b) { return a + b; }, 0.5},
    {"max", dspMaxF32, [](double a, double b) { return a > b ? a : b; }, 0},
    {"min", dspMinF32, [](double a, double b) { return a < b ? a : b; }, 0},
    {"sqr", [](auto a, auto, auto d, int n) { dspSqrF32(a, d, n); }, [](double a, double) { return a * a; },
     0.5},
    {"sqrt", [](auto a, auto, auto d, int n) { dspSqrtF32(a, d, n); },
     [](double a, double) { return std::sqrt(a); }, 0.5},
    {"ln", [](auto a, auto, auto d, int n) { dspLnF32(a, d, n); },
     [](double a, double) { return std::log(a); }, 2},
    {"exp", [](auto a, auto, auto d, int n) { dspExpF32(a, d, n); },
     [](double a, double) { return std::exp(a); }, 2},
};

struct ComplexOperation {
    const char* name;
    int floatsPerResult;
    bool inPlace;
    std::function<void(const cf32* a, const cf32* b, float* dst, int n)> run;
    std::function<cf64(cf64 a, cf64 b)> exact;
};

cf64 product(cf64 a, cf64 b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

const cf32 factor = {0.75F, -1.21F};
const ComplexOperation complexOperations[] = {
    {"mul", 2, true, [](auto a, auto b, float* d, int n) { dspMulCf32(a, b, reinterpret_cast<cf32*>(d), n); },
     product},
    {"mul const", 2, true,
     [](auto a, auto, float* d, int n) { dspMulConstCf32(a, factor, reinterpret_cast<cf32*>(d), n); },
     [](cf64 a, cf64) {
         return product(a, {double{factor.re}, double{factor.im}});
     }},
    {"magnitude", 1, false, [](auto a, auto, float* d, int n) { dspMagnitudeCf32(a, d, n); },
     [](cf64 a, cf64) {
         return cf64{std::sqrt(a.re * a.re + a.im * a.im), 0.0};
     }},
    {"power", 1, false, [](auto a, auto, float* d, int n) { dspPowerCf32(a, d, n); },
     [](cf64 a, cf64) {
         return cf64{a.re * a.re + a.im * a.im, 0.0};
     }},
};

class Vector : public EveryKernelSet {};

TEST_P(Vector, RealOperationsAgreeWithDoublePrecisionWhereverTheyStand) {
    for (const RealOperation& operation : realOperations) {
        for (const int n : testLengths()) {
            for (const std::size_t offset : {0U, 1U, 3U}) {
                const std::vector<float> a = awkwardValues(n, 3 * n), b = awkwardValues(n, 3 * n + 1);
                // Operands of unlike alignment; then the result in place of the first one.
                Placed<float> first(a, offset), second(b, offset + 1), dst(a.size(), 3 - offset);
                {
                    const NothingAllocated here;
                    operation.run(first.data(), second.data(), dst.data(), n);
                    operation.run(first.data(), second.data(), first.data(), n);
                }
                for (std::size_t i = 0; i < a.size(); ++i) {
                    const double exact = operation.exact(double{a[i]}, double{b[i]});
                    ASSERT_LE(ulpDistance(dst[i], exact), operation.ulps)
                        << operation.name << " of " << a[i] << ", " << b[i] << " at " << i << " of " << n;
                }
                ASSERT_TRUE(dst.holdsThoseOf(first)) << operation.name << " in place, length " << n;
                ASSERT_TRUE(dst.isGuarded() && first.isGuarded()) << operation.name << ", length " << n;
            }
        }
    }
}

TEST_P(Vector, ComplexOperationsAgreeWithDoublePrecisionWhereverTheyStand) {
    for (const ComplexOperation& operation : complexOperations) {
        const auto step = static_cast<std::size_t>(operation.floatsPerResult);
        for (const int n : testLengths()) {
            for (const std::size_t offset : {0U, 1U, 3U}) {
                const std::vector<float> a = awkwardValues(2 * n, 3 * n, false),
                                         b = awkwardValues(2 * n, 3 * n + 1, false);
                Placed<float> first(a, offset), second(b, offset + 1), dst(step * a.size() / 2, 3 - offset);
                {
                    const NothingAllocated here;
                    operation.run(first.as<cf32>(), second.as<cf32>(), dst.data(), n);
                    if (operation.inPlace)
                        operation.run(first.as<cf32>(), second.as<cf32>(), first.data(), n);
                }
                for (std::size_t i = 0; i < a.size() / 2; ++i) {
                    const cf64 x = {double{a[2 * i]}, double{a[2 * i + 1]}};
                    const cf64 exact = operation.exact(x, {double{b[2 * i]}, double{b[2 * i + 1]}});
                    // Two roundings, relative to the absolute value, and those of denormal products.
                    const double tolerance = 1.2e-7 * std::hypot(exact.re, exact.im) + 4.3e-45;
                    ASSERT_TRUE(agree(double{dst[step * i]}, exact.re, tolerance) &&
                                (step == 1 || agree(double{dst[2 * i + 1]}, exact.im, tolerance)))
                        << operation.name << " of " << x.re << ", " << x.im << " at " << i << " of " << n;
                }
                ASSERT_TRUE(!operation.inPlace || dst.holdsThoseOf(first)) << operation.name << " in place";
                ASSERT_TRUE(dst.isGuarded() && first.isGuarded()) << operation.name << ", length " << n;
            }
        }
    }
}

TEST_P(Vector, MagnitudeHoldsBeyondTheRangeOfThePowerWhateverStandsBeside) {
    const struct {
        cf32 sample;
        float magnitude;
    } rows[] = {{{3e30F, 4e30F}, 5e30F},    {{3e-30F, -4e-30F}, 5e-30F}, {{0.0F, 0.0F}, 0.0F},
                {{-infinity, 1}, infinity}, {{nan, 1.0F}, nan},          {{3.0F, 4.0F}, 5.0F},
                {{3e-42F, 4e-42F}, 5e-42F}, {{-5.0F, 12.0F}, 13.0F},     {{1e-30F, 2e-41F}, 1e-30F}};
    std::vector<cf32> src;
    for (std::size_t i = 0; i < 9 * 64; ++i) src.push_back(rows[i < 500 ? i % 9 : 5].sample);
    std::vector<float> together(src.size());
    dspMagnitudeCf32(src.data(), together.data(), static_cast<int>(src.size()));
    for (std::size_t i = 0; i < src.size(); ++i) {
        float alone = -1;
        dspMagnitudeCf32(&src[i], &alone, 1);
        ASSERT_LE(ulpDistance(alone, double{rows[i < 500 ? i % 9 : 5].magnitude}), 1.0) << i;
        ASSERT_EQ(ulpDistance(alone, double{together[i]}), 0.0) << i;
    }
}

TEST_P(Vector, LogarithmIsWithinTwoUnitsOverTheWholePositiveRange) {
    // A stride of a prime number of units runs through all binades, and the neighbourhood of 1 in full.
    std::vector<float> x;
    for (std::uint32_t bits = 1; bits < std::bit_cast<std::uint32_t>(infinity); bits += 4099)
        x.push_back(std::bit_cast<float>(bits));
    for (std::uint32_t i = 0; i < 60000; ++i)
        x.push_back(std::bit_cast<float>(std::bit_cast<std::uint32_t>(1.0F) - 30000 + i));
    std::vector<float> y(x.size());
    dspLnF32(x.data(), y.data(), static_cast<int>(x.size()));
    double worst = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i)
        worst = std::max(worst, ulpDistance(y[i], std::log(double{x[i]})));
    RecordProperty("WorstUlp", std::to_string(worst));
    EXPECT_LE(worst, 2.0);

    const float special[] = {0.0F, -0.0F, -1.0F, infinity, -infinity, nan, 1.0F, -1e-42F};
    const float expected[] = {-infinity, -infinity, nan, infinity, nan, nan, 0.0F, nan};
    float ln[std::size(special)];
    dspLnF32(special, ln, static_cast<int>(std::size(special)));
    for (std::size_t i = 0; i < std::size(special); ++i)
        EXPECT_EQ(ulpDistance(ln[i], double{expected[i]}), 0.0) << special[i];
}

TEST_P(Vector, ExponentialIsWithinTwoUnitsUpToItsLimits) {
    std::vector<float> x = {0.0F,      -0.0F,    infinity, -infinity, nan,   88.722839F,
                            88.72284F, -103.97F, -103.98F, 1e30F,     -1e30F};
    for (double v = -106.0; v < 90.0; v += 0.000317) x.push_back(static_cast<float>(v));
    std::vector<float> y(x.size());
    dspExpF32(x.data(), y.data(), static_cast<int>(x.size()));
    double worst = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        ASSERT_LE(ulpDistance(y[i], std::exp(double{x[i]})), 2.0) << x[i];
        worst = std::max(worst, ulpDistance(y[i], std::exp(double{x[i]})));
    }
    RecordProperty("WorstUlp", std::to_string(worst));
    EXPECT_EQ(y[0], 1.0F);
}

TEST_P(Vector, SixteenBitSamplesKeepTheirValueBothWays) {
    std::vector<int> lengths = testLengths();
    lengths.push_back(65536);
    for (const int n : lengths) {
        for (const std::size_t offset : {0U, 1U, 3U}) {
            std::vector<std::int16_t> samples(static_cast<std::size_t>(n));
            for (int i = 0; i < n; ++i)
                samples[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(i * 30011);
            Placed<std::int16_t> src(samples, offset), back(samples.size(), offset + 2);
            Placed<float> floats(samples.size(), 3 - offset);
            {
                const NothingAllocated here;
                dspI16ToF32(src.data(), floats.data(), n, 15);
                dspF32ToI16(floats.data(), back.data(), n, dspRoundToNearest, -15);
            }
            for (std::size_t i = 0; i < samples.size(); ++i)
                ASSERT_EQ(floats[i], static_cast<float>(samples[i]) / 32768.0F);
            ASSERT_TRUE(back.holdsThoseOf(src) && back.isGuarded() && floats.isGuarded()) << n;
        }
    }
}

TEST_P(Vector, FloatsAreRoundedToEvenAndSaturated) {
    const struct {
        float value;
        std::int16_t nearest, truncated;
    } rows[] = {
        {1.0F, 32767, 32767},
        {0.5F, 16384, 16384},
        {-1.0F, -32768, -32768},
        {0.5F / 32768, 0, 0},
        {1.5F / 32768, 2, 1},
        {2.5F / 32768, 2, 2},
        {-1.5F / 32768, -2, -1},
        {-0.9F / 32768, -1, 0},
        {1e30F, 32767, 32767},
        {-1e30F, -32768, -32768},
        {infinity, 32767, 32767},
        {-infinity, -32768, -32768},
        {nan, -32768, -32768},
        {65536.0F, 32767, 32767},
        {-65536.0F, -32768, -32768},
        {1e-42F, 0, 0},
        {32766.6F / 32768, 32767, 32766},
    };
    // Every row meets every lane, in the whole vectors and in the remainder.
    for (int start = 0; start < 40; ++start) {
        float src[61];
        std::int16_t nearest[61], truncated[61];
        const auto row = [&](int i) { return rows[static_cast<std::size_t>(i + start) % std::size(rows)]; };
        for (int i = 0; i < 61; ++i) src[i] = row(i).value;
        dspF32ToI16(src, nearest, 61, dspRoundToNearest, -15);
        dspF32ToI16(src, truncated, 61, dspRoundToZero, -15);
        for (int i = 0; i < 61; ++i) {
            ASSERT_EQ(nearest[i], row(i).nearest) << row(i).value;
            ASSERT_EQ(truncated[i], row(i).truncated) << row(i).value;
        }
    }
}

TEST_P(Vector, SumsKeepWhatSinglePrecisionWouldLose) {
    for (const int n : testLengths()) {
        if (n == 0) continue;
        for (const std::size_t offset : {0U, 1U}) {
            Placed<double> real(static_cast<std::size_t>(n), offset);
            Placed<float> complex(2 * static_cast<std::size_t>(n), offset);
            double exactReal = 0.0, exactRe = 0.0, exactIm = 0.0;
            for (int i = 0; i < n; ++i) {
                exactReal += real.data()[i] = std::sin(1.0 + i);
                exactRe += double{complex.as<cf32>()[i].re = i == 0 ? 1e6F : static_cast<float>(std::cos(i))};
                exactIm += double{complex.as<cf32>()[i].im = static_cast<float>(std::sin(3.0 * i))};
            }
            double sum = 0.0;
            cf32 complexSum = {};
            const auto add = [&] {
                const NothingAllocated here;
                dspSumF64(real.data(), n, &sum);
                dspSumCf32(complex.as<cf32>(), n, &complexSum);
            };
            add();
            ASSERT_NEAR(sum, exactReal, 1e-12);
            ASSERT_LE(ulpDistance(complexSum.re, exactRe), 0.51);
            ASSERT_NEAR(double{complexSum.im}, exactIm, 1e-7 * std::fabs(exactIm) + 1e-12);
            // What isn't a number reaches the sum of its own part from wherever it stands.
            for (const float bad : {infinity, nan}) {
                real.data()[n / 2] = double{bad};
                complex.as<cf32>()[n / 2].re = bad;
                add();
                ASSERT_TRUE(agree(sum, double{bad}, 0) && agree(double{complexSum.re}, double{bad}, 0)) << n;
                ASSERT_NEAR(double{complexSum.im}, exactIm, 1e-7 * std::fabs(exactIm) + 1e-12);
            }
        }
    }
}

TEST_P(Vector, DoublesMultiplyInPlaceWhereverTheyStand) {
    for (const int n : testLengths()) {
        for (const std::size_t offset : {0U, 1U, 3U}) {
            const std::vector<float> a = awkwardValues(2 * n, n, false),
                                     b = awkwardValues(2 * n, n + 1, false);
            const std::vector<double> wideA(a.begin(), a.end()), wideB(b.begin(), b.end());
            Placed<double> real(wideA, offset), complex(wideA, offset), second(wideB, offset + 1);
            {
                const NothingAllocated here;
                dspMulF64(real.data(), second.data(), real.data(), 2 * n);
                dspMulCf64(complex.as<cf64>(), second.as<cf64>(), complex.as<cf64>(), n);
            }
            for (std::size_t i = 0; i < wideA.size(); i += 2) {
                const cf64 exact = product({wideA[i], wideA[i + 1]}, {wideB[i], wideB[i + 1]});
                const double tolerance = 3e-16 * std::hypot(exact.re, exact.im);
                ASSERT_TRUE(agree(real[i], wideA[i] * wideB[i], 0)) << i << " of " << n;
                ASSERT_TRUE(agree(real[i + 1], wideA[i + 1] * wideB[i + 1], 0)) << i << " of " << n;
                ASSERT_TRUE(agree(complex[i], exact.re, tolerance)) << i << " of " << n;
                ASSERT_TRUE(agree(complex[i + 1], exact.im, tolerance)) << i << " of " << n;
            }
            ASSERT_TRUE(real.isGuarded() && complex.isGuarded()) << n;
        }
    }
}

TEST_P(Vector, FlipsOutOfPlaceAndInPlaceWhereverTheyStand) {
    for (const int n : testLengths()) {
        for (const std::size_t offset : {0U, 1U, 3U}) {
            std::vector<float> values(static_cast<std::size_t>(n));
            for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
            Placed<float> src(values, offset), dst(values.size(), offset + 2);
            {
                const NothingAllocated here;
                dspFlip32(src.data(), dst.data(), n);
                dspFlip32(src.data(), src.data(), n);
            }
            ASSERT_TRUE(std::equal(values.rbegin(), values.rend(), dst.data())) << n;
            ASSERT_TRUE(src.holdsThoseOf(dst) && src.isGuarded() && dst.isGuarded()) << n;
        }
    }
}

HXR_ON_EVERY_KERNEL_SET(Vector);

TEST(VectorMemory, FillsAndMovesCountInTheirOwnElements) {
    std::vector<float> x = {1, 2, 3, 4, 5, 6, 7, 8};
    dspZero32(x.data(), 1);
    dspZeroBytes(x.data() + 1, 4);
    dspZero64(x.data() + 2, 1);
    EXPECT_EQ(x, (std::vector<float>{0, 0, 0, 0, 5, 6, 7, 8}));
    dspMove32(x.data() + 4, x.data() + 3, 4);
    EXPECT_EQ(x, (std::vector<float>{0, 0, 0, 5, 6, 7, 8, 8}));
    std::vector<float> y(8, 1.0F);
    dspCopy32(x.data() + 3, y.data(), 3);
    dspCopy64(reinterpret_cast<const cf32*>(x.data() + 5), reinterpret_cast<cf32*>(y.data() + 5), 1);
    EXPECT_EQ(y, (std::vector<float>{5, 6, 7, 1, 1, 7, 8, 1}));
    const cf64 value = {1.5, -2.5};
    cf64 many[3] = {}, copies[3] = {};
    dspSetCf64(&value, many, 2);
    dspCopyCf64(many, copies, 3);
    EXPECT_EQ(copies[1].im, -2.5);
    EXPECT_EQ(copies[2].re, 0.0);
}

TEST(VectorConversion, ScalesByAnyPowerOfTwo) {
    const std::int16_t source[] = {1, -32768, 12345};
    for (const int scale : {-100, -3, 0, 3, 15, 126}) {
        float wide[3];
        dspI16ToF32(source, wide, 3, scale);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(wide[i], std::ldexp(static_cast<float>(source[i]), -scale)) << scale;
        std::int16_t back[3];
        dspF32ToI16(wide, back, 3, dspRoundToNearest, -scale);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(back[i], source[i]) << scale;
    }
}

TEST(VectorMemory, NothingHappensForCountsBelowOne) {
    for (const int n : {0, -1, std::numeric_limits<int>::min()}) {
        for (const RealOperation& operation : realOperations) operation.run(nullptr, nullptr, nullptr, n);
        for (const ComplexOperation& operation : complexOperations)
            operation.run(nullptr, nullptr, nullptr, n);
        dspZeroBytes(nullptr, n);
        dspZero32(nullptr, n);
        dspZero64(nullptr, n);
        dspCopy32(nullptr, nullptr, n);
        dspCopy64(nullptr, nullptr, n);
        dspCopyCf64(nullptr, nullptr, n);
        dspMove32(nullptr, nullptr, n);
        dspFlip32(nullptr, nullptr, n);
        dspSetCf64(nullptr, nullptr, n);
        dspMulF64(nullptr, nullptr, nullptr, n);
        dspMulCf64(nullptr, nullptr, nullptr, n);
        dspSumF64(nullptr, n, nullptr);
        dspSumCf32(nullptr, n, nullptr);
        dspI16ToF32(nullptr, nullptr, n, 15);
        for (const int rounding : {dspRoundToNearest, dspRoundToZero})
            dspF32ToI16(nullptr, nullptr, n, rounding, -15);
    }
    EXPECT_EQ(dspAlloc(0), nullptr);
    EXPECT_EQ(dspAlloc(-5), nullptr);
    void* block = dspAlloc(100);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
    dspFree(block);
    dspFree(nullptr);
}

/// The square of 3 as it came out before main, when nothing had chosen any kernels.
const float squareAtLoad = [] {
    float x[19];
    std::fill(std::begin(x), std::end(x), 3.0F);
    dspSqrF32(x, x, 19);
    return x[0] == x[18] ? x[0] : nan;
}();

TEST(VectorKernels, ServeBeforeTheInitialisationWhichPicksTheBest) {
    EXPECT_EQ(squareAtLoad, 9.0F);
    std::any_of(std::begin(kernelSets), std::end(kernelSets), [](const KernelSet& set) { return set.use(); });
    const KernelTable* best = &dspKernels();
    dspUse(InstructionSet::baseline);
    dspInitialise();
    EXPECT_EQ(&dspKernels(), best);
    dspUse(InstructionSet::baseline);
}

}  // namespace
}  // namespace hxr
