// The vector wrapper in plain C++: 4 lanes, the baseline of processors without one of their own. The tests build and run
// it on every processor. Included by simd.h inside the kernel set's namespace.

inline constexpr int lanes = 4;

struct F32 {
    float v[4];
};
struct I32 {
    std::int32_t v[4];
};
struct F64 {
    double v[2];
};
struct Mask {
    bool v[4];
};

template <typename Result, typename Operation>
HXR_SIMD Result perLane(Operation operation) {
    Result result;
    for (int i = 0; i < static_cast<int>(sizeof(result.v) / sizeof(result.v[0])); ++i)
        result.v[i] = operation(i);
    return result;
}

HXR_SIMD F32 load(const float* p) {
    return perLane<F32>([&](int i) { return p[i]; });
}
HXR_SIMD void store(float* p, F32 a) {
    for (int i = 0; i < 4; ++i) p[i] = a.v[i];
}
HXR_SIMD F32 splat(float x) { return {{x, x, x, x}}; }

HXR_SIMD F32 operator+(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] + b.v[i]; });
}
HXR_SIMD F32 operator-(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] - b.v[i]; });
}
HXR_SIMD F32 operator*(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] * b.v[i]; });
}
HXR_SIMD F32 operator/(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] / b.v[i]; });
}
HXR_SIMD F32 mulAdd(F32 a, F32 b, F32 c) { return a * b + c; }
HXR_SIMD F32 mulSub(F32 a, F32 b, F32 c) { return a * b - c; }
HXR_SIMD F32 negMulAdd(F32 a, F32 b, F32 c) { return c - a * b; }
HXR_SIMD F32 squareRoot(F32 a) {
    return perLane<F32>([&](int i) { return __builtin_sqrtf(a.v[i]); });
}
HXR_SIMD F32 larger(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] > b.v[i] ? a.v[i] : b.v[i]; });
}
HXR_SIMD F32 smaller(F32 a, F32 b) {
    return perLane<F32>([&](int i) { return a.v[i] < b.v[i] ? a.v[i] : b.v[i]; });
}

HXR_SIMD Mask less(F32 a, F32 b) {
    return perLane<Mask>([&](int i) { return a.v[i] < b.v[i]; });
}
HXR_SIMD Mask equal(F32 a, F32 b) {
    return perLane<Mask>([&](int i) { return !(a.v[i] < b.v[i]) && !(b.v[i] < a.v[i]) && a.v[i] <= b.v[i]; });
}
HXR_SIMD Mask both(Mask a, Mask b) {
    return perLane<Mask>([&](int i) { return a.v[i] && b.v[i]; });
}
HXR_SIMD bool inAllLanes(Mask m) { return m.v[0] && m.v[1] && m.v[2] && m.v[3]; }
HXR_SIMD F32 select(Mask m, F32 yes, F32 no) {
    return perLane<F32>([&](int i) { return m.v[i] ? yes.v[i] : no.v[i]; });
}

HXR_SIMD I32 splatInt(int x) { return {{x, x, x, x}}; }
HXR_SIMD std::int32_t wrapped(std::int64_t x) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(x));
}
HXR_SIMD I32 operator+(I32 a, I32 b) {
    return perLane<I32>([&](int i) { return wrapped(std::int64_t{a.v[i]} + b.v[i]); });
}
HXR_SIMD I32 operator-(I32 a, I32 b) {
    return perLane<I32>([&](int i) { return wrapped(std::int64_t{a.v[i]} - b.v[i]); });
}
HXR_SIMD I32 operator&(I32 a, I32 b) {
    return perLane<I32>([&](int i) { return a.v[i] & b.v[i]; });
}
HXR_SIMD bool noneHas(I32 bits, I32 a) { return ((a.v[0] | a.v[1] | a.v[2] | a.v[3]) & bits.v[0]) == 0; }
template <int bits>
HXR_SIMD I32 shiftLeft(I32 a) {
    return perLane<I32>([&](int i) { return wrapped(std::int64_t{a.v[i]} << bits); });
}
template <int bits>
HXR_SIMD I32 shiftRight(I32 a) {
    return perLane<I32>([&](int i) { return a.v[i] >> bits; });
}
HXR_SIMD I32 bitsOf(F32 a) {
    return perLane<I32>([&](int i) { return __builtin_bit_cast(std::int32_t, a.v[i]); });
}
HXR_SIMD F32 fromBits(I32 a) {
    return perLane<F32>([&](int i) { return __builtin_bit_cast(float, a.v[i]); });
}
HXR_SIMD F32 toFloat(I32 a) {
    return perLane<F32>([&](int i) { return static_cast<float>(a.v[i]); });
}
/// Values out of range, and NaN, give the least integer, as vector units do.
HXR_SIMD std::int32_t toInt(float x) {
    return x >= -2147483648.0F && x < 2147483648.0F ? static_cast<std::int32_t>(x) : -2147483647 - 1;
}
HXR_SIMD I32 nearest(F32 a) {
    return perLane<I32>([&](int i) { return toInt(__builtin_rintf(a.v[i])); });
}
HXR_SIMD I32 truncated(F32 a) {
    return perLane<I32>([&](int i) { return toInt(a.v[i]); });
}

