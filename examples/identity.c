/* Connects to a unit and prints who it is and how it is:  identity HOST_ADDRESS UNIT_ADDRESS PORT */

#include <time.h>

#include "example.h"

static double milliseconds(void) {
    struct timespec now;
    timespec_get(&now, TIME_UTC);
    return (double)now.tv_sec * 1e3 + (double)now.tv_nsec / 1e6;
}

int main(int argc, char** argv) {
    static const char* const names[11] = {"supply, V",       "rail 2, V",    "rail 1, V",    "rail 3, V",
                                          "FPGA, degrees C", "C, degrees C", "A, degrees C", "B, degrees C",
                                          "reading Q8",      "reading A",    "reading B"};
    const double begin = milliseconds();
    const int unit = openUnits(argc, argv, 1);
    printf("connected in     %8.1f ms\n", milliseconds() - begin);

    int serial, first, again, second, channels;
    uint32_t calibrated;
    check("serial number", hxrGetSerialNumber(unit, &serial));
    check("versions", hxrGetFirmwareVersion(unit, &first, &again, &second));
    check("calibration date", hxrGetCalDate(unit, &calibrated));
    check("channels", hxrGetChannelCount(unit, &channels));
    printf("serial number    %8d\nfirmware         %8d, %d\n", serial, first, second);
    printf("calibration date %8u\nchannels         %8d\n", (unsigned)calibrated, channels);

    float health[11];
    check("health", hxrGetFullDeviceDiagnostics(unit, health));
    for (int i = 0; i < 11; ++i) printf("%-16s %8.3f\n", names[i], (double)health[i]);
    return hxrCloseDevice(unit);
}
