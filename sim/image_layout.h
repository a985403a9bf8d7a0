#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Where the factory's data stand in the calibration image. All fields are least significant byte first.
namespace hxr::sim::layout {

inline constexpr std::uint8_t erased = 0xFF;

inline constexpr std::size_t channels = 4;
inline constexpr std::size_t temperatures = 7;
inline constexpr std::size_t attenuations = 7;
inline constexpr std::size_t gridPoints = 514;
inline constexpr std::size_t lowGridPoints = 150;
inline constexpr std::size_t responsePoints = 26;

// CBB section: three planes of bytes, each of so many tables of so many points.
inline constexpr std::size_t cbbLow = 4;
inline constexpr std::size_t cbbLowPoints = 513;
inline constexpr std::size_t cbbHigh = 7699;
inline constexpr std::size_t cbbHighPoints = 705;

// Pretest section.
inline constexpr std::size_t loftPoints = 370;
inline constexpr std::size_t vsgSteps = 8;
inline constexpr std::size_t loftI = 0x040000;
inline constexpr std::size_t loftQ = 0x040B90;
inline constexpr std::size_t vsgLevel = 0x041720;
inline constexpr std::size_t vsgGain = 0x045760;
inline constexpr std::size_t vsgPhase = 0x045F68;
inline constexpr std::size_t vsgOffsetI = 0x046770;
inline constexpr std::size_t vsgOffsetQ = 0x046F78;

// Chamber section.
inline constexpr std::size_t chamberHeader = 0x080000;
inline constexpr std::size_t serialNumber = 0x080008;
inline constexpr std::size_t calDate = 0x080010;
inline constexpr std::size_t checksum = 0x08001C;
inline constexpr std::size_t coarseTuneLog = 0x080020;
inline constexpr std::size_t coarseTuneDate = 0x0800A0;
inline constexpr std::size_t coarseTuneByTemp = 0x0802A0;
inline constexpr std::size_t tempAtIndex = 0x0802B0;
inline constexpr std::size_t channelGainCode = 0x0802CC;
inline constexpr std::size_t gainTable = 0x080AD4;
inline constexpr std::size_t phasePairTable = 0x66B3F4;

/// A table over temperature, channel, frequency row and response point, and the values that a typical unit
/// has there.
struct ResponseTable {
    std::size_t offset;
    std::size_t rows;
    float centre;
    float swing;
};

inline constexpr std::array<ResponseTable, 6> responseTables = {{
    {0x0E30F4, gridPoints, 1.0f, 0.03f},     // amplitude ratio of the rails, whole range
    {0x2507B4, gridPoints, 0.0f, 0.04f},     // their phase, radians
    {0x3BDE74, gridPoints, 0.0f, 0.5f},      // level, dB
    {0x52B534, lowGridPoints, 1.0f, 0.02f},  // the same on the low path
    {0x595F74, lowGridPoints, 0.0f, 0.03f},
    {0x6009B4, lowGridPoints, 0.0f, 0.4f},
}};

}  // namespace hxr::sim::layout
