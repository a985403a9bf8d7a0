/// A unit's addresses: in its registers, and in the flash records that it starts up with.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "netconfig/config_net_device.h"

namespace hxr {

/// The first octet in the top byte.
/// @return nothing unless the text has at most 15 characters and is four decimal numbers of at most 255 with dots between
std::optional<std::uint32_t> parseIp(std::string_view text);
std::string ipText(std::uint32_t address);

/// @return nothing unless the text has 17 characters, with hexadecimal digits where they belong
std::optional<std::uint64_t> parseMac(std::string_view text);
std::string macText(std::uint64_t address);

HXRStatus setMac(ConfigNetDevice& device, std::uint64_t address);
/// @return `hxrInvalidParameterErr` if what the unit has is no MAC address
HXRStatus readMac(ConfigNetDevice& device, std::uint64_t& address);

HXRStatus setIp(ConfigNetDevice& device, std::uint32_t address, bool persist);
HXRStatus readIp(ConfigNetDevice& device, std::uint32_t& address);

HXRStatus setPort(ConfigNetDevice& device, std::uint32_t port, bool persist);
HXRStatus readPort(ConfigNetDevice& device, std::uint32_t& port);

HXRStatus readFirmwareVersion(ConfigNetDevice& device, std::uint32_t& version);
/// The serial number in the flash's calibration.
HXRStatus readFlashSerial(ConfigNetDevice& device, std::uint32_t& serial);

/// Waits up to 30 s until the FPGA says something else than that it is busy.
/// @param state  receives what it said, 1 if it is still busy
HXRStatus waitForFpga(ConfigNetDevice& device, std::int32_t& state);

}  // namespace hxr
