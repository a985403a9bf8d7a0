/// A unit's flash, page by page and section by section. Writing can only clear bits: a section is cleared, then written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "netconfig/config_net_device.h"

namespace hxr {

inline constexpr std::size_t flashPageSize = 1024;
inline constexpr std::uint32_t flashPageCount = 0x10000;
using FlashPage = std::span<const std::byte, flashPageSize>;

/// A stretch of whole pages.
struct FlashSection {
    std::uint32_t firstPage, pages;
    constexpr std::size_t bytes() const { return pages * flashPageSize; }
};

inline constexpr FlashSection firmwareSection{0, 256}, tuningSection{1024, 256}, pretestSection{1280, 256},
    chamberSection{1536, 7680}, calibrationSections{1024, 8192}, bitstreamSection{16384, 16384};
/// More than the section: what clears the firmware takes a second block, what clears the corrections both of their sections.
inline constexpr FlashSection clearedForFirmware{0, 512}, correctionSections{1280, 7936};

// Pages are below `flashPageCount`.

HXRStatus writeFlashPage(ConfigNetDevice& device, std::uint32_t page, FlashPage data);
/// Reads as many pages as a reply holds.
/// @param data  `replyBytes`
HXRStatus readFlashPages(ConfigNetDevice& device, std::uint32_t page, std::span<std::byte> data);
/// Erases a block of 256 pages, and waits up to 10 s for it.
HXRStatus eraseFlash(ConfigNetDevice& device, std::uint32_t page);

HXRStatus clearSection(ConfigNetDevice& device, const FlashSection& section);
/// @param data  as many bytes as the section has
HXRStatus readSection(ConfigNetDevice& device, const FlashSection& section, std::byte* data);
/// Writes a section that was cleared, and reads it back.
/// @return `hxrFlashIOErr` if it doesn't read as it was written
HXRStatus writeSection(ConfigNetDevice& device, const FlashSection& section, std::span<const std::byte> data);

/// Writes a firmware image with a serial number, if that has eight digits, and its version at its end.
/// @return as `writeSection`; `hxrInvalidParameterErr` for a file that can't be read or is too long, and for one without a
///         version
/// @throws std::bad_alloc
HXRStatus writeFirmware(ConfigNetDevice& device, const std::filesystem::path& file, std::int32_t serial);

/// Writes the bitstream of the FPGA, the bits of each byte reversed.
/// @return as `writeSection`; `hxrInvalidParameterErr` for a file that can't be read or is too long
/// @throws std::bad_alloc
HXRStatus writeBitstream(ConfigNetDevice& device, const std::filesystem::path& file);

}  // namespace hxr
