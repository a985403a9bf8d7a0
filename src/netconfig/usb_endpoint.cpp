#include "netconfig/usb_endpoint.h"

#include <algorithm>

namespace hxr {
namespace {

constexpr std::uint8_t inBit = 0x80;
constexpr std::chrono::milliseconds abortTime{50};

EndpointDescriptor controlDescriptor() { return {.descriptorLength = 7, .descriptorType = 5}; }

}  // namespace

CCyUSBEndPoint::CCyUSBEndPoint(platform::UsbConnection& connection, const EndpointDescriptor& description,
                               bool isDirect)
    : device(connection),
      descriptor(description),
      isIn((description.address & inBit) != 0),
      direct(isDirect) {}

std::unique_ptr<platform::UsbTransfer> CCyUSBEndPoint::submit(std::span<std::byte> data) {
    return device.submit(descriptor.address, data);
}

PendingTransfer CCyUSBEndPoint::beginDirectTransfer(std::span<std::byte> buffer) {
    PendingTransfer pending;
    pending.transfer = submit(buffer);
    lastError = pending.transfer ? 0 : 1;
    return pending;
}

PendingTransfer CCyUSBEndPoint::beginBufferedTransfer(std::span<std::byte> buffer) {
    PendingTransfer pending{.copy = {buffer.begin(), buffer.end()}};
    pending.transfer = submit(pending.copy);
    lastError = pending.transfer ? 0 : 1;
    return pending;
}

bool CCyUSBEndPoint::finishTransfer(std::span<std::byte> buffer, std::size_t& length,
                                    PendingTransfer& pending) {
    const auto copy = std::move(pending.copy);  // goes after the transfer, which may still use it
    const auto transfer = std::move(pending.transfer);
    const bool cameBack = transfer && transfer->wait(std::chrono::milliseconds(0));
    const auto outcome = cameBack ? transfer->outcome() : platform::UsbOutcome::failed;
    length = cameBack ? transfer->moved() : 0;
    lastLength = static_cast<std::uint32_t>(length);
    usbStatus = outcome == platform::UsbOutcome::stalled ? 1 : 0;
    transferStatus = usbStatus == 0 ? static_cast<std::uint32_t>(outcome) : 0;
    if (movesIn() && !copy.empty())
        std::copy_n(copy.begin(), std::min(length, buffer.size()), buffer.begin());
    return usbStatus == 0 && transferStatus == 0;
}

bool CCyUSBEndPoint::wait(PendingTransfer& pending, std::chrono::milliseconds atMost) {
    return pending.transfer && pending.transfer->wait(atMost);
}

void CCyUSBEndPoint::abort(PendingTransfer& pending) {
    if (pending.transfer) pending.transfer->cancel();
}

CCyControlEndPoint::CCyControlEndPoint(platform::UsbConnection& connection)
    : CCyUSBEndPoint(connection, controlDescriptor(), false) {}

std::unique_ptr<platform::UsbTransfer> CCyControlEndPoint::submit(std::span<std::byte> data) {
    constexpr unsigned directionBit = 7, typeBit = 5;
    const auto type = static_cast<std::uint8_t>(direction << directionBit | requestType << typeBit | target);
    const std::chrono::seconds wholeSeconds{timeOut / 1000};
    return device.submitControl({type, request, value, index}, data, wholeSeconds);
}

bool CCyControlEndPoint::transfer(std::span<std::byte> data, const platform::Clock& clock) {
    PendingTransfer pending = beginTransfer(data);
    const bool cameInTime = wait(pending, clock.timeout(std::chrono::milliseconds(timeOut)));
    if (!cameInTime && pending.transfer) {
        abort(pending);
        if (!wait(pending, abortTime)) {
            abort(pending);
            wait(pending, clock.timeout(platform::UsbTransfer::cancelTime));
        }
    }
    std::size_t length = 0;
    return finishTransfer(data, length, pending) && cameInTime;
}

bool CCyControlEndPoint::vendorRequest(bool in, std::uint8_t code, std::uint32_t address,
                                       std::span<std::byte> data, const platform::Clock& clock) {
    target = 0;
    requestType = 2;
    direction = in ? 1 : 0;
    request = code;
    value = static_cast<std::uint16_t>(address);
    index = static_cast<std::uint16_t>(address >> 16);
    return transfer(data, clock);
}

std::unique_ptr<CCyUSBEndPoint> makeEndpoint(platform::UsbConnection& connection,
                                             const EndpointDescriptor& description) {
    switch (transferTypeOf(description)) {
        case TransferType::bulk:
            return std::make_unique<CCyBulkEndPoint>(connection, description);
        case TransferType::interrupt:
            return std::make_unique<CCyInterruptEndPoint>(connection, description);
        case TransferType::isochronous:
            return std::make_unique<CCyIsocEndPoint>(connection, description);
        case TransferType::control:
            break;
    }
    return nullptr;  // a second control endpoint, on which nothing is known to speak
}

}  // namespace hxr
