/// The element types of the signal operations. A complex element is two consecutive values, real part first.
#pragma once

#include <cstdint>

namespace hxr {

struct cf32 {
    float re, im;
};

struct cf64 {
    double re, im;
};

struct ci16 {
    std::int16_t re, im;
};

/// Complex samples as pairs of floats.
inline const float* floats(const cf32* p) { return reinterpret_cast<const float*>(p); }
inline float* floats(cf32* p) { return reinterpret_cast<float*>(p); }

static_assert(sizeof(cf32) == 8 && sizeof(cf64) == 16 && sizeof(ci16) == 4);

}  // namespace hxr
