#include "link/device_interface.h"

#include <cstring>

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
      flashCopy_(platform::makeAligned<HXRCalData>()) {
    corrections_.image = platform::makeAligned<HXRCalData>();
    cal::buildDummyCorrections(*corrections_.image);
    cal::fillErased(*flashCopy_);
}

DeviceInterface::~DeviceInterface() {
    if (connected_) control_->close();
}

bool DeviceInterface::sendList(const CommandList& list) {
    for (std::size_t position = 0; position < list.packetCount(); ++position) {
        control_->send(requestSlot, list.packet(position).data());
        const bool lost = control_->lost();
        const std::size_t sent = control_->waitSend(requestSlot);
        if (lost || sent != sendBytes) {
            loseLink();
            return false;
        }
    }
    return true;
}

/// Sends a list that causes one datagram, and waits for it.
std::optional<std::span<const std::byte>> DeviceInterface::request(const CommandList& list) {
    control_->postReceives(requestSlot, 1, replyTimeoutMs);
    const bool sent = sendList(list);
    const ReceiveResult& result = *control_->collectReceives(requestSlot);
    if (result.timedOut) loseLink();
    if (!sent || result.timedOut) return std::nullopt;
    return std::span<const std::byte>(result.buffers[0], result.lengths[0]);
}

bool DeviceInterface::readStatus(StatusRecord* record) {
    if (record == nullptr) return false;
    CommandList list = singlePacket({words::statusRequest});
    list.expectStatus(1);
    const auto datagram = request(list);
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
    const auto datagram = request(list);
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
