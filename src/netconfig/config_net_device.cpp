#include "netconfig/config_net_device.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "netconfig/little_endian.h"

namespace hxr {
namespace {

constexpr std::size_t incomingBytes = 0x100000;
constexpr std::size_t inEndpoint = 2;  ///< its place in the interface's list
constexpr std::chrono::milliseconds transferTime{2000};

}  // namespace

TransferSlot::TransferSlot(CCyUSBEndPoint& endpoint, std::size_t roomBytes, std::size_t requestedLength)
    : endpoint_(endpoint),
      buffer_(platform::makeAlignedArray<std::byte>(roomBytes)),
      requestedLength_(requestedLength) {}

TransferSlot::~TransferSlot() { CCyUSBEndPoint::abort(pending_); }

bool TransferSlot::move(const platform::Clock& clock) {
    pending_ = endpoint_.beginTransfer(requested());
    const bool cameInTime = CCyUSBEndPoint::wait(pending_, clock.timeout(transferTime));
    if (!cameInTime) {
        CCyUSBEndPoint::abort(pending_);
        CCyUSBEndPoint::wait(pending_, clock.timeout(transferTime));
    }
    std::size_t moved = 0;
    return endpoint_.finishTransfer(requested(), moved, pending_) && cameInTime && moved == requestedLength_;
}

bool ConfigNetDevice::setUp(std::unique_ptr<USBDevice> device) {
    if (usb_) return false;
    if (!device->selectAlternateSetting(0)) return false;
    CCyUSBEndPoint* const out = device->bulkOut();
    if (out == nullptr || device->endpoints().size() <= inEndpoint) return false;
    CCyUSBEndPoint& in = *device->endpoints()[inEndpoint];
    if (!in.isIn) return false;
    outSlot_.emplace(*out, messageSize, messageSize);
    inSlot_.emplace(in, incomingBytes, replyBytes);
    serialNumber_ = serialOf(*device).value_or(-1);
    usb_ = std::move(device);
    return true;
}

void ConfigNetDevice::close() {
    outSlot_.reset();
    inSlot_.reset();
    reply_ = {};
    if (const auto usb = std::move(usb_)) usb->close();
}

HXRStatus ConfigNetDevice::send(Opcode opcode, std::uint16_t argument, std::span<const std::byte> payload) {
    if (status_ != hxrNoError) return status_;
    constexpr std::size_t opcodeAt = 2, payloadAt = 4;
    const auto message = outSlot_->requested();
    std::ranges::fill(message, std::byte{0});
    putHalfWord(message, 0, argument);
    putHalfWord(message, opcodeAt, static_cast<std::uint16_t>(opcode));
    std::ranges::copy(payload, message.begin() + payloadAt);
    note(outSlot_->move(clock_));
    return status_;
}

HXRStatus ConfigNetDevice::ask(Opcode opcode, std::uint16_t argument) {
    if (const HXRStatus sent = send(opcode, argument); sent != hxrNoError) return sent;
    note(inSlot_->move(clock_));
    if (status_ == hxrNoError) reply_ = inSlot_->requested();
    return status_;
}

std::optional<std::int32_t> serialOf(const USBDevice& device) {
    constexpr std::size_t digits = 8;
    constexpr char16_t beyondPlain = 0x80;
    const std::u16string& text = device.serialNumber();
    if (text.size() != digits ||
        std::ranges::any_of(text, [](char16_t c) { return c == 0 || c >= beyondPlain; }))
        return std::nullopt;
    return std::atoi(std::string(text.begin(), text.end()).c_str());
}

}  // namespace hxr
