#include "dsp/vector.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dsp/instruction_set.h"
#include "dsp/kernels/kernel_table.h"

namespace hxr {
namespace {

void copyBytes(const void* src, void* dst, int n, std::size_t elementSize) {
    // The same array as source and destination is allowed by the in-place operations that end here.
    if (n > 0 && src != dst) std::memcpy(dst, src, static_cast<std::size_t>(n) * elementSize);
}

void zeroBytes(void* p, int n, std::size_t elementSize) {
    if (n > 0) std::memset(p, 0, static_cast<std::size_t>(n) * elementSize);
}

}  // namespace

void dspZeroBytes(void* p, int n) { zeroBytes(p, n, 1); }

void dspZero32(void* p, int n) { zeroBytes(p, n, 4); }

void dspZero64(void* p, int n) { zeroBytes(p, n, 8); }

void dspCopy32(const void* src, void* dst, int n) { copyBytes(src, dst, n, 4); }

void dspCopy64(const cf32* src, cf32* dst, int n) { copyBytes(src, dst, n, sizeof(cf32)); }

void dspCopyCf64(const cf64* src, cf64* dst, int n) { copyBytes(src, dst, n, sizeof(cf64)); }

void dspMove32(const float* src, float* dst, int n) {
    if (n > 0) std::memmove(dst, src, static_cast<std::size_t>(n) * sizeof(float));
}

void dspFlip32(const float* src, float* dst, int n) {
    if (n > 0) dspKernels().flip32(src, dst, n);
}

void dspSetCf64(const cf64* value, cf64* dst, int n) {
    if (n > 0) std::fill_n(dst, n, *value);
}

void dspMulConstF32(const float* src, float k, float* dst, int n) {
    if (k == 1.0F)
        copyBytes(src, dst, n, sizeof(float));
    else if (k == 0.0F)
        zeroBytes(dst, n, sizeof(float));
    else if (n > 0)
        dspKernels().mulConstF32(src, k, dst, n);
}

void dspAddConstF32(const float* src, float k, float* dst, int n) {
    if (k == 0.0F)
        copyBytes(src, dst, n, sizeof(float));
    else if (n > 0)
        dspKernels().addConstF32(src, k, dst, n);
}

void dspAddF32(const float* a, const float* b, float* dst, int n) {
    if (n > 0) dspKernels().addF32(a, b, dst, n);
}

void dspMaxF32(const float* a, const float* b, float* dst, int n) {
    if (n > 0) dspKernels().maxF32(a, b, dst, n);
}

void dspMinF32(const float* a, const float* b, float* dst, int n) {
    if (n > 0) dspKernels().minF32(a, b, dst, n);
}

void dspSqrF32(const float* src, float* dst, int n) {
    if (n > 0) dspKernels().sqrF32(src, dst, n);
}

void dspSqrtF32(const float* src, float* dst, int n) {
    if (n > 0) dspKernels().sqrtF32(src, dst, n);
}

void dspLnF32(const float* src, float* dst, int n) {
    if (n > 0) dspKernels().lnF32(src, dst, n);
}

void dspExpF32(const float* src, float* dst, int n) {
    if (n > 0) dspKernels().expF32(src, dst, n);
}

void dspMulF64(const double* a, const double* b, double* dst, int n) {
    if (n > 0) dspKernels().mulF64(a, b, dst, n);
}

void dspMulCf32(const cf32* a, const cf32* b, cf32* dst, int n) {
    if (n > 0) dspKernels().mulCf32(floats(a), floats(b), floats(dst), n);
}

void dspMulConstCf32(const cf32* src, cf32 k, cf32* dst, int n) {
    if (n > 0) dspKernels().mulConstCf32(floats(src), k.re, k.im, floats(dst), n);
}

void dspMagnitudeCf32(const cf32* src, float* dst, int n) {
    if (n > 0) dspKernels().magnitudeCf32(floats(src), dst, n);
}

void dspPowerCf32(const cf32* src, float* dst, int n) {
    if (n > 0) dspKernels().powerCf32(floats(src), dst, n);
}

void dspMulCf64(const cf64* a, const cf64* b, cf64* dst, int n) {
    if (n <= 0) return;
    dspKernels().mulCf64(reinterpret_cast<const double*>(a), reinterpret_cast<const double*>(b),
                         reinterpret_cast<double*>(dst), n);
}

void dspSumF64(const double* src, int n, double* sum) {
    if (n > 0) dspKernels().sumF64(src, n, sum);
}

void dspSumCf32(const cf32* src, int n, cf32* sum) {
    if (n > 0) dspKernels().sumCf32(floats(src), n, floats(sum));
}

void dspI16ToF32(const std::int16_t* src, float* dst, int n, int scale) {
    dspI16ToF32By(src, std::ldexp(1.0F, -scale), dst, n);
}

void dspI16ToF32By(const std::int16_t* src, float factor, float* dst, int n) {
    if (n > 0) dspKernels().i16ToF32(src, factor, dst, n);
}

void dspF32ToI16(const float* src, std::int16_t* dst, int n, int rounding, int scale) {
    if (n <= 0) return;
    const float factor = std::ldexp(1.0F, -scale);
    if (rounding == dspRoundToZero)
        dspKernels().f32ToI16Truncated(src, factor, dst, n);
    else
        dspKernels().f32ToI16Nearest(src, factor, dst, n);
}

}  // namespace hxr
