#include "dsp/fft_real.h"

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace hxr {
namespace {

constexpr int greatestOrder = 20;

cf64 operator+(cf64 a, cf64 b) { return {a.re + b.re, a.im + b.im}; }
cf64 operator-(cf64 a, cf64 b) { return {a.re - b.re, a.im - b.im}; }
cf64 operator*(cf64 a, cf64 b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
cf64 conjugate(cf64 a) { return {a.re, -a.im}; }

}  // namespace

FftPlanRealF64::FftPlanRealF64(int order, int scaleRule, int) {
    if (order < 1 || order > greatestOrder || scaleRule != fftScaleForward)
        throw std::invalid_argument("real transform of an order or scale that isn't supported");
    length_ = 1 << order;
    const int half = length_ / 2;
    turns_.resize(static_cast<std::size_t>(half));
    reversed_.resize(turns_.size());
    for (int k = 0; k < half; ++k) {
        const auto i = static_cast<std::size_t>(k);
        const double angle = -2.0 * std::numbers::pi * k / length_;
        turns_[i] = {std::cos(angle), std::sin(angle)};
        reversed_[i] = reversed_[i / 2] / 2 + (k % 2 != 0 ? half / 2 : 0);
    }
}

platform::AlignedArray<cf64> FftPlanRealF64::makeWork() const {
    return platform::makeAlignedArray<cf64>(static_cast<std::size_t>(length_ / 2));
}

FftPlanRealF64 fftPlanRealF64(int order, int scaleRule, int hint) { return {order, scaleRule, hint}; }

/// Unscaled complex transform of N / 2 points, in place, from points in the order of reversed bits.
void FftPlanRealF64::transformHalf(cf64* z) const {
    const int half = length_ / 2;
    for (int span = 1; span < half; span *= 2) {
        const int step = half / span;
        for (int block = 0; block < half; block += 2 * span) {
            for (int j = 0; j < span; ++j) {
                const cf64 a = z[block + j],
                           b = z[block + j + span] *
                               turns_[static_cast<std::size_t>(j) * static_cast<std::size_t>(step)];
                z[block + j] = a + b;
                z[block + j + span] = a - b;
            }
        }
    }
}

void fftForwardRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work) {
    // Even samples as real parts, odd ones as imaginary parts: Z[k] = E[k] + j O[k], X[k] = E[k] + e^(-j 2 pi
    // k/N) O[k].
    const int half = plan.length_ / 2;
    for (int n = 0; n < half; ++n)
        work[plan.reversed_[static_cast<std::size_t>(n)]] = {src[2 * n], src[2 * n + 1]};
    plan.transformHalf(work);
    const double scale = 1.0 / plan.length_;
    dst[0] = (work[0].re + work[0].im) * scale;
    dst[1] = (work[0].re - work[0].im) * scale;
    for (int k = 1; k < half; ++k) {
        const cf64 z = work[k], mirrored = conjugate(work[half - k]);
        const cf64 difference = z - mirrored;
        const cf64 odd = {difference.im, -difference.re};
        const cf64 sum = z + mirrored + odd * plan.turns_[static_cast<std::size_t>(k)];
        dst[2 * k] = sum.re * (0.5 * scale);
        dst[2 * k + 1] = sum.im * (0.5 * scale);
    }
}

void fftInverseRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work) {
    // The forward way reversed, and conjugated at both ends, which turns the forward transform into the
    // inverse one.
    const int half = plan.length_ / 2;
    work[0] = {src[0] + src[1], src[1] - src[0]};
    for (int k = 1; k < half; ++k) {
        const cf64 x = {src[2 * k], src[2 * k + 1]};
        const cf64 mirrored = {src[2 * (half - k)], -src[2 * (half - k) + 1]};
        const cf64 odd = (x - mirrored) * conjugate(plan.turns_[static_cast<std::size_t>(k)]);
        const cf64 even = x + mirrored;
        work[plan.reversed_[static_cast<std::size_t>(k)]] = {even.re - odd.im, -(even.im + odd.re)};
    }
    plan.transformHalf(work);
    for (int n = 0; n < half; ++n) {
        const cf64 z = work[n];
        dst[2 * n] = z.re;
        dst[2 * n + 1] = -z.im;
    }
}

}  // namespace hxr
