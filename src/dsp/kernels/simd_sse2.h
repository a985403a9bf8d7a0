// The vector wrapper over SSE2: 4 lanes, no fused multiply-add. Included by simd.h inside the kernel set's
// namespace.

inline constexpr int lanes = 4;

struct F32 {
    __m128 v;
};
struct I32 {
    __m128i v;
};
struct F64 {
    __m128d v;
};
using Mask = F32;

HXR_SIMD F32 load(const float* p) { return {_mm_loadu_ps(p)}; }
HXR_SIMD void store(float* p, F32 a) { _mm_storeu_ps(p, a.v); }
HXR_SIMD F32 splat(float x) { return {_mm_set1_ps(x)}; }

HXR_SIMD F32 operator+(F32 a, F32 b) { return {_mm_add_ps(a.v, b.v)}; }
HXR_SIMD F32 operator-(F32 a, F32 b) { return {_mm_sub_ps(a.v, b.v)}; }
HXR_SIMD F32 operator*(F32 a, F32 b) { return {_mm_mul_ps(a.v, b.v)}; }
HXR_SIMD F32 operator/(F32 a, F32 b) { return {_mm_div_ps(a.v, b.v)}; }
HXR_SIMD F32 mulAdd(F32 a, F32 b, F32 c) { return a * b + c; }
HXR_SIMD F32 mulSub(F32 a, F32 b, F32 c) { return a * b - c; }
HXR_SIMD F32 negMulAdd(F32 a, F32 b, F32 c) { return c - a * b; }
HXR_SIMD F32 squareRoot(F32 a) { return {_mm_sqrt_ps(a.v)}; }
HXR_SIMD F32 larger(F32 a, F32 b) { return {_mm_max_ps(a.v, b.v)}; }
HXR_SIMD F32 smaller(F32 a, F32 b) { return {_mm_min_ps(a.v, b.v)}; }

HXR_SIMD Mask less(F32 a, F32 b) { return {_mm_cmplt_ps(a.v, b.v)}; }
HXR_SIMD Mask equal(F32 a, F32 b) { return {_mm_cmpeq_ps(a.v, b.v)}; }
HXR_SIMD Mask both(Mask a, Mask b) { return {_mm_and_ps(a.v, b.v)}; }
HXR_SIMD bool inAllLanes(Mask m) { return _mm_movemask_ps(m.v) == 15; }
HXR_SIMD F32 select(Mask m, F32 yes, F32 no) {
    return {_mm_or_ps(_mm_and_ps(m.v, yes.v), _mm_andnot_ps(m.v, no.v))};
}

HXR_SIMD I32 splatInt(int x) { return {_mm_set1_epi32(x)}; }
HXR_SIMD I32 operator+(I32 a, I32 b) { return {_mm_add_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator-(I32 a, I32 b) { return {_mm_sub_epi32(a.v, b.v)}; }
HXR_SIMD I32 operator&(I32 a, I32 b) { return {_mm_and_si128(a.v, b.v)}; }
HXR_SIMD bool noneHas(I32 bits, I32 a) {
    return _mm_movemask_epi8(_mm_cmpeq_epi32(_mm_and_si128(a.v, bits.v), _mm_setzero_si128())) == 65535;
}
template <int bits>
HXR_SIMD I32 shiftLeft(I32 a) {
    return {_mm_slli_epi32(a.v, bits)};
}
template <int bits>
HXR_SIMD I32 shiftRight(I32 a) {
    return {_mm_srai_epi32(a.v, bits)};
}
HXR_SIMD I32 bitsOf(F32 a) { return {_mm_castps_si128(a.v)}; }
HXR_SIMD F32 fromBits(I32 a) { return {_mm_castsi128_ps(a.v)}; }
HXR_SIMD F32 toFloat(I32 a) { return {_mm_cvtepi32_ps(a.v)}; }
HXR_SIMD I32 nearest(F32 a) { return {_mm_cvtps_epi32(a.v)}; }
HXR_SIMD I32 truncated(F32 a) { return {_mm_cvttps_epi32(a.v)}; }

HXR_SIMD F32 loadI16(const std::int16_t* p) {
    const __m128i x = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    return {_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16))};
}
HXR_SIMD void storeI16(std::int16_t* p, I32 a, I32 b) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(a.v, b.v));
}

