#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "netconfig/usb_descriptors.h"
#include "netconfig/usb_endpoint.h"
#include "platform/usb_bus.h"

namespace hxr {

/// The class of devices that a unit's USB controller belongs to, in memory order.
using ClassGuid = std::array<std::uint8_t, 16>;
inline constexpr ClassGuid unitClass{0x60, 0xAA, 0x18, 0xAE, 0x6A, 0x7F, 0xD4, 0x11,
                                     0x97, 0xDD, 0x00, 0x01, 0x02, 0x29, 0xB9, 0x59};

/// A unit with firmware, and its controller's boot loader, which make up the class.
inline constexpr platform::UsbIdentity unitIdentity{0x7D31, 0x000E};
inline constexpr platform::UsbIdentity bootLoaderIdentity{0x04B4, 0x00F3};

/// Finds devices of a class, and holds one of them open at a time.
class USBDevice {
  public:
    /// Remembers the class and tries to open its first device.
    /// @throws std::bad_alloc
    USBDevice(platform::UsbBus& bus, const ClassGuid& guid);
    /// Closes what is open, whatever comes of it.
    ~USBDevice();
    USBDevice(const USBDevice&) = delete;
    USBDevice& operator=(const USBDevice&) = delete;

    /// Devices of the class that are there now, at most 255.
    int deviceCount() const;

    /// Closes what is open and opens the device at a position, in the alternate setting in which it reports itself. Takes it
    /// away from nobody. Wrong descriptors are told on standard error.
    ///
    /// @return false, with nothing open, if there is none or its configuration has no interface
    /// @throws as `close`; std::bad_alloc
    bool open(int position);
    bool isOpen() const { return connection_ != nullptr; }

    /// @throws std::runtime_error if the system refuses; the device is given up all the same
    void close();

    /// Takes the device's interface for this process and brings it into an alternate setting, unless it reports that it is
    /// there.
    /// @return false if there is no such setting, the device refuses, or somebody else has the interface
    bool selectAlternateSetting(std::uint8_t setting);

    // Of the open device:

    std::uint16_t vendorId() const { return identity_.vendor; }
    std::uint16_t productId() const { return identity_.product; }
    /// In 16-bit characters; empty if it has none.
    const std::u16string& serialNumber() const { return serialNumber_; }

    /// The endpoints of the current setting in the descriptors' order, behind the control endpoint.
    std::span<CCyUSBEndPoint* const> endpoints() const { return current_; }
    CCyControlEndPoint& control() const { return *control_; }
    /// The first bulk OUT endpoint; null if there is none.
    CCyUSBEndPoint* bulkOut() const;

  private:
    using Endpoints = std::vector<std::unique_ptr<CCyUSBEndPoint>>;

    std::vector<std::unique_ptr<platform::UsbDevice>> devices() const;
    bool readDescriptors();
    std::u16string readString(std::uint8_t index);
    void takeEndpoints();

    platform::UsbBus& bus_;
    const ClassGuid guid_;
    platform::UsbIdentity identity_{};
    std::unique_ptr<platform::UsbConnection> connection_;
    std::u16string serialNumber_;
    std::vector<AlternateSetting> settings_;
    std::uint8_t interface_ = 0, setting_ = 0;
    std::unique_ptr<CCyControlEndPoint> control_;
    std::vector<Endpoints> made_;  ///< by alternate setting
    std::vector<CCyUSBEndPoint*> current_;
};

}  // namespace hxr
