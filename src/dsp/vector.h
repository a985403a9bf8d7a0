/// The vector operations: fill and move, element-wise arithmetic, sums, and conversion between 16-bit and
/// float samples.
///
/// Counts are in elements of the named type; a count of 0 or less does nothing and touches no memory.
/// Pointers need no alignment beyond that of their element. Where a source may be the same array as the
/// destination it says "in place"; arrays that overlap otherwise are not allowed except in `dspMove32`. NaN
/// and infinity in one element never reach another. All operations are re-entrant and allocate nothing.
#pragma once

#include <cstdint>

#include "dsp/memory.h"
#include "dsp/samples.h"

namespace hxr {

// ---- Fill and move ---------------------------------------------------------------------------------------

void dspZeroBytes(void* p, int n);                     ///< n bytes to 0
void dspZero32(void* p, int n);                        ///< n 4-byte elements to 0
void dspZero64(void* p, int n);                        ///< n 8-byte elements to 0: complex floats or doubles
void dspCopy32(const void* src, void* dst, int n);     ///< n 4-byte elements: floats, words or 16-bit pairs
void dspCopy64(const cf32* src, cf32* dst, int n);     ///< n complex floats
void dspCopyCf64(const cf64* src, cf64* dst, int n);   ///< n complex doubles
void dspMove32(const float* src, float* dst, int n);   ///< n floats; the regions may overlap
void dspFlip32(const float* src, float* dst, int n);   ///< dst[i] = src[n - 1 - i]; in place
void dspSetCf64(const cf64* value, cf64* dst, int n);  ///< every element to *value

// ---- Element-wise, real; all in place --------------------------------------------------------------------

/// dst[i] = src[i] k. Exactly 1 copies and exactly 0 fills with zero, whatever src holds.
void dspMulConstF32(const float* src, float k, float* dst, int n);
/// dst[i] = src[i] + k. Exactly 0 copies.
void dspAddConstF32(const float* src, float k, float* dst, int n);
void dspAddF32(const float* a, const float* b, float* dst, int n);  ///< dst[i] = a[i] + b[i]
void dspMaxF32(const float* a, const float* b, float* dst, int n);  ///< the larger; b[i] if either is NaN
void dspMinF32(const float* a, const float* b, float* dst, int n);  ///< the smaller; b[i] if either is NaN
void dspSqrF32(const float* src, float* dst, int n);                ///< dst[i] = src[i]^2
void dspSqrtF32(const float* src, float* dst, int n);               ///< square root; NaN below 0
/// Natural logarithm, within 2 units in the last place; minus infinity for 0, NaN below 0.
void dspLnF32(const float* src, float* dst, int n);
/// e to the power src[i], within 2 units in the last place; 0 and infinity beyond the range of a float.
void dspExpF32(const float* src, float* dst, int n);
void dspMulF64(const double* a, const double* b, double* dst, int n);  ///< dst[i] = a[i] b[i]

// ---- Element-wise, complex; all in place but the two that give real results ------------------------------

void dspMulCf32(const cf32* a, const cf32* b, cf32* dst, int n);  ///< dst[i] = a[i] b[i]
void dspMulConstCf32(const cf32* src, cf32 k, cf32* dst, int n);  ///< dst[i] = src[i] k
void dspMagnitudeCf32(const cf32* src, float* dst, int n);        ///< dst[i] = |src[i]|
void dspPowerCf32(const cf32* src, float* dst, int n);            ///< dst[i] = re^2 + im^2
void dspMulCf64(const cf64* a, const cf64* b, cf64* dst, int n);  ///< dst[i] = a[i] b[i]

// ---- Sums ------------------------------------------------------------------------------------------------

void dspSumF64(const double* src, int n, double* sum);  ///< the sum of the elements
void dspSumCf32(const cf32* src, int n, cf32* sum);     ///< the same, accumulated in double precision

// ---- Conversion ------------------------------------------------------------------------------------------

enum DspRounding : int { dspRoundToZero = 0, dspRoundToNearest = 1 };

/// dst[i] = src[i] 2^-scale. `n` counts reals, so twice the number of complex samples.
/// @param scale  from -126 to 126; 15 makes 16-bit full scale 1.0
void dspI16ToF32(const std::int16_t* src, float* dst, int n, int scale);

/// dst[i] = src[i] x factor, rounded once.
void dspI16ToF32By(const std::int16_t* src, float factor, float* dst, int n);

/// dst[i] = src[i] 2^-scale, rounded and saturated to 16 bits; a NaN gives -32768.
/// @param rounding  `dspRoundToNearest`, ties to even, or `dspRoundToZero`
/// @param scale     from -126 to 126; -15 makes 1.0 saturate to 32767 and -1.0 give -32768
void dspF32ToI16(const float* src, std::int16_t* dst, int n, int rounding, int scale);

}  // namespace hxr
