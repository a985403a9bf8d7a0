/// FIR filters of complex samples, plain and decimating, and the plain sample-down.
#pragma once

#include <memory>
#include <vector>

#include "dsp/fft.h"
#include "dsp/memory.h"
#include "dsp/samples.h"

namespace hxr {

struct KernelTable;

/// The taps of a filter, prepared. Short filters run in direct form, long ones through transforms. A plan is
/// read-only while in use and serves any number of threads, each with its own work buffer and delay line.
class FirPlan {
  public:
    /// @param taps    copied; taps[0] meets the newest sample
    /// @param length  1 or more
    FirPlan(const cf32* taps, int length);

    int length() const { return length_; }
    /// A buffer for one thread's calls of `firFilter`.
    platform::AlignedArray<cf32> makeWork() const;

  private:
    friend void firFilter(const cf32* src, cf32* dst, int n, const FirPlan& plan, const cf32* delayIn,
                          cf32* delayOut, cf32* work);
    void planConvolution(const cf32* taps);
    void direct(const cf32* samples, int n, cf32* dst) const;
    void convolve(int n, cf32* dst, cf32* work) const;

    const KernelTable& kernels_;
    int length_;
    int chunk_;  ///< samples that are filtered at a time
    bool realTaps_;
    std::vector<cf32> newestLast_;            ///< the taps of the direct form
    std::unique_ptr<FftPlanCf32> transform_;  ///< of the long form; null for the direct one
    platform::AlignedArray<cf32> response_;   ///< of the long form, scaled for the two transforms
};

FirPlan firPlan(const cf32* taps, int length);

/// y[m] = sum of taps[k] x[m - k]; the samples before the block come from the delay line.
///
/// In direct form a NaN or infinity reaches only the outputs that meet it. Through transforms it reaches all outputs of
/// every transform that holds it, before it and after it and into the next block; a huge sample lowers the precision of
/// its neighbours likewise.
///
/// @param dst       n outputs; may be src
/// @param delayIn   length - 1 samples before the block, newest last; zero before the first block
/// @param delayOut  the same for the next block; may be delayIn
/// @param work      a buffer of `plan.makeWork()`
void firFilter(const cf32* src, cf32* dst, int n, const FirPlan& plan, const cf32* delayIn, cf32* delayOut,
               cf32* work);

/// dst[j] = src[phase + j factor] while that lies in the block, without a filter.
///
/// @param dstLength  receives the number of samples written; left alone if n is below 1
/// @param factor     1 or more
/// @param phase      from 0 to factor - 1; receives where the next block's first sample falls
void sampleDown(const cf32* src, int n, cf32* dst, int* dstLength, int factor, int* phase);

/// Filter and sample-down in one: computes only the samples that are kept. The results are those of
/// `firFilter` and then `sampleDown`, block for block, but for the rounding of sums that are added in another
/// order. It keeps the samples that it still needs in a buffer of its own, so that a block is copied once and
/// nothing is allocated after construction. One object serves one channel, on one thread at a time.
class FirDecimator {
  public:
    /// @param taps          copied; taps[0] meets the newest sample
    /// @param length        1 or more
    /// @param factor        1 or more; the first output belongs to the first sample
    /// @param longestBlock  samples in the longest block that will come often; longer ones are taken in pieces
    FirDecimator(const cf32* taps, int length, int factor, int longestBlock);

    /// Takes the next n samples.
    /// @param dst  the outputs, at most n / factor + 1; may be src
    /// @return the number of outputs
    int process(const cf32* src, int n, cf32* dst);

    /// The same from 16-bit samples, full scale being 1.0.
    int process(const ci16* src, int n, cf32* dst);

    /// Forgets all samples, as if new.
    void reset();

  private:
    cf32* room(int n);
    int filterNewest(int n, cf32* dst);
    template <typename Sample, typename Bring>
    int processPieces(const Sample* src, int n, cf32* dst, Bring&& bring);

    const KernelTable& kernels_;
    int length_, factor_;
    bool realTaps_;
    int longestPiece_;
    int capacity_;  ///< samples that the buffer holds
    int filled_;    ///< samples in it, newest last
    int phase_ = 0;
    platform::AlignedArray<float> tapsRe_, tapsIm_;  ///< oldest sample's first, each standing twice
    platform::AlignedArray<cf32> samples_;
};

}  // namespace hxr
