/// Any bytes in place of a device's descriptors.

#include <cstdint>

#include "netconfig/usb_descriptors.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    hxr::isObjectStore(bytes);
    std::size_t endpoints = 0;
    if (const auto settings = hxr::alternateSettingsOf(bytes)) {
        for (const auto& setting : *settings) endpoints += setting.endpoints.size();
    }
    constexpr std::size_t endpointBytes = 7;
    if (endpoints * endpointBytes > size) __builtin_trap();
    return 0;
}
