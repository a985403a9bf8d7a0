/// What a kernel set provides: one function for each operation, for one instruction set. Complex arrays are
/// given as their floats; counts are 1 or more and in elements of the operation.
#pragma once

#include <cstdint>

#include "dsp/kernels/fft_tables.h"

namespace hxr {

struct KernelTable {
    int lanes;                    ///< floats in a vector
    const KernelTable* narrower;  ///< the set with the next fewer lanes, null for the baseline

    void (*mulConstF32)(const float* src, float k, float* dst, int n);
    void (*addConstF32)(const float* src, float k, float* dst, int n);
    void (*addF32)(const float* a, const float* b, float* dst, int n);
    void (*maxF32)(const float* a, const float* b, float* dst, int n);
    void (*minF32)(const float* a, const float* b, float* dst, int n);
    void (*sqrF32)(const float* src, float* dst, int n);
    void (*sqrtF32)(const float* src, float* dst, int n);
    void (*lnF32)(const float* src, float* dst, int n);
    void (*expF32)(const float* src, float* dst, int n);
    void (*mulF64)(const double* a, const double* b, double* dst, int n);

    void (*mulCf32)(const float* a, const float* b, float* dst, int n);
    void (*mulConstCf32)(const float* src, float re, float im, float* dst, int n);
    void (*magnitudeCf32)(const float* src, float* dst, int n);
    void (*powerCf32)(const float* src, float* dst, int n);
    void (*mulCf64)(const double* a, const double* b, double* dst, int n);

    void (*sumF64)(const double* src, int n, double* sum);
    void (*sumCf32)(const float* src, int n, float* sum);
    void (*flip32)(const float* src, float* dst, int n);

    // samples: length - 1 before the first output's own; taps: the one of the oldest sample first.
    void (*firDirectReal)(const float* samples, const float* taps, int length, float* dst, int n);
    void (*firDirectComplex)(const float* samples, const float* taps, int length, float* dst, int n);
    // n outputs, `factor` samples apart; real and imaginary parts of the taps stand twice each in arrays of
    // their own.
    void (*firDecimateReal)(const float* samples, int factor, const float* tapsRe, const float* tapsIm,
                            int length, float* dst, int n);
    void (*firDecimateComplex)(const float* samples, int factor, const float* tapsRe, const float* tapsIm,
                               int length, float* dst, int n);

    // work: as many complex elements as points and, in two steps, as the rows of one group of columns.
    void (*fftOneStep)(const FftTables& tables, const float* src, float* dst, float* work);
    void (*fftTwoSteps)(const FftTables& tables, const float* src, float* dst, float* work);

    void (*i16ToF32)(const std::int16_t* src, float factor, float* dst, int n);
    void (*f32ToI16Nearest)(const float* src, float factor, std::int16_t* dst, int n);
    void (*f32ToI16Truncated)(const float* src, float factor, std::int16_t* dst, int n);
};

namespace baseline {
extern const KernelTable kernelTable;
}
namespace avx2 {
extern const KernelTable kernelTable;
}
namespace avx512 {
extern const KernelTable kernelTable;
}

}  // namespace hxr
