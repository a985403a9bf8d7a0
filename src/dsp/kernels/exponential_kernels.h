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

/// A positive float as m 2^k, m from sqrt(1/2) to sqrt(2); of a float that isn't normal only k means
/// anything.
struct Split {
    I32 bits, k;
};
HXR_SIMD Split splitOf(F32 x) {
    const I32 bits = bitsOf(x);
    return {bits, shiftRight<23>(bits - splatInt(__builtin_bit_cast(int, 0.70710678F)))};
}

/// ln(m 2^scale) of several vectors: with f = m - 1, it is scale ln 2 + f + f^2 Q(f). Q is summed in pairs of
/// terms and the vectors advance side by side, since the latency of one long chain would leave the
/// multipliers idle.
template <int count>
HXR_SIMD void lnOf(const Split (&x)[count], const F32 (&scale)[count], F32 (&result)[count]) {
    static constexpr float q[] = {-0.499999916066F, 0.333339502136F, -0.250017552204F, 0.199620724231F,
                                  -0.165705091676F, 0.149179717572F, -0.143075143847F, 0.0873483920359F};
    F32 f[count], f2[count], low[count], high[count];
    for (int u = 0; u < count; ++u) f[u] = fromBits(x[u].bits - shiftLeft<23>(x[u].k)) - splat(1.0F);
    for (int u = 0; u < count; ++u) f2[u] = f[u] * f[u];
    for (int u = 0; u < count; ++u) high[u] = mulAdd(f[u], splat(q[7]), splat(q[6]));
    for (int u = 0; u < count; ++u) low[u] = mulAdd(f[u], splat(q[5]), splat(q[4]));
    for (int u = 0; u < count; ++u) high[u] = mulAdd(f2[u], high[u], low[u]);
    for (int u = 0; u < count; ++u) low[u] = mulAdd(f[u], splat(q[3]), splat(q[2]));
    for (int u = 0; u < count; ++u) high[u] = mulAdd(f2[u], high[u], low[u]);
    for (int u = 0; u < count; ++u) low[u] = mulAdd(f[u], splat(q[1]), splat(q[0]));
    for (int u = 0; u < count; ++u) high[u] = mulAdd(f2[u], high[u], low[u]);
    for (int u = 0; u < count; ++u) high[u] = mulAdd(f2[u], high[u], f[u]);
    for (int u = 0; u < count; ++u) result[u] = mulAdd(scale[u], splat(0.693147181F), high[u]);
}

/// ln x with all that a float can be among the lanes.
HXR_SIMD F32 lnOfAnything(F32 x) {
    const F32 zero = splat(0.0F), infinity = splat(__builtin_inff());
    const Mask denormal = less(x, splat(0x1p-126F));
    const Split parts[1] = {splitOf(select(denormal, x * splat(0x1p23F), x))};
    const F32 scale[1] = {toFloat(parts[0].k) + select(denormal, splat(-23.0F), zero)};
    F32 ln[1];
    lnOf(parts, scale, ln);
    F32 result = select(less(x, infinity), ln[0], x);  // infinity and NaN
    result = select(equal(x, zero), splat(-__builtin_inff()), result);
    return select(less(x, zero), splat(__builtin_nanf("")), result);
}

static void lnF32(const float* src, float* dst, int n) {
    constexpr int block = unrolled * lanes;
    // Powers of samples lie between 2^-100 and 2^28. Outside, k + 100 doesn't fit 7 bits, and zeros,
    // denormals, negative values, infinities and NaN are all outside: a single test of a whole block finds
    // them.
    const I32 offset = splatInt(100);
    std::ptrdiff_t i = 0;
    while (i + block <= n) {
        for (; i + block <= n; i += block) {
            Split x[unrolled];
            for (int u = 0; u < unrolled; ++u) x[u] = splitOf(load(src + i + u * lanes));
            const I32 ranges =
                ((x[0].k + offset) | (x[1].k + offset)) | ((x[2].k + offset) | (x[3].k + offset));
            if (!allBelow128(ranges)) break;
            F32 scale[unrolled], result[unrolled];
            for (int u = 0; u < unrolled; ++u) scale[u] = toFloat(x[u].k);
            lnOf(x, scale, result);
            for (int u = 0; u < unrolled; ++u) store(dst + i + u * lanes, result[u]);
        }
        if (i + block > n) break;
        for (int u = 0; u < unrolled; ++u)
            store(dst + i + u * lanes, lnOfAnything(load(src + i + u * lanes)));
        i += block;
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
