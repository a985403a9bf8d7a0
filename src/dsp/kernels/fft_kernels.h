// The complex forward transform. All its arithmetic runs on columns: `lanes` transforms side by side, so that
// factors are the same for all lanes and nothing is shuffled; only between the two steps are squares of lanes
// x lanes turned.

namespace hxr::HXR_KERNEL_SET {

inline constexpr int rowFloats = 2 * lanes;

/// a turned by -90 degrees.
HXR_SIMD Complex minusJ(Complex a) {
    return {a.im, splat(0.0F) - a.re};
}
/// a - j b and a + j b.
HXR_SIMD Complex minusJTimes(Complex a, Complex b) {
    return {a.re + b.im, a.im - b.re};
}
HXR_SIMD Complex plusJTimes(Complex a, Complex b) {
    return {a.re - b.im, a.im + b.re};
}

HXR_SIMD void butterfly2(Complex* a) {
    const Complex difference = a[0] - a[1];
    a[0] = a[0] + a[1];
    a[1] = difference;
}

HXR_SIMD void butterfly4(Complex& a0, Complex& a1, Complex& a2, Complex& a3) {
    const Complex s0 = a0 + a2, d0 = a0 - a2, s1 = a1 + a3, d1 = a1 - a3;
    a0 = s0 + s1;
    a1 = minusJTimes(d0, d1);
    a2 = s0 - s1;
    a3 = plusJTimes(d0, d1);
}

HXR_SIMD void butterfly8(Complex* a) {
    butterfly4(a[0], a[2], a[4], a[6]);
    butterfly4(a[1], a[3], a[5], a[7]);
    const F32 half = splat(0.707106781F);  // the factors of an eighth turn are half (1 - j) and -half (1 + j)
    const Complex e0 = a[0], e1 = a[2], e2 = a[4], e3 = a[6];
    const Complex o0 = a[1], o2 = a[5];
    const Complex t1 = {a[3].re + a[3].im, a[3].im - a[3].re};
    const Complex t3 = {a[7].im - a[7].re, a[7].re + a[7].im};
    a[0] = e0 + o0;
    a[4] = e0 - o0;
    a[2] = minusJTimes(e2, o2);
    a[6] = plusJTimes(e2, o2);
    a[1] = {mulAdd(half, t1.re, e1.re), mulAdd(half, t1.im, e1.im)};
    a[5] = {negMulAdd(half, t1.re, e1.re), negMulAdd(half, t1.im, e1.im)};
    a[3] = {mulAdd(half, t3.re, e3.re), negMulAdd(half, t3.im, e3.im)};
    a[7] = {negMulAdd(half, t3.re, e3.re), mulAdd(half, t3.im, e3.im)};
}

/// Four times four: columns of four, turned by sixteenths, then rows of four.
HXR_SIMD void butterfly16(Complex* a) {
    static constexpr float c1 = 0.923879533F, s1 = 0.382683432F, half = 0.707106781F;
    static constexpr float turn[4][4][2] = {{{1, 0}, {1, 0}, {1, 0}, {1, 0}},
                                            {{1, 0}, {c1, -s1}, {half, -half}, {s1, -c1}},
                                            {{1, 0}, {half, -half}, {0, -1}, {-half, -half}},
                                            {{1, 0}, {s1, -c1}, {-half, -half}, {-c1, s1}}};
    for (int c = 0; c < 4; ++c) butterfly4(a[c], a[c + 4], a[c + 8], a[c + 12]);
    Complex r[16];
    for (int k = 0; k < 4; ++k) {
        for (int c = 0; c < 4; ++c) {
            const Complex x = a[4 * k + c];
            r[4 * k + c] = k == 0 || c == 0 ? x : k == 2 && c == 2 ? minusJ(x) : x * splatComplex(turn[k][c]);
        }
        butterfly4(r[4 * k], r[4 * k + 1], r[4 * k + 2], r[4 * k + 3]);
    }
    for (int k = 0; k < 4; ++k) {
        for (int c = 0; c < 4; ++c) a[4 * c + k] = r[4 * k + c];
    }
}

/// The transform of `radix` points, in natural order.
template <int radix>
HXR_SIMD void butterfly(Complex* a) {
    if constexpr (radix == 2) butterfly2(a);
    if constexpr (radix == 4) butterfly4(a[0], a[1], a[2], a[3]);
    if constexpr (radix == 8) butterfly8(a);
    if constexpr (radix == 16) butterfly16(a);
}

/// One pass over `blocks` blocks of radix x span rows. `loadRow` gives a row by its number.
template <int radix, bool turned, typename LoadRow>
HXR_SIMD void pass(float* rows, std::ptrdiff_t blocks, std::ptrdiff_t span, const float* twiddles,
                   LoadRow loadRow) {
    for (std::ptrdiff_t block = 0; block < blocks; ++block) {
        const float* factor = twiddles;
        for (std::ptrdiff_t j = 0; j < span; ++j, factor += 2 * (radix - 1)) {
            const std::ptrdiff_t row = block * radix * span + j;
            Complex a[radix];
            for (int i = 0; i < radix; ++i) a[i] = loadRow(row + i * span);
            butterfly<radix>(a);
            storeSplit(rows + row * rowFloats, a[0]);
            for (int q = 1; q < radix; ++q) {
                if constexpr (turned) a[q] = a[q] * splatComplex(factor + 2 * (q - 1));
                storeSplit(rows + (row + q * span) * rowFloats, a[q]);
            }
        }
    }
}

template <typename LoadRow>
HXR_SIMD void anyPass(const FftPass& p, float* rows, std::ptrdiff_t length, LoadRow loadRow) {
    const std::ptrdiff_t blocks = length / (p.radix * p.span), span = p.span;
    if (span == 1) {
        if (p.radix == 8)
            pass<8, false>(rows, blocks, 1, nullptr, loadRow);
        else if (p.radix == 4)
            pass<4, false>(rows, blocks, 1, nullptr, loadRow);
        else
            pass<2, false>(rows, blocks, 1, nullptr, loadRow);
    } else if (p.radix == 8) {
        pass<8, true>(rows, blocks, span, p.twiddles, loadRow);
    } else {
        pass<4, true>(rows, blocks, span, p.twiddles, loadRow);
    }
}

/// Passes `first` to `last` - 1 in place over `length` rows.
static void middlePasses(const ColumnTransform& t, int first, int last, float* rows, std::ptrdiff_t length) {
    for (int p = first; p < last; ++p)
        anyPass(t.pass[p], rows, length,
                [=](std::ptrdiff_t row) HXR_INLINE { return loadSplit(rows + row * rowFloats); });
}

/// The first pass over a transform's rows, from interleaved points that lie `stride` floats apart.
static void firstPass(const ColumnTransform& t, const float* src, std::ptrdiff_t stride, float* rows) {
    anyPass(t.pass[0], rows, t.length,
            [=](std::ptrdiff_t row) HXR_INLINE { return loadPairs(src + row * stride); });
}

/// Behind the first pass the blocks are independent: each goes through all its passes while it is in the
/// cache.
static void passesByBlock(const ColumnTransform& t, int last, float* rows) {
    if (last <= 1) return;
    const std::ptrdiff_t block = t.pass[0].span;
    for (std::ptrdiff_t row = 0; row < t.length; row += block)
        middlePasses(t, 1, last, rows + row * rowFloats, block);
}

/// Results group x lanes ... of all columns: element c holds column c, its lanes the results in the order of
/// loadPairs.
HXR_SIMD void loadGroup(const float* rows, const int* order, Complex* a) {
    const float* re[lanes];
    const float* im[lanes];
    F32 turnedRe[lanes], turnedIm[lanes];
    for (int l = 0; l < lanes; ++l) {
        re[l] = rows + order[l];
        im[l] = re[l] + lanes;
    }
    loadTransposed(re, turnedRe);
    loadTransposed(im, turnedIm);
    for (int l = 0; l < lanes; ++l) a[laneElement(l)] = {turnedRe[l], turnedIm[l]};
}

/// N = length x lanes: the columns' transforms, then one butterfly across the lanes.
static void fftOneStep(const FftTables& t, const float* src, float* dst, float* work) {
    firstPass(t.rows, src, rowFloats, work);
    middlePasses(t.rows, 1, t.rows.passes, work, t.rows.length);
    const F32 scale = splat(t.scale);
    const float* factor = t.twiddles;
    for (std::ptrdiff_t k = 0; k < t.rows.length; k += lanes, factor += (lanes - 1) * rowFloats) {
        Complex a[lanes];
        loadGroup(work, t.rows.order + k, a);
        a[0] = {a[0].re * scale, a[0].im * scale};
        for (int c = 1; c < lanes; ++c) a[c] = a[c] * loadSplit(factor + (c - 1) * rowFloats);
        butterfly<lanes>(a);
        for (int q = 0; q < lanes; ++q) storePairs(dst + 2 * (q * std::ptrdiff_t{t.rows.length} + k), a[q]);
    }
}

/// The last pass of the second step: its results go out as they arise.
template <int radix>
HXR_SIMD void lastPass(const ColumnTransform& t, const float* rows, float* dst, std::ptrdiff_t stride) {
    const std::ptrdiff_t blocks = t.length / radix;
    for (std::ptrdiff_t block = 0; block < blocks; ++block) {
        Complex a[radix];
        for (int i = 0; i < radix; ++i) a[i] = loadSplit(rows + (block * radix + i) * rowFloats);
        butterfly<radix>(a);
        float* out = dst + t.order[block] * stride;
        for (int q = 0; q < radix; ++q) storePairs(out + q * blocks * stride, a[q]);
    }
}

/// N = rows x columns. First step: transforms over the rows, `lanes` neighbouring columns at a time; their
/// results are turned, in both senses, and laid down so that the second step finds the points of `lanes`
/// results side by side.
static void fftTwoSteps(const FftTables& t, const float* src, float* dst, float* work) {
    const std::ptrdiff_t length1 = t.rows.length, length2 = t.columns.length;
    float* buffer = work + 2 * length1 * length2;
    const float* coarse = t.twiddles;
    for (std::ptrdiff_t column = 0; column < length2; column += lanes) {
        firstPass(t.rows, src + 2 * column, 2 * length2, buffer);
        passesByBlock(t.rows, t.rows.passes, buffer);
        const float* fine = t.fineTwiddles;
        for (std::ptrdiff_t k = 0; k < length1; k += lanes) {
            Complex a[lanes];
            loadGroup(buffer, t.rows.order + k, a);
            const Complex common = loadSplit(coarse);
            coarse += rowFloats;
            float* out = work + 2 * (k * length2 + column * lanes);
            storeSplit(out, a[0] * common);
            for (int c = 1; c < lanes; ++c, fine += rowFloats)
                storeSplit(out + c * rowFloats, a[c] * (common * loadSplit(fine)));
        }
    }
    const int last = t.columns.passes - 1;
    for (std::ptrdiff_t k = 0; k < length1; k += lanes) {
        float* rows = work + 2 * k * length2;
        if (last > 0) {
            middlePasses(t.columns, 0, 1, rows, length2);
            passesByBlock(t.columns, last, rows);
        }
        if (t.columns.pass[last].radix == 8)
            lastPass<8>(t.columns, rows, dst + 2 * k, 2 * length1);
        else
            lastPass<4>(t.columns, rows, dst + 2 * k, 2 * length1);
    }
}

}  // namespace hxr::HXR_KERNEL_SET
