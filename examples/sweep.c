/* Sweeps the FM band and prints the strongest line in it:  sweep HOST_ADDRESS UNIT_ADDRESS PORT */

#include "example.h"

int main(int argc, char** argv) {
    const int unit = openUnits(argc, argv, 1);
    const int enabled[4] = {1, 0, 0, 0};
    check("channels", hxrSetChannelConfig(unit, enabled, 0)); /* channel 0 sweeps */
    check("range", hxrSetSweepStartStop(unit, 88e6, 108e6));
    check("bandwidths", hxrSetSweepCoupling(unit, 10e3, 10e3, 1e-3));
    check("reference level", hxrSetSweepRefLevel(unit, -30));
    check("initiate", hxrInitiate(unit));

    /* What became of the settings. */
    double rbw, vbw, start, step;
    int points;
    check("parameters", hxrSweepGetParameters(unit, &rbw, &vbw, &start, &step, &points));
    float* const trace = malloc((size_t)points * sizeof *trace);
    if (trace == NULL) return 1;
    check("sweep", hxrGetSweep(unit, trace)); /* may be repeated */
    check("abort", hxrAbort(unit));

    int highest = 0;
    for (int i = 1; i < points; ++i)
        if (trace[i] > trace[highest]) highest = i;
    printf("%d points, RBW %.4g kHz: %.2f dBm at %.3f MHz\n", points, rbw / 1e3, (double)trace[highest],
           (start + highest * step) / 1e6);
    free(trace);
    return hxrCloseDevice(unit);
}
