// FIR filters in direct form. Taps come in the order of the samples that they meet, so newest last. A complex
// tap costs two products; most filters are real, and their kernels do without the second.

namespace hxr::HXR_KERNEL_SET {

/// re + j im, both complex results of real taps, in interleaved form.
HXR_SIMD F32 joined(F32 re, F32 im) { return addSub(re, swapPairs(im)); }

/// Full rate: each accumulator holds lanes / 2 neighbouring outputs, and each tap is met by all of them.
template <bool complexTaps, int accumulators>
HXR_SIMD void firOutputs(const float* samples, const float* taps, int length, F32* result) {
    F32 re[accumulators], im[accumulators];
    for (int u = 0; u < accumulators; ++u) re[u] = im[u] = splat(0.0F);
    for (std::ptrdiff_t k = 0; k < length; ++k) {
        const F32 tapRe = splat(taps[2 * k]);
        for (int u = 0; u < accumulators; ++u)
            re[u] = mulAdd(tapRe, load(samples + 2 * k + u * lanes), re[u]);
        if constexpr (complexTaps) {
            const F32 tapIm = splat(taps[2 * k + 1]);
            for (int u = 0; u < accumulators; ++u)
                im[u] = mulAdd(tapIm, load(samples + 2 * k + u * lanes), im[u]);
        }
    }
    for (int u = 0; u < accumulators; ++u) result[u] = complexTaps ? joined(re[u], im[u]) : re[u];
}

template <bool complexTaps>
static void firDirect(const float* samples, const float* taps, int length, float* dst, int n) {
    constexpr int accumulators = complexTaps ? 4 : 8;
    const std::ptrdiff_t floats = 2 * std::ptrdiff_t{n};
    std::ptrdiff_t i = 0;
    for (; i + accumulators * lanes <= floats; i += accumulators * lanes) {
        F32 result[accumulators];
        firOutputs<complexTaps, accumulators>(samples + i, taps, length, result);
        for (int u = 0; u < accumulators; ++u) store(dst + i + u * lanes, result[u]);
    }
    for (; i + lanes <= floats; i += lanes) {
        F32 result;
        firOutputs<complexTaps, 1>(samples + i, taps, length, &result);
        store(dst + i, result);
    }
    for (; i < floats; i += 2) {
        float re = 0.0F, im = 0.0F;
        for (std::ptrdiff_t k = 0; k < 2 * std::ptrdiff_t{length}; k += 2) {
            re += taps[k] * samples[i + k] - (complexTaps ? taps[k + 1] * samples[i + k + 1] : 0.0F);
            im += taps[k] * samples[i + k + 1] + (complexTaps ? taps[k + 1] * samples[i + k] : 0.0F);
        }
        dst[i] = re;
        dst[i + 1] = im;
    }
}

/// Sums of products for outputs that lie `step` floats apart. The taps stand twice each, (re, re) and in a
/// second array (im, im), so that one load of them serves all outputs.
template <bool complexTaps, int outputs>
HXR_SIMD void firDots(const float* samples, std::ptrdiff_t step, const float* tapsRe, const float* tapsIm,
                      std::ptrdiff_t floats, float* dst) {
    F32 re[outputs], im[outputs];
    for (int j = 0; j < outputs; ++j) re[j] = im[j] = splat(0.0F);
    std::ptrdiff_t k = 0;
    for (; k + lanes <= floats; k += lanes) {
        const F32 tapRe = load(tapsRe + k);
        for (int j = 0; j < outputs; ++j) re[j] = mulAdd(tapRe, load(samples + j * step + k), re[j]);
        if constexpr (complexTaps) {
            const F32 tapIm = load(tapsIm + k);
            for (int j = 0; j < outputs; ++j) im[j] = mulAdd(tapIm, load(samples + j * step + k), im[j]);
        }
    }
    if (k < floats) {
        const int rest = static_cast<int>(floats - k);
        const F32 tapRe = loadFirst(tapsRe + k, rest);
        for (int j = 0; j < outputs; ++j)
            re[j] = mulAdd(tapRe, loadFirst(samples + j * step + k, rest), re[j]);
        if constexpr (complexTaps) {
            const F32 tapIm = loadFirst(tapsIm + k, rest);
            for (int j = 0; j < outputs; ++j)
                im[j] = mulAdd(tapIm, loadFirst(samples + j * step + k, rest), im[j]);
        }
    }
    for (int j = 0; j < outputs; ++j) storePairSum(dst + 2 * j, complexTaps ? joined(re[j], im[j]) : re[j]);
}

template <bool complexTaps>
static void firDecimate(const float* samples, int factor, const float* tapsRe, const float* tapsIm,
                        int length, float* dst, int n) {
    constexpr int outputs = complexTaps ? 4 : 8;
    const std::ptrdiff_t step = 2 * std::ptrdiff_t{factor}, floats = 2 * std::ptrdiff_t{length};
    std::ptrdiff_t j = 0;
    for (; j + outputs <= n; j += outputs)
        firDots<complexTaps, outputs>(samples + j * step, step, tapsRe, tapsIm, floats, dst + 2 * j);
    for (; j < n; ++j) firDots<complexTaps, 1>(samples + j * step, step, tapsRe, tapsIm, floats, dst + 2 * j);
}

}  // namespace hxr::HXR_KERNEL_SET
