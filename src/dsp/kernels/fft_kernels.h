// The complex forward transform. All its arithmetic runs on columns: `lanes` transforms side by side, so that
// factors are the same for all lanes and nothing is shuffled; only between the two steps are squares of lanes
// x lanes turned.

namespace hxr::HXR_KERNEL_SET {

inline constexpr int rowFloats = 2 * lanes;

/// a turned by -90 degrees.
HXR_SIMD Complex minusJ(Complex a) { return {a.im, splat(0.0F) - a.re}; }
/// a - j b and a + j b.
HXR_SIMD Complex minusJTimes(Complex a, Complex b) { return {a.re + b.im, a.im - b.re}; }
HXR_SIMD Complex plusJTimes(Complex a, Complex b) { return {a.re - b.im, a.im + b.re}; }

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

/// Sixteen points as four times four. They don't fit the registers of most processors: each column of four is
/// loaded when its turn comes, and `put` takes the results of each row at once.
template <typename Get, typename Put>
HXR_SIMD void transform16(Get get, Put put) {
    static constexpr float c1 = 0.923879533F, s1 = 0.382683432F, half = 0.707106781F;
    static constexpr float turn[4][4][2] = {{{1, 0}, {1, 0}, {1, 0}, {1, 0}},
                                            {{1, 0}, {c1, -s1}, {half, -half}, {s1, -c1}},
                                            {{1, 0}, {half, -half}, {0, -1}, {-half, -half}},
                                            {{1, 0}, {s1, -c1}, {-half, -half}, {-c1, s1}}};
    Complex a[4][4];
    for (int c = 0; c < 4; ++c) {
        for (int k = 0; k < 4; ++k) a[k][c] = get(c + 4 * k);
        butterfly4(a[0][c], a[1][c], a[2][c], a[3][c]);
        for (int k = 1; k < 4 && c > 0; ++k)
            a[k][c] = k == 2 && c == 2 ? minusJ(a[k][c]) : a[k][c] * splatComplex(turn[k][c]);
    }
    for (int k = 0; k < 4; ++k) {
        butterfly4(a[k][0], a[k][1], a[k][2], a[k][3]);
        for (int c = 0; c < 4; ++c) put(k + 4 * c, a[k][c]);
    }
}

/// The transform of `radix` points, from get(i) to put(q, result).
template <int radix, typename Get, typename Put>
HXR_SIMD void transform(Get get, Put put) {
    if constexpr (radix == 16) {
        transform16(get, put);
    } else {
        Complex a[radix];
        for (int i = 0; i < radix; ++i) a[i] = get(i);
        if constexpr (radix == 4) butterfly4(a[0], a[1], a[2], a[3]);
        if constexpr (radix == 8) butterfly8(a);
        for (int q = 0; q < radix; ++q) put(q, a[q]);
    }
}

/// A pass over `length` rows whose results 1 to radix - 1 are turned by factors that all columns share.
/// `loadRow` gives a row by its number.
template <int radix, typename LoadRow>
HXR_SIMD void turningPass(float* rows, std::ptrdiff_t length, const FftPass& p, LoadRow loadRow) {
    const std::ptrdiff_t span = p.span;
    for (std::ptrdiff_t block = 0; block < length; block += radix * span) {
        const float* factor = p.twiddles;
        for (std::ptrdiff_t row = block; row < block + span; ++row, factor += 2 * (radix - 1)) {
            transform<radix>([=](int i) HXR_INLINE { return loadRow(row + i * span); },
                             [=](int q, Complex x) HXR_INLINE {
                                 const Complex turned = q == 0 ? x : x * splatComplex(factor + 2 * (q - 1));
                                 storeSplit(rows + (row + q * span) * rowFloats, turned);
                             });
        }
    }
}

/// The last pass of the first step, which turns each row by a vector of factors of its own.
template <int radix, typename LoadRow, typename FactorOf>
HXR_SIMD void endPass(float* rows, std::ptrdiff_t length, LoadRow loadRow, FactorOf factorOf) {
    for (std::ptrdiff_t row = 0; row < length; row += radix) {
        transform<radix>([=](int i) HXR_INLINE { return loadRow(row + i); },
                         [=](int q, Complex x)
                             HXR_INLINE { storeSplit(rows + (row + q) * rowFloats, x * factorOf(row + q)); });
    }
}

template <typename LoadRow>
HXR_SIMD void anyTurningPass(float* rows, std::ptrdiff_t length, const FftPass& p, LoadRow loadRow) {
    if (p.radix == 8)
        turningPass<8>(rows, length, p, loadRow);
    else
        turningPass<4>(rows, length, p, loadRow);
}

/// All turning passes of a transform whose first one reads through `loadRow`. Behind that one the blocks are
/// independent: each goes through the others while it is in the cache.
template <typename LoadRow>
HXR_SIMD void turningPasses(const ColumnTransform& t, float* rows, LoadRow loadRow) {
    if (t.passes < 2) return;
    anyTurningPass(rows, t.length, t.pass[0], loadRow);
    const std::ptrdiff_t block = t.pass[0].span;
    for (std::ptrdiff_t first = 0; t.passes > 2 && first < t.length; first += block) {
        float* part = rows + first * rowFloats;
        for (int p = 1; p < t.passes - 1; ++p)
            anyTurningPass(part, block, t.pass[p],
                           [=](std::ptrdiff_t row) HXR_INLINE { return loadSplit(part + row * rowFloats); });
    }
}

template <typename LoadRow, typename FactorOf>
HXR_SIMD void anyEndPass(const ColumnTransform& t, float* rows, LoadRow loadRow, FactorOf factorOf) {
    const int radix = t.pass[t.passes - 1].radix;
    if (radix == 8)
        endPass<8>(rows, t.length, loadRow, factorOf);
    else
        endPass<4>(rows, t.length, loadRow, factorOf);
}

/// The first step: transforms over the rows of points that lie `stride` floats apart, each result turned by
/// its factors.
template <typename FactorOf>
HXR_SIMD void firstStep(const ColumnTransform& t, const float* src, std::ptrdiff_t stride, float* rows,
                        FactorOf factorOf) {
    const auto point = [=](std::ptrdiff_t row) HXR_INLINE { return loadPairs(src + row * stride); };
    const auto stored = [=](std::ptrdiff_t row) HXR_INLINE { return loadSplit(rows + row * rowFloats); };
    turningPasses(t, rows, point);
    if (t.passes == 1)
        anyEndPass(t, rows, point, factorOf);
    else
        anyEndPass(t, rows, stored, factorOf);
}

/// A square of `lanes` results of all columns: element c holds column c, its lanes the results in the order
/// of loadPairs.
HXR_SIMD void loadSquare(const float* rows, const int* order, Complex* a) {
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
    const std::ptrdiff_t length = t.rows.length;
    const float* factors = t.twiddles;
    firstStep(t.rows, src, rowFloats, work,
              [=](std::ptrdiff_t row) HXR_INLINE { return loadSplit(factors + row * rowFloats); });
    for (std::ptrdiff_t k = 0; k < length; k += lanes) {
        Complex a[lanes];
        loadSquare(work, t.rows.order + k, a);
        transform<lanes>([&](int i) HXR_INLINE { return a[i]; },
                         [=](int q, Complex x) HXR_INLINE { storePairs(dst + 2 * (q * length + k), x); });
    }
}

/// Groups of results that the second step finishes together: the lines that they fill are neighbours in the
/// result, and far from those of the next point of the same group, each on a page of its own.
inline constexpr int groupsTogether = 4;

/// The last pass of the second step for several groups, `step` floats apart: the results go out as they
/// arise.
template <int radix>
HXR_SIMD void lastPass(const ColumnTransform& t, const float* rows, std::ptrdiff_t step, float* dst,
                       std::ptrdiff_t stride) {
    const std::ptrdiff_t blocks = t.length / radix;
    for (std::ptrdiff_t block = 0; block < blocks; ++block) {
        for (int group = 0; group < groupsTogether; ++group) {
            const float* in = rows + group * step + block * radix * rowFloats;
            float* out = dst + t.order[block] * stride + group * rowFloats;
            transform<radix>([=](int i) HXR_INLINE { return loadSplit(in + i * rowFloats); },
                             [=](int q, Complex x) HXR_INLINE { storePairs(out + q * blocks * stride, x); });
        }
    }
}

/// N = rows x columns. First step: transforms over the rows, `lanes` neighbouring columns at a time; their
/// results are turned, in both senses, and laid down so that the second step finds the points of `lanes`
/// results side by side.
static void fftTwoSteps(const FftTables& t, const float* src, float* dst, float* work) {
    const std::ptrdiff_t length1 = t.rows.length, length2 = t.columns.length;
    float* buffer = work + 2 * length1 * length2;
    const float* fine = t.fineTwiddles;
    for (std::ptrdiff_t column = 0; column < length2; column += lanes) {
        const float* coarse = t.twiddles + 2 * (column / lanes) * length1;
        firstStep(t.rows, src + 2 * column, 2 * length2, buffer, [=](std::ptrdiff_t row) HXR_INLINE {
            return splatComplex(coarse + 2 * row) * loadSplit(fine + row * rowFloats);
        });
        for (std::ptrdiff_t k = 0; k < length1; k += lanes) {
            Complex a[lanes];
            loadSquare(buffer, t.rows.order + k, a);
            float* out = work + 2 * (k * length2 + column * lanes);
            for (int c = 0; c < lanes; ++c) storeSplit(out + c * rowFloats, a[c]);
        }
    }
    const std::ptrdiff_t step = rowFloats * length2;
    const int radix = t.columns.pass[t.columns.passes - 1].radix;
    for (std::ptrdiff_t k = 0; k < length1; k += groupsTogether * lanes) {
        float* rows = work + 2 * k * length2;
        for (float* group = rows; group < rows + groupsTogether * step; group += step)
            turningPasses(t.columns, group,
                          [=](std::ptrdiff_t row) HXR_INLINE { return loadSplit(group + row * rowFloats); });
        if (radix == 8)
            lastPass<8>(t.columns, rows, step, dst + 2 * k, 2 * length1);
        else
            lastPass<4>(t.columns, rows, step, dst + 2 * k, 2 * length1);
    }
}

}  // namespace hxr::HXR_KERNEL_SET
