// Natural logarithm and exponential. Both split the argument into a power of two and a rest near 1 or 0, for
// which a minimax polynomial of relative error below half a unit in the last place stands.

namespace hxr::HXR_KERNEL_SET {

// ln 2 in two pieces; the first has so few bits that its product with an exponent is exact.
inline constexpr float ln2High = 0.693359375F;
inline constexpr float ln2Low = -2.12194440e-4F;

template <int count>
HXR_SIMD F32 polynomial(F32 x, const float (&coefficients)[count]) {
    F32 sum = splat(coefficients[count - 1]);
    for (int i = count - 2; i >= 0; --i) sum = mulAdd(sum, x, splat(coefficients[i]));
    return sum;
}

/// A positive float as m 2^k, m from sqrt(1/2) to sqrt(2), halfway to its logarithm: f = m - 1, s = f / (m + 1), and
/// k ln 2 + f. Of a float that isn't normal only k means anything. k stands where the exponent does.
struct LnParts {
    F32 f, s, sum;
    I32 k;
};
HXR_SIMD LnParts lnBegin(F32 x) {
    const I32 bits = bitsOf(x),
              k = (bits - splatInt(__builtin_bit_cast(int, 0.70710678F))) & splatInt(-1 << 23);
    const F32 m = fromBits(bits - k), one = splat(1.0F), f = m - one;
    return {f, f / (m + one), mulAdd(toFloat(k), splat(0x1p-23F * 0.693147181F), f), k};
}

/// k ln 2 + ln m. Three terms in s do where a polynomial in f takes eight. The first term of ln m = 2 s + s^3 P(s^2) is
/// f - s f: with f, which is exact, in front, the rounding of s weighs little.
HXR_SIMD F32 lnEnd(const LnParts& x) {
    const F32 s2 = x.s * x.s;
    const F32 p =
        mulAdd(s2, mulAdd(s2, splat(0.298717286950F), splat(0.399775415419F)), splat(0.666667763819F));
    return mulAdd(x.s, mulSub(s2, p, x.f), x.sum);
}

/// ln x with all that a float can be among the lanes.
HXR_SIMD F32 lnOfAnything(F32 x) {
    const F32 zero = splat(0.0F), infinity = splat(__builtin_inff());
    const Mask denormal = less(x, splat(0x1p-126F));
    const F32 ln = lnEnd(lnBegin(select(denormal, x * splat(0x1p23F), x)));
    F32 result = ln - select(denormal, splat(23 * 0.693147181F), zero);
    result = select(less(x, infinity), result, x);  // infinity and NaN
    result = select(equal(x, zero), splat(-__builtin_inff()), result);
    return select(less(x, zero), splat(__builtin_nanf("")), result);
}

/// Takes vectors until the first that holds a value out of the common range. Powers of samples lie between 2^-100 and 2^28.
/// Outside, k + 100 doesn't fit 7 bits, and zeros, denormals, negative values, infinities and NaN are all outside. A
/// vector's division runs beside the sums of the vector before.
/// @return elements taken
HXR_SIMD std::ptrdiff_t lnCommon(const float* src, float* dst, std::ptrdiff_t n) {
    const auto isCommon = [](const LnParts& x)
                              HXR_INLINE { return noneHas(splatInt(-1 << 30), x.k + splatInt(100 << 23)); };
    LnParts a = lnBegin(load(src));
    if (!isCommon(a)) return 0;
    std::ptrdiff_t i = 0;
    for (; i + 3 * lanes <= n; i += 2 * lanes) {
        const LnParts b = lnBegin(load(src + i + lanes));
        const bool bIsCommon = isCommon(b);
        store(dst + i, lnEnd(a));
        if (!bIsCommon) return i + lanes;
        a = lnBegin(load(src + i + 2 * lanes));
        const bool aIsCommon = isCommon(a);
        store(dst + i + lanes, lnEnd(b));
        if (!aIsCommon) return i + 2 * lanes;
    }
    store(dst + i, lnEnd(a));
    return i + lanes;
}

static void lnF32(const float* src, float* dst, int n) {
    std::ptrdiff_t i = 0;
    while (i + lanes <= n) {
        const std::ptrdiff_t taken = lnCommon(src + i, dst + i, n - i);
        if (taken == 0) store(dst + i, lnOfAnything(load(src + i)));
        i += taken > 0 ? taken : lanes;
    }
    mapReal(
        dst + i, n - i, [](F32 x) HXR_INLINE { return lnOfAnything(x); }, src + i);
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
