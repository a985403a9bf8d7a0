#include "dsp/vector.h"

#include <algorithm>
#include <bit>
#include <functional>

#include "dsp_test.h"

namespace hxr {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float untouched = -7.25e11F;

/// Ordinary values with the special ones strewn in, at other places for each length and offset.
std::vector<float> awkwardValues(int n, int seed) {
    const float special[] = {0.0F,    -0.0F,           nan,     infinity, -infinity, 1e-41F,
                             -3e-45F, 1.17549435e-38F, 3.4e38F, 1.0F};
    std::mt19937 engine(static_cast<unsigned>(seed));
    std::normal_distribution<float> value(0.0F, 2.0F);
    std::vector<float> values(static_cast<std::size_t>(n));
    for (float& x : values) x = engine() % 4 == 0 ? special[engine() % std::size(special)] : value(engine);
    return values;
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
         return cf64{std::hypot(a.re, a.im), 0.0};
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
                std::vector<float> shifted(a.size() + offset + 1, untouched), dst = shifted;
                std::copy(a.begin(), a.end(), shifted.begin() + static_cast<std::ptrdiff_t>(offset));
                operation.run(shifted.data() + offset, b.data(), dst.data() + offset, n);
                operation.run(shifted.data() + offset, b.data(), shifted.data() + offset, n);
                for (std::size_t i = 0; i < a.size(); ++i) {
                    const double exact = operation.exact(double{a[i]}, double{b[i]});
                    ASSERT_LE(ulpDistance(dst[offset + i], exact), operation.ulps)
                        << operation.name << " of " << a[i] << ", " << b[i] << " at " << i << " of " << n;
                }
                ASSERT_EQ(std::memcmp(dst.data(), shifted.data(), dst.size() * sizeof(float)), 0)
                    << operation.name << " in place, or outside its array, length " << n;
                ASSERT_EQ(dst.back(), untouched);
            }
        }
    }
}

TEST_P(Vector, ComplexOperationsAgreeWithDoublePrecisionWhereverTheyStand) {
    for (const ComplexOperation& operation : complexOperations) {
        const auto step = static_cast<std::size_t>(operation.floatsPerResult);
        for (const int n : testLengths()) {
            const auto count = static_cast<std::size_t>(n);
            const std::vector<cf32> a = randomSamples(count, 7), b = randomSamples(count, 8);
            std::vector<float> dst(step * count + 2, untouched);
            operation.run(a.data(), b.data(), dst.data() + 1, n);
            ASSERT_EQ(dst.front(), untouched);
            ASSERT_EQ(dst.back(), untouched);
            for (std::size_t i = 0; i < count; ++i) {
                const cf64 x = {double{a[i].re}, double{a[i].im}}, y = {double{b[i].re}, double{b[i].im}};
                const cf64 exact = operation.exact(x, y);
                const double tolerance = 1.3e-7 * (0.01 + std::hypot(exact.re, exact.im));
                ASSERT_NEAR(double{dst[1 + step * i]}, exact.re, tolerance)
                    << operation.name << " " << i << " of " << n;
                if (step == 2) {
                    ASSERT_NEAR(double{dst[2 + 2 * i]}, exact.im, tolerance) << operation.name;
                }
            }
            if (!operation.inPlace) continue;
            std::vector<cf32> both = a;
            operation.run(both.data(), b.data(), reinterpret_cast<float*>(both.data()), n);
            ASSERT_TRUE(count == 0 || std::memcmp(both.data(), dst.data() + 1, count * sizeof(cf32)) == 0);
        }
    }
}