HXR_SIMD F64 loadF64(const double* p) { return {_mm_loadu_pd(p)}; }
HXR_SIMD void storeF64(double* p, F64 a) { _mm_storeu_pd(p, a.v); }
HXR_SIMD F64 zeroF64() { return {_mm_setzero_pd()}; }
HXR_SIMD F64 operator+(F64 a, F64 b) { return {_mm_add_pd(a.v, b.v)}; }
HXR_SIMD F64 operator*(F64 a, F64 b) { return {_mm_mul_pd(a.v, b.v)}; }
HXR_SIMD F64 lowerHalfToF64(F32 a) { return {_mm_cvtps_pd(a.v)}; }
HXR_SIMD F64 upperHalfToF64(F32 a) { return {_mm_cvtps_pd(_mm_movehl_ps(a.v, a.v))}; }

HXR_SIMD F32 reversed(F32 a) { return {_mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(0, 1, 2, 3))}; }

struct Complex {
    F32 re, im;
};
HXR_SIMD Complex pairs(F32 a, F32 b) {
    return {{_mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(2, 0, 2, 0))},
            {_mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(3, 1, 3, 1))}};
}
HXR_SIMD void storePairs(float* p, Complex a) {
    _mm_storeu_ps(p, _mm_unpacklo_ps(a.re.v, a.im.v));
    _mm_storeu_ps(p + 4, _mm_unpackhi_ps(a.re.v, a.im.v));
}
HXR_SIMD F32 inElementOrder(F32 a) { return a; }

/// (re, im, re, im, ...) to (im, re, im, re, ...).
HXR_SIMD F32 swapPairs(F32 a) { return {_mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(2, 3, 0, 1))}; }

/// a - b in even lanes, a + b in odd ones.
HXR_SIMD F32 addSub(F32 a, F32 b) {
    return {_mm_add_ps(a.v, _mm_xor_ps(b.v, _mm_setr_ps(-0.0F, 0.0F, -0.0F, 0.0F)))};
}
/// The first `count` lanes, an even number below `lanes`, from memory and zeros behind them.
HXR_SIMD F32 loadFirst(const float* p, int count) {
    if (count == 2) return {_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p))};
    float first[lanes] = {};
    for (int i = 0; i < count; ++i) first[i] = p[i];
    return load(first);
}
HXR_SIMD void storeFirst(float* p, F32 a, int count) {
    float all[lanes];
    store(all, a);
    for (int i = 0; i < count; ++i) p[i] = all[i];
}
/// One complex value: the sums of the even and of the odd lanes.
HXR_SIMD void storePairSum(float* p, F32 a) {
    const __m128 sum = _mm_add_ps(a.v, _mm_movehl_ps(a.v, a.v));
    _mm_storel_pi(reinterpret_cast<__m64*>(p), sum);
}

HXR_SIMD void loadTransposed(const float* const* rows, F32* out) {
    const __m128 r0 = _mm_loadu_ps(rows[0]), r1 = _mm_loadu_ps(rows[1]);
    const __m128 r2 = _mm_loadu_ps(rows[2]), r3 = _mm_loadu_ps(rows[3]);
    const __m128 low01 = _mm_unpacklo_ps(r0, r1), high01 = _mm_unpackhi_ps(r0, r1);
    const __m128 low23 = _mm_unpacklo_ps(r2, r3), high23 = _mm_unpackhi_ps(r2, r3);
    out[0].v = _mm_movelh_ps(low01, low23);
    out[1].v = _mm_movehl_ps(low23, low01);
    out[2].v = _mm_movelh_ps(high01, high23);
    out[3].v = _mm_movehl_ps(high23, high01);
}
