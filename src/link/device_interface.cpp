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
    if (connected_) control_->close();
}

bool DeviceInterface::sendList(const CommandList& list) {
    for (std::size_t position = 0; position < list.packetCount(); ++position) {
        if (!sendPacket(list.packet(position).first<wordsPerPacket>())) return false;
    }
    return true;
}

bool DeviceInterface::sendPacket(std::span<const std::uint32_t, wordsPerPacket> words) {
    control_->send(requestSlot, words.data());
    const bool lost = control_->lost();
    const std::size_t sent = control_->waitSend(requestSlot);
    if (!lost && sent == sendBytes) return true;
    loseLink();
    return false;
}

DeviceInterface::Answers DeviceInterface::request(const CommandList& list) {
    const auto sum = [](const std::vector<std::uint32_t>& counts) {
        return std::accumulate(counts.begin(), counts.end(), 0U);
    };
    const std::uint32_t replies = sum(list.dataReplies()) + sum(list.statusReplies());
    control_->postReceives(requestSlot, static_cast<int>(replies), replyTimeoutMs);
    const bool sent = sendList(list);
    const ReceiveResult& received = *control_->collectReceives(requestSlot);
    if (received.timedOut) loseLink();
    return {sent && !received.timedOut, received};
}

/// Sends a list that causes one datagram, and waits for it.
std::optional<std::span<const std::byte>> DeviceInterface::requestOne(const CommandList& list) {
    const auto [complete, received] = request(list);
    if (!complete) return std::nullopt;
    return std::span<const std::byte>(received.buffers[0], received.lengths[0]);
}

bool DeviceInterface::readStatus(StatusRecord* record) {
    if (record == nullptr) return false;
    const auto datagram = requestOne(statusRequest_);
    if (!datagram) return false;
    *record = StatusRecord(*datagram);
    return true;
}

bool DeviceInterface::setFlashReadMode(bool on) {
    return sendList(singlePacket({words::flashRoute, words::flashReadMode(on), words::pause(1),
                                  words::noOperation, words::noOperation}));
}

bool DeviceInterface::readFlashPage(std::uint16_t page, std::byte* buffer) {
    if (buffer == nullptr) return false;
    CommandList list = singlePacket({words::selectFlashPage(page), words::captureAndSend(1)});
    list.expectData(1);
    const auto datagram = requestOne(list);
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

HXRStatus DeviceInterface::openDataSocket(std::uint16_t port) {
    if (!connected_) return hxrInvalidDeviceErr;
    if (!control_->isOpen() || port == control_->localPort()) return hxrInvalidConfigurationErr;
    if (data_->isOpen()) data_->close();
    data_->open(control_->localAddress().c_str(), control_->remoteAddress().c_str(), port, port);
    return hxrNoError;
}

}  // namespace hxr
