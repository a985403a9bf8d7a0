#pragma once

#include <unistd.h>

#include <string>

namespace hxr::test {

/// An address on this machine that no other test program uses at the same time: 1 the host, 2 and up the
/// units.
inline std::string loopbackAddress(int position) {
    const unsigned number =
        (static_cast<unsigned>(::getpid()) << 4 | static_cast<unsigned>(position)) & 0xFFFFFF;
    return "127." + std::to_string(number >> 16) + "." + std::to_string(number >> 8 & 0xFF) + "." +
           std::to_string(number & 0xFF);
}

inline std::string hostAddress() { return loopbackAddress(1); }
inline std::string unitAddress(int unit = 0) { return loopbackAddress(2 + unit); }

/// Another of these addresses at each call; after fourteen they come again.
inline std::string nextAddress() {
    static int calls = 0;
    return loopbackAddress(1 + calls++ % 14);
}

inline constexpr unsigned short controlPort = 5000;

}  // namespace hxr::test
