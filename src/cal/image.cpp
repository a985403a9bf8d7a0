#include "cal/image.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace hxr::cal {
namespace {

constexpr std::byte erasedByte{0xFF};
constexpr int temperatureCount = 7;
constexpr double degreesPerIndex = 15.0;
constexpr double coldestDegrees = -30.0;

constexpr std::size_t pretestStart = 0x40000;
constexpr std::size_t chamberStart = 0x80000;

// The layout is the flash's, so a field that moved would be read from the wrong place without a word.
static_assert(imageSize == 0x800000);
static_assert(sizeof(HXRCBBData) == pretestStart);
static_assert(offsetof(HXRCBBData, cbbHighTable) == 7699);
static_assert(offsetof(HXRCBBData, unused) == 16159);
static_assert(offsetof(HXRCalData, loftI) == pretestStart);
static_assert(offsetof(HXRCalData, loftQ) == 0x040B90);
static_assert(offsetof(HXRCalData, vsgLevel) == 0x041720);
static_assert(offsetof(HXRCalData, vsgGain) == 0x045760);
static_assert(offsetof(HXRCalData, vsgPhase) == 0x045F68);
static_assert(offsetof(HXRCalData, vsgOffsetI) == 0x046770);
static_assert(offsetof(HXRCalData, vsgOffsetQ) == 0x046F78);
static_assert(offsetof(HXRCalData, reserved0) == chamberStart);
static_assert(offsetof(HXRCalData, serialNumber) == 0x080008);
static_assert(offsetof(HXRCalData, calDate) == 0x080010);
static_assert(offsetof(HXRCalData, checksum) == 0x08001C);
static_assert(offsetof(HXRCalData, coarseTuneLog) == 0x080020);
static_assert(offsetof(HXRCalData, coarseTuneDate) == 0x0800A0);
static_assert(offsetof(HXRCalData, coarseTuneByTemp) == 0x0802A0);
static_assert(offsetof(HXRCalData, tempAtIndex) == 0x0802B0);
static_assert(offsetof(HXRCalData, channelGainCode) == 0x0802CC);
static_assert(offsetof(HXRCalData, gainTable) == 0x080AD4);
static_assert(offsetof(HXRCalData, fullGridRatio) == 0x0E30F4);
static_assert(offsetof(HXRCalData, fullGridPhase) == 0x2507B4);
static_assert(offsetof(HXRCalData, fullGridLevel) == 0x3BDE74);
static_assert(offsetof(HXRCalData, lowGridRatio) == 0x52B534);
static_assert(offsetof(HXRCalData, lowGridPhase) == 0x595F74);
static_assert(offsetof(HXRCalData, lowGridLevel) == 0x6009B4);
static_assert(offsetof(HXRCalData, phasePairTable) == 0x66B3F4);
static_assert(offsetof(HXRCalData, chamberUnused) == 0x66F434);

/// Sum of little-endian words, wrapping at 32 bits.
std::uint32_t sumOfWords(std::span<const std::byte> bytes) {
    std::uint32_t sum = 0;
    for (std::size_t offset = 0; offset < bytes.size(); offset += sizeof(std::uint32_t)) {
        std::uint32_t word;
        std::memcpy(&word, bytes.data() + offset, sizeof word);
        sum += word;
    }
    return sum;
}

/// The bytes of an image from one field up to another.
std::span<const std::byte> between(const HXRCalData& image, std::size_t first, std::size_t end) {
    return bytesOf(image).subspan(first, end - first);
}

template <typename Table>
void fillTable(Table& table, float value) {
    auto* const first = reinterpret_cast<float*>(&table);
    std::fill_n(first, sizeof table / sizeof(float), value);
}

}  // namespace

void fillErased(HXRCalData& image) {
    const auto bytes = bytesOf(image);
    std::fill(bytes.begin(), bytes.end(), erasedByte);
}

bool isErased(std::span<const std::byte> bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == erasedByte; });
}

bool hasFlashHeader(const HXRCalData& image) {
    return !isErased(between(image, chamberStart, offsetof(HXRCalData, checksum)));
}

