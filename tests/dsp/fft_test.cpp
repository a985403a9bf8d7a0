#include "dsp/fft.h"

#include <complex>
#include <numbers>
#include <stdexcept>
#include <thread>

#include "dsp/fft_real.h"
#include "dsp/vector.h"
#include "dsp_test.h"

namespace hxr {
namespace {

using Exact = std::vector<std::complex<double>>;

/// The unscaled transform by halves, in double precision, of the points that lie `stride` apart.
void transformHalves(const Exact& turns, const std::complex<double>* x, std::size_t stride,
                     std::complex<double>* result, std::size_t n) {
    if (n == 1) {
        *result = *x;
        return;
    }
    transformHalves(turns, x, 2 * stride, result, n / 2);
    transformHalves(turns, x + stride, 2 * stride, result + n / 2, n / 2);
    for (std::size_t k = 0; k < n / 2; ++k) {
        const std::complex<double> even = result[k], turned = turns[k * stride] * result[k + n / 2];
        result[k] = even + turned;
        result[k + n / 2] = even - turned;
    }
}

Exact exactTransform(const Exact& x) {
    Exact turns(x.size() / 2), result(x.size());
    for (std::size_t k = 0; k < turns.size(); ++k)
        turns[k] =
            std::polar(1.0, -2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(x.size()));
    transformHalves(turns, x.data(), 1, result.data(), x.size());
    return result;
}

double relativeError(const cf32* result, const Exact& exact) {
    const double n = static_cast<double>(exact.size());
    double error = 0.0, power = 0.0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        error += std::norm(std::complex<double>(double{result[k].re}, double{result[k].im}) - exact[k] / n);
        power += std::norm(exact[k] / n);
    }
    return std::sqrt(error / power);
}

class Fft : public EveryKernelSet {};

TEST_P(Fft, IsAsAccurateAsTheBestOfItsPrecisionInPlaceOrNot) {
    for (int order = 0; order <= 21; ++order) {
        const std::size_t n = std::size_t{1} << order;
        const std::vector<cf32> samples = randomSamples(n, static_cast<unsigned>(order));
        Exact exact(n);
        for (std::size_t i = 0; i < n; ++i) exact[i] = {double{samples[i].re}, double{samples[i].im}};
        exact = exactTransform(exact);
        const FftPlanCf32 plan = fftPlanCf32(order, fftScaleForward, fftFast);
        const auto work = plan.makeWork();
        // Neither array is aligned beyond its element; what surrounds the result stays as it is.
        Placed<float> src(2 * n, 1), dst(2 * n, 3);
        std::memcpy(src.data(), samples.data(), n * sizeof(cf32));
        {
            const NothingAllocated here;
            fftForwardCf32(src.as<cf32>(), dst.as<cf32>(), plan, work.get());
        }
        // 1.5 times the error of FFTW in single precision, which grows from 7.7e-8 at order 6 to 1.7e-7 at
        // order 21.
        const double bound = 1.5 * (7.7e-8 + 6.2e-9 * std::max(0, order - 6));
        EXPECT_LT(relativeError(dst.as<cf32>(), exact), bound) << "order " << order;
        EXPECT_EQ(std::memcmp(src.data(), samples.data(), n * sizeof(cf32)), 0) << "the source was written";
        fftForwardCf32(src.as<cf32>(), src.as<cf32>(), plan, work.get());
        EXPECT_TRUE(src.holdsThoseOf(dst)) << "in place, order " << order;
        EXPECT_TRUE(src.isGuarded() && dst.isGuarded()) << order;
    }
}

TEST_P(Fft, PlanServesTwoThreadsAtATime) {
    for (const int order : {10, 15}) {
        const auto n = std::size_t{1} << order;
        const FftPlanCf32 plan = fftPlanCf32(order, fftScaleForward, fftFast);
        const auto transformed = [&](unsigned seed) {
            const std::vector<cf32> x = randomSamples(n, seed);
            std::vector<cf32> y(n);
            const auto work = plan.makeWork();
            for (int turn = 0; turn < 20; ++turn) fftForwardCf32(x.data(), y.data(), plan, work.get());
            return y;
        };
        const std::vector<cf32> expected = transformed(1);
        std::vector<cf32> beside;
        std::thread other([&] { beside = transformed(1); });
        transformed(2);
        other.join();
        EXPECT_EQ(std::memcmp(beside.data(), expected.data(), n * sizeof(cf32)), 0) << order;
    }
}

TEST_P(Fft, OfAConstantIsExactlyOneBin) {
    for (const int order : {6, 9, 11, 14}) {
        const std::size_t n = std::size_t{1} << order;
        const FftPlanCf32 plan = fftPlanCf32(order, fftScaleForward, fftAccurate);
        const auto work = plan.makeWork();
        std::vector<cf32> x(n, cf32{1.0F, 0.0F});
        fftForwardCf32(x.data(), x.data(), plan, work.get());
        EXPECT_EQ(x[0].re, 1.0F);
        for (std::size_t k = 1; k < n; ++k) ASSERT_EQ(std::abs(x[k].re) + std::abs(x[k].im), 0.0F) << k;
    }
}

TEST_P(Fft, PlanKeepsItsKernelsWhenOthersAreChosen) {
    const FftPlanCf32 plan = fftPlanCf32(10, fftScaleForward, fftFast);
    const auto work = plan.makeWork();
    const std::vector<cf32> x = randomSamples(1024, 1);
    std::vector<cf32> before(1024), after(1024);
    fftForwardCf32(x.data(), before.data(), plan, work.get());
    dspUse(InstructionSet::baseline);
    fftForwardCf32(x.data(), after.data(), plan, work.get());
    EXPECT_EQ(std::memcmp(before.data(), after.data(), 1024 * sizeof(cf32)), 0);
}

HXR_ON_EVERY_KERNEL_SET(Fft);

TEST(FftReal, PacksTheSpectrumAndComesBack) {
    for (int order = 1; order <= 9; ++order) {
        const auto n = std::size_t{1} << order;
        std::vector<double> x(n), packed(n);
        Exact exact(n);
        for (std::size_t i = 0; i < n; ++i)
            exact[i] = x[i] = std::sin(0.7 + 1.3 * static_cast<double>(i * i));
        exact = exactTransform(exact);
        const FftPlanRealF64 plan = fftPlanRealF64(order, fftScaleForward, fftAccurate);
        const auto work = plan.makeWork();
        fftForwardRealF64(x.data(), packed.data(), plan, work.get());
        const double scale = static_cast<double>(n);
        EXPECT_NEAR(packed[0], exact[0].real() / scale, 1e-15);
        EXPECT_NEAR(packed[1], exact[n / 2].real() / scale, 1e-15);
        for (std::size_t k = 1; k < n / 2; ++k) {
            EXPECT_NEAR(packed[2 * k], exact[k].real() / scale, 1e-15) << order << " " << k;
            EXPECT_NEAR(packed[2 * k + 1], exact[k].imag() / scale, 1e-15) << order << " " << k;
        }
        fftInverseRealF64(packed.data(), packed.data(), plan, work.get());
        for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(packed[i], x[i], 1e-14) << order << " " << i;
    }
}

TEST(FftPlans, RefuseWhatTheyCannotDo) {
    EXPECT_THROW(fftPlanCf32(-1, fftScaleForward, fftFast), std::invalid_argument);
    EXPECT_THROW(fftPlanCf32(25, fftScaleForward, fftFast), std::invalid_argument);
    EXPECT_THROW(fftPlanCf32(10, 2, fftFast), std::invalid_argument);
    EXPECT_THROW(fftPlanRealF64(0, fftScaleForward, fftFast), std::invalid_argument);
}

}  // namespace
}  // namespace hxr
