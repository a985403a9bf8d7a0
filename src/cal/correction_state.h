#pragma once

#include <cstdint>

#include "hxr_api.h"
#include "platform/aligned_memory.h"

namespace hxr {

/// What service calls put in place of the unit's temperature and of its calibration.
struct CorrectionOverrides {
    bool manualTemp = false;           ///< the temperature index is forced
    std::int32_t manualTempIndex = 0;  ///< the forced index
    bool loftOverride = false;         ///< the two values below stand for the LO feed-through tables
    std::int32_t loftOverrideI = 0;
    std::int32_t loftOverrideQ = 0;
};

/// What corrections are looked up from: the working image, and where the present temperature lies on its
/// axis.
///
/// The image is written while a unit is attached and by a manual load on an idle unit; between these any
/// thread reads it. The other fields belong to the thread that configures.
struct CorrectionState : CorrectionOverrides {
    platform::AlignedPointer<HXRCalData> image;  ///< the working image
    float temperature = 0;                       ///< the last temperature given, degrees Celsius
    std::int32_t tempIndex = 0;                  ///< lower calibration index of the present temperature
    double tempFraction = 0;                     ///< position between `tempIndex` and the next, 0 to 1
};

}  // namespace hxr
