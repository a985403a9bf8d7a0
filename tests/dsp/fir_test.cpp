#include "dsp/fir.h"

#include <algorithm>
#include <complex>
#include <thread>

#include "dsp/vector.h"
#include "dsp_test.h"

namespace hxr {
namespace {

std::vector<cf32> testTaps(int length, bool real) {
    std::vector<cf32> taps = randomSamples(static_cast<std::size_t>(length), static_cast<unsigned>(length));
    for (cf32& tap : taps) {
        const float scale = 1.0F / static_cast<float>(length);
        tap = {tap.re * scale, real ? 0.0F : tap.im * scale};
    }
    return taps;
}

/// The plain sum in double precision, zero before the first sample.
std::vector<std::complex<double>> exactFilter(const std::vector<cf32>& x, const std::vector<cf32>& taps) {
    std::vector<std::complex<double>> y(x.size());
    for (std::size_t m = 0; m < x.size(); ++m) {
        for (std::size_t k = 0; k < taps.size() && k <= m; ++k) {
            y[m] += std::complex<double>(double{taps[k].re}, double{taps[k].im}) *
                    std::complex<double>(double{x[m - k].re}, double{x[m - k].im});
        }
    }
    return y;
}

double greatestError(const std::vector<cf32>& y, const std::vector<std::complex<double>>& exact) {
    double worst = 0.0;
    for (std::size_t i = 0; i < y.size(); ++i)
        worst = std::max(worst, std::abs(std::complex<double>(double{y[i].re}, double{y[i].im}) - exact[i]));
    return worst;
}

/// Runs x through the plan in place, in blocks of the given sizes in turn, the last one repeated.
std::vector<cf32> filtered(const std::vector<cf32>& x, const FirPlan& plan, const std::vector<int>& blocks) {
    const auto work = plan.makeWork();
    std::vector<cf32> delay(static_cast<std::size_t>(plan.length())), y = x;
    for (std::size_t done = 0, turn = 0; done < y.size(); ++turn) {
        const int n = std::min(blocks[std::min(turn, blocks.size() - 1)], static_cast<int>(y.size() - done));
        const NothingAllocated here;
        firFilter(y.data() + done, y.data() + done, n, plan, delay.data(), delay.data(), work.get());
        done += static_cast<std::size_t>(n);
    }
    return y;
}

std::vector<cf32> filtered(const std::vector<cf32>& x, const std::vector<cf32>& taps,
                           const std::vector<int>& blocks) {
    return filtered(x, firPlan(taps.data(), static_cast<int>(taps.size())), blocks);
}

class Fir : public EveryKernelSet {};

TEST_P(Fir, AgreesWithThePlainSumHoweverTheSamplesAreCut) {
    for (const int length : {1, 2, 3, 5, 17, 63, 64, 129, 257, 1000, 1025}) {
        for (const bool real : {true, false}) {
            const std::vector<cf32> taps = testTaps(length, real);
            const std::vector<cf32> x = randomSamples(5003, 1);
            const auto exact = exactFilter(x, taps);
            const double tolerance = 2e-7;
            for (const std::vector<int>& blocks :
                 {std::vector<int>{5003}, {2048}, {1, 2, 3, 4, 5, 6, 7, 100, 1500, 1}}) {
                ASSERT_LT(greatestError(filtered(x, taps, blocks), exact), tolerance)
                    << length << (real ? " real" : " complex") << " taps, blocks of " << blocks.back();
            }
        }
    }
}

TEST_P(Fir, TakesItsHistoryFromOneDelayLineAndLeavesItInAnother) {
    const std::vector<cf32> taps = testTaps(65, false), x = randomSamples(300, 2);
    const FirPlan plan = firPlan(taps.data(), 65);
    const auto work = plan.makeWork();
    const std::vector<cf32> before = {x.begin(), x.begin() + 64};
    std::vector<cf32> after(64), y(200);
    firFilter(x.data() + 64, y.data(), 200, plan, before.data(), after.data(), work.get());
    auto exact = exactFilter(x, taps);
    exact.erase(exact.begin(), exact.begin() + 64);
    EXPECT_LT(greatestError(y, exact), 2e-7);
    EXPECT_EQ(std::memcmp(after.data(), x.data() + 200, 64 * sizeof(cf32)), 0);
}

TEST_P(Fir, DecimatorEqualsFilterThenSampleDownForEveryDecimation) {
    for (const int factor : {1, 2, 3, 4, 5, 7, 8, 16, 19, 32, 64}) {
        for (const bool real : {true, false}) {
            const std::vector<cf32> taps = testTaps(64 * factor + 1, real), x = randomSamples(8192, 3);
            std::vector<cf32> plain = filtered(x, taps, {2048}), fused(x.size());
            int count = 0, phase = 0;
            sampleDown(plain.data(), static_cast<int>(plain.size()), plain.data(), &count, factor, &phase);
            FirDecimator decimator(taps.data(), static_cast<int>(taps.size()), factor, 2048);
            // Blocks of a packet, odd ones that leave the phase anywhere, single samples, and one that is longer than
            // any that was announced.
            for (const int block : {2048, 701, 1, 5000}) {
                decimator.reset();
                int written = 0;
                for (int done = 0; done < 8192 && (block > 1 || done < 900); done += block) {
                    const int n = std::min(block, 8192 - done);
                    const NothingAllocated here;
                    written += decimator.process(x.data() + done, n, fused.data() + written);
                }
                if (block > 1) {
                    ASSERT_EQ(written, count) << factor;
                }
                for (int j = 0; j < written; ++j) {
                    const cf32 y = fused[static_cast<std::size_t>(j)], z = plain[static_cast<std::size_t>(j)];
                    ASSERT_LT(std::hypot(y.re - z.re, y.im - z.im), 2e-7F)
                        << factor << " at " << j << ", blocks of " << block;
                }
            }
        }
    }
}

TEST_P(Fir, DecimatorTakesSixteenBitSamplesAtFullScaleOne) {
    const std::vector<cf32> taps = testTaps(129, true);
    std::vector<cf32> x(2048), fromRaw(x.size()), fromFloat = x;
    Placed<std::int16_t> raw(2 * x.size(), 1);
    for (int i = 0; i < 4096; ++i) raw.data()[i] = static_cast<std::int16_t>(37 * i * i + 1000 * i);
    dspI16ToF32(raw.data(), &x[0].re, 4096, 15);
    FirDecimator first(taps.data(), 129, 2, 2048), second(taps.data(), 129, 2, 2048);
    {
        const NothingAllocated here;
        EXPECT_EQ(first.process(raw.as<ci16>(), 2048, fromRaw.data()), 1024);
        EXPECT_EQ(second.process(x.data(), 2048, fromFloat.data()), 1024);
    }
    EXPECT_EQ(std::memcmp(fromRaw.data(), fromFloat.data(), 1024 * sizeof(cf32)), 0);
}

TEST_P(Fir, OneBadSampleReachesOnlyTheOutputsThatMeetItOrTheirTransforms) {
    for (const float bad :
         {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()}) {
        std::vector<cf32> x = randomSamples(1000, 4), down(1000);
        x[550].re = bad;
        const auto spoilt = [&](cf32 y) { return !std::isfinite(y.re); };
        const std::vector<cf32> taps = testTaps(13, true), y = filtered(x, taps, {1000});
        for (std::size_t i = 0; i < 1000; ++i) EXPECT_EQ(spoilt(y[i]), i >= 550 && i <= 562) << i;
        FirDecimator decimator(taps.data(), 13, 3, 1000);
        const int count = decimator.process(x.data(), 1000, down.data());
        for (int j = 0; j < count; ++j)
            EXPECT_EQ(spoilt(down[static_cast<std::size_t>(j)]), 3 * j >= 550 && 3 * j <= 562) << j;
        // A long filter's transforms hold a block of 100 and the 64 samples before it.
        const std::vector<cf32> z = filtered(x, testTaps(65, true), {100});
        EXPECT_TRUE(std::all_of(z.begin() + 550, z.begin() + 615, spoilt));
        EXPECT_TRUE(std::none_of(z.begin(), z.begin() + 500, spoilt));
        EXPECT_TRUE(std::none_of(z.begin() + 700, z.end(), spoilt));
    }
}

TEST_P(Fir, PlanServesTwoThreadsAtATime) {
    for (const int length : {17, 257}) {
        const std::vector<cf32> taps = testTaps(length, false);
        const FirPlan plan = firPlan(taps.data(), length);
        const std::vector<cf32> expected = filtered(randomSamples(20000, 8), plan, {2048});
        std::vector<cf32> beside;
        std::thread other([&] { beside = filtered(randomSamples(20000, 8), plan, {2048}); });
        filtered(randomSamples(20000, 9), plan, {2048});
        other.join();
        EXPECT_EQ(std::memcmp(beside.data(), expected.data(), expected.size() * sizeof(cf32)), 0) << length;
    }
}

HXR_ON_EVERY_KERNEL_SET(Fir);

TEST(SampleDown, KeepsItsPhaseFromBlockToBlock) {
    const std::vector<cf32> x = randomSamples(12, 6);
    std::vector<cf32> kept(4);
    int phase = 0, count = 0;
    sampleDown(x.data(), 6, kept.data(), &count, 4, &phase);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(phase, 2);
    sampleDown(x.data() + 6, 6, kept.data() + 2, &count, 4, &phase);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(phase, 0);
    for (std::size_t j = 0; j < 3; ++j) EXPECT_EQ(kept[j].re, x[4 * j].re);
    // A block shorter than the phase yields nothing, and a factor of 1 copies.
    const NothingAllocated here;
    phase = 3;
    sampleDown(x.data(), 2, kept.data(), &count, 5, &phase);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(phase, 1);
    phase = 0;
    sampleDown(x.data(), 4, kept.data(), &count, 1, &phase);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(kept[3].im, x[3].im);
}

TEST(FirMemory, NothingHappensForCountsBelowOne) {
    const std::vector<cf32> taps = testTaps(65, false);
    const FirPlan plan = firPlan(taps.data(), 65);
    FirDecimator decimator(taps.data(), 65, 4, 100);
    for (const int n : {0, -1, std::numeric_limits<int>::min()}) {
        firFilter(nullptr, nullptr, n, plan, nullptr, nullptr, nullptr);
        sampleDown(nullptr, n, nullptr, nullptr, 4, nullptr);
        EXPECT_EQ(decimator.process(static_cast<const cf32*>(nullptr), n, nullptr), 0);
        EXPECT_EQ(decimator.process(static_cast<const ci16*>(nullptr), n, nullptr), 0);
    }
}

}  // namespace
}  // namespace hxr
