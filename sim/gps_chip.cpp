#include "sim/gps_chip.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "sim/byte_order.h"
#include "sim/rule_book.h"

namespace hxr::sim {
namespace {

constexpr std::uint8_t idle = 0xFF;
constexpr std::uint8_t sync1 = 0xB5;
constexpr std::uint8_t sync2 = 0x62;
constexpr std::size_t headBytes = 6;
constexpr std::size_t checksumBytes = 2;
constexpr std::size_t longestMessage = 255 * 4;

// Keys of the configuration that govern the messages to the unit.
constexpr std::uint32_t ubxOutput = 0x107A0001;
constexpr std::uint32_t navPvtRate = 0x2091000A;
constexpr std::uint32_t solutionMilliseconds = 0x30210001;

std::uint64_t littleEndian(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | bytes[i];
    return value;
}

/// Fletcher's sum over class, id, length and payload.
std::array<std::uint8_t, checksumBytes> checksumOf(std::span<const std::uint8_t> bytes) {
    std::uint8_t a = 0, b = 0;
    for (const std::uint8_t byte : bytes) {
        a = static_cast<std::uint8_t>(a + byte);
        b = static_cast<std::uint8_t>(b + a);
    }
    return {a, b};
}

/// Bytes of a value, by the size code in its key; 0 for a code that doesn't exist.
std::size_t valueBytes(std::uint32_t key) {
    constexpr std::array<std::size_t, 8> bytesOfCode = {0, 1, 1, 2, 4, 8, 0, 0};
    return bytesOfCode[key >> 28 & 7];
}

bool isFlag(std::uint32_t key) { return (key >> 28 & 7) == 1; }

}  // namespace

std::vector<std::string> GpsChip::take(std::span<const std::uint32_t> words) {
    for (const std::uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8)
            unfinished_.push_back(static_cast<std::uint8_t>(word >> shift));
    }
    Bytes rest(unfinished_);
    while (takeNext(rest)) {
    }
    unfinished_.erase(unfinished_.begin(), unfinished_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    return std::exchange(wrong_, {});
}

bool GpsChip::takeNext(Bytes& rest) {
    const std::size_t idleBytes = static_cast<std::size_t>(
        std::find_if(rest.begin(), rest.end(), [](std::uint8_t byte) { return byte != idle; }) -
        rest.begin());
    rest = rest.subspan(idleBytes);
    if (rest.empty()) return false;

    if (rest[0] != sync1 || (rest.size() > 1 && rest[1] != sync2)) {
        const auto start = std::find(rest.begin() + 1, rest.end(), sync1);
        wrong_.emplace_back("bytes to the GPS chip outside a message");
        rest = rest.subspan(static_cast<std::size_t>(start - rest.begin()));
        return true;
    }
    if (rest.size() < headBytes) return false;
    const std::size_t bytes = headBytes + littleEndian(rest.subspan(4, 2)) + checksumBytes;
    if (bytes > longestMessage) {
        wrong_.emplace_back("message to the GPS chip longer than a register block");
        rest = {};
        return false;
    }
    if (rest.size() < bytes) return false;
    handle(rest.first(bytes));
    rest = rest.subspan(bytes);
    return true;
}

void GpsChip::handle(Bytes message) {
    constexpr std::uint64_t valueSet = 0x8A06;  // class in the low byte, id above it
    const Bytes summed = message.subspan(2, message.size() - 2 - checksumBytes);
    const auto checksum = checksumOf(summed);
    if (!std::equal(checksum.begin(), checksum.end(), message.last(checksumBytes).begin())) {
        wrong_.emplace_back("message to the GPS chip with a wrong checksum");
    } else if (littleEndian(summed.first(2)) != valueSet) {
        wrong_.emplace_back("message to the GPS chip of an unknown kind");
    } else {
        setValues(summed.subspan(4));
    }
}

// The chip takes all pairs of a message or none.
void GpsChip::setValues(Bytes payload) {
    constexpr std::size_t headerBytes = 4;
    constexpr std::size_t keyBytes = 4;
    constexpr std::uint8_t everyLayer = 7;
    const bool soundHeader = payload.size() >= headerBytes && payload[0] == 0 && payload[1] != 0 &&
                             payload[1] <= everyLayer && payload[2] == 0 && payload[3] == 0;
    if (!soundHeader) {
        wrong_.emplace_back("GPS configuration with an impossible header");
        return;
    }

    Configuration values;
    for (Bytes rest = payload.subspan(headerBytes); !rest.empty();) {
        if (rest.size() < keyBytes) {
            wrong_.emplace_back("GPS configuration that ends inside a key");
            return;
        }
        const std::uint32_t key = getLittle32(rest, 0);
        const std::size_t bytes = valueBytes(key);
        if (bytes == 0 || rest.size() < keyBytes + bytes) {
            wrong_.emplace_back("GPS configuration without the value of key " + hexText(key));
            return;
        }
        const std::uint64_t value = littleEndian(rest.subspan(keyBytes, bytes));
        if (isFlag(key) && value > 1) {
            wrong_.emplace_back("GPS configuration with a flag beyond 1, key " + hexText(key));
            return;
        }
        values[key] = value;
        rest = rest.subspan(keyBytes + bytes);
    }
    for (const auto& [key, value] : values) configuration_[key] = value;
}

std::uint64_t GpsChip::valueOr(std::uint32_t key, std::uint64_t fallback) const {
    const auto found = configuration_.find(key);
    return found == configuration_.end() ? fallback : found->second;
}

std::chrono::sys_seconds GpsChip::solutionTime(std::chrono::sys_seconds now) {
    using std::chrono::milliseconds;
    const bool reports = valueOr(ubxOutput, 1) != 0 && valueOr(navPvtRate, 1) != 0;
    if (reports || !lastSolution_) {
        const std::uint64_t rate = std::max<std::uint64_t>(valueOr(solutionMilliseconds, 1000), 1);
        const milliseconds period(static_cast<milliseconds::rep>(rate));
        const milliseconds since = now.time_since_epoch();
        lastSolution_ = std::chrono::floor<std::chrono::seconds>(
            std::chrono::sys_time<milliseconds>(since - since % period));
    }
    return *lastSolution_;
}

}  // namespace hxr::sim
