// Natural logarithm and exponential. Both split the argument into a power of two and a rest near 1 or 0, for
// which a minimax polynomial of relative error below half a unit in the last place stands.

namespace hxr::HXR_KERNEL_SET {

// ln 2 in two pieces; the first has so few bits that its product with an exponent is exact.
inline constexpr float ln2High = 0.693359375F;
inline constexpr float ln2Low = -2.12194440e-4F;
inline constexpr float leastNormal = 0x1p-126F;

template <int count>
HXR_SIMD F32 polynomial(F32 x, const float (&coefficients)[count]) {
    F32 sum = splat(coefficients[count - 1]);
    for (int i = count - 2; i >= 0; --i) sum = mulAdd(sum, x, splat(coefficients[i]));
    return sum;
}

/// ln(x 2^exponent) for normal positive x: with x = m 2^k, m from sqrt(1/2) to sqrt(2), and f = m - 1,
/// ln x = k ln 2 + f + f^2 Q(f).
HXR_SIMD F32 lnOfNormal(F32 x, F32 exponent) {
    static constexpr float q[] = {-0.499999916066F, 0.333339502136F, -0.250017552204F, 0.199620724231F,
                                  -0.165705091676F, 0.149179717572F, -0.143075143847F, 0.0873483920359F};
    const I32 bits = bitsOf(x);
    const I32 k = shiftRight<23>(bits - splatInt(__builtin_bit_cast(int, 0.70710678F)));
    const F32 f = fromBits(bits - shiftLeft<23>(k)) - splat(1.0F);
    const F32 scale = toFloat(k) + exponent;
    const F32 rest = mulAdd(f * f, polynomial(f, q), f);
    return mulAdd(scale, splat(ln2High), mulAdd(scale, splat(ln2Low), rest));
}

/// Zeros, denormals, negative values, infinities and NaN among the lanes.
[[gnu::noinline]] static F32 lnOfAnything(F32 x) {
    const F32 zero = splat(0.0F), infinity = splat(__builtin_inff());
    const Mask denormal = less(x, splat(leastNormal));
    const F32 normal = select(denormal, x * splat(0x1p23F), x);
    F32 result = lnOfNormal(normal, select(denormal, splat(-23.0F), zero));
    result = select(less(x, infinity), result, x);  // infinity and NaN
    result = select(equal(x, zero), splat(-__builtin_inff()), result);
    return select(less(x, zero), splat(__builtin_nanf("")), result);
}

static void lnF32(const float* src, float* dst, int n) {
    const F32 least = splat(leastNormal), infinity = splat(__builtin_inff());
    const auto ln = [=](F32 x) HXR_INLINE {
        const bool normal = inAllLanes(less(x, infinity)) && !anyLane(less(x, least));
        return __builtin_expect(normal, 1) ? lnOfNormal(x, splat(0.0F)) : lnOfAnything(x);
    };
    mapReal(dst, n, ln, src);
}

static void expF32(const float* src, float* dst, int n) {
    static constexpr float q[] = {0.499999934125F, 0.166665201078F, 0.0416683942109F, 0.00836878041118F,
                                  0.00138144670593F};
    // Beyond these the result is 0 or infinity; the order of the operands lets a NaN through.
    const F32 least = splat(-105.0F), greatest = splat(89.0F);
    const auto exponential = [=](F32 x) HXR_INLINE {
        const F32 held = smaller(greatest, larger(least, x));
        const I32 k = nearest(held * splat(1.44269504F));
        const F32 scale = toFloat(k);
        const F32 r = negMulAdd(scale, splat(ln2Low), negMulAdd(scale, splat(ln2High), held));
        const F32 mantissa = mulAdd(r * r, polynomial(r, q), r) + splat(1.0F);
        // 2^k in two factors, since the result may be a denormal or infinity while k is out of a float's
        // range.
        const I32 half = shiftRight<1>(k), bias = splatInt(127);
        return mantissa * fromBits(shiftLeft<23>(half + bias)) * fromBits(shiftLeft<23>(k - half + bias));
    };
    mapReal(dst, n, exponential, src);
}

}  // namespace hxr::HXR_KERNEL_SET
