/* Lets two channels send VITA-49 packets to a receiver for a second:  vrt HOST_ADDRESS UNIT_ADDRESS PORT RECEIVER_ADDRESS */

#include <threads.h>
#include <time.h>

#include "example.h"

int main(int argc, char** argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: %s HOST_ADDRESS UNIT_ADDRESS PORT RECEIVER_ADDRESS\n", argv[0]);
        return 2;
    }
    const int unit = openUnits(argc, argv, 1);
    const int enabled[4] = {1, 1, 0, 0};
    check("channels", hxrSetChannelConfig(unit, enabled, -1));
    check("frequency", hxrSetSharedFreq(unit, 98.5e6));
    check("rate", hxrSetStreamSampleRate(unit, 4)); /* 12.5 MS/s, the slowest that a unit sends */
    for (int channel = 0; channel < 2; ++channel) {
        const uint16_t port = (uint16_t)(5001 + channel);
        const uint64_t hardware = 0x021BC50012AF; /* of the receiver: the library doesn't look it up */
        check("shared", hxrSetChannelShared(unit, channel, 1));
        check("destination", hxrSetStreamVrtAddr(unit, channel, argv[4], port, hardware));
    }
    check("context packets", hxrSetStreamVrtCntxInterval(unit, 1, 15)); /* one for 15 of samples */
    check("VRT", hxrSetStreamMode(unit, 1));

    check("initiate", hxrInitiate(unit));
    const struct timespec second = {1, 0};
    thrd_sleep(&second, NULL); /* the unit sends by itself */
    check("abort", hxrAbort(unit));
    check("local", hxrSetStreamMode(unit, 0));
    return hxrCloseDevice(unit);
}
