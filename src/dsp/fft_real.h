/// The pair of real transforms in double precision, for filter designs of a few dozen points.
#pragma once

#include <vector>

#include "dsp/fft.h"
#include "dsp/samples.h"

namespace hxr {

/// Plan of a real transform and of its inverse. Read-only while in use; a work buffer belongs to one thread.
///
/// The spectrum of N reals is packed into N doubles: X[0], X[N/2], then real and imaginary part of X[1] to
/// X[N/2 - 1].
class FftPlanRealF64 {
  public:
    /// @param order  from 1 to 20
    /// @throws std::invalid_argument for another order or scale rule
    FftPlanRealF64(int order, int scaleRule, int hint);

    int length() const { return length_; }
    /// A buffer for one thread's transforms.
    platform::AlignedArray<cf64> makeWork() const;

  private:
    friend void fftForwardRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work);
    friend void fftInverseRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work);
    void transformHalf(cf64* z) const;

    int length_;
    std::vector<cf64> turns_;    ///< e^(-j 2 pi k / N) for k below N / 2
    std::vector<int> reversed_;  ///< k with its bits reversed, for k below N / 2
};

FftPlanRealF64 fftPlanRealF64(int order, int scaleRule, int hint);

/// X[k] = 1/N sum of x[n] e^(-j 2 pi k n / N), packed. dst may be src.
void fftForwardRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work);

/// x[n] = sum of X[k] e^(+j 2 pi k n / N) over the full Hermitian spectrum, from packed form. dst may be src.
void fftInverseRealF64(const double* src, double* dst, const FftPlanRealF64& plan, cf64* work);

}  // namespace hxr
