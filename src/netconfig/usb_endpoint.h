/// The endpoints of an open device, and transfers on them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "netconfig/usb_descriptors.h"
#include "platform/clock.h"
#include "platform/usb_bus.h"

namespace hxr {

/// A transfer that was begun and not finished.
struct PendingTransfer {
    std::vector<std::byte> copy;                        ///< the data, where the caller's buffer isn't used
    std::unique_ptr<platform::UsbTransfer> transfer{};  ///< null if it didn't start; ends before its data
};

/// An endpoint: its descriptor, and what the last transfer left behind. A transfer is begun, waited for, aborted where it
/// doesn't come, and finished, one at a time.
class CCyUSBEndPoint {
  public:
    CCyUSBEndPoint(platform::UsbConnection& connection, const EndpointDescriptor& description, bool isDirect);
    virtual ~CCyUSBEndPoint() = default;
    CCyUSBEndPoint(const CCyUSBEndPoint&) = delete;
    CCyUSBEndPoint& operator=(const CCyUSBEndPoint&) = delete;

    /// Begins a transfer straight on the caller's buffer, which stays until it is finished.
    virtual PendingTransfer beginDirectTransfer(std::span<std::byte> buffer);
    /// Begins a transfer on a copy.
    virtual PendingTransfer beginBufferedTransfer(std::span<std::byte> buffer);
    /// Begins a transfer in the endpoint's own way.
    virtual PendingTransfer beginTransfer(std::span<std::byte> buffer) = 0;
    /// Collects what came of a transfer.
    /// @param buffer  gets the data of an IN transfer that ran on a copy
    /// @param length  receives the bytes moved
    /// @return whether it started, came back, and neither the device nor the system found anything wrong
    virtual bool finishTransfer(std::span<std::byte> buffer, std::size_t& length, PendingTransfer& pending);

    /// @return false if the transfer didn't come back in that time, or was never started
    static bool wait(PendingTransfer& pending, std::chrono::milliseconds atMost);

    /// Cancels a transfer of this endpoint that is under way.
    static void abort(PendingTransfer& pending);

    platform::UsbConnection& device;
    const EndpointDescriptor descriptor;
    std::uint32_t timeOut = 10000;                    ///< ms
    std::uint32_t usbStatus = 0, transferStatus = 0;  ///< left by the last transfer: 0 if nothing was wrong
    std::uint32_t lastLength = 0;                     ///< bytes that the last transfer moved
    std::uint32_t lastError = 0;                      ///< whether the last transfer didn't even start
    const bool isIn;
    const bool direct;  ///< transfers use the caller's buffer

  protected:
    virtual bool movesIn() const { return isIn; }
    virtual std::unique_ptr<platform::UsbTransfer> submit(std::span<std::byte> data);
};

/// The endpoint that every device has.
class CCyControlEndPoint final : public CCyUSBEndPoint {
  public:
    explicit CCyControlEndPoint(platform::UsbConnection& connection);

    PendingTransfer beginTransfer(std::span<std::byte> buffer) override {
        return beginBufferedTransfer(buffer);
    }

    /// Makes a transfer as the fields below say, and waits for it.
    bool transfer(std::span<std::byte> data, const platform::Clock& clock);

    /// Makes a vendor's request of the device with an address of 32 bits.
    bool vendorRequest(bool in, std::uint8_t code, std::uint32_t address, std::span<std::byte> data,
                       const platform::Clock& clock);

    std::uint8_t target = 0;       ///< the device
    std::uint8_t requestType = 2;  ///< the vendor's
    std::uint8_t direction = 0;    ///< 0 out, 1 in
    std::uint8_t request = 0;
    std::uint16_t value = 0, index = 0;

  private:
    bool movesIn() const override { return direction != 0; }
    std::unique_ptr<platform::UsbTransfer> submit(std::span<std::byte> data) override;
};

class CCyBulkEndPoint final : public CCyUSBEndPoint {
  public:
    CCyBulkEndPoint(platform::UsbConnection& connection, const EndpointDescriptor& description)
        : CCyUSBEndPoint(connection, description, true) {}
    PendingTransfer beginTransfer(std::span<std::byte> buffer) override {
        return beginDirectTransfer(buffer);
    }
};

class CCyInterruptEndPoint final : public CCyUSBEndPoint {
  public:
    CCyInterruptEndPoint(platform::UsbConnection& connection, const EndpointDescriptor& description)
        : CCyUSBEndPoint(connection, description, true) {}
    PendingTransfer beginTransfer(std::span<std::byte> buffer) override {
        return beginDirectTransfer(buffer);
    }
};

/// Is there because a descriptor lists it; nothing is moved on it.
class CCyIsocEndPoint final : public CCyUSBEndPoint {
  public:
    CCyIsocEndPoint(platform::UsbConnection& connection, const EndpointDescriptor& description)
        : CCyUSBEndPoint(connection, description, true) {}
    PendingTransfer beginDirectTransfer(std::span<std::byte> buffer) override {
        return beginTransfer(buffer);
    }
    PendingTransfer beginBufferedTransfer(std::span<std::byte> buffer) override {
        return beginTransfer(buffer);
    }
    PendingTransfer beginTransfer(std::span<std::byte>) override { return {}; }
};

/// The endpoint that a descriptor describes.
std::unique_ptr<CCyUSBEndPoint> makeEndpoint(platform::UsbConnection& connection,
                                             const EndpointDescriptor& description);

}  // namespace hxr
