#include "stream/filter_design.h"

namespace hxr {

// Two to the 19th is a gain of 1; with their mirror image the words add up to 4 less, which is lost in
// rounding.
// clang-format off
const std::array<std::int32_t, decimationWords> defaultDecimationWords = {
        -1,      8,     11,     15,     15,     10,      0,    -15,    -30,    -37,
       -33,    -15,     14,     48,     73,     78,     55,      6,    -57,   -116,
      -146,   -131,    -64,     39,    153,    235,    250,    179,     30,   -158,
      -326,   -410,   -364,   -181,     96,    388,    594,    625,    443,     76,
      -373,   -764,   -948,   -830,   -407,    218,    859,   1294,   1343,    934,
       147,   -797,  -1594,  -1949,  -1679,   -797,    472,   1745,   2581,   2638,
      1797,    234,  -1607,  -3131,  -3773,  -3203,  -1462,   1003,   3441,   5015,
      5071,   3392,    319,  -3286,  -6264,  -7505,  -6332,  -2783,   2293,   7405,
     10806,  11025,   7391,    381,  -8324, -16137, -20152, -17906,  -8099,   8920,
     31053,  54792,  75936,  90521,  95722,
};
// clang-format on

}  // namespace hxr
