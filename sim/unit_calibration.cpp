#include "sim/unit_calibration.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

using namespace layout;

bool erasedAt(std::span<const std::uint8_t> image, std::size_t offset, std::size_t width) {
    const auto bytes = image.subspan(offset, width);
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == erased; });
}

}  // namespace

UnitCalibration::UnitCalibration(Image image, double temperature)
    : image_(std::move(image)), measured_(!erasedAt(*image_, calDate, sizeof(std::uint64_t))) {
    if (measured_) findTemperature(static_cast<float>(temperature));
}

float UnitCalibration::number(std::size_t offset) const {
    return std::bit_cast<float>(getLittle32(*image_, offset));
}

// Beyond the calibrated temperatures the nearest holds.
void UnitCalibration::findTemperature(float temperature) {
    const auto measuredAt = [this](std::size_t t) { return number(tempAtIndex + sizeof(float) * t); };
    if (measuredAt(0) > temperature) return;
    constexpr std::size_t last = temperatures - 1;
    while (slice_ < last && !(measuredAt(slice_ + 1) > temperature)) ++slice_;
    if (slice_ == last) {
        slice_ = last - 1;
        fraction_ = 1.0f;
        return;
    }
    fraction_ = (temperature - measuredAt(slice_)) / (measuredAt(slice_ + 1) - measuredAt(slice_));
}

float UnitCalibration::atTemperature(std::size_t table, std::size_t slice, std::size_t entry) const {
    const std::size_t at = table + sizeof(float) * (slice_ * slice + entry);
    const float lower = number(at);
    const float upper = number(at + sizeof(float) * slice);
    if (fraction_ == 0.0f) return lower;
    if (fraction_ == 1.0f) return upper;
    return (1.0f - fraction_) * lower + fraction_ * upper;
}

// The table has a row for each 5 dB; between them, and above the last, the attenuator is true.
double UnitCalibration::fullScaleDbm(std::size_t channel, int attenuatorDb, std::size_t k) const {
    constexpr int dbPerRow = 5;
    if (!measured_) return attenuatorDb;
    const int row = std::clamp(attenuatorDb / dbPerRow, 0, static_cast<int>(attenuations) - 1);
    const std::size_t entry = (channel * attenuations + static_cast<std::size_t>(row)) * gridPoints + k;
    return static_cast<double>(atTemperature(gainTable, channels * attenuations * gridPoints, entry)) +
           (attenuatorDb - row * dbPerRow);
}

int UnitCalibration::gainCode(std::size_t channel, std::size_t k) const {
    constexpr int uncalibrated = 8;
    return measured_ ? (*image_)[channelGainCode + channel * gridPoints + k] : uncalibrated;
}

std::array<int, 2> UnitCalibration::feedThrough(std::size_t channel, std::size_t k) const {
    constexpr std::size_t firstRow = 144;
    if (erasedAt(*image_, loftI, sizeof(std::uint16_t))) return {0, 0};
    const std::size_t row = std::clamp(k, firstRow, firstRow + loftPoints - 1) - firstRow;
    const std::size_t at = sizeof(std::uint16_t) * (channel * loftPoints + row);
    const auto offset = [&](std::size_t table) {
        return static_cast<int>(static_cast<std::int16_t>(
            static_cast<std::uint16_t>((*image_)[table + at] | (*image_)[table + at + 1] << 8)));
    };
    return {offset(loftI), offset(loftQ)};
}

// The mean of two measurements, which lie on the circle side by side.
double UnitCalibration::channelPhase(std::size_t channel, std::size_t k) const {
    if (!measured_) return 0.0;
    const std::size_t at = phasePairTable + 2 * sizeof(float) * (channel * gridPoints + k);
    const auto first = static_cast<double>(number(at));
    const auto second = static_cast<double>(number(at + sizeof(float)));
    return first + 0.5 * std::remainder(second - first, 2.0 * std::numbers::pi);
}

GeneratorCalibration UnitCalibration::generator(std::size_t k) const {
    constexpr float neverMeasured = 1000.0f;
    if (erasedAt(*image_, vsgLevel, sizeof(float)) || number(vsgLevel) == neverMeasured)
        return {{8, 4, 0, -4, -8, -12, -16, -20}, 1.0, 0.0, 0.0, 0.0};
    const auto at = [&](std::size_t table) { return static_cast<double>(number(table + sizeof(float) * k)); };
    GeneratorCalibration calibration{{}, at(vsgGain), at(vsgPhase), at(vsgOffsetI), at(vsgOffsetQ)};
    for (std::size_t j = 0; j < vsgSteps; ++j)
        calibration.levelDbm[j] = static_cast<double>(number(vsgLevel + sizeof(float) * (k * vsgSteps + j)));
    return calibration;
}

ResponsePoints UnitCalibration::response(ResponseGrid grid, std::size_t channel, std::size_t k) const {
    ResponsePoints points{};
    points.ratio.fill(1.0);
    if (!measured_) return points;
    const std::size_t firstTable = grid == ResponseGrid::low ? 3 : 0;
    const auto read = [&](std::size_t table, auto& values) {
        const ResponseTable& from = responseTables[firstTable + table];
        const std::size_t entry = (channel * from.rows + k) * responsePoints;
        for (std::size_t p = 0; p < responsePoints; ++p) {
            values[p] = static_cast<double>(
                atTemperature(from.offset, channels * from.rows * responsePoints, entry + p));
        }
    };
    read(0, points.ratio);
    read(1, points.phase);
    read(2, points.levelDb);
    return points;
}

}  // namespace hxr::sim
