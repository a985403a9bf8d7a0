/// What a device's descriptors say of its endpoints.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace hxr {

/// What kind a descriptor is of.
namespace descriptor_type {
inline constexpr std::uint8_t device = 1, configuration = 2, string = 3, interface = 4, endpoint = 5,
                              objectStore = 15, companion = 0x30;
}

/// An endpoint's descriptor with its SuperSpeed companion, whose fields are zero without one.
struct EndpointDescriptor {
    std::uint8_t descriptorLength = 0, descriptorType = 0;
    std::uint8_t address = 0;         ///< bit 7: IN
    std::uint8_t attributes = 0;      ///< low two bits: the transfer type
    std::uint16_t maxPacketSize = 0;  ///< bytes that may move in one microframe or burst
    std::uint16_t packetsPerFrame = 0;
    std::uint8_t interval = 0;
    std::uint8_t companionLength = 0, companionType = 0, burst = 0, companionAttributes = 0;
    std::uint16_t bytesPerInterval = 0;
};

enum class TransferType : std::uint8_t { control, isochronous, bulk, interrupt };
inline TransferType transferTypeOf(const EndpointDescriptor& endpoint) {
    return static_cast<TransferType>(endpoint.attributes & 3);
}

/// One of the settings that an interface can be switched to, with its endpoints in the descriptors' order.
struct AlternateSetting {
    std::uint8_t interface = 0, setting = 0;
    std::vector<EndpointDescriptor> endpoints{};
};

/// All settings of a configuration descriptor.
/// @return nothing if its descriptors don't fit each other or the bytes that are there
std::optional<std::vector<AlternateSetting>> alternateSettingsOf(std::span<const std::byte> configuration);

/// Whether a binary object store is whole.
bool isObjectStore(std::span<const std::byte> bytes);

}  // namespace hxr