HXR_SIMD F32 loadI16(const std::int16_t* p) {
    return perLane<F32>([&](int i) { return static_cast<float>(p[i]); });
}
HXR_SIMD std::int16_t saturated(std::int32_t x) {
    return static_cast<std::int16_t>(x < -32768 ? -32768 : x > 32767 ? 32767 : x);
}
HXR_SIMD void storeI16(std::int16_t* p, I32 a, I32 b) {
    for (int i = 0; i < 4; ++i) {
        p[i] = saturated(a.v[i]);
        p[4 + i] = saturated(b.v[i]);
    }
}

HXR_SIMD F64 loadF64(const double* p) { return {{p[0], p[1]}}; }
HXR_SIMD void storeF64(double* p, F64 a) {
    p[0] = a.v[0];
    p[1] = a.v[1];
}
HXR_SIMD F64 zeroF64() { return {{0.0, 0.0}}; }
HXR_SIMD F64 operator+(F64 a, F64 b) { return {{a.v[0] + b.v[0], a.v[1] + b.v[1]}}; }
HXR_SIMD F64 operator*(F64 a, F64 b) { return {{a.v[0] * b.v[0], a.v[1] * b.v[1]}}; }
HXR_SIMD F64 lowerHalfToF64(F32 a) { return {{double{a.v[0]}, double{a.v[1]}}}; }
HXR_SIMD F64 upperHalfToF64(F32 a) { return {{double{a.v[2]}, double{a.v[3]}}}; }

HXR_SIMD F32 reversed(F32 a) { return {{a.v[3], a.v[2], a.v[1], a.v[0]}}; }

struct Complex {
    F32 re, im;
};
HXR_SIMD Complex pairs(F32 a, F32 b) {
    return {{{a.v[0], a.v[2], b.v[0], b.v[2]}}, {{a.v[1], a.v[3], b.v[1], b.v[3]}}};
}
HXR_SIMD void storePairs(float* p, Complex a) {
    for (int i = 0; i < 4; ++i) {
        p[2 * i] = a.re.v[i];
        p[2 * i + 1] = a.im.v[i];
    }
}
HXR_SIMD F32 inElementOrder(F32 a) { return a; }
HXR_SIMD F32 swapPairs(F32 a) { return {{a.v[1], a.v[0], a.v[3], a.v[2]}}; }
HXR_SIMD F32 addSub(F32 a, F32 b) {
    return {{a.v[0] - b.v[0], a.v[1] + b.v[1], a.v[2] - b.v[2], a.v[3] + b.v[3]}};
}
HXR_SIMD F32 loadFirst(const float* p, int count) {
    F32 first{};
    for (int i = 0; i < count; ++i) first.v[i] = p[i];
    return first;
}
HXR_SIMD void storeFirst(float* p, F32 a, int count) {
    for (int i = 0; i < count; ++i) p[i] = a.v[i];
}
HXR_SIMD void storePairSum(float* p, F32 a) {
    p[0] = a.v[0] + a.v[2];
    p[1] = a.v[1] + a.v[3];
}
HXR_SIMD void loadTransposed(const float* const* rows, F32* out) {
    for (int c = 0; c < 4; ++c) out[c] = {{rows[0][c], rows[1][c], rows[2][c], rows[3][c]}};
}