bool hasTuningData(const HXRCBBData& data) {
    constexpr std::size_t head = 16;
    return !isErased(std::as_bytes(std::span(&data, 1)).first(head));
}

bool hasPretestCorrections(const HXRCalData& image) {
    constexpr std::int16_t erased = -1;
    return image.loftI[0][0] != erased;
}

bool checksumPasses(const HXRCalData& image) {
    // The blanked words count as erased ones, all ones: each of them takes one from the sum.
    constexpr std::size_t historyEnd = offsetof(HXRCalData, coarseTuneByTemp);
    constexpr std::size_t blankedBytes =
        chamberStart + sizeof image.checksum + historyEnd - offsetof(HXRCalData, coarseTuneLog);
    const std::uint32_t sum = sumOfWords(between(image, chamberStart, offsetof(HXRCalData, checksum))) +
                              sumOfWords(between(image, historyEnd, imageSize)) -
                              static_cast<std::uint32_t>(blankedBytes / sizeof(std::uint32_t));
    return sum == image.checksum;
}

void copyPretestSection(const HXRCalData& from, HXRCalData& to) {
    const auto section = between(from, pretestStart, chamberStart);
    std::copy(section.begin(), section.end(), bytesOf(to).begin() + pretestStart);
}

void copyChamberSection(const HXRCalData& from, HXRCalData& to) {
    const auto section = bytesOf(from).subspan(chamberStart);
    std::copy(section.begin(), section.end(), bytesOf(to).begin() + chamberStart);
}

void buildDummyCorrections(HXRCalData& image) {
    fillErased(image);

    // The mark of a unit without generator data; the last attenuator step stays as erased.
    constexpr float noGeneratorLevel = 1000.0F;
    for (auto& levels : image.vsgLevel) std::fill(std::begin(levels), std::end(levels) - 1, noGeneratorLevel);
    fillTable(image.vsgGain, 1.0F);
    fillTable(image.vsgPhase, 0.0F);
    fillTable(image.vsgOffsetI, 0.0F);
    fillTable(image.vsgOffsetQ, 0.0F);

    std::fill(std::begin(image.coarseTuneByTemp), std::end(image.coarseTuneByTemp), std::int16_t{0});
    constexpr std::uint8_t middleGain = 8;
    for (auto& codes : image.channelGainCode) std::fill(std::begin(codes), std::end(codes), middleGain);
    fillTable(image.gainTable, 0.0F);
    fillTable(image.fullGridRatio, 1.0F);
    fillTable(image.fullGridPhase, 0.0F);
    fillTable(image.fullGridLevel, 0.0F);
    fillTable(image.lowGridRatio, 1.0F);
    fillTable(image.lowGridPhase, 0.0F);
    fillTable(image.lowGridLevel, 0.0F);
    fillTable(image.phasePairTable, 0.0F);
}

void propagateSingleTempCal(HXRCalData& image, int source, int destination) {
    const auto onAxis = [](int index) { return index >= 0 && index < temperatureCount; };
    if (source == destination || !onAxis(source) || !onAxis(destination)) return;
    image.coarseTuneByTemp[destination] = image.coarseTuneByTemp[source];
    // The distance is formed in double precision and rounded before it is added.
    image.tempAtIndex[destination] =
        image.tempAtIndex[source] + static_cast<float>(degreesPerIndex * (destination - source));

    const auto copySlice = [&](auto& table) {
        std::memcpy(&table[destination], &table[source], sizeof table[0]);
    };
    copySlice(image.gainTable);
    copySlice(image.fullGridRatio);
    copySlice(image.fullGridPhase);
    copySlice(image.fullGridLevel);
    copySlice(image.lowGridRatio);
    copySlice(image.lowGridPhase);
    copySlice(image.lowGridLevel);
}

double temperatureOfIndex(int index) {
    return std::clamp(index, 0, temperatureCount - 1) * degreesPerIndex + coldestDegrees;
}

}  // namespace hxr::cal
