/* What the examples share: a unit named on the command line, and an end with an explanation where something fails. */
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "hxr_api.h"

/* Ends the program for an error, and tells of a warning. */
static inline void check(const char* what, HXRStatus status) {
    if (status != hxrNoError) fprintf(stderr, "%s: %s\n", what, hxrGetErrorString(status));
    if (status < 0) exit(1);
}

/* Connects to the unit of the arguments HOST UNIT PORT, and pairs it with those that follow it: HOST UNIT PORT UNIT... */
static inline int openUnits(int argc, char** argv, int units) {
    int handle = -1;
    if (argc < 3 + units) {
        fprintf(stderr, "usage: %s HOST_ADDRESS UNIT_ADDRESS PORT%s\n", argv[0],
                units > 1 ? " UNIT_ADDRESS..." : "");
        exit(2);
    }
    uint16_t port = 0;
    if (sscanf(argv[3], "%hu", &port) != 1) check("port", hxrInvalidParameterErr);
    check("connect", hxrConnectDevice(&handle, argv[1], argv[2], port));
    for (int i = 1; i < units; ++i) check("pair", hxrPairDevice(handle, argv[1], argv[3 + i], port));
    return handle;
}
