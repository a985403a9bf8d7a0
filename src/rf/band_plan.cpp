#include "rf/band_plan.h"

#include <algorithm>
#include <atomic>
#include <limits>

namespace hxr {
namespace {

constexpr float noEdge = std::numeric_limits<float>::infinity();

// clang-format off
constexpr std::array<Band, bandCount> bands{{
    // upper edge, Hz  preselector  routing
    {       45e6F,          1,     0x00103F},
    {       64e6F,         16,     0x003217},
    {       93e6F,         24,     0x003216},
    {      143e6F,         48,     0x003211},
    {      200e6F,          0,     0x003214},
    {      290e6F,          8,     0x003210},
    {      440e6F,         56,     0x003215},
    {      620e6F,         32,     0x003212},
    {      950e6F,         40,     0x003213},
    {     1.15e9F,         50,     0x00152E},
    {     1.56e9F,         11,     0x00152C},
    {      1.8e9F,         12,     0x00152C},
    {      2.2e9F,         44,     0x00152B},
    {        3e9F,         45,     0x00152B},
    {      3.9e9F,         31,     0x001529},
    {      4.5e9F,         31,     0x001528},
    {      5.6e9F,         30,     0x001528},
    {      8.5e9F,          0,     0x001020},
    {    13.25e9F,          0,     0x001020},
    {      noEdge,          0,     0x001820},
}};
// clang-format on

// One band for the whole process; plans are made on several threads when several units are configured.
constexpr std::int64_t automatic = std::numeric_limits<std::int64_t>::min();
std::atomic<std::int64_t> manualBand = automatic;

}  // namespace

// clang-format off
const std::array<LowStepSplice, 14> lowStepSplices{{
    // inverted step cal      LO, Hz  centre, Hz    band, Hz  64ths
    { true,  1, 1,  39'062'500,  23'437'500,           0,  7, 57},
    { true,  2, 2,  39'062'500,   7'812'500,           0, 37, 47},
    {false,  2, 2,  78'125'000,  54'687'500,  50'000'000, 17, 44},
    {false,  2, 2,  78'125'000,  54'687'500,  80'000'000, 44, 57},
    {false,  3, 3, 117'187'500,  93'750'000,  80'000'000,  7, 31},
    {false,  3, 3, 117'187'500,  93'750'000, 120'000'000, 31, 57},
    {false,  4, 4, 156'250'000, 132'812'500, 120'000'000,  7, 45},
    {false,  4, 5, 156'250'000, 132'812'500, 150'000'000, 45, 57},
    {false,  5, 5, 195'312'500, 171'875'000, 150'000'000,  7, 57},
    {false,  6, 5, 234'375'000, 210'937'500, 150'000'000,  7, 18},
    {false,  6, 6, 234'375'000, 210'937'500, 250'000'000, 18, 57},
    {false,  7, 7, 273'437'500, 250'000'000, 250'000'000,  7, 57},
    {false,  8, 8, 312'500'000, 289'062'500, 250'000'000,  7, 33},
    {false,  8, 9, 312'500'000, 289'062'500, 350'000'000, 33, 57},
}};
// clang-format on

const Band& bandSettings(int band) {
    return bands[static_cast<std::size_t>(std::clamp(band, 0, bandCount - 1))];
}

int bandForFrequency(float hz) {
    const std::int64_t manual = manualBand;
    if (manual != automatic) return static_cast<int>(manual);
    const auto above =
        std::find_if(bands.begin(), bands.end() - 1, [&](const Band& band) { return hz < band.upperEdgeHz; });
    return static_cast<int>(above - bands.begin());
}

void useManualBand(std::int32_t band) { manualBand = band; }

void useAutomaticBands() { manualBand = automatic; }

std::span<const LowStepSplice> rowsForStep(int step) {
    const auto belongs = [step](const LowStepSplice& row) { return static_cast<int>(row.step) == step; };
    const auto first = std::find_if(lowStepSplices.begin(), lowStepSplices.end(), belongs);
    return {first, std::find_if_not(first, lowStepSplices.end(), belongs)};
}

int attenuatorIndexFor(double referenceLevelDbm, int requestedIndex) {
    if (requestedIndex >= 0) return requestedIndex;
    constexpr double lowestDbm = -20.0;
    constexpr double stepDb = 5.0;
    constexpr int mostSteps = 6;
    for (int index = 0; index < mostSteps; ++index)
        if (referenceLevelDbm <= lowestDbm + index * stepDb) return index;
    return mostSteps;
}

}  // namespace hxr
