/// The system's USB: which devices are there, and transfers on the endpoints of one of them. No call throws unless it
/// says so.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace hxr::platform {

struct UsbIdentity {
    std::uint16_t vendor, product;
    bool operator==(const UsbIdentity&) const = default;
};

/// What a control transfer says ahead of its data, as on the wire.
struct UsbSetup {
    std::uint8_t requestType;  ///< bit 7: the data come in
    std::uint8_t request;
    std::uint16_t value, index;
};

/// How a transfer came back.
enum class UsbOutcome {
    done,       ///< perhaps with less than was asked for
    stalled,    ///< the device refuses it
    cancelled,  ///< here, or after the time that it was given
    failed,
    gone,  ///< the device isn't there any more
};

/// A transfer under way. Its destructor cancels it and waits until it has come back, for up to `cancelTime` from the first
/// cancel. One that doesn't come back then is abandoned: the data stay untouched, and the close of its connection tells.
class UsbTransfer {
  public:
    static constexpr std::chrono::milliseconds cancelTime{5000};

    virtual ~UsbTransfer() = default;

    /// Waits for it to come back.
    /// @return false if it hasn't in that time
    virtual bool wait(std::chrono::milliseconds atMost) = 0;

    /// Asks for its end. It comes back, perhaps with what was moved before.
    virtual void cancel() = 0;

    /// How a transfer that came back did so.
    virtual UsbOutcome outcome() const = 0;
    /// The bytes that it has moved.
    virtual std::size_t moved() const = 0;
};

/// An open device. One thread at a time.
class UsbConnection {
  public:
    /// Closes it, whatever comes of that.
    virtual ~UsbConnection() = default;

    /// A descriptor as the device has it: all of it, as far as the device gives it. Empty if it has none.
    /// @throws std::bad_alloc
    virtual std::vector<std::byte> descriptor(std::uint8_t type, std::uint8_t index,
                                              std::uint16_t language = 0) = 0;

    /// Takes an interface for this process; another driver that holds it lets it go until the close.
    /// @return false if somebody else has it
    virtual bool claim(std::uint8_t interface) = 0;

    /// The alternate setting that an interface of the device is in; 0 where that isn't known.
    virtual std::uint8_t alternateSetting(std::uint8_t interface) = 0;
    /// Asks the device to switch a claimed interface.
    virtual bool selectAlternateSetting(std::uint8_t interface, std::uint8_t setting) = 0;

    /// Starts a transfer on a bulk or interrupt endpoint of a claimed interface.
    /// @param data  stays until the transfer is destroyed
    /// @return null if it can't be started
    virtual std::unique_ptr<UsbTransfer> submit(std::uint8_t endpoint, std::span<std::byte> data) = 0;

    /// Starts a transfer on the control endpoint.
    /// @param atMost  after which it comes back cancelled
    virtual std::unique_ptr<UsbTransfer> submitControl(const UsbSetup& setup, std::span<std::byte> data,
                                                       std::chrono::milliseconds atMost) = 0;

    /// Gives claimed interfaces back and closes the device. To be called when its transfers have been destroyed.
    /// @return false if the system refuses, or if a transfer was abandoned
    virtual bool close() = 0;
};

/// A device that is there, not open.
class UsbDevice {
  public:
    virtual ~UsbDevice() = default;

    virtual UsbIdentity identity() const = 0;

    /// Opens it, which takes it away from nobody.
    /// @return null if the system refuses
    virtual std::unique_ptr<UsbConnection> open() = 0;
};

class UsbBus {
  public:
    virtual ~UsbBus() = default;

    /// The devices that are there now, in an order that stays while none comes or goes.
    /// @throws std::bad_alloc
    virtual std::vector<std::unique_ptr<UsbDevice>> devices() = 0;
};

/// The machine's USB; without any device where it has none, or where the library was built without.
UsbBus& systemUsbBus();

}  // namespace hxr::platform
