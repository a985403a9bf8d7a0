// The vector wrapper over AVX2 with fused multiply-add: 8 lanes. Included by simd.h inside the kernel set's
// namespace.

inline constexpr int lanes = 8;

struct F32 {
    __m256 v;
};
struct I32 {
    __m256i v;
};
struct F64 {
    __m256d v;
};
using Mask = F32;

HXR_SIMD F32 load(const float* p) { return {_mm256_loadu_ps(p)}; }
HXR_SIMD void store(float* p, F32 a) { _mm256_storeu_ps(p, a.v); }
HXR_SIMD F32 splat(float x) { return {_mm256_set1_ps(x)}; }

HXR_SIMD F32 operator+(F32 a, F32 b) { return {_mm256_add_ps(a.v, b.v)}; }
HXR_SIMD F32 operator-(F32 a, F32 b) { return {_mm256_sub_ps(a.v, b.v)}; }
HXR_SIMD F32 operator*(F32 a, F32 b) { return {_mm256_mul_ps(a.v, b.v)}; }
HXR_SIMD F32 operator/(F32 a, F32 b) { return {_mm256_div_ps(a.v, b.v)}; }
HXR_SIMD F32 mulAdd(F32 a, F32 b, F32 c) { return {_mm256_fmadd_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 mulSub(F32 a, F32 b, F32 c) { return {_mm256_fmsub_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 negMulAdd(F32 a, F32 b, F32 c) { return {_mm256_fnmadd_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 squareRoot(F32 a) { return {_mm256_sqrt_ps(a.v)}; }
HXR_SIMD F32 larger(F32 a, F32 b) { return {_mm256_max_ps(a.v, b.v)}; }
HXR_SIMD F32 smaller(F32 a, F32 b) { return {_mm256_min_ps(a.v, b.v)}; }

HXR_SIMD Mask less(F32 a, F32 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)}; }
HXR_SIMD Mask equal(F32 a, F32 b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_EQ_OQ)}; }
HXR_SIMD Mask both(Mask a, Mask b) { return {_mm256_and_ps(a.v, b.v)}; }
HXR_SIMD bool inAllLanes(Mask m) { return _mm256_movemask_ps(m.v) == 255; }
HXR_SIMD F32 select(Mask m, F32 yes, F32 no) { return {_mm256_blendv_ps(no.v, yes.v, m.v)}; }

HXR_SIMD I32 splatInt(int x) { return {_mm256_set1_epi32(x)}; }
HXR_SIMD I32 operator+(I32 a, I32 b) { return {_mm256_add_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator-(I32 a, I32 b) { return {_mm256_sub_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator&(I32 a, I32 b) { return {_mm256_and_si256(a.v, b.v)}; }
HXR_SIMD bool noneHas(I32 bits, I32 a) { return _mm256_testz_si256(a.v, bits.v) != 0; }
template <int bits>
HXR_SIMD I32 shiftLeft(I32 a) {
    return {_mm256_slli_epi32(a.v, bits)};
}
template <int bits>
HXR_SIMD I32 shiftRight(I32 a) {
    return {_mm256_srai_epi32(a.v, bits)};
}
HXR_SIMD I32 bitsOf(F32 a) { return {_mm256_castps_si256(a.v)}; }
HXR_SIMD F32 fromBits(I32 a) { return {_mm256_castsi256_ps(a.v)}; }
HXR_SIMD F32 toFloat(I32 a) { return {_mm256_cvtepi32_ps(a.v)}; }
HXR_SIMD I32 nearest(F32 a) { return {_mm256_cvtps_epi32(a.v)}; }
HXR_SIMD I32 truncated(F32 a) { return {_mm256_cvttps_epi32(a.v)}; }

HXR_SIMD F32 loadI16(const std::int16_t* p) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return {_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(x))};
}
HXR_SIMD void storeI16(std::int16_t* p, I32 a, I32 b) {
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(a.v, b.v), _MM_SHUFFLE(3, 1, 2, 0));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), packed);
}

HXR_SIMD F64 loadF64(const double* p) { return {_mm256_loadu_pd(p)}; }
HXR_SIMD void storeF64(double* p, F64 a) { _mm256_storeu_pd(p, a.v); }
HXR_SIMD F64 zeroF64() { return {_mm256_setzero_pd()}; }
HXR_SIMD F64 operator+(F64 a, F64 b) { return {_mm256_add_pd(a.v, b.v)}; }
HXR_SIMD F64 operator*(F64 a, F64 b) { return {_mm256_mul_pd(a.v, b.v)}; }
HXR_SIMD F64 lowerHalfToF64(F32 a) { return {_mm256_cvtps_pd(_mm256_castps256_ps128(a.v))}; }
HXR_SIMD F64 upperHalfToF64(F32 a) { return {_mm256_cvtps_pd(_mm256_extractf128_ps(a.v, 1))}; }

HXR_SIMD F32 reversed(F32 a) {
    return {_mm256_permutevar8x32_ps(a.v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
}

struct Complex {
    F32 re, im;
};
HXR_SIMD Complex pairs(F32 a, F32 b) {
    return {{_mm256_shuffle_ps(a.v, b.v, _MM_SHUFFLE(2, 0, 2, 0))},
            {_mm256_shuffle_ps(a.v, b.v, _MM_SHUFFLE(3, 1, 3, 1))}};
}
HXR_SIMD void storePairs(float* p, Complex a) {
    _mm256_storeu_ps(p, _mm256_unpacklo_ps(a.re.v, a.im.v));
    _mm256_storeu_ps(p + 8, _mm256_unpackhi_ps(a.re.v, a.im.v));
}
HXR_SIMD F32 inElementOrder(F32 a) {
    return {_mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(a.v), _MM_SHUFFLE(3, 1, 2, 0)))};
}

HXR_SIMD F32 swapPairs(F32 a) { return {_mm256_permute_ps(a.v, _MM_SHUFFLE(2, 3, 0, 1))}; }

HXR_SIMD F32 addSub(F32 a, F32 b) { return {_mm256_addsub_ps(a.v, b.v)}; }
HXR_SIMD __m256i firstLanes(int count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}
HXR_SIMD F32 loadFirst(const float* p, int count) { return {_mm256_maskload_ps(p, firstLanes(count))}; }
HXR_SIMD void storeFirst(float* p, F32 a, int count) { _mm256_maskstore_ps(p, firstLanes(count), a.v); }
HXR_SIMD void storePairSum(float* p, F32 a) {
    const __m128 halves = _mm_add_ps(_mm256_castps256_ps128(a.v), _mm256_extractf128_ps(a.v, 1));
    _mm_storel_pi(reinterpret_cast<__m64*>(p), _mm_add_ps(halves, _mm_movehl_ps(halves, halves)));
}

/// Rows 0 to 3 and 4 to 7 meet in one register when they are loaded, so that the rest stays within 128-bit
/// halves.
HXR_SIMD __m256 loadHalves(const float* low, const float* high) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1);
}
HXR_SIMD void transposeHalves(const float* const* rows, int column, F32* out) {
    const __m256 r0 = loadHalves(rows[0] + column, rows[4] + column);
    const __m256 r1 = loadHalves(rows[1] + column, rows[5] + column);
    const __m256 r2 = loadHalves(rows[2] + column, rows[6] + column);
    const __m256 r3 = loadHalves(rows[3] + column, rows[7] + column);
    const __m256 low01 = _mm256_unpacklo_ps(r0, r1), high01 = _mm256_unpackhi_ps(r0, r1);
    const __m256 low23 = _mm256_unpacklo_ps(r2, r3), high23 = _mm256_unpackhi_ps(r2, r3);
    out[0].v = _mm256_shuffle_ps(low01, low23, _MM_SHUFFLE(1, 0, 1, 0));
    out[1].v = _mm256_shuffle_ps(low01, low23, _MM_SHUFFLE(3, 2, 3, 2));
    out[2].v = _mm256_shuffle_ps(high01, high23, _MM_SHUFFLE(1, 0, 1, 0));
    out[3].v = _mm256_shuffle_ps(high01, high23, _MM_SHUFFLE(3, 2, 3, 2));
}
HXR_SIMD void loadTransposed(const float* const* rows, F32* out) {
    transposeHalves(rows, 0, out);
    transposeHalves(rows, 4, out + 4);
}
