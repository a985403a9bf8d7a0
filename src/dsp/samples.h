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

static_assert(sizeof(cf32) == 8 && sizeof(cf64) == 16 && sizeof(ci16) == 4);

}  // namespace hxr
