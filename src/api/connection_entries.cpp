/// Connection, identity and groups.

#include "api/device_table.h"
#include "api/entry.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;
using hxr::api::deviceTable;
using hxr::api::readEntry;

HXRStatus hxrConnectDevice(int* handle, const char* hostAddr, const char* deviceAddr, uint16_t port) {
    return hxr::api::entry([&] {
        hxr::InterfaceLock lock = deviceTable().lock();
        return deviceTable().connect(handle, hostAddr, deviceAddr, port, lock);
    });
}

HXRStatus hxrPairDevice(int handle, const char* hostAddr, const char* deviceAddr, uint16_t port) {
    return deviceEntry(handle, [&](HXRDevice& master, hxr::InterfaceLock& lock) {
        return deviceTable().pair(master, hostAddr, deviceAddr, port, lock);
    });
}

HXRStatus hxrGetPairedDevices(int handle, int* count) {
    return readEntry(handle, count, [](const HXRDevice&) { return 1; });
}

HXRStatus hxrCloseDevice(int handle) {
    return deviceEntry(handle, [](HXRDevice& device, hxr::InterfaceLock& lock) {
        return deviceTable().close(device, lock);
    });
}

HXRStatus hxrGetSerialNumber(int handle, int* serial) {
    return readEntry(handle, serial,
                     [](const HXRDevice& device) { return device.lastStatus.copy().serialNumber; });
}

HXRStatus hxrGetFirmwareVersion(int handle, int* first, int* second, int* third) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (first == nullptr || second == nullptr || third == nullptr) return hxrNullPointerErr;
        const hxr::LastStatus status = device.lastStatus.copy();
        *first = *second = static_cast<int>(status.firmwareVersionA);
        *third = static_cast<int>(status.firmwareVersionB);
        return hxrNoError;
    });
}

HXRStatus hxrGetCalDate(int handle, uint32_t* date) {
    return readEntry(handle, date,
                     [](const HXRDevice& device) { return device.corrections->image->calDate; });
}

HXRStatus hxrGetChannelCount(int handle, int* count) {
    return readEntry(handle, count, [](const HXRDevice& device) { return device.channelCount; });
}
