/// What an application has set, in records that an engine copies whole when it is configured.
#pragma once

#include <algorithm>
#include <array>
#include <complex>
#include <cstdint>
#include <numbers>
#include <string>
#include <vector>

#include "link/words.h"

namespace hxr {

inline constexpr std::size_t mostUnits = 4;
inline constexpr std::size_t mostChannels = mostUnits * words::channelsPerUnit;

/// One value for each channel of a group.
template <typename T>
using PerChannel = std::array<T, mostChannels>;

template <typename T>
constexpr PerChannel<T> forAllChannels(const T& value) {
    PerChannel<T> values;
    values.fill(value);
    return values;
}

/// The channels of a group; held by its master.
struct ChannelSettings {
    std::int32_t channelCount = words::channelsPerUnit;  ///< 4 for each unit of the group
    std::int32_t focusChannel = -1;                      ///< the channel that sweeps, -1 for none
    PerChannel<bool> channelEnabled{};
    PerChannel<bool> channelShared{};                      ///< the channel uses `sharedFreq`
    PerChannel<double> channelFreq = forAllChannels(1e9);  ///< Hz
    PerChannel<double> channelPhaseOffset{};               ///< radians, negated and in 0 to 2 pi
    PerChannel<double> channelDelay{};                     ///< seconds
    PerChannel<std::int32_t> vrtStreamId = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    PerChannel<double> streamCorrection = forAllChannels(1.0);  ///< linear factor, written by the stream plan
    double sharedFreq = 1e9;                                    ///< Hz
};

/// A block of the tone at 3/16 of the sample rate: where the generator works, and what moves a pattern there.
inline std::array<std::complex<float>, 16> generatorOffset() {
    std::array<std::complex<float>, 16> block;
    for (std::size_t n = 0; n < block.size(); ++n) {
        block[n] =
            std::complex<float>(std::polar(1.0, 2 * std::numbers::pi * 3 * static_cast<double>(n) / 16));
    }
    return block;
}

/// The tone alone.
inline std::vector<std::complex<float>> defaultGeneratorPattern() {
    const auto block = generatorOffset();
    return {block.begin(), block.end()};
}

/// Output level that means that none is set.
inline constexpr float noOutputLevel = 1000.0F;

/// The generator's attenuator takes its step as a code.
inline constexpr std::uint32_t generatorCodesPerStep = 4;

struct GeneratorSettings {
    bool vsgEnabled = false;
    float vsgOutputLevel = noOutputLevel;  ///< dBm
    std::uint32_t vsgAtten = 8;            ///< four times the attenuator step 0 to 7
    float vsgScale = 0.5F;                 ///< amplitude scale, written by the generator plan
    std::vector<std::complex<float>> vsgPattern = defaultGeneratorPattern();
};

struct StreamSettings {
    bool streamActive = false;        ///< a channel streams
    std::int32_t streamDataType = 0;  ///< 0 16-bit, 1 float
    bool streamFullScale = false;     ///< full scale stays at 1.0
    double streamRefLevel = -20.0;    ///< dBm
    double streamAtten = 0;           ///< index 0 to 6, -1 automatic
    std::int32_t decimation = 1;
    std::int32_t hardwareDecimation = 1;
    std::int32_t hostDecimation = 1;
    double streamBandwidth = 4e7;        ///< Hz
    double hardwareBandwidth = 4e7;      ///< Hz
    double outputBandwidth = 4e7;        ///< Hz
    std::int32_t streamTriggerEdge = 0;  ///< 0 rising, 1 falling
};

struct SweepSettings {
    bool sweepActive = false;           ///< a focus channel is enabled
    double sweepRefLevel = -20.0;       ///< dBm
    double sweepAtten = -1.0;           ///< index 0 to 6, -1 automatic
    double sweepCenter = 1e10;          ///< Hz
    double sweepSpan = 1e9;             ///< Hz
    double sweepRBW = 10000;            ///< Hz
    double sweepVBW = 10000;            ///< Hz
    double sweepTime = 0.001;           ///< seconds
    std::uint32_t sweepDetector = 2;    ///< 0 to 2
    std::uint32_t sweepVideoUnits = 2;  ///< 0 to 3
    std::uint32_t sweepScale = 0;       ///< 0 to 2
    std::uint32_t sweepWindow = 0;      ///< 0 to 2
};

/// What a sweep plan has made of the settings.
struct SweepResult {
    double actualRBW = 0;     ///< Hz
    double actualVBW = 0;     ///< Hz
    std::int32_t points = 0;  ///< of the trace
    double startFreq = 0;     ///< Hz, of the first point
    double binSize = 0;       ///< Hz between two points
    double windowFactor = 0;  ///< noise bandwidth of the window, in bins of its length
};

inline constexpr std::int32_t defaultContextInterval = 63;

/// Where a unit sends its samples. Held by each unit of a group; VRT destinations by input, in the first
/// four.
struct StreamOutputSettings {
    bool localStream = true;  ///< samples come to this library, not to VRT addresses
    std::uint16_t streamPort = 4991;
    bool vrtContextEnabled = true;
    std::int32_t vrtContextInterval = defaultContextInterval;
    std::uint32_t vrtEndianness = 0;  ///< 1 is little-endian
    PerChannel<std::string> vrtDestAddress = forAllChannels<std::string>("192.168.2.2");
    PerChannel<std::uint16_t> vrtDestPort = forAllChannels<std::uint16_t>(4991);
    PerChannel<std::uint64_t> vrtDestMAC{};  ///< 48-bit hardware addresses
};

inline constexpr std::uint16_t middleOfTimebase = 0x8000;

/// Where a unit's timebase stands. It moves while the unit disciplines itself, so each status may change it.
struct TimebaseState {
    bool holdoverValid = false;            ///< a holdover record was found when the unit was opened
    std::uint64_t holdoverTime = 0;        ///< seconds since 1970 of the record
    std::uint64_t holdoverCoarseTune = 0;  ///< its value, in the low 16 bits
    std::uint16_t coarseTune =
        middleOfTimebase;  ///< timebase value without the part that follows temperature
    std::uint16_t timebaseDAC = middleOfTimebase;  ///< what the unit is told
};

/// A unit's reference and fan.
struct EnvironmentSettings {
    bool fanEnabled = true;
    float fanSetPoint = 50.0F;       ///< degrees Celsius
    std::uint32_t reference = 0;     ///< 0 internal, 1 external
    bool gpsTimebaseUpdate = false;  ///< the unit may discipline its timebase to GPS
};

/// All that an application sets on a handle.
struct Settings : EnvironmentSettings,
                  ChannelSettings,
                  GeneratorSettings,
                  StreamSettings,
                  SweepSettings,
                  StreamOutputSettings {};

}  // namespace hxr
