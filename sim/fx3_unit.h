#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/usb_flash.h"

namespace hxr::sim {

/// What comes of a request on the USB.
enum class UsbAnswer {
    done,
    stalled,
    silent,  ///< nothing ever comes, until the host gives up
    gone,    ///< the unit was pulled out
};

/// The unit's side of one interface: its endpoints, by alternate setting.
struct UsbEndpoint {
    std::uint8_t address, attributes;
    std::uint16_t maxPacketSize;
};

struct Fx3Options {
    std::u16string serialNumber = u"12345678";
    /// Without firmware in its flash the controller comes up in its boot loader.
    bool blank = false;
    std::uint32_t firmwareVersion = 0x0102;
    /// Times that the FPGA says it is busy, and what it says then.
    int fpgaBusy = 0;
    std::uint8_t fpgaState = 2;
    /// Times that an erase is still busy when it is asked.
    int eraseBusy = 2;
    std::vector<std::vector<UsbEndpoint>> alternateSettings = {{{0x01, 2, 512}, {0x81, 2, 512}}};
    std::uint8_t presentSetting = 0;
    bool superSpeed = true;
};

/// A unit's USB controller: a boot loader, or the firmware that answers messages of 512 bytes, with registers and flash.
/// One thread at a time.
class Fx3Unit {
  public:
    static constexpr std::size_t messageBytes = 512, replyBytes = 32768;

    explicit Fx3Unit(Fx3Options options = {});

    std::uint16_t vendor() const { return inBootLoader_ ? 0x04B4 : 0x7D31; }
    std::uint16_t product() const { return inBootLoader_ ? 0x00F3 : 0x000E; }

    struct Setup {
        std::uint8_t requestType, request;
        std::uint16_t value, index, length;
    };
    /// A request on the control endpoint.
    /// @param data  what comes with it; receives what is given back
    UsbAnswer control(const Setup& setup, std::vector<std::uint8_t>& data);
    /// Bytes on the bulk endpoint that goes out.
    UsbAnswer bulkOut(std::span<const std::uint8_t> message);
    /// Bytes on the bulk endpoint that comes in.
    UsbAnswer bulkIn(std::size_t most, std::vector<std::uint8_t>& data);

    /// Any descriptor; empty if there is none.
    std::vector<std::uint8_t> descriptor(std::uint8_t type, std::uint8_t index) const;
    /// Other bytes in a descriptor's place.
    void setDescriptor(std::uint8_t type, std::vector<std::uint8_t> bytes) {
        replaced_[type] = std::move(bytes);
    }

    /// Takes the power off and on: the controller boots from its flash, and the registers are those of its records.
    void powerCycle();

    /// The next bulk transfers pass; the one after them comes to this.
    /// @param shortened  it is done, with so many bytes fewer than asked
    void fail(std::size_t after, UsbAnswer answer, std::size_t shortened = 0);
    /// The next requests to the boot loader's memory pass; those after them come to this.
    void failMemory(std::size_t after, UsbAnswer answer, std::size_t times);
    /// A read back from that address gives another byte, so many times.
    void spoilMemory(std::uint32_t address, int times) { spoiled_ = {address, times}; }

    UsbFlash flash;
    std::map<std::uint16_t, std::uint32_t> registers;

    /// The opcodes of all messages so far.
    const std::vector<std::uint16_t>& messages() const { return messages_; }
    std::size_t memoryRequests() const { return memoryRequests_; }
    std::size_t settingRequests() const { return settingRequests_; }
    /// What the firmware didn't understand, and what its rules forbid: pages that are written while an erase runs, or
    /// blocks that don't begin where they should.
    std::size_t brokenRules() const { return brokenRules_; }
    bool inBootLoader() const { return inBootLoader_; }

  private:
    struct Failure {
        std::size_t after = 0, shortened = 0, times = 0;
        UsbAnswer answer = UsbAnswer::done;
    };
    struct Spoiled {
        std::uint32_t address = 0;
        int times = 0;
    };

    bool firmwareIsInFlash() const;
    void boot();
    void startFirmware(std::uint32_t entry);
    UsbAnswer memoryRequest(const Setup& setup, std::vector<std::uint8_t>& data);
    UsbAnswer takeFailure(std::size_t& shortened);
    std::vector<std::uint8_t> replyTo(std::uint16_t opcode, std::uint16_t argument);
    void breakRule() { ++brokenRules_; }

    Fx3Options options_;
    bool inBootLoader_ = false;
    bool gone_ = false;
    std::map<std::uint32_t, std::uint8_t> ram_;
    std::map<std::uint8_t, std::vector<std::uint8_t>> replaced_;
    std::optional<std::vector<std::uint8_t>> reply_;
    int fpgaBusyLeft_ = 0, eraseBusyLeft_ = 0;
    std::vector<std::uint16_t> messages_;
    std::size_t memoryRequests_ = 0, settingRequests_ = 0, brokenRules_ = 0;
    std::optional<Failure> failure_, memoryFailure_;
    Spoiled spoiled_;
};

/// A boot image with a serial-number string and a version, in records of these lengths in bytes.
std::vector<std::uint8_t> makeFirmwareImage(std::u16string_view serialNumber, std::uint16_t version,
                                            std::span<const std::size_t> records);

}  // namespace hxr::sim
