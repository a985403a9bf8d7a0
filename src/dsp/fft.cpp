#include "dsp/fft.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "dsp/instruction_set.h"
#include "dsp/kernels/kernel_table.h"

namespace hxr {
namespace {

constexpr int greatestOrder = 24;
/// From here on points, results and rows outgrow the second-level cache, and two steps are about as fast as
/// one or faster.
constexpr int leastTwoStepLength = 1 << 15;

struct Factor {
    float re, im;
};

/// e^(-j 2 pi k / n), scaled.
Factor twiddle(std::int64_t k, std::int64_t n, double scale = 1.0) {
    const double angle = -2.0 * std::numbers::pi * static_cast<double>(k % n) / static_cast<double>(n);
    return {static_cast<float>(scale * std::cos(angle)), static_cast<float>(scale * std::sin(angle))};
}

/// As many eights as there can be without a two; the fours go first.
int firstRadix(int order) { return order % 3 == 0 ? 8 : 4; }

/// Where a column transform leaves its result k: the digits of k in reversed order.
int positionOf(const ColumnTransform& transform, int k) {
    int position = 0;
    for (int p = 0; p < transform.passes; ++p) {
        position += k % transform.pass[p].radix * transform.pass[p].span;
        k /= transform.pass[p].radix;
    }
    return position;
}

/// The plain sum, for transforms that are shorter than a square of lanes.
void shortTransform(const cf32* src, cf32* dst, int n) {
    cf32 x[16];
    std::copy_n(src, n, x);
    for (int k = 0; k < n; ++k) {
        double re = 0.0, im = 0.0;
        for (int i = 0; i < n; ++i) {
            const double angle = -2.0 * std::numbers::pi * (k * i % n) / n;
            re += double{x[i].re} * std::cos(angle) - double{x[i].im} * std::sin(angle);
            im += double{x[i].re} * std::sin(angle) + double{x[i].im} * std::cos(angle);
        }
        dst[k] = {static_cast<float>(re / n), static_cast<float>(im / n)};
    }
}

/// The widest of the kernels in use whose square of lanes the transform fills; null if none does.
const KernelTable* kernelsFor(int length) {
    const KernelTable* kernels = &dspKernels();
    while (kernels != nullptr && kernels->lanes * kernels->lanes > length) kernels = kernels->narrower;
    return kernels;
}

}  // namespace

FftPlanCf32::FftPlanCf32(int order, int scaleRule, int) {
    if (order < 0 || order > greatestOrder || scaleRule != fftScaleForward)
        throw std::invalid_argument("transform of an order or scale that isn't supported");
    length_ = 1 << order;
    kernels_ = kernelsFor(length_);
    if (kernels_ == nullptr) return;
    if (length_ < leastTwoStepLength)
        planOneStep();
    else
        planTwoSteps();
}

FftPlanCf32::~FftPlanCf32() = default;
FftPlanCf32::FftPlanCf32(FftPlanCf32&&) noexcept = default;

std::size_t FftPlanCf32::workLength() const {
    // The points, and in two steps the rows of one group of columns beside them.
    const int group = tables_.columns.length > 0 ? tables_.rows.length * kernels_->lanes : 0;
    return static_cast<std::size_t>(length_) + static_cast<std::size_t>(group);
}

float* FftPlanCf32::newTable(std::size_t floats) {
    return floatTables_.emplace_back(platform::makeAlignedArray<float>(floats)).get();
}

int* FftPlanCf32::planColumns(ColumnTransform& transform, int length) {
    transform.length = length;
    for (int block = length; block > 1;) {
        FftPass& pass = transform.pass[transform.passes++];
        pass.radix = firstRadix(std::countr_zero(static_cast<unsigned>(block)));
        pass.span = block / pass.radix;
        float* out = newTable(2 * static_cast<std::size_t>(block));
        pass.twiddles = out;
        for (int j = 0; j < pass.span; ++j) {
            for (int q = 1; q < pass.radix; ++q) {
                const Factor factor = twiddle(std::int64_t{j} * q, block);
                *out++ = factor.re;
                *out++ = factor.im;
            }
        }
        block = pass.span;
    }
    int* order = orders_.emplace_back(std::make_unique<int[]>(static_cast<std::size_t>(length))).get();
    transform.order = order;
    return order;
}

/// Floats offset into the rows, by result and lane.
void FftPlanCf32::orderByLane(int* order) const {
    const int lanes = kernels_->lanes;
    for (int k = 0; k < tables_.rows.length; ++k) {
        const int result = k - k % lanes + laneElement(lanes, k % lanes);
        order[k] = 2 * lanes * positionOf(tables_.rows, result);
    }
}

/// A vector for each row: its lanes' columns times the row's result, e^(-j 2 pi column result / N).
const float* FftPlanCf32::planFactors(double scale) {
    const int lanes = kernels_->lanes, rows = tables_.rows.length;
    float* factors = newTable(2 * static_cast<std::size_t>(rows * lanes));
    for (int result = 0; result < rows; ++result) {
        float* out = factors + 2 * lanes * positionOf(tables_.rows, result);
        for (int lane = 0; lane < lanes; ++lane) {
            const Factor factor = twiddle(std::int64_t{result} * laneElement(lanes, lane), length_, scale);
            out[lane] = factor.re;
            out[lane + lanes] = factor.im;
        }
    }
    return factors;
}

void FftPlanCf32::planOneStep() {
    orderByLane(planColumns(tables_.rows, length_ / kernels_->lanes));
    tables_.twiddles = planFactors(1.0 / length_);
}

void FftPlanCf32::planTwoSteps() {
    const int lanes = kernels_->lanes;
    const int order = std::countr_zero(static_cast<unsigned>(length_));
    const int length1 = 1 << (order / 2), length2 = length_ / length1;
    orderByLane(planColumns(tables_.rows, length1));
    tables_.fineTwiddles = planFactors(1.0);

    float* coarse = newTable(2 * static_cast<std::size_t>(length_ / lanes));
    tables_.twiddles = coarse;
    for (int column = 0; column < length2; column += lanes, coarse += 2 * length1) {
        for (int result = 0; result < length1; ++result) {
            const Factor factor = twiddle(std::int64_t{result} * column, length_, 1.0 / length_);
            float* out = coarse + 2 * positionOf(tables_.rows, result);
            out[0] = factor.re;
            out[1] = factor.im;
        }
    }

    int* byBlock = planColumns(tables_.columns, length2);
    const int lastRadix = tables_.columns.pass[tables_.columns.passes - 1].radix;
    for (int k = 0; k < length2 / lastRadix; ++k) byBlock[positionOf(tables_.columns, k) / lastRadix] = k;
}

FftPlanCf32 fftPlanCf32(int order, int scaleRule, int hint) { return {order, scaleRule, hint}; }

void fftForwardCf32(const cf32* src, cf32* dst, const FftPlanCf32& plan, cf32* work) {
    if (plan.kernels_ == nullptr) return shortTransform(src, dst, plan.length_);
    const auto forward =
        plan.tables_.columns.length > 0 ? plan.kernels_->fftTwoSteps : plan.kernels_->fftOneStep;
    forward(plan.tables_, floats(src), floats(dst), floats(work));
}

}  // namespace hxr
