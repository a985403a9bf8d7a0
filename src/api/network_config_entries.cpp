// Units on their USB ports: addresses, firmware and flash.

#include <algorithm>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "api/entry.h"
#include "hxr_api.h"
#include "netconfig/config_net_table.h"
#include "netconfig/flash_programming.h"
#include "netconfig/network_settings.h"

namespace hxr::api {
namespace {

/// Runs the body of an entry, one at a time. What the system refuses at a close leaves nothing more to be done with the
/// unit.
template <typename Body>
HXRStatus usbEntry(Body&& body) noexcept {
    try {
        const std::unique_lock lock = configNetTable().lock();
        return body();
    } catch (const std::bad_alloc&) {
        return hxrMemoryAllocationErr;
    } catch (...) {
        return hxrConnectionLostErr;
    }
}

/// Runs the body of an entry with the unit of a handle, if the other arguments will do.
/// @param wrong  what is wrong with them
template <typename Body>
HXRStatus unitEntry(int handle, HXRStatus wrong, Body&& body) noexcept {
    return usbEntry([&] {
        ConfigNetDevice* const device = configNetTable().find(handle);
        if (device == nullptr) return hxrInvalidDeviceErr;
        return wrong != hxrNoError ? wrong : body(*device);
    });
}
template <typename Body>
HXRStatus unitEntry(int handle, Body&& body) noexcept {
    return unitEntry(handle, hxrNoError, std::forward<Body>(body));
}

HXRStatus needed(const void* pointer) { return pointer == nullptr ? hxrNullPointerErr : hxrNoError; }

/// What is wrong with a page, and with the place of its data.
HXRStatus wrongWith(std::uint32_t page, const void* data) {
    if (data == nullptr) return hxrNullPointerErr;
    return page < flashPageCount ? hxrNoError : hxrInvalidParameterErr;
}

void giveText(const std::string& text, char* out) { *std::ranges::copy(text, out).out = 0; }

/// An entry that reads a word of the unit.
HXRStatus readWord(int handle, std::int32_t* out,
                   HXRStatus (*read)(ConfigNetDevice& device, std::uint32_t& value)) noexcept {
    return unitEntry(handle, needed(out), [&](ConfigNetDevice& device) {
        std::uint32_t value = 0;
        const HXRStatus status = read(device, value);
        if (status == hxrNoError) *out = static_cast<std::int32_t>(value);
        return status;
    });
}

HXRStatus writeTo(int handle, const FlashSection& section, const std::uint8_t* data) noexcept {
    return unitEntry(handle, needed(data), [&](ConfigNetDevice& device) {
        return writeSection(device, section, std::as_bytes(std::span(data, section.bytes())));
    });
}

HXRStatus readFrom(int handle, const FlashSection& section, std::uint8_t* data) noexcept {
    return unitEntry(handle, needed(data), [&](ConfigNetDevice& device) {
        return readSection(device, section, std::as_writable_bytes(std::span(data, section.bytes())).data());
    });
}

HXRStatus clear(int handle, const FlashSection& section) noexcept {
    return unitEntry(handle, [&](ConfigNetDevice& device) { return clearSection(device, section); });
}

}  // namespace
}  // namespace hxr::api

using namespace hxr;
using namespace hxr::api;

// Opening and closing

HXRStatus hxrConfigNetGetDeviceList(std::int32_t* serials, std::int32_t* count) {
    return usbEntry([&] {
        if (serials == nullptr || count == nullptr) return hxrNullPointerErr;
        *count = configNetTable().list({serials, static_cast<std::size_t>(std::max(*count, 0))});
        return hxrNoError;
    });
}

HXRStatus hxrConfigNetOpenDevice(std::int32_t* handle, std::int32_t serial) {
    return usbEntry(
        [&] { return handle == nullptr ? hxrNullPointerErr : configNetTable().open(*handle, serial); });
}

HXRStatus hxrConfigNetBootstrapDevice(std::int32_t* handle, const char* path) {
    return usbEntry([&] {
        if (handle == nullptr || path == nullptr) return hxrNullPointerErr;
        return configNetTable().bootstrap(*handle, path);
    });
}

HXRStatus hxrConfigNetCloseDevice(int handle) {
    return unitEntry(handle, [&](ConfigNetDevice&) {
        configNetTable().close(handle);
        return hxrNoError;
    });
}

HXRStatus hxrConfigNetPreset(int handle) {
    return unitEntry(handle, [&](ConfigNetDevice& device) {
        const HXRStatus sent = device.send(Opcode::preset, 0);
        configNetTable().close(handle);
        return sent;
    });
}

HXRStatus hxrConfigNetGetFPGAStatus(int handle, std::int32_t* status) {
    return unitEntry(handle, needed(status), [&](ConfigNetDevice&) {
        *status = configNetTable().fpgaStatus(handle);
        return hxrNoError;
    });
}

HXRStatus hxrConfigNetGetFirmwareVersion(int handle, std::int32_t* version) {
    return readWord(handle, version, readFirmwareVersion);
}

// Addresses

HXRStatus hxrConfigNetSetMAC(int handle, const char* mac) {
    return unitEntry(handle, needed(mac), [&](ConfigNetDevice& device) {
        const auto address = parseMac(mac);
        return address ? setMac(device, *address) : hxrInvalidParameterErr;
    });
}

HXRStatus hxrConfigNetGetMAC(int handle, char* mac) {
    return unitEntry(handle, needed(mac), [&](ConfigNetDevice& device) {
        std::uint64_t address = 0;
        const HXRStatus status = readMac(device, address);
        if (status == hxrNoError) giveText(macText(address), mac);
        return status;
    });
}

