// A small vector wrapper: one type of `lanes` floats (F32), integers (I32) and half as many doubles (F64),
// and the few operations that the kernels are written in. Each kernel set has its own copy in its own
// namespace, HXR_KERNEL_SET, so that nothing compiled for one instruction set can be linked into another. For
// the same reason kernels call no inline function of the standard library.
//
// Complex vectors hold `lanes` real parts and as many imaginary parts. `loadPairs` and `storePairs` convert
// from and to interleaved memory with the fewest shuffles and are each other's inverse; in between, lane l
// holds element `laneElement(l)`. `inElementOrder` sorts the lanes of a real result.

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__) && !defined(HXR_PORTABLE_KERNELS)
#include <immintrin.h>
#endif

#include "dsp/kernels/fft_tables.h"

#define HXR_SIMD [[gnu::always_inline]] static inline
#define HXR_INLINE __attribute__((always_inline))

namespace hxr::HXR_KERNEL_SET {

#if defined(HXR_PORTABLE_KERNELS) || !defined(__SSE2__)
#include "dsp/kernels/simd_portable.h"
#elif defined(__AVX512F__)
#include "dsp/kernels/simd_avx512.h"
#elif defined(__AVX2__)
#include "dsp/kernels/simd_avx2.h"
#else
#include "dsp/kernels/simd_sse2.h"
#endif

constexpr int laneElement(int lane) { return hxr::laneElement(lanes, lane); }

HXR_SIMD Complex operator+(Complex a, Complex b) { return {a.re + b.re, a.im + b.im}; }
HXR_SIMD Complex operator-(Complex a, Complex b) { return {a.re - b.re, a.im - b.im}; }
HXR_SIMD Complex operator*(Complex a, Complex b) {
    return {negMulAdd(a.im, b.im, a.re * b.re), mulAdd(a.im, b.re, a.re * b.im)};
}
HXR_SIMD Complex loadPairs(const float* p) { return pairs(load(p), load(p + lanes)); }
HXR_SIMD Complex loadSplit(const float* p) { return {load(p), load(p + lanes)}; }
HXR_SIMD void storeSplit(float* p, Complex a) {
    store(p, a.re);
    store(p + lanes, a.im);
}
HXR_SIMD Complex splatComplex(const float* p) { return {splat(p[0]), splat(p[1])}; }

}  // namespace hxr::HXR_KERNEL_SET
