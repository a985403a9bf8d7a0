// The vector wrapper over AVX-512 (F, BW, DQ, VL): 16 lanes. Included by simd.h inside the kernel set's
// namespace.

inline constexpr int lanes = 16;

struct F32 {
    __m512 v;
};
struct I32 {
    __m512i v;
};
struct F64 {
    __m512d v;
};
struct Mask {
    __mmask16 v;
};

HXR_SIMD F32 load(const float* p) { return {_mm512_loadu_ps(p)}; }
HXR_SIMD void store(float* p, F32 a) { _mm512_storeu_ps(p, a.v); }
HXR_SIMD F32 splat(float x) { return {_mm512_set1_ps(x)}; }

HXR_SIMD F32 operator+(F32 a, F32 b) { return {_mm512_add_ps(a.v, b.v)}; }
HXR_SIMD F32 operator-(F32 a, F32 b) { return {_mm512_sub_ps(a.v, b.v)}; }
HXR_SIMD F32 operator*(F32 a, F32 b) { return {_mm512_mul_ps(a.v, b.v)}; }
HXR_SIMD F32 operator/(F32 a, F32 b) { return {_mm512_div_ps(a.v, b.v)}; }
HXR_SIMD F32 mulAdd(F32 a, F32 b, F32 c) { return {_mm512_fmadd_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 mulSub(F32 a, F32 b, F32 c) { return {_mm512_fmsub_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 negMulAdd(F32 a, F32 b, F32 c) { return {_mm512_fnmadd_ps(a.v, b.v, c.v)}; }
HXR_SIMD F32 squareRoot(F32 a) { return {_mm512_sqrt_ps(a.v)}; }
HXR_SIMD F32 larger(F32 a, F32 b) { return {_mm512_max_ps(a.v, b.v)}; }
HXR_SIMD F32 smaller(F32 a, F32 b) { return {_mm512_min_ps(a.v, b.v)}; }

HXR_SIMD Mask less(F32 a, F32 b) { return {_mm512_cmp_ps_mask(a.v, b.v, _CMP_LT_OQ)}; }
HXR_SIMD Mask equal(F32 a, F32 b) { return {_mm512_cmp_ps_mask(a.v, b.v, _CMP_EQ_OQ)}; }
HXR_SIMD Mask both(Mask a, Mask b) { return {static_cast<__mmask16>(a.v & b.v)}; }
HXR_SIMD bool inAllLanes(Mask m) { return m.v == 65535; }
HXR_SIMD F32 select(Mask m, F32 yes, F32 no) { return {_mm512_mask_blend_ps(m.v, no.v, yes.v)}; }

HXR_SIMD I32 splatInt(int x) { return {_mm512_set1_epi32(x)}; }
HXR_SIMD I32 operator+(I32 a, I32 b) { return {_mm512_add_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator-(I32 a, I32 b) { return {_mm512_sub_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator&(I32 a, I32 b) { return {_mm512_and_si512(a.v, b.v)}; }
HXR_SIMD bool noneHas(I32 bits, I32 a) { return _mm512_test_epi32_mask(a.v, bits.v) == 0; }
template <int bits>
HXR_SIMD I32 shiftLeft(I32 a) {
    return {_mm512_slli_epi32(a.v, bits)};
}
template <int bits>
HXR_SIMD I32 shiftRight(I32 a) {
    return {_mm512_srai_epi32(a.v, bits)};
}
HXR_SIMD I32 bitsOf(F32 a) { return {_mm512_castps_si512(a.v)}; }
HXR_SIMD F32 fromBits(I32 a) { return {_mm512_castsi512_ps(a.v)}; }
HXR_SIMD F32 toFloat(I32 a) { return {_mm512_cvtepi32_ps(a.v)}; }
HXR_SIMD I32 nearest(F32 a) { return {_mm512_cvtps_epi32(a.v)}; }
HXR_SIMD I32 truncated(F32 a) { return {_mm512_cvttps_epi32(a.v)}; }

HXR_SIMD F32 loadI16(const std::int16_t* p) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    return {_mm512_cvtepi32_ps(_mm512_cvtepi16_epi32(x))};
}
HXR_SIMD void storeI16(std::int16_t* p, I32 a, I32 b) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_cvtsepi32_epi16(a.v));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p + 16), _mm512_cvtsepi32_epi16(b.v));
}

HXR_SIMD F64 loadF64(const double* p) { return {_mm512_loadu_pd(p)}; }
HXR_SIMD void storeF64(double* p, F64 a) { _mm512_storeu_pd(p, a.v); }
HXR_SIMD F64 zeroF64() { return {_mm512_setzero_pd()}; }
HXR_SIMD F64 operator+(F64 a, F64 b) { return {_mm512_add_pd(a.v, b.v)}; }
HXR_SIMD F64 operator*(F64 a, F64 b) { return {_mm512_mul_pd(a.v, b.v)}; }
HXR_SIMD F64 lowerHalfToF64(F32 a) { return {_mm512_cvtps_pd(_mm512_castps512_ps256(a.v))}; }
HXR_SIMD F64 upperHalfToF64(F32 a) { return {_mm512_cvtps_pd(_mm512_extractf32x8_ps(a.v, 1))}; }

HXR_SIMD F32 reversed(F32 a) {
    const __m512i order = _mm512_setr_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    return {_mm512_permutexvar_ps(order, a.v)};
}

struct Complex {
    F32 re, im;
};
HXR_SIMD Complex pairs(F32 a, F32 b) {
    return {{_mm512_shuffle_ps(a.v, b.v, _MM_SHUFFLE(2, 0, 2, 0))},
            {_mm512_shuffle_ps(a.v, b.v, _MM_SHUFFLE(3, 1, 3, 1))}};
}
HXR_SIMD void storePairs(float* p, Complex a) {
    _mm512_storeu_ps(p, _mm512_unpacklo_ps(a.re.v, a.im.v));
    _mm512_storeu_ps(p + 16, _mm512_unpackhi_ps(a.re.v, a.im.v));
}
HXR_SIMD F32 inElementOrder(F32 a) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    return {_mm512_castpd_ps(_mm512_permutexvar_pd(order, _mm512_castps_pd(a.v)))};
}

HXR_SIMD F32 swapPairs(F32 a) { return {_mm512_permute_ps(a.v, _MM_SHUFFLE(2, 3, 0, 1))}; }

HXR_SIMD F32 addSub(F32 a, F32 b) { return {_mm512_fmaddsub_ps(a.v, _mm512_set1_ps(1.0F), b.v)}; }
HXR_SIMD __mmask16 firstLanes(int count) { return static_cast<__mmask16>((1 << count) - 1); }
HXR_SIMD F32 loadFirst(const float* p, int count) { return {_mm512_maskz_loadu_ps(firstLanes(count), p)}; }
HXR_SIMD void storeFirst(float* p, F32 a, int count) { _mm512_mask_storeu_ps(p, firstLanes(count), a.v); }
HXR_SIMD void storePairSum(float* p, F32 a) {
    const __m256 halves = _mm256_add_ps(_mm512_castps512_ps256(a.v), _mm512_extractf32x8_ps(a.v, 1));
    const __m128 quarters = _mm_add_ps(_mm256_castps256_ps128(halves), _mm256_extractf128_ps(halves, 1));
    _mm_storel_pi(reinterpret_cast<__m64*>(p), _mm_add_ps(quarters, _mm_movehl_ps(quarters, quarters)));
}

HXR_SIMD void loadTransposed(const float* const* rows, F32* out) {
    __m512 quad[16];  // quad[4 g + c]: column c of each 128-bit quarter, rows 4 g to 4 g + 3
    for (int g = 0; g < 4; ++g) {
        const __m512 r0 = _mm512_loadu_ps(rows[4 * g]), r1 = _mm512_loadu_ps(rows[4 * g + 1]);
        const __m512 r2 = _mm512_loadu_ps(rows[4 * g + 2]), r3 = _mm512_loadu_ps(rows[4 * g + 3]);
        const __m512 low01 = _mm512_unpacklo_ps(r0, r1), high01 = _mm512_unpackhi_ps(r0, r1);
        const __m512 low23 = _mm512_unpacklo_ps(r2, r3), high23 = _mm512_unpackhi_ps(r2, r3);
        quad[4 * g] = _mm512_shuffle_ps(low01, low23, _MM_SHUFFLE(1, 0, 1, 0));
        quad[4 * g + 1] = _mm512_shuffle_ps(low01, low23, _MM_SHUFFLE(3, 2, 3, 2));
        quad[4 * g + 2] = _mm512_shuffle_ps(high01, high23, _MM_SHUFFLE(1, 0, 1, 0));
        quad[4 * g + 3] = _mm512_shuffle_ps(high01, high23, _MM_SHUFFLE(3, 2, 3, 2));
    }
    for (int c = 0; c < 4; ++c) {
        const __m512 even01 = _mm512_shuffle_f32x4(quad[c], quad[4 + c], _MM_SHUFFLE(2, 0, 2, 0));
        const __m512 odd01 = _mm512_shuffle_f32x4(quad[c], quad[4 + c], _MM_SHUFFLE(3, 1, 3, 1));
        const __m512 even23 = _mm512_shuffle_f32x4(quad[8 + c], quad[12 + c], _MM_SHUFFLE(2, 0, 2, 0));
        const __m512 odd23 = _mm512_shuffle_f32x4(quad[8 + c], quad[12 + c], _MM_SHUFFLE(3, 1, 3, 1));
        out[c].v = _mm512_shuffle_f32x4(even01, even23, _MM_SHUFFLE(2, 0, 2, 0));
        out[8 + c].v = _mm512_shuffle_f32x4(even01, even23, _MM_SHUFFLE(3, 1, 3, 1));
        out[4 + c].v = _mm512_shuffle_f32x4(odd01, odd23, _MM_SHUFFLE(2, 0, 2, 0));
        out[12 + c].v = _mm512_shuffle_f32x4(odd01, odd23, _MM_SHUFFLE(3, 1, 3, 1));
    }
}
