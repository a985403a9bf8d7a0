#include "netconfig/usb_descriptors.h"

#include <algorithm>
#include <utility>

#include "netconfig/little_endian.h"

namespace hxr {
namespace {

std::uint8_t byteAt(std::span<const std::byte> bytes, std::size_t offset) {
    return std::to_integer<std::uint8_t>(bytes[offset]);
}
std::uint8_t typeOf(std::span<const std::byte> descriptor) { return byteAt(descriptor, 1); }

/// The descriptors behind a head that tells the length of all, one after the other.
class DescriptorRow {
  public:
    DescriptorRow(std::span<const std::byte> bytes, std::uint8_t headType, std::size_t headBytes) {
        if (bytes.size() < headBytes || typeOf(bytes) != headType || byteAt(bytes, 0) < headBytes ||
            halfWordAt(bytes, 2) < byteAt(bytes, 0) || halfWordAt(bytes, 2) > bytes.size())
            return;
        rest_ = bytes.first(halfWordAt(bytes, 2)).subspan(byteAt(bytes, 0));
        whole_ = true;
    }

    /// The next one; empty at the end, and where there is no whole one.
    std::span<const std::byte> next() {
        if (rest_.empty()) return {};
        whole_ = rest_.size() >= 2 && byteAt(rest_, 0) >= 2 && byteAt(rest_, 0) <= rest_.size();
        if (!whole_) return {};
        const auto descriptor = rest_.first(byteAt(rest_, 0));
        rest_ = rest_.subspan(descriptor.size());
        return descriptor;
    }

    /// Whether all so far were whole.
    bool whole() const { return whole_; }

  private:
    std::span<const std::byte> rest_;
    bool whole_ = false;
};

EndpointDescriptor endpointOf(std::span<const std::byte> descriptor) {
    constexpr unsigned sizeBits = 11;
    const std::uint16_t size = halfWordAt(descriptor, 4);
    EndpointDescriptor endpoint{.descriptorLength = byteAt(descriptor, 0),
                                .descriptorType = byteAt(descriptor, 1),
                                .address = byteAt(descriptor, 2),
                                .attributes = byteAt(descriptor, 3)};
    endpoint.packetsPerFrame = static_cast<std::uint16_t>((size >> sizeBits & 3) + 1);
    endpoint.maxPacketSize =
        static_cast<std::uint16_t>((size & ((1U << sizeBits) - 1)) * endpoint.packetsPerFrame);
    endpoint.interval = byteAt(descriptor, 6);
    return endpoint;
}

void addCompanion(EndpointDescriptor& endpoint, std::span<const std::byte> descriptor) {
    endpoint.companionLength = byteAt(descriptor, 0);
    endpoint.companionType = byteAt(descriptor, 1);
    endpoint.burst = byteAt(descriptor, 2);
    endpoint.companionAttributes = byteAt(descriptor, 3);
    endpoint.bytesPerInterval = halfWordAt(descriptor, 4);
    std::uint32_t size = endpoint.maxPacketSize * (endpoint.burst + 1U);
    if (transferTypeOf(endpoint) == TransferType::isochronous)
        size *= (endpoint.companionAttributes & 3U) + 1;
    endpoint.maxPacketSize = static_cast<std::uint16_t>(std::min(size, 0xFFFFU));
}

}  // namespace

std::optional<std::vector<AlternateSetting>> alternateSettingsOf(std::span<const std::byte> configuration) {
    constexpr std::size_t headBytes = 9, interfaceBytes = 9, endpointBytes = 7, companionBytes = 6;
    DescriptorRow row(configuration, descriptor_type::configuration, headBytes);
    std::vector<AlternateSetting> settings;
    EndpointDescriptor* lastEndpoint = nullptr;  // the descriptor before was its
    while (true) {
        const auto descriptor = row.next();
        if (descriptor.empty()) break;
        EndpointDescriptor* const before = std::exchange(lastEndpoint, nullptr);
        const auto is = [&](std::uint8_t wanted) { return typeOf(descriptor) == wanted; };
        if (is(descriptor_type::interface)) {
            if (descriptor.size() < interfaceBytes) return std::nullopt;
            settings.push_back({.interface = byteAt(descriptor, 2), .setting = byteAt(descriptor, 3)});
        } else if (is(descriptor_type::endpoint)) {
            if (descriptor.size() < endpointBytes) return std::nullopt;
            if (settings.empty()) continue;  // of no interface
            lastEndpoint = &settings.back().endpoints.emplace_back(endpointOf(descriptor));
        } else if (is(descriptor_type::companion) && before != nullptr) {
            if (descriptor.size() < companionBytes) return std::nullopt;
            addCompanion(*before, descriptor);
        }
    }
    if (!row.whole()) return std::nullopt;
    return settings;
}

bool isObjectStore(std::span<const std::byte> bytes) {
    constexpr std::size_t headBytes = 5;
    DescriptorRow row(bytes, descriptor_type::objectStore, headBytes);
    while (!row.next().empty()) {
    }
    return row.whole();
}

}  // namespace hxr
