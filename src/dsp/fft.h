/// Fourier transforms of 2^order points: complex in single precision, real in double precision.
#pragma once

#include <memory>
#include <vector>

#include "dsp/kernels/fft_tables.h"
#include "dsp/memory.h"
#include "dsp/samples.h"

namespace hxr {

struct KernelTable;

/// How a pair of transforms is scaled. The only rule in use divides the forward one by the number of points.
enum FftScale : int { fftScaleForward = 1 };
/// What a plan may trade. Both hints give the same plan here: there is nothing faster that is less accurate.
enum FftHint : int { fftFast = 1, fftAccurate = 2 };

/// Plan of a complex transform. Read-only while in use; it serves any number of threads, each with its own
/// work buffer.
class FftPlanCf32 {
  public:
    /// @param order  from 0 to 24
    /// @throws std::invalid_argument for another order or scale rule
    FftPlanCf32(int order, int scaleRule, int hint);
    ~FftPlanCf32();
    FftPlanCf32(FftPlanCf32&&) noexcept;

    int length() const { return length_; }
    /// A buffer for one thread's transforms, of `workLength` elements.
    platform::AlignedArray<cf32> makeWork() const { return platform::makeAlignedArray<cf32>(workLength()); }
    std::size_t workLength() const;

  private:
    friend void fftForwardCf32(const cf32* src, cf32* dst, const FftPlanCf32& plan, cf32* work);
    void planOneStep();
    void planTwoSteps();
    int* planColumns(ColumnTransform& transform, int length);
    void orderByLane(int* order) const;
    const float* planFactors(double scale);
    float* newTable(std::size_t floats);

    const KernelTable* kernels_;
    int length_;
    FftTables tables_ = {};
    std::vector<platform::AlignedArray<float>> floatTables_;
    std::vector<std::unique_ptr<int[]>> orders_;
};

FftPlanCf32 fftPlanCf32(int order, int scaleRule, int hint);

/// X[k] = 1/N sum of x[n] e^(-j 2 pi k n / N).
/// @param dst   may be src
/// @param work  a buffer of `plan.makeWork()`
void fftForwardCf32(const cf32* src, cf32* dst, const FftPlanCf32& plan, cf32* work);

}  // namespace hxr
