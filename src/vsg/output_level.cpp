#include "vsg/output_level.h"

#include <cmath>

namespace hxr {

OutputLevel outputLevelFor(float dBm, std::span<const float, attenuatorSteps> levels) {
    std::size_t step = levels.size() - 1;
    while (step > 0 && !(levels[step] > dBm)) --step;

    constexpr double measuredScale = 0.5;
    const float decades = (dBm - levels[step]) / 20.0F;
    const auto scale = static_cast<float>(measuredScale * std::pow(10.0, double{decades}));
    return {static_cast<std::uint32_t>(step), std::isnan(scale) ? 0.0F : scale};
}

}  // namespace hxr
