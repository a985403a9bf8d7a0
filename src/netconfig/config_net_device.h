/// A unit on its USB port, and the messages that its firmware takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "hxr_api.h"
#include "netconfig/usb_device.h"
#include "platform/aligned_memory.h"
#include "platform/clock.h"

namespace hxr {

/// What a message asks for.
enum class Opcode : std::uint16_t {
    pageThirdPart = 0xFFF2,
    pageSecondPart = 0xFFF1,
    pageFirstPart = 0xFFF0,
    fpgaStatus = 0xFFEF,
    writeRegister = 0xFFF3,
    readRegister = 0xFFF4,
    eraseStatus = 0xFFF9,
    preset = 0xFFFA,
    eraseBlock = 0xFFFC,
    readFlash = 0xFFFD,
    firmwareVersion = 0xFFFF,
};

inline constexpr std::size_t replyBytes = 32768;

/// One direction of the traffic.
class TransferSlot {
  public:
    /// @throws std::bad_alloc
    TransferSlot(CCyUSBEndPoint& endpoint, std::size_t roomBytes, std::size_t requestedLength);
    ~TransferSlot();
    TransferSlot(const TransferSlot&) = delete;
    TransferSlot& operator=(const TransferSlot&) = delete;

    std::span<std::byte> requested() { return {buffer_.get(), requestedLength_}; }

    /// Moves the requested bytes between buffer and unit; waits up to 2000 ms, and as long again for the end of a transfer
    /// that it has cancelled then.
    /// @return whether all of them were moved in time
    bool move(const platform::Clock& clock);

  private:
    CCyUSBEndPoint& endpoint_;
    platform::AlignedArray<std::byte> buffer_;
    std::size_t requestedLength_;
    PendingTransfer pending_;
};

/// An open unit. A failed transfer is remembered for good: after it nothing is sent any more.
class ConfigNetDevice {
  public:
    static constexpr std::size_t messageSize = 512;
    static constexpr std::size_t payloadBytes = messageSize - 4;

    explicit ConfigNetDevice(platform::Clock& clock) : clock_(clock) {}

    /// Takes an open device for its own. A second one is refused.
    /// @return whether it has what it takes: alternate setting 0, a bulk OUT endpoint and an endpoint for replies
    /// @throws std::bad_alloc
    bool setUp(std::unique_ptr<USBDevice> device);

    /// @throws std::runtime_error if the system refuses to close the device, which is given up all the same
    void close();

    /// Sends a message that isn't answered.
    HXRStatus send(Opcode opcode, std::uint16_t argument, std::span<const std::byte> payload = {});
    /// Sends a message and waits for its reply.
    HXRStatus ask(Opcode opcode, std::uint16_t argument);
    /// The last reply, until the next.
    std::span<const std::byte> reply() const { return reply_; }

    /// `hxrNoError` or, for good, `hxrConnectionLostErr`.
    HXRStatus status() const { return status_; }
    /// -1 if the device's isn't eight characters long.
    std::int32_t serialNumber() const { return serialNumber_; }
    platform::Clock& clock() const { return clock_; }

  private:
    void note(bool moved) {
        if (!moved) status_ = hxrConnectionLostErr;
    }

    platform::Clock& clock_;
    std::unique_ptr<USBDevice> usb_;
    std::optional<TransferSlot> outSlot_, inSlot_;
    std::span<const std::byte> reply_;
    std::int32_t serialNumber_ = -1;
    HXRStatus status_ = hxrNoError;
};

/// The number in a unit's serial-number string, nothing if that isn't eight plain characters.
std::optional<std::int32_t> serialOf(const USBDevice& device);

}  // namespace hxr
