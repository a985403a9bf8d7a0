#include "link/device_interface.h"

#include <cstring>
#include <numeric>
#include <vector>

#include "cal/image.h"
#include "link/byte_order.h"
#include "link/words.h"

namespace hxr {
namespace {

constexpr int requestSlot = 0;
constexpr unsigned replyTimeoutMs = 4000;

// A data datagram: header, payload, trailer.
constexpr std::size_t dataDatagramBytes = 8216;
constexpr std::size_t dataHeaderBytes = 20;

}  // namespace

DeviceInterface::DeviceInterface(std::unique_ptr<UDPDevice> control, std::unique_ptr<UDPDevice> data,
                                 CalFolder folder, platform::Clock& clock)
    : clock_(clock),
      cache_(std::move(folder)),
      control_(std::move(control)),
      data_(std::move(data)),
      statusRequest_(singlePacket({words::statusRequest})),
      flashCopy_(platform::makeAligned<HXRCalData>()) {
    corrections_.image = platform::makeAligned<HXRCalData>();
    statusRequest_.expectStatus(1);
    cal::buildDummyCorrections(*corrections_.image);
    cal::fillErased(*flashCopy_);
}

DeviceInterface::~DeviceInterface() {
    // Nobody uses a link that is destroyed, so the claim is had.
    if (const ControlClaim control = claimControl(EndpointOwner::lifecycle)) control->close();
}

bool DeviceInterface::sendList(const ControlClaim& control, const CommandList& list) {
    for (std::size_t position = 0; position < list.packetCount(); ++position) {
        if (!sendPacket(control, list.packet(position).first<wordsPerPacket>())) return false;
    }
    return true;
}

bool DeviceInterface::sendPacket(const ControlClaim& control,
                                 std::span<const std::uint32_t, wordsPerPacket> words) {
    control->send(requestSlot, words.data());
    const bool lost = control->lost();
    const std::size_t sent = control->waitSend(requestSlot);
    if (!lost && sent == sendBytes) return true;
    loseLink();
    return false;
}

DeviceInterface::Answers DeviceInterface::request(const ControlClaim& control, const CommandList& list) {
    const auto sum = [](const std::vector<std::uint32_t>& counts) {
        return std::accumulate(counts.begin(), counts.end(), 0U);
    };
    const std::uint32_t replies = sum(list.dataReplies()) + sum(list.statusReplies());
    control->postReceives(requestSlot, static_cast<int>(replies), replyTimeoutMs);
    const bool sent = sendList(control, list);
    const ReceiveResult& received = *control->collectReceives(requestSlot);
    if (received.timedOut) loseLink();
    return {sent && !received.timedOut, received};
}

/// Sends a list that causes one datagram, and waits for it.
std::optional<std::span<const std::byte>> DeviceInterface::requestOne(const ControlClaim& control,
                                                                      const CommandList& list) {
    const auto [complete, received] = request(control, list);
    if (!complete) return std::nullopt;
    return std::span<const std::byte>(received.buffers[0], received.lengths[0]);
}

bool DeviceInterface::readStatus(const ControlClaim& control, StatusRecord* record) {
    if (record == nullptr) return false;
    const auto datagram = requestOne(control, statusRequest_);
    if (!datagram) return false;
    *record = StatusRecord(*datagram);
    return true;
}

bool DeviceInterface::setFlashReadMode(const ControlClaim& control, bool on) {
    return sendList(control, singlePacket({words::flashRoute, words::flashReadMode(on), words::pause(1),
                                           words::noOperation, words::noOperation}));
}

bool DeviceInterface::readFlashPage(const ControlClaim& control, std::uint16_t page, std::byte* buffer) {
    if (buffer == nullptr) return false;
    CommandList list = singlePacket({words::selectFlashPage(page), words::captureAndSend(1)});
    list.expectData(1);
    const auto datagram = requestOne(control, list);
    if (!datagram || datagram->size() != dataDatagramBytes) return false;

    // The page's words come most significant byte first.
    const auto payload = datagram->subspan(dataHeaderBytes, flashPageBytes);
    for (std::size_t offset = 0; offset < flashPageBytes; offset += sizeof(std::uint32_t)) {
        std::uint32_t word;
        std::memcpy(&word, payload.data() + offset, sizeof word);
        word = reversedBytes(word);
        std::memcpy(buffer + offset, &word, sizeof word);
    }
    return true;
}

HXRStatus DeviceInterface::openDataSocket(const DataClaim& data, std::uint16_t port) {
    if (!connected_) return hxrInvalidDeviceErr;
    if (!control_->isOpen() || port == control_->localPort()) return hxrInvalidConfigurationErr;
    if (data->isOpen()) data->close();
    data->open(control_->localAddress().c_str(), control_->remoteAddress().c_str(), port, port);
    return hxrNoError;
}

}  // namespace hxr