HXRStatus hxrConfigNetSetIP(int handle, const char* ip, bool persist) {
    return unitEntry(handle, needed(ip), [&](ConfigNetDevice& device) {
        const auto address = parseIp(ip);
        return address ? setIp(device, *address, persist) : hxrInvalidParameterErr;
    });
}

HXRStatus hxrConfigNetGetIP(int handle, char* ip) {
    return unitEntry(handle, needed(ip), [&](ConfigNetDevice& device) {
        std::uint32_t address = 0;
        const HXRStatus status = readIp(device, address);
        if (status == hxrNoError) giveText(ipText(address), ip);
        return status;
    });
}

HXRStatus hxrConfigNetSetPort(int handle, std::int32_t port, bool persist) {
    return unitEntry(handle, [&](ConfigNetDevice& device) {
        return setPort(device, static_cast<std::uint32_t>(port), persist);
    });
}

HXRStatus hxrConfigNetGetPort(int handle, std::int32_t* port) { return readWord(handle, port, readPort); }

HXRStatus hxrConfigNetGetSerialFromFlash(int handle, std::int32_t* serial) {
    return readWord(handle, serial, readFlashSerial);
}

// The plain ones

HXRStatus hxrNetworkConfigGetDeviceList(std::int32_t* serials, std::int32_t* count) {
    return hxrConfigNetGetDeviceList(serials, count);
}
HXRStatus hxrNetworkConfigOpenDevice(std::int32_t* handle, std::int32_t serial) {
    return hxrConfigNetOpenDevice(handle, serial);
}
HXRStatus hxrNetworkConfigCloseDevice(int handle) { return hxrConfigNetCloseDevice(handle); }
HXRStatus hxrNetworkConfigGetMAC(int handle, char* mac) { return hxrConfigNetGetMAC(handle, mac); }
HXRStatus hxrNetworkConfigSetIP(int handle, const char* ip, std::int32_t persist) {
    return hxrConfigNetSetIP(handle, ip, persist == 1);
}
HXRStatus hxrNetworkConfigGetIP(int handle, char* ip) { return hxrConfigNetGetIP(handle, ip); }
HXRStatus hxrNetworkConfigSetPort(int handle, std::int32_t port, std::int32_t persist) {
    return hxrConfigNetSetPort(handle, port, persist == 1);
}
HXRStatus hxrNetworkConfigGetPort(int handle, std::int32_t* port) {
    return hxrConfigNetGetPort(handle, port);
}

// Flash

HXRStatus hxrConfigNetWriteFlashPage(int handle, std::uint32_t page, const std::uint8_t* data) {
    return unitEntry(handle, wrongWith(page, data), [&](ConfigNetDevice& device) {
        return writeFlashPage(
            device, page, std::as_bytes(std::span<const std::uint8_t, flashPageSize>(data, flashPageSize)));
    });
}

HXRStatus hxrConfigNetReadFlashPage(int handle, std::uint32_t page, std::uint8_t* data) {
    return unitEntry(handle, wrongWith(page, data), [&](ConfigNetDevice& device) {
        return readFlashPages(device, page, std::as_writable_bytes(std::span(data, replyBytes)));
    });
}

HXRStatus hxrConfigNetEraseFlashPage(int handle, std::uint32_t page) {
    return unitEntry(handle, wrongWith(page, &page),
                     [&](ConfigNetDevice& device) { return eraseFlash(device, page); });
}

HXRStatus hxrConfigNetWriteFx3(int handle, const char* path, std::int32_t serial) {
    return unitEntry(handle, needed(path),
                     [&](ConfigNetDevice& device) { return writeFirmware(device, path, serial); });
}
HXRStatus hxrConfigNetClearFx3(int handle) { return clear(handle, clearedForFirmware); }

HXRStatus hxrConfigNetWriteFGPA(int handle, const char* path) {
    return unitEntry(handle, needed(path),
                     [&](ConfigNetDevice& device) { return writeBitstream(device, path); });
}
HXRStatus hxrConfigNetClearFPGA(int handle) { return clear(handle, bitstreamSection); }

HXRStatus hxrConfigNetWriteCorrections(int handle, const std::uint8_t* data) {
    return writeTo(handle, chamberSection, data);
}
HXRStatus hxrConfigNetReadCorrections(int handle, std::uint8_t* data) {
    return readFrom(handle, calibrationSections, data);
}
HXRStatus hxrConfigNetClearCorrections(int handle) { return clear(handle, correctionSections); }
HXRStatus hxrConfigNetClearChamber(int handle) { return clear(handle, chamberSection); }

HXRStatus hxrConfigNetWriteCBB(int handle, const std::uint8_t* data) {
    return writeTo(handle, tuningSection, data);
}
HXRStatus hxrConfigNetReadCBB(int handle, std::uint8_t* data) {
    return readFrom(handle, tuningSection, data);
}
HXRStatus hxrConfigNetClearCBB(int handle) { return clear(handle, tuningSection); }

HXRStatus hxrConfigNetWritePretest(int handle, const std::uint8_t* data) {
    return writeTo(handle, pretestSection, data);
}
HXRStatus hxrConfigNetReadPretest(int handle, std::uint8_t* data) {
    return readFrom(handle, pretestSection, data);
}
HXRStatus hxrConfigNetClearPretest(int handle) { return clear(handle, pretestSection); }
