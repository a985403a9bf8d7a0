#include "dsp/fir.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "dsp/instruction_set.h"
#include "dsp/kernels/kernel_table.h"
#include "dsp/vector.h"

namespace hxr {
namespace {

bool areReal(const cf32* taps, int length) {
    return std::all_of(taps, taps + length, [](const cf32& tap) { return tap.im == 0.0F; });
}

/// Samples of a packet, the usual block.
constexpr int packetSamples = 2048;
/// Up to here the direct form is the faster one.
constexpr int longestDirect = 48;

/// Order of the transforms for a long filter: four times its length leaves most of each transform to new
/// samples, but more than a packet and the history isn't filled.
int convolutionOrder(int length) {
    const auto enough = static_cast<unsigned>(std::min(4 * length, length - 1 + packetSamples));
    return std::bit_width(enough - 1);
}

}  // namespace

FirPlan::FirPlan(const cf32* taps, int length)
    : kernels_(dspKernels()),
      length_(length),
      chunk_(packetSamples),
      realTaps_(areReal(taps, length)),
      newestLast_(std::make_reverse_iterator(taps + length), std::make_reverse_iterator(taps)) {
    if (length > longestDirect) planConvolution(taps);
}

void FirPlan::planConvolution(const cf32* taps) {
    transform_ = std::make_unique<FftPlanCf32>(convolutionOrder(length_), fftScaleForward, fftFast);
    const int points = transform_->length();
    chunk_ = points - (length_ - 1);
    response_ = platform::makeAlignedArray<cf32>(static_cast<std::size_t>(points));
    const auto work = transform_->makeWork();
    // The transform divides by the number of points each time; the second division belongs to the way back.
    const float scale = static_cast<float>(points) * static_cast<float>(points);
    dspZero64(response_.get(), points);
    for (int k = 0; k < length_; ++k)
        response_[static_cast<std::size_t>(k)] = {taps[k].re * scale, taps[k].im * scale};
    fftForwardCf32(response_.get(), response_.get(), *transform_, work.get());
}

platform::AlignedArray<cf32> FirPlan::makeWork() const {
    const auto samples = static_cast<std::size_t>(length_ - 1) + static_cast<std::size_t>(chunk_);
    return platform::makeAlignedArray<cf32>(transform_ ? 2 * samples + transform_->workLength() : samples);
}

void FirPlan::direct(const cf32* samples, int n, cf32* dst) const {
    (realTaps_ ? kernels_.firDirectReal : kernels_.firDirectComplex)(
        floats(samples), floats(newestLast_.data()), length_, floats(dst), n);
}

/// The history and n new samples, at the front of `work`, through the frequency domain. Of the transform's
/// circular results those that have the whole history behind them are the filter's.
void FirPlan::convolve(int n, cf32* dst, cf32* work) const {
    const int points = transform_->length(), history = length_ - 1;
    cf32* spectrum = work + points;
    cf32* scratch = spectrum + points;
    dspZero64(work + history + n, points - history - n);
    fftForwardCf32(work, spectrum, *transform_, scratch);
    kernels_.mulCf32(floats(spectrum), floats(response_.get()), floats(spectrum), points);
    // The inverse transform is the forward one of the conjugate, conjugated.
    for (int k = 0; k < points; ++k) spectrum[k].im = -spectrum[k].im;
    fftForwardCf32(spectrum, spectrum, *transform_, scratch);
    for (int m = 0; m < n; ++m) dst[m] = {spectrum[history + m].re, -spectrum[history + m].im};
}

FirPlan firPlan(const cf32* taps, int length) { return {taps, length}; }

void firFilter(const cf32* src, cf32* dst, int n, const FirPlan& plan, const cf32* delayIn, cf32* delayOut,
               cf32* work) {
    if (n <= 0) return;
    const int history = plan.length_ - 1;
    dspCopy64(delayIn, work, history);
    for (int done = 0; done < n;) {
        const int count = std::min(plan.chunk_, n - done);
        dspCopy64(src + done, work + history, count);
        if (plan.transform_)
            plan.convolve(count, dst + done, work);
        else
            plan.direct(work, count, dst + done);
        std::memmove(work, work + count, static_cast<std::size_t>(history) * sizeof(cf32));
        done += count;
    }
    dspCopy64(work, delayOut, history);
}

void sampleDown(const cf32* src, int n, cf32* dst, int* dstLength, int factor, int* phase) {
    if (n <= 0) return;
    int count = 0;
    std::int64_t index = *phase;
    for (; index < n; index += factor) dst[count++] = src[index];
    *dstLength = count;
    *phase = static_cast<int>(index - n);
}

FirDecimator::FirDecimator(const cf32* taps, int length, int factor, int longestBlock)
    : kernels_(dspKernels()),
      length_(length),
      factor_(factor),
      realTaps_(areReal(taps, length)),
      // Room for several blocks, so that the history is seldom moved back to the front.
      longestPiece_(std::max(longestBlock, 1)),
      capacity_(2 * (length - 1) + 4 * longestPiece_),
      tapsRe_(platform::makeAlignedArray<float>(2 * static_cast<std::size_t>(length))),
      tapsIm_(platform::makeAlignedArray<float>(2 * static_cast<std::size_t>(length))),
      samples_(platform::makeAlignedArray<cf32>(static_cast<std::size_t>(capacity_))) {
    for (int k = 0; k < length; ++k) {
        const cf32 tap = taps[length - 1 - k];
        tapsRe_[2 * static_cast<std::size_t>(k)] = tapsRe_[2 * static_cast<std::size_t>(k) + 1] = tap.re;
        tapsIm_[2 * static_cast<std::size_t>(k)] = tapsIm_[2 * static_cast<std::size_t>(k) + 1] = tap.im;
    }
    reset();
}

void FirDecimator::reset() {
    filled_ = length_ - 1;
    phase_ = 0;
    dspZero64(samples_.get(), filled_);
}

cf32* FirDecimator::room(int n) {
    if (filled_ + n > capacity_) {
        const int history = length_ - 1;
        std::memmove(samples_.get(), samples_.get() + filled_ - history,
                     static_cast<std::size_t>(history) * sizeof(cf32));
        filled_ = history;
    }
    return samples_.get() + filled_;
}

int FirDecimator::filterNewest(int n, cf32* dst) {
    const cf32* oldest = samples_.get() + filled_ - (length_ - 1) + phase_;
    const int count = phase_ < n ? (n - phase_ - 1) / factor_ + 1 : 0;
    const auto decimate = realTaps_ ? kernels_.firDecimateReal : kernels_.firDecimateComplex;
    if (count > 0)
        decimate(floats(oldest), factor_, tapsRe_.get(), tapsIm_.get(), length_, floats(dst), count);
    filled_ += n;
    phase_ = static_cast<int>(phase_ + std::int64_t{count} * factor_ - n);
    return count;
}

/// Takes n samples in pieces that the buffer holds; `bring` brings one to its place.
template <typename Sample, typename Bring>
int FirDecimator::processPieces(const Sample* src, int n, cf32* dst, Bring&& bring) {
    int written = 0;
    for (int done = 0; done < n;) {
        const int piece = std::min(n - done, longestPiece_);
        bring(src + done, room(piece), piece);
        written += filterNewest(piece, dst + written);
        done += piece;
    }
    return written;
}

int FirDecimator::process(const cf32* src, int n, cf32* dst) { return processPieces(src, n, dst, dspCopy64); }

int FirDecimator::process(const ci16* src, int n, cf32* dst) {
    return processPieces(src, n, dst, [](const ci16* from, cf32* to, int count) {
        dspI16ToF32(reinterpret_cast<const std::int16_t*>(from), floats(to), 2 * count, 15);
    });
}

}  // namespace hxr
