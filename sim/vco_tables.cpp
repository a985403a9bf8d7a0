#include "sim/vco_tables.h"

#include <algorithm>
#include <cmath>

#include "sim/image_layout.h"

namespace hxr::sim {
namespace {

using namespace layout;

constexpr std::size_t lowTables = 5;
constexpr std::size_t sharedTable = 4;

}  // namespace

VcoSetting VcoTables::at(std::size_t section, std::size_t tables, std::size_t points, std::size_t table,
                         double position) const {
    // The DDS misses a frequency by some microhertz.
    constexpr double rounding = 1e-6;
    const double nearest = std::ceil(position - 0.5 - rounding);
    const auto point = static_cast<std::size_t>(std::clamp(nearest, 0.0, static_cast<double>(points - 1)));
    const std::size_t plane = tables * points;
    const std::uint8_t* const first = image_->data() + section + table * points + point;
    return {first[0], first[plane], first[2 * plane]};
}

VcoSetting VcoTables::low(std::size_t channel, double vcoHz) const {
    return at(cbbLow, lowTables, cbbLowPoints, channel, (vcoHz - 4e9) / 7'812'500.0);
}

VcoSetting VcoTables::high(std::size_t channel, double vcoHz) const {
    return at(cbbHigh, channels, cbbHighPoints, channel, (vcoHz - 11e9) / 15'625'000.0);
}

VcoSetting VcoTables::shared(double vcoHz) const {
    return at(cbbLow, lowTables, cbbLowPoints, sharedTable, (vcoHz - 8e9) / 15'625'000.0);
}

bool hasTuningData(const std::vector<std::uint8_t>& image) {
    return std::any_of(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(loftI),
                       [](std::uint8_t byte) { return byte != erased; });
}

}  // namespace hxr::sim