TEST_P(Vector, MagnitudeHoldsBeyondTheRangeOfThePower) {
    const std::vector<cf32> src = {{3e30F, 4e30F}, {3e-30F, -4e-30F}, {0.0F, 0.0F},     {-infinity, 1.0F},
                                   {nan, 1.0F},    {3.0F, 4.0F},      {3e-42F, 4e-42F}, {-5.0F, 12.0F}};
    const float expected[] = {5e30F, 5e-30F, 0.0F, infinity, nan, 5.0F, 5e-42F, 13.0F};
    std::vector<float> dst(src.size());
    dspMagnitudeCf32(src.data(), dst.data(), static_cast<int>(src.size()));
    for (std::size_t i = 0; i < src.size(); ++i)
        EXPECT_LE(ulpDistance(dst[i], double{expected[i]}), 1.0) << i;
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
    for (const int n : testLengths()) {
        std::vector<std::int16_t> samples(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            samples[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(i * 30011 + 32768 * (i % 2));
        std::vector<float> floats(samples.size() + 1, untouched);
        dspI16ToF32(samples.data(), floats.data(), n, 15);
        for (std::size_t i = 0; i < samples.size(); ++i)
            ASSERT_EQ(floats[i], static_cast<float>(samples[i]) / 32768.0F);
        ASSERT_EQ(floats.back(), untouched);
        std::vector<std::int16_t> back(samples.size() + 1, 77);
        dspF32ToI16(floats.data(), back.data(), n, dspRoundToNearest, -15);
        ASSERT_TRUE(std::equal(samples.begin(), samples.end(), back.begin()));
        ASSERT_EQ(back.back(), 77);
    }
    std::int16_t all[65536], again[65536];
    static float values[65536];
    for (int i = 0; i < 65536; ++i) all[i] = static_cast<std::int16_t>(i);
    dspI16ToF32(all, values, 65536, 15);
    dspF32ToI16(values, again, 65536, dspRoundToNearest, -15);
    EXPECT_TRUE(std::equal(std::begin(all), std::end(all), std::begin(again)));
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
        float src[64];
        std::int16_t nearest[64], truncated[64];
        for (int i = 0; i < 61; ++i)
            src[i] = rows[static_cast<std::size_t>(i + start) % std::size(rows)].value;
        dspF32ToI16(src, nearest, 61, dspRoundToNearest, -15);
        dspF32ToI16(src, truncated, 61, dspRoundToZero, -15);
        for (int i = 0; i < 61; ++i) {
            const auto& row = rows[static_cast<std::size_t>(i + start) % std::size(rows)];
            ASSERT_EQ(nearest[i], row.nearest) << row.value;
            ASSERT_EQ(truncated[i], row.truncated) << row.value;
        }
    }
}

TEST_P(Vector, SumsKeepWhatSinglePrecisionWouldLose) {
    for (const int n : testLengths()) {
        if (n == 0) continue;
        std::vector<double> real(static_cast<std::size_t>(n));
        std::vector<cf32> complex = randomSamples(real.size(), 5);
        double exactReal = 0.0, exactRe = 0.0, exactIm = 0.0;
        complex[0].re = 1e6F;
        for (std::size_t i = 0; i < real.size(); ++i) {
            real[i] = double{complex[i].im} * 1.0000001;
            exactReal += real[i];
            exactRe += double{complex[i].re};
            exactIm += double{complex[i].im};
        }
        double sum = 0.0;
        cf32 complexSum = {};
        dspSumF64(real.data(), n, &sum);
        dspSumCf32(complex.data(), n, &complexSum);
        ASSERT_NEAR(sum, exactReal, 1e-12);
        ASSERT_LE(ulpDistance(complexSum.re, exactRe), 0.51);
        ASSERT_NEAR(double{complexSum.im}, exactIm, 1e-5);
    }
}

TEST_P(Vector, DoublesMultiplyInPlace) {
    for (const int n : testLengths()) {
        std::vector<double> a(2 * static_cast<std::size_t>(n)), b = a;
        for (std::size_t i = 0; i < a.size(); ++i) {
            a[i] = std::sin(1.0 + static_cast<double>(i));
            b[i] = std::cos(2.0 + static_cast<double>(i));
        }
        std::vector<double> real = a, complex = a;
        dspMulF64(real.data(), b.data(), real.data(), 2 * n);
        auto* z = reinterpret_cast<cf64*>(complex.data());
        dspMulCf64(z, reinterpret_cast<const cf64*>(b.data()), z, n);
        for (std::size_t i = 0; i < a.size(); i += 2) {
            ASSERT_EQ(real[i], a[i] * b[i]);
            ASSERT_EQ(real[i + 1], a[i + 1] * b[i + 1]);
            ASSERT_NEAR(complex[i], product({a[i], a[i + 1]}, {b[i], b[i + 1]}).re, 1e-15);
            ASSERT_NEAR(complex[i + 1], product({a[i], a[i + 1]}, {b[i], b[i + 1]}).im, 1e-15);
        }
    }
}

TEST_P(Vector, FlipsOutOfPlaceAndInPlace) {
    for (const int n : testLengths()) {
        std::vector<float> src(static_cast<std::size_t>(n)), dst(src.size() + 1, untouched);
        for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<float>(i);
        dspFlip32(src.data(), dst.data(), n);
        std::vector<float> inPlace = src;
        dspFlip32(inPlace.data(), inPlace.data(), n);
        std::reverse(src.begin(), src.end());
        ASSERT_TRUE(std::equal(src.begin(), src.end(), dst.begin()));
        ASSERT_EQ(src, inPlace);
        ASSERT_EQ(dst.back(), untouched);
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

TEST(VectorMagnitude, OfASampleDoesNotDependOnThoseBesideIt) {
    std::vector<cf32> block(64);
    for (std::size_t i = 0; i < block.size(); ++i) {
        const auto x = static_cast<float>(i);
        block[i] = {std::sin(x), i % 8 == 3 ? 0.0F : std::cos(3 * x)};
        if (i % 16 == 5) block[i] = {0.0F, 0.0F};
        if (i % 16 == 9) block[i] = {1e-30F * x, 2e-41F};
    }
    std::vector<float> together(block.size());
    dspMagnitudeCf32(block.data(), together.data(), static_cast<int>(block.size()));
    for (std::size_t i = 0; i < block.size(); ++i) {
        float alone = -1;
        dspMagnitudeCf32(&block[i], &alone, 1);
        EXPECT_EQ(alone, together[i]) << i;
    }
}

TEST(VectorMemory, NothingHappensForCountsBelowOne) {
    for (const int n : {0, -1, std::numeric_limits<int>::min()}) {
        dspZero64(nullptr, n);
        dspCopy64(nullptr, nullptr, n);
        dspMulConstF32(nullptr, 0.0F, nullptr, n);
        dspMulConstF32(nullptr, 1.0F, nullptr, n);
        dspLnF32(nullptr, nullptr, n);
        dspPowerCf32(nullptr, nullptr, n);
        dspSumCf32(nullptr, n, nullptr);
        dspF32ToI16(nullptr, nullptr, n, dspRoundToNearest, -15);
    }
    EXPECT_EQ(dspAlloc(0), nullptr);
    EXPECT_EQ(dspAlloc(-5), nullptr);
    void* block = dspAlloc(100);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
    dspFree(block);
    dspFree(nullptr);
}

}  // namespace
}  // namespace hxr
