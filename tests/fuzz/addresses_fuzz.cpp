/// Any text in place of an address.

#include <cstdint>
#include <string_view>

#include "netconfig/network_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto ip = hxr::parseIp(text); ip && hxr::parseIp(hxr::ipText(*ip)) != ip) __builtin_trap();
    if (const auto mac = hxr::parseMac(text); mac && hxr::parseMac(hxr::macText(*mac)) != mac)
        __builtin_trap();
    return 0;
}
