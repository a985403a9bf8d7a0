// Shows where a unit is, what time it is there, and how its timebase is steered:  timebase HOST_ADDRESS UNIT_ADDRESS PORT

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "hxr_api.h"
#include "unit.h"

namespace {

constexpr const char* stateTexts[] = {"no usable fix", "good fix", "good fix, timebase disciplined"};

// A UTC time of seconds since 1970.
void printTime(const char* name, std::uint64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime_r(&time, &utc));
    std::printf("%-16s %s UTC\n", name, text);
}

void printGps(int handle) {
    int state = 0, updated = 0;
    std::uint64_t seconds = 0;
    double latitude = 0, longitude = 0, altitude = 0;
    if (const HXRStatus status = hxrGetGPSState(handle, &state); status < 0) {
        fail("GPS state", status);
        return;
    }
    hxrGetGPSInfo(handle, 0, &updated, &seconds, &latitude, &longitude, &altitude);
    std::printf("GPS              %s\n", stateTexts[state]);
    printTime("time", seconds);
    std::printf("position         %.6f, %.6f\naltitude         %.1f m\n", latitude, longitude, altitude);
}

void printTimebase(int handle) {
    unsigned reference = 0, update = 0;
    std::uint16_t coarseTune = 0;
    int usingHoldover = 0;
    std::uint64_t lastTime = 0;
    hxrGetReference(handle, &reference);
    hxrGetGPSTimebaseUpdate(handle, &update);
    hxrAdminGetCoarseTuneVal(handle, &coarseTune);
    hxrGetGPSHoldoverInfo(handle, &usingHoldover, &lastTime);
    std::printf("reference        %s\nfollows GPS      %s\ncoarse tune      %u\n",
                reference == 0 ? "internal" : "external", update == 1 ? "yes" : "no", coarseTune);
    std::printf("started from     %s\n",
                usingHoldover == 1 ? "what GPS found last time" : "the factory's value");
    if (lastTime != 0) printTime("remembered", lastTime);
}

}  // namespace

int main(int argc, char** argv) {
    const Unit unit(argc, argv);
    printGps(unit.handle);
    printTimebase(unit.handle);

    if (const HXRStatus status = hxrSetGPSTimebaseUpdate(unit.handle, 1); status < 0)
        return fail("follow GPS", status);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::printf("-- now the unit follows GPS\n");
    printGps(unit.handle);
    printTimebase(unit.handle);

    // With nothing enabled the group is routed and aligned, and comes back to rest.
    if (const HXRStatus status = hxrInitiate(unit.handle); status < 0) return fail("initiate", status);
    const HXRStatus status = hxrAbort(unit.handle);
    if (status < 0) return fail("abort", status);
    std::printf("-- initiated and aborted: %s\n", hxrGetErrorString(status));
    return 0;
}
