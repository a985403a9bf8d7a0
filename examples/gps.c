/* Shows where a unit is and what time it is there, and lets its timebase follow GPS:  gps HOST_ADDRESS UNIT_ADDRESS PORT */

#include <threads.h>
#include <time.h>

#include "example.h"

static void printTime(const char* name, uint64_t seconds) {
    const time_t time = (time_t)seconds;
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime(&time));
    printf("%-16s %s UTC\n", name, text);
}

static void show(int unit) {
    static const char* const states[] = {"no usable fix", "good fix", "good fix, timebase disciplined"};
    int state, updated, remembered;
    uint64_t seconds, last;
    double latitude, longitude, altitude;
    check("GPS", hxrGetGPSState(unit, &state));
    check("GPS", hxrGetGPSInfo(unit, 0, &updated, &seconds, &latitude, &longitude, &altitude));
    printf("GPS              %s\n", states[state]);
    printTime("time", seconds);
    printf("position         %.6f, %.6f\naltitude         %.1f m\n", latitude, longitude, altitude);

    unsigned reference, follows;
    check("reference", hxrGetReference(unit, &reference));
    check("timebase", hxrGetGPSTimebaseUpdate(unit, &follows));
    check("timebase", hxrGetGPSHoldoverInfo(unit, &remembered, &last));
    printf("reference        %s\n", reference == 0 ? "internal" : "external");
    printf("follows GPS      %s\n", follows ? "yes" : "no");
    printf("started from     %s\n", remembered ? "what GPS found last time" : "the factory's value");
    if (last != 0) printTime("remembered", last);
}

int main(int argc, char** argv) {
    const int unit = openUnits(argc, argv, 1);
    show(unit);
    check("follow GPS", hxrSetGPSTimebaseUpdate(unit, 1));
    const struct timespec moment = {0, 100000000};
    thrd_sleep(&moment, NULL);
    printf("-- now the unit follows GPS\n");
    show(unit);
    return hxrCloseDevice(unit);
}
