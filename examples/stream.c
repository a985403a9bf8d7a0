/* Streams a channel around an FM station and prints its power ten times:  stream HOST_ADDRESS UNIT_ADDRESS PORT */

#include <math.h>

#include "example.h"

enum { count = 100000 }; /* samples at a time, of 32-bit I and Q */
static float samples[2 * count];

int main(int argc, char** argv) {
    const int unit = openUnits(argc, argv, 1);
    const int enabled[4] = {1, 0, 0, 0};
    check("channels", hxrSetChannelConfig(unit, enabled, -1)); /* channel 0 streams, none sweeps */
    check("shared", hxrSetChannelShared(unit, 0, 1));
    check("frequency", hxrSetSharedFreq(unit, 98.5e6));
    check("rate", hxrSetStreamSampleRate(unit, 32)); /* 50 MS/s divided by 32 */
    check("type", hxrSetStreamDataType(unit, 1));    /* floats, whose squared magnitude is the power in mW */
    check("reference level", hxrSetStreamRefLevel(unit, -30));
    check("attenuator", hxrSetStreamAtten(unit, -1));
    check("initiate", hxrInitiate(unit));
    double rate;
    check("parameters", hxrStreamParameters(unit, NULL, &rate, NULL));

    for (int i = 0; i < 10; ++i) {
        void* buffers[1] = {samples};
        uint64_t time;
        int lost;
        check("receive", hxrStreamRecv(unit, buffers, count, &time, 0, &lost, NULL, NULL, 0));
        double power = 0;
        for (int n = 0; n < 2 * count; ++n) power += (double)samples[n] * samples[n] / count;
        printf("%llu.%09llu s: %.2f dBm, %.4g ms%s\n", (unsigned long long)(time / 1000000000),
               (unsigned long long)(time % 1000000000), 10 * log10(power), 1e3 * count / rate,
               lost ? ", samples were lost" : "");
    }
    check("abort", hxrAbort(unit));
    return hxrCloseDevice(unit);
}
