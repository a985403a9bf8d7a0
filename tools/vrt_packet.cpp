#include "vrt_packet.h"

#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr std::size_t wordBytes = 4, headWords = 5;
constexpr std::uint64_t picosecondsEach = 1'000'000'000'000;

std::uint32_t wordAt(std::span<const std::uint8_t> bytes, std::size_t word) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes.subspan(word * wordBytes, wordBytes)) value = value << 8 | byte;
    return value;
}

std::uint64_t longAt(std::span<const std::uint8_t> bytes, std::size_t word) {
    return std::uint64_t{wordAt(bytes, word)} << 32 | wordAt(bytes, word + 1);
}

/// Numbers of 16 bits in the low half of a word.
double shortAt(std::span<const std::uint8_t> bytes, std::size_t word, int fractionBits) {
    const auto value = static_cast<std::int16_t>(static_cast<std::uint16_t>(wordAt(bytes, word)));
    return std::ldexp(value, -fractionBits);
}

double hertzAt(std::span<const std::uint8_t> bytes, std::size_t word) {
    constexpr int fractionBits = 20;
    return std::ldexp(static_cast<double>(static_cast<std::int64_t>(longAt(bytes, word))), -fractionBits);
}

}  // namespace

std::optional<VrtPacket> parseVrt(std::span<const std::uint8_t> bytes) {
    constexpr unsigned samples = 1, context = 4;
    if (bytes.size() < headWords * wordBytes) return std::nullopt;
    const std::uint32_t head = wordAt(bytes, 0);
    const unsigned type = head >> 28;
    if (type == samples && bytes.size() == headWords * wordBytes) return std::nullopt;
    if ((type != samples && type != context) || (head & 0xFFFF) * wordBytes != bytes.size())
        return std::nullopt;
    return VrtPacket{.context = type == context,
                     .stream = wordAt(bytes, 1),
                     .count = head >> 16 & 15,
                     .picoseconds = longAt(bytes, 3),
                     .seconds = wordAt(bytes, 2),
                     .payload = bytes.subspan(headWords * wordBytes)};
}

std::optional<VrtContext> parseVrtContext(std::span<const std::uint8_t> payload) {
    constexpr int levelFraction = 7, temperatureFraction = 6;
    // From bit 30 of the indicator down: how many words its field has.
    constexpr std::array<std::size_t, 17> widths{1, 2, 2, 2, 2, 2, 1, 1, 1, 2, 2, 1, 1, 2, 1, 2, 11};
    VrtContext context;
    if (payload.size() < wordBytes) return std::nullopt;
    const std::uint32_t indicator = wordAt(payload, 0);
    std::size_t word = 1;
    for (unsigned i = 0; i < widths.size(); ++i) {
        const unsigned bit = 30 - i;
        if ((indicator >> bit & 1) == 0) continue;
        if ((word + widths[i]) * wordBytes > payload.size()) return std::nullopt;
        if (bit == 29) context.bandwidthHz = hertzAt(payload, word);
        if (bit == 27) context.frequencyHz = hertzAt(payload, word);
        if (bit == 24) context.referenceDbm = shortAt(payload, word, levelFraction);
        if (bit == 23) context.gainDb = shortAt(payload, word, levelFraction);
        if (bit == 21) context.rateHz = hertzAt(payload, word);
        if (bit == 18) context.degrees = shortAt(payload, word, temperatureFraction);
        word += widths[i];
    }
    return context;
}

void VrtStream::take(const VrtPacket& packet) {
    if (packet.context) {
        ++contexts_;
        if (const auto context = parseVrtContext(packet.payload)) context_ = context;
        return;
    }
    // A day of picoseconds fits; who counts over midnight begins a new measurement.
    constexpr std::uint64_t day = 86'400;
    const std::uint64_t time = packet.seconds % day * picosecondsEach + packet.picoseconds;
    if (packets_ == 0 || time < lastTime_) {
        firstTime_ = time;
        samples_ = 0;
    } else {
        // The count tells those that are missing modulo 16, the time stamps all of them once the rate is known.
        const std::int64_t missing = (packet.count - nextCount_) & 15;
        const double samplesEach = static_cast<double>(packet.payload.size()) / wordBytes;
        const double rate = context_ ? context_->rateHz : 0;
        const double between =
            static_cast<double>(time - lastTime_) / picosecondsEach * rate / samplesEach - 1;
        lost_ += std::max<std::int64_t>(missing, std::llround(between));
    }
    nextCount_ = (packet.count + 1) & 15;
    lastTime_ = time;
    lastSeconds_ = packet.seconds;
    ++packets_;
    takeSamples(packet.payload);
}

void VrtStream::takeSamples(std::span<const std::uint8_t> payload) {
    double sum = 0;
    for (std::size_t at = 0; at + 1 < payload.size(); at += 2) {
        const unsigned first = payload[at], second = payload[at + 1];
        const unsigned bits = littleEndian_ ? first | second << 8 : first << 8 | second;
        const double rail = static_cast<std::int16_t>(static_cast<std::uint16_t>(bits));
        sum += rail * rail;
    }
    const auto samples = static_cast<std::int64_t>(payload.size() / wordBytes);
    constexpr double fullScale = 32768;
    power_ +=
        (sum / fullScale / fullScale / static_cast<double>(samples) - power_) / static_cast<double>(packets_);
    samples_ += samples;
}

double VrtStream::rateHz() const {
    const double seconds = static_cast<double>(lastTime_ - firstTime_) / picosecondsEach;
    if (seconds <= 0) return 0;
    return context_ ? context_->rateHz : static_cast<double>(samples_) / seconds;
}

double VrtStream::dbfs() const {
    return power_ > 0 ? 10 * std::log10(power_) : -std::numeric_limits<double>::infinity();
}
