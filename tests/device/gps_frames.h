/// The messages that the unit's GPS receiver gets, byte for byte as its protocol defines them.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "support/words_text.h"

namespace hxr::test {

/// UBX and no NMEA on the SPI output, a solution each 1000 ms, its position, velocity and time reported.
inline constexpr const char* reportFrame =
    "B5 62 06 8A 19 00 00 01 00 00 01 00 7A 10 01 02 00 7A 10 00 01 00 21 30 E8 03 0A 00 91 20 01 BB B5";

/// A pulse each 1,000,000 microseconds, 1 long, 50 with lock, on UTC's grid.
inline constexpr const char* timePulseFrame =
    "B5 62 06 8A 42 00 00 01 00 00 23 00 05 20 00 30 00 05 20 01 02 00 05 40 40 42 0F 00 03 00 05 40 40 42 "
    "0F 00 04 00 05 40 01 00 00 00 05 00 05 40 32 00 00 00 07 00 05 10 01 09 00 05 10 01 0B 00 05 10 01 "
    "0C 00 05 20 00 76 75";

/// Dynamic model 2: stationary.
inline constexpr const char* stationaryFrame = "B5 62 06 8A 09 00 00 01 00 00 21 00 11 20 02 EE 4B";

/// The list for a frame: its bytes four at a time, first byte lowest, idle bytes behind; then the receiver's pause.
inline Words gpsMessage(const std::string& frame, std::size_t fillers) {
    Words payload;
    std::istringstream bytes(frame);
    unsigned position = 0;
    for (std::string byte; bytes >> byte; ++position) {
        if (position % 4 == 0) payload.push_back(0xFFFFFFFF);
        payload.back() ^= (0xFFU ^ static_cast<unsigned>(std::stoul(byte, nullptr, 16)))
                          << 8 * (position % 4);
    }
    return joined({{0x04000020 + (static_cast<std::uint32_t>(payload.size()) << 16)},
                   payload,
                   {0, 0, 0, 0x05000100},
                   Words(fillers, 0)});
}

}  // namespace hxr::test
