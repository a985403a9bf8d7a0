// Connects to a unit and prints who it is and how it is:  identity HOST_ADDRESS UNIT_ADDRESS PORT

#include <chrono>
#include <cstdio>

#include "hxr_api.h"
#include "unit.h"

namespace {

struct HealthValue {
    const char* name;
    const char* unit;
};

constexpr HealthValue healthValues[] = {
    {"supply", "V"},
    {"rail 2", "V"},
    {"rail 1", "V"},
    {"rail 3", "V"},
    {"FPGA temperature", "\u00b0C"},
    {"temperature C", "\u00b0C"},
    {"temperature A", "\u00b0C"},
    {"temperature B", "\u00b0C"},
    {"reading Q8", ""},
    {"reading A", ""},
    {"reading B", ""},
};

}  // namespace

int main(int argc, char** argv) {
    const auto begin = std::chrono::steady_clock::now();
    const Unit unit(argc, argv);
    const int handle = unit.handle;
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    std::printf("connected in     %8.1f ms: %s\n", took.count(), hxrGetErrorString(unit.status));

    int serial = 0, versionA = 0, versionAAgain = 0, versionB = 0, channels = 0;
    std::uint32_t calDate = 0;
    hxrGetSerialNumber(handle, &serial);
    hxrGetFirmwareVersion(handle, &versionA, &versionAAgain, &versionB);
    hxrGetCalDate(handle, &calDate);
    hxrGetChannelCount(handle, &channels);
    std::printf("serial number    %8d\nfirmware         %8d, %d\n", serial, versionA, versionB);
    std::printf("calibration date %8u\nchannels         %8d\n", static_cast<unsigned>(calDate), channels);

    float health[11] = {};
    const HXRStatus read = hxrGetFullDeviceDiagnostics(handle, health);
    for (int i = 0; i < 11 && read >= 0; ++i) {
        std::printf("%-16s %8.3f %s\n", healthValues[i].name, static_cast<double>(health[i]),
                    healthValues[i].unit);
    }
    return read < 0 ? fail("health", read) : 0;
}
