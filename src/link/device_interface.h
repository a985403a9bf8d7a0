#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "cal/correction_state.h"
#include "hxr_api.h"
#include "link/command_list.h"
#include "link/flash_cache.h"
#include "link/status_record.h"
#include "link/udp_device.h"
#include "platform/clock.h"

namespace hxr {

/// Bytes of a flash page as it is read over the network.
inline constexpr std::size_t flashPageBytes = 8192;

/// The serial number of a unit that hasn't told it.
inline constexpr std::uint32_t unknownSerial = 0xFFFFFFFF;

/// The link of one unit: its control endpoint for lists, status, flash pages and captures; its data endpoint
/// for streams; and its calibration image.
///
/// There are no sequence numbers and no repetitions: replies are known by order and number alone. A reply
/// that doesn't come makes `lastStatus` `hxrConnectionLostErr` for the link's life, and every later operation
/// says so.
///
/// Operations that send use slot 0 of the control endpoint and have no lock: one thread at a time.
class DeviceInterface {
  public:
    /// @param control, data  closed endpoints
    /// @param folder         where the unit's calibration cache lies
    /// @throws std::bad_alloc
    DeviceInterface(std::unique_ptr<UDPDevice> control, std::unique_ptr<UDPDevice> data, CalFolder folder,
                    platform::Clock& clock);

    virtual ~DeviceInterface();
    DeviceInterface(const DeviceInterface&) = delete;
    DeviceInterface& operator=(const DeviceInterface&) = delete;

    /// First contact with the unit, then date and time, then the calibration image, from the cache where it
    /// is up to date and from flash where not. Runs once; after a failure the object is of no more use.
    ///
    /// @return `hxrNoError`, also with an image that ends where the unit answered with something else than a
    ///         page; `hxrDeviceNotFoundErr` if the control endpoint doesn't open; `hxrConnectionLostErr`
    HXRStatus attach(const char* hostAddr, const char* deviceAddr, std::uint16_t port);

    /// Opens the data endpoint on `port` at both ends, or opens it anew. That it didn't open is not reported.
    ///
    /// @return `hxrInvalidDeviceErr` before attach; `hxrInvalidConfigurationErr` if the control endpoint is
    ///         closed or has this port
    HXRStatus openDataSocket(std::uint16_t port);

    /// Sends all packets of a list, one behind the other. The unit runs them unanswered.
    /// @return false if the link is lost; the packets behind the failing one are not sent
    bool sendList(const CommandList& list);

    /// Sends one packet's words, which needs no memory.
    /// @return false if the link is lost
    bool sendPacket(std::span<const std::uint32_t, wordsPerPacket> words);

    /// What a list has caused, in buffers that stay until the next request. What is missing has lost the link.
    struct Answers {
        bool complete;
        const ReceiveResult& received;
    };

    /// Sends a list that causes at most 256 datagrams, and waits up to 4000 ms for each 64 of them.
    Answers request(const CommandList& list);

    /// Asks for one status record and waits up to 4000 ms for it; needs no memory.
    /// @return false for a null pointer, without touching the link, or if the link is lost; `record` is then
    ///         as it was
    bool readStatus(StatusRecord* record);

    /// Leads flash pages to the control endpoint, or ends that.
    bool setFlashReadMode(bool on);

    /// Reads one page of flash in flash read mode; waits up to 4000 ms.
    ///
    /// @param buffer  receives `flashPageBytes`
    /// @return false for a null pointer, without any traffic; if the link is lost; or, with the link in
    ///         order, if the unit answered with something else than a page
    bool readFlashPage(std::uint16_t page, std::byte* buffer);

    /// `hxrNoError` or, for good, `hxrConnectionLostErr`.
    HXRStatus lastStatus() const { return linkStatus_; }

    /// Says that a reply hasn't come that someone else has waited for. May be called from any thread.
    void loseLink() { linkStatus_ = hxrConnectionLostErr; }

    bool connected() const { return connected_; }
    std::uint32_t serialNumber() const { return serialNumber_; }
    bool calChecksumFailed() const { return calChecksumFailed_; }
    /// The unit's date and time registers hold the time of its GPS fix.
    bool timeSeeded() const { return timeSeeded_; }
    /// Appends the words that set these registers, if nobody has done so, from a status record. Good or bad, the fix
    /// counts; without a record nothing is appended.
    void appendTimeSeed(CommandList& list);
    /// What the last `appendTimeSeed` appended was never sent.
    void forgetTimeSeed() { timeSeeded_ = false; }
    /// The flash as read, and what a cache file held; 0xFF where nothing was read.
    const HXRCalData& flashCopy() const { return *flashCopy_; }
    /// Where this host keeps the unit's files.
    const CalFolder& calFolder() const { return cache_.folder(); }
    CorrectionState& corrections() { return corrections_; }
    UDPDevice& control() { return *control_; }
    UDPDevice& data() { return *data_; }

  private:
    std::optional<StatusRecord> firstContact(const char* hostAddr, const char* deviceAddr,
                                             std::uint16_t port);
    bool stampDateAndTime(const StatusRecord& record);
    HXRStatus fillImage();
    bool readPages(int first, int last);
    void adoptCorrections();
    std::optional<std::span<const std::byte>> requestOne(const CommandList& list);
    platform::Clock& clock_;
    FlashCache cache_;
    bool calChecksumFailed_ = false;
    CorrectionState corrections_;
    bool connected_ = false;
    std::uint32_t serialNumber_ = unknownSerial;
    std::atomic<HXRStatus> linkStatus_ = hxrNoError;
    std::unique_ptr<UDPDevice> control_;
    std::unique_ptr<UDPDevice> data_;
    bool timeSeeded_ = false;
    CommandList statusRequest_;
    platform::AlignedPointer<HXRCalData> flashCopy_;
};

}  // namespace hxr
