#include "sim/context_packet.h"

#include <algorithm>
#include <cmath>

#include "sim/byte_order.h"
#include "sim/data_datagram.h"

namespace hxr::sim {
namespace {

constexpr std::size_t wordBytes = 4;
constexpr std::uint32_t secondsUtc = 1, fractionInPicoseconds = 2;
/// What stands for a value that isn't known.
constexpr std::uint32_t noValue = 0x7FFFFFFF, noTime = 0xFFFFFFFF;

/// Writes words one behind the other.
class WordWriter {
  public:
    WordWriter(std::span<std::uint8_t> bytes, std::size_t firstWord)
        : bytes_(bytes), at_(firstWord * wordBytes) {}

    void put(std::uint32_t word) {
        putBig(bytes_, at_, wordBytes, word);
        at_ += wordBytes;
    }
    /// A number of which so many bits stand behind the point.
    void putFixed(double value, int fractionBits) {
        put(static_cast<std::uint32_t>(
            static_cast<std::int32_t>(std::lround(std::ldexp(value, fractionBits)))));
    }

  private:
    std::span<std::uint8_t> bytes_;
    std::size_t at_;
};

void putPosition(WordWriter& words, const GpsFix& fix, std::chrono::system_clock::time_point now) {
    constexpr int degreeBits = 22, metreBits = 5;
    constexpr int unknownMotions =
        5;  // speed, heading, track, magnetic variation, and a word that is reserved
    if (!fix.good()) {
        words.put(0);
        for (int i = 0; i < 3; ++i) words.put(noTime);
        for (int i = 0; i < 2 + unknownMotions; ++i) words.put(noValue);
        return;
    }
    const auto time =
        fix.clock == GpsFix::Clock::fixed ? fix.time : std::chrono::floor<std::chrono::seconds>(now);
    words.put(secondsUtc << 26 | fractionInPicoseconds << 24);
    words.put(static_cast<std::uint32_t>(time.time_since_epoch().count()));
    words.put(0);
    words.put(0);
    words.putFixed(fix.latitude, degreeBits);
    words.putFixed(fix.longitude, degreeBits);
    words.putFixed(fix.heightMetres, metreBits);
    for (int i = 0; i < 4; ++i) words.put(noValue);
}

}  // namespace

void putContextPacket(std::span<std::uint8_t, contextPacketBytes> packet, const ContextHeader& header,
                      std::span<const std::uint32_t> fields, const ContextReport& report) {
    constexpr std::uint32_t contextPacket = 4;
    constexpr std::uint32_t sizeInWords = contextPacketBytes / wordBytes;
    constexpr std::size_t firstField = 5;
    constexpr int temperatureBits = 6;
    constexpr std::uint32_t lowerHalf = 0xFFFF;

    putBig(packet, 0, wordBytes,
           contextPacket << 28 | secondsUtc << 22 | fractionInPicoseconds << 20 |
               static_cast<std::uint32_t>(header.count & 15) << 16 | sizeInWords);
    putPacketOrigin(packet, header.streamId, header.time);
    WordWriter words(packet, firstField);
    for (const std::uint32_t field : fields) words.put(field);
    words.put(static_cast<std::uint32_t>(std::lround(std::ldexp(report.temperature, temperatureBits))) &
              lowerHalf);
    words.put(0);  // no registered maker
    words.put(report.serialNumber & lowerHalf);
    putPosition(words, report.fix, header.time);
}

}  // namespace hxr::sim
