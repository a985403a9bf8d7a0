/// Any bytes in place of a boot image.

#include <cstdint>
#include <vector>

#include "netconfig/boot_image.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    std::vector<std::byte> image(bytes.begin(), bytes.end());
    hxr::verifyChecksum(image);
    hxr::storeChecksum(image);
    if (hxr::hasBootMark(image) && hxr::bootRecordAt(image, hxr::firstBootRecord)) {
        // What was stored is right, or there was nothing to be stored.
        const std::vector<std::byte> before = image;
        hxr::storeChecksum(image);
        if (image != before) __builtin_trap();
    }
    hxr::putSerialNumber(image, 12345678);
    hxr::firmwareVersion(image);
    return 0;
}
