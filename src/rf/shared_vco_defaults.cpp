#include "rf/shared_vco_defaults.h"

namespace hxr {

// Core, band and bias; six rows a line. Core 2 begins at row 90, core 4 at 221, core 8 at 366. In each core the band
// falls as the frequency rises.
constexpr std::array<SharedVcoDefault, 513> sharedVcoDefaults{{
#include "rf/shared_vco_defaults.inc"
}};

}  // namespace hxr
