// Element-wise operations, sums and conversions. The remainder behind the last whole vector goes through the
// same operation with zeros behind it, so that every element is computed alike wherever it stands.

namespace hxr::HXR_KERNEL_SET {

inline constexpr int unrolled = 4;

/// dst[i] = operation(src[i]...) over one or two real arrays.
template <typename Operation, typename... Source>
HXR_SIMD void mapReal(float* dst, std::ptrdiff_t n, Operation operation, const Source*... src) {
    std::ptrdiff_t i = 0;
    for (; i + unrolled * lanes <= n; i += unrolled * lanes) {
        F32 result[unrolled];
        for (int u = 0; u < unrolled; ++u) result[u] = operation(load(src + i + u * lanes)...);
        for (int u = 0; u < unrolled; ++u) store(dst + i + u * lanes, result[u]);
    }
    for (; i + lanes <= n; i += lanes) store(dst + i, operation(load(src + i)...));
    if (i == n) return;
    const int rest = static_cast<int>(n - i);
    storeFirst(dst + i, operation(loadFirst(src + i, rest)...), rest);
}

/// The same over complex arrays; `put` writes the result of `lanes` elements, `step` floats each, to dst.
template <int step, typename Put, typename... Source>
HXR_SIMD void mapComplex(float* dst, std::ptrdiff_t n, Put put, const Source*... src) {
    std::ptrdiff_t i = 0;
    for (; i + 2 * lanes <= n; i += 2 * lanes) {
        put(dst + step * i, loadPairs(src + 2 * i)...);
        put(dst + step * (i + lanes), loadPairs(src + 2 * (i + lanes))...);
    }
    for (; i + lanes <= n; i += lanes) put(dst + step * i, loadPairs(src + 2 * i)...);
    if (i == n) return;
    // Of so many floats, those that the first and the second vector hold.
    const auto first = [](int floats) { return floats < lanes ? floats : lanes; };
    const auto second = [](int floats) { return floats > lanes ? floats - lanes : 0; };
    const int rest = static_cast<int>(n - i);
    float result[step * lanes];
    put(result,
        pairs(loadFirst(src + 2 * i, first(2 * rest)), loadFirst(src + 2 * i + lanes, second(2 * rest)))...);
    storeFirst(dst + step * i, load(result), first(step * rest));
    if constexpr (step == 2) storeFirst(dst + 2 * i + lanes, load(result + lanes), second(2 * rest));
}

static void mulConstF32(const float* src, float k, float* dst, int n) {
    const F32 factor = splat(k);
    mapReal(
        dst, n, [=](F32 x) HXR_INLINE { return x * factor; }, src);
}

static void addConstF32(const float* src, float k, float* dst, int n) {
    const F32 term = splat(k);
    mapReal(
        dst, n, [=](F32 x) HXR_INLINE { return x + term; }, src);
}

static void addF32(const float* a, const float* b, float* dst, int n) {
    mapReal(
        dst, n, [](F32 x, F32 y) HXR_INLINE { return x + y; }, a, b);
}

static void maxF32(const float* a, const float* b, float* dst, int n) {
    mapReal(
        dst, n, [](F32 x, F32 y) HXR_INLINE { return larger(x, y); }, a, b);
}

static void minF32(const float* a, const float* b, float* dst, int n) {
    mapReal(
        dst, n, [](F32 x, F32 y) HXR_INLINE { return smaller(x, y); }, a, b);
}

static void sqrF32(const float* src, float* dst, int n) {
    mapReal(
        dst, n, [](F32 x) HXR_INLINE { return x * x; }, src);
}

static void sqrtF32(const float* src, float* dst, int n) {
    mapReal(
        dst, n, [](F32 x) HXR_INLINE { return squareRoot(x); }, src);
}

static void mulCf32(const float* a, const float* b, float* dst, int n) {
    mapComplex<2>(
        dst, n, [](float* p, Complex x, Complex y) HXR_INLINE { storePairs(p, x * y); }, a, b);
}

static void mulConstCf32(const float* src, float re, float im, float* dst, int n) {
    const Complex factor = {splat(re), splat(im)};
    mapComplex<2>(
        dst, n, [=](float* p, Complex x) HXR_INLINE { storePairs(p, x * factor); }, src);
}

HXR_SIMD F32 power(Complex x) { return mulAdd(x.re, x.re, x.im * x.im); }

static void powerCf32(const float* src, float* dst, int n) {
    mapComplex<1>(
        dst, n, [](float* p, Complex x) HXR_INLINE { store(p, inElementOrder(power(x))); }, src);
}

/// Where the power leaves the range of a float, the absolute value doesn't: those samples are brought to the middle of
/// the range by a power of two, and back. The factor of all others is 1, so that no sample's result depends on those
/// beside it.
static void magnitudeOfAnything(const float* src, float* dst, int n, F32 least, F32 greatest) {
    const F32 one = splat(1.0F);
    const auto put = [=](float* p, Complex x) HXR_INLINE {
        const F32 squared = power(x);
        const Mask small = less(squared, least), large = less(greatest, squared);
        const F32 there = select(small, splat(0x1p100F), select(large, splat(0x1p-70F), one));
        const F32 back = select(small, splat(0x1p-100F), select(large, splat(0x1p70F), one));
        store(p, inElementOrder(squareRoot(power({x.re * there, x.im * there})) * back));
    };
    mapComplex<1>(dst, n, put, src);
}

/// Takes a block the short way and watches the powers; where one was extreme, the block goes again the long way.
static void magnitudeCf32(const float* src, float* dst, int n) {
    constexpr int block = 512;
    const F32 least = splat(1e-30F), greatest = splat(1e+38F);
    for (int done = 0; done < n; done += block) {
        const int count = n - done < block ? n - done : block;
        Mask ordinary = less(least, greatest);
        const auto put = [=, &ordinary](float* p, Complex x) HXR_INLINE {
            const F32 squared = power(x);
            ordinary = both(ordinary, both(less(least, squared), less(squared, greatest)));
            store(p, inElementOrder(squareRoot(squared)));
        };
        const float* from = src + 2 * std::ptrdiff_t{done};
        mapComplex<1>(dst + done, count, put, from);
        if (!inAllLanes(ordinary)) magnitudeOfAnything(from, dst + done, count, least, greatest);
    }
}

static void mulF64(const double* a, const double* b, double* dst, int n) {
    std::ptrdiff_t i = 0;
    for (; i + lanes / 2 <= n; i += lanes / 2) storeF64(dst + i, loadF64(a + i) * loadF64(b + i));
    for (; i < n; ++i) dst[i] = a[i] * b[i];
}

static void mulCf64(const double* a, const double* b, double* dst, int n) {
    for (std::ptrdiff_t i = 0; i < 2 * std::ptrdiff_t{n}; i += 2) {
        const double re = a[i] * b[i] - a[i + 1] * b[i + 1], im = a[i] * b[i + 1] + a[i + 1] * b[i];
        dst[i] = re;
        dst[i + 1] = im;
    }
}

static void sumF64(const double* src, int n, double* sum) {
    constexpr int width = lanes / 2;
    F64 partial[unrolled];
    for (F64& p : partial) p = zeroF64();
    std::ptrdiff_t i = 0;
    for (; i + unrolled * width <= n; i += unrolled * width) {
        for (int u = 0; u < unrolled; ++u) partial[u] = partial[u] + loadF64(src + i + u * width);
    }
    double lane[width], total = 0.0;
    storeF64(lane, (partial[0] + partial[1]) + (partial[2] + partial[3]));
    for (const double x : lane) total += x;
    for (; i < n; ++i) total += src[i];
    *sum = total;
}

static void sumCf32(const float* src, int n, float* sum) {
    constexpr int width = lanes / 2;
    F64 low = zeroF64(), high = zeroF64();
    std::ptrdiff_t i = 0;
    for (; i + lanes <= 2 * std::ptrdiff_t{n}; i += lanes) {
        const F32 x = load(src + i);
        low = low + lowerHalfToF64(x);
        high = high + upperHalfToF64(x);
    }
    double lane[width], re = 0.0, im = 0.0;
    storeF64(lane, low + high);
    for (int l = 0; l < width; l += 2) {
        re += lane[l];
        im += lane[l + 1];
    }
    for (; i < 2 * std::ptrdiff_t{n}; i += 2) {
        re += static_cast<double>(src[i]);
        im += static_cast<double>(src[i + 1]);
    }
    sum[0] = static_cast<float>(re);
    sum[1] = static_cast<float>(im);
}

static void flip32(const float* src, float* dst, int n) {
    std::ptrdiff_t low = 0, high = n;
    // Both ends are read before either is written, which makes src and dst the same array a matter of course.
    for (; high - low >= 2 * lanes; low += lanes, high -= lanes) {
        const F32 first = load(src + low), last = load(src + high - lanes);
        store(dst + n - low - lanes, reversed(first));
        store(dst + n - high, reversed(last));
    }
    for (; low < high; ++low, --high) {
        const float first = src[low], last = src[high - 1];
        dst[n - 1 - low] = first;
        dst[n - high] = last;
    }
}

static void i16ToF32(const std::int16_t* src, float factor, float* dst, int n) {
    const F32 scale = splat(factor);
    std::ptrdiff_t i = 0;
    for (; i + unrolled * lanes <= n; i += unrolled * lanes) {
        for (int u = 0; u < unrolled; ++u) store(dst + i + u * lanes, loadI16(src + i + u * lanes) * scale);
    }
    for (; i + lanes <= n; i += lanes) store(dst + i, loadI16(src + i) * scale);
    for (; i < n; ++i) dst[i] = static_cast<float>(src[i]) * factor;
}

template <typename Round>
HXR_SIMD void convertToI16(const float* src, float factor, std::int16_t* dst, std::ptrdiff_t n, Round round) {
    constexpr int width = 2 * lanes;
    const F32 scale = splat(factor), greatest = splat(32767.0F);
    const auto convert = [=](const float* from, std::int16_t* to) HXR_INLINE {
        // Too low a value becomes the least integer and saturates when it is packed; too high a one would
        // become that too, so it is held here. A NaN passes the comparison and ends as the least value.
        const I32 a = round(smaller(greatest, load(from) * scale));
        const I32 b = round(smaller(greatest, load(from + lanes) * scale));
        storeI16(to, a, b);
    };
    std::ptrdiff_t i = 0;
    for (; i + width <= n; i += width) convert(src + i, dst + i);
    if (i == n) return;
    float padded[width] = {};
    std::int16_t result[width];
    for (std::ptrdiff_t j = i; j < n; ++j) padded[j - i] = src[j];
    convert(padded, result);
    for (std::ptrdiff_t j = i; j < n; ++j) dst[j] = result[j - i];
}

static void f32ToI16Nearest(const float* src, float factor, std::int16_t* dst, int n) {
    convertToI16(src, factor, dst, n, [](F32 x) HXR_INLINE { return nearest(x); });
}

static void f32ToI16Truncated(const float* src, float factor, std::int16_t* dst, int n) {
    convertToI16(src, factor, dst, n, [](F32 x) HXR_INLINE { return truncated(x); });
}

}  // namespace hxr::HXR_KERNEL_SET
