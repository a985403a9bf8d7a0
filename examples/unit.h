// What the examples share: a unit named on the command line, open from here to the end of its scope.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "hxr_api.h"

inline int fail(const char* what, HXRStatus status) {
    std::fprintf(stderr, "%s: %s\n", what, hxrGetErrorString(status));
    return 1;
}

class Unit {
  public:
    /// Takes HOST_ADDRESS UNIT_ADDRESS PORT; ends the program with an explanation where that doesn't work.
    /// @param further  name of one more argument, if there is to be one
    Unit(int argc, char** argv, const char* further = "") {
        const int count = *further == 0 ? 4 : 5;
        char* end = nullptr;
        const long port = argc == count ? std::strtol(argv[3], &end, 10) : 0;
        if (port < 1 || port > 65535 || *end != 0) {
            std::fprintf(stderr, "usage: %s HOST_ADDRESS UNIT_ADDRESS PORT %s\n", argv[0], further);
            std::exit(2);
        }
        status = hxrConnectDevice(&handle, argv[1], argv[2], static_cast<std::uint16_t>(port));
        if (status < 0) std::exit(fail("connect", status));
    }
    ~Unit() { hxrCloseDevice(handle); }
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    int handle = -1;
    HXRStatus status = hxrNoError;  // of the connect: perhaps a warning
};
