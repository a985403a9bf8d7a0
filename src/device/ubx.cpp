#include "device/ubx.h"

#include <array>
#include <span>

namespace hxr {
namespace {

using words::Word;

struct GpsSetting {
    std::uint32_t key;
    std::uint64_t value;
};

// clang-format off
constexpr GpsSetting reportSettings[] = {
    {0x107A0001, 1},     // UBX messages on its SPI output
    {0x107A0002, 0},     // no NMEA
    {0x30210001, 1000},  // a solution each 1000 ms
    {0x2091000A, 1},     // its position, velocity and time on the SPI output
};
constexpr GpsSetting timePulseSettings[] = {
    {0x20050023, 0},          // rate given as a period
    {0x20050030, 1},          // duty given as a length
    {0x40050002, 1'000'000},  // period, microseconds
    {0x40050003, 1'000'000},  // and with lock
    {0x40050004, 1},          // pulse length, microseconds
    {0x40050005, 50},         // and with lock
    {0x10050007, 1},          // pulses on
    {0x10050009, 1},          // the values with lock count
    {0x1005000B, 1},          // rising edge
    {0x2005000C, 0},          // on UTC's grid
};
// clang-format on

/// Bytes of a setting's value, which its key tells.
int valueBytes(std::uint32_t key) {
    constexpr std::array bytesOfCode{0, 1, 1, 2, 4, 8, 0, 0};
    return bytesOfCode[key >> 28 & 7];
}

/// A frame that sets values in the receiver's memory, until it loses power.
class ValueFrame {
  public:
    void add(std::uint32_t key, std::uint64_t value, int size) {
        put(key, 4);
        put(value, size);
    }

    /// The words of the list that sends it: the frame, padded to whole words, in the block of its register.
    /// @param fillers  behind the pause in which the receiver takes it
    std::vector<Word> words(std::size_t fillers) const {
        constexpr std::uint16_t gpsRegister = 0x0020;
        constexpr std::uint16_t takingTicks = 256;
        constexpr std::size_t fillersBehindBlock = 3;
        const std::vector<Word> frame = packed(closed());

        std::vector<Word> list{words::registerBlock(static_cast<std::uint32_t>(frame.size()), gpsRegister)};
        list.insert(list.end(), frame.begin(), frame.end());
        list.insert(list.end(), fillersBehindBlock, words::noOperation);
        list.push_back(words::pause(takingTicks));
        list.insert(list.end(), fillers, words::noOperation);
        return list;
    }

  private:
    using Bytes = std::vector<std::uint8_t>;

    void put(std::uint64_t value, int size) {
        for (int i = 0; i < size; ++i) payload_.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }

    /// The payload between its head and its checksum.
    Bytes closed() const {
        constexpr std::uint8_t configuration = 0x06, setValues = 0x8A;
        constexpr std::size_t checkedFrom = 2;
        Bytes frame{0xB5,
                    0x62,
                    configuration,
                    setValues,
                    static_cast<std::uint8_t>(payload_.size()),
                    static_cast<std::uint8_t>(payload_.size() >> 8)};
        frame.insert(frame.end(), payload_.begin(), payload_.end());
        std::uint8_t sum = 0, sumOfSums = 0;
        for (std::size_t i = checkedFrom; i < frame.size(); ++i) {
            sum = static_cast<std::uint8_t>(sum + frame[i]);
            sumOfSums = static_cast<std::uint8_t>(sumOfSums + sum);
        }
        frame.insert(frame.end(), {sum, sumOfSums});
        return frame;
    }

    static std::vector<Word> packed(Bytes frame) {
        constexpr std::uint8_t idle = 0xFF;
        while (frame.size() % sizeof(Word) != 0) frame.push_back(idle);
        std::vector<Word> packedWords(frame.size() / sizeof(Word));
        for (std::size_t i = 0; i < frame.size(); ++i)
            packedWords[i / sizeof(Word)] |= Word{frame[i]} << 8 * (i % sizeof(Word));
        return packedWords;
    }

    Bytes payload_{0 /* version */, 1 /* to memory only */, 0, 0};
};

ValueFrame frameOf(std::span<const GpsSetting> settings) {
    ValueFrame frame;
    for (const auto& [key, value] : settings) frame.add(key, value, valueBytes(key));
    return frame;
}

}  // namespace

std::vector<Word> buildGpsValueMessage(std::uint32_t key, std::uint64_t value, int size) {
    ValueFrame frame;
    frame.add(key, value, size);
    return frame.words(2);
}

std::vector<Word> gpsReportMessage() { return frameOf(reportSettings).words(3); }

std::vector<Word> gpsTimePulseMessage() { return frameOf(timePulseSettings).words(3); }

std::vector<Word> gpsStationaryMessage() {
    constexpr std::uint32_t dynamicModel = 0x20110021;
    constexpr std::uint64_t stationary = 2;
    return buildGpsValueMessage(dynamicModel, stationary, valueBytes(dynamicModel));
}

}  // namespace hxr
