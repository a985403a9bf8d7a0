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
#include "link/endpoint_claim.h"
#include "link/flash_cache.h"
#include "link/gps_fix.h"
#include "link/status_record.h"
#include "link/udp_device.h"
#include "platform/clock.h"

namespace hxr {

/// Bytes of a flash page as it is read over the network.
inline constexpr std::size_t flashPageBytes = 8192;

/// The link of one unit: its control endpoint for lists, status, flash pages and captures; its data endpoint
/// for streams; and its calibration image.
///
/// There are no sequence numbers and no repetitions: replies are known by order and number alone. A reply
/// that doesn't come makes `lastStatus` `hxrConnectionLostErr` for the link's life, and every later operation
/// says so.
///
/// An operation that sends or receives takes the claim of the endpoint that it uses. Operations on the control endpoint
/// use its slot 0.
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

    /// @return an empty claim if somebody owns the endpoint
    ControlClaim claimControl(EndpointOwner owner) { return control_.tryClaim(owner); }
    DataClaim claimData(EndpointOwner owner) { return data_.tryClaim(owner); }

    /// First contact with the unit, then date and time, then the calibration image, from the cache where it
    /// is up to date and from flash where not. Runs once; after a failure the object is of no more use.
    ///
    /// @return `hxrNoError`, also with an image that ends where the unit answered with something else than a
    ///         page; `hxrDeviceNotFoundErr` if the control endpoint doesn't open; `hxrConnectionLostErr`
    HXRStatus attach(const ControlClaim& control, const char* hostAddr, const char* deviceAddr,
                     std::uint16_t port);

    /// Opens the data endpoint on `port` at both ends, or opens it anew. That it didn't open is not reported.
    ///
    /// @return `hxrInvalidDeviceErr` before attach; `hxrInvalidConfigurationErr` if the control endpoint is
    ///         closed or has this port
    HXRStatus openDataSocket(const DataClaim& data, std::uint16_t port);

    /// Sends all packets of a list, one behind the other. The unit runs them unanswered.
    /// @return false if the link is lost; the packets behind the failing one are not sent
    bool sendList(const ControlClaim& control, const CommandList& list);

    /// Sends one packet's words, which needs no memory.
    /// @return false if the link is lost
    bool sendPacket(const ControlClaim& control, std::span<const std::uint32_t, wordsPerPacket> words);

    /// What a list has caused, in buffers that stay until the next request. What is missing has lost the link.
    struct Answers {
        bool complete;
        const ReceiveResult& received;
    };

    /// Sends a list that causes at most 256 datagrams, and waits up to 4000 ms for each 64 of them.
    Answers request(const ControlClaim& control, const CommandList& list);

    /// Asks for one status record and waits up to 4000 ms for it; needs no memory.
    /// @return false for a null pointer, without touching the link, or if the link is lost; `record` is then
    ///         as it was
    bool readStatus(const ControlClaim& control, StatusRecord* record);

    /// Leads flash pages to the control endpoint, or ends that.
    bool setFlashReadMode(const ControlClaim& control, bool on);

    /// Reads one page of flash in flash read mode; waits up to 4000 ms.
    ///
    /// @param buffer  receives `flashPageBytes`
    /// @return false for a null pointer, without any traffic; if the link is lost; or, with the link in
    ///         order, if the unit answered with something else than a page
    bool readFlashPage(const ControlClaim& control, std::uint16_t page, std::byte* buffer);

    /// `hxrNoError` or, for good, `hxrConnectionLostErr`.
    HXRStatus lastStatus() const { return linkStatus_; }

    /// Marks the link as lost after a time-out detected outside this class. May be called from any thread.
    void loseLink() { linkStatus_ = hxrConnectionLostErr; }

    bool connected() const { return connected_; }
    /// All ones until the unit has told it.
    std::uint32_t serialNumber() const { return serialNumber_; }
    bool calChecksumFailed() const { return calChecksumFailed_; }

    /// The words that set the unit's date and time registers to the time of a GPS fix have been sent. Never cleared.
    bool timeSeeded() const { return timeSeeded_; }
    void noteTimeSeedSent() { timeSeeded_ = true; }

    /// The flash as read, and what a cache file held; 0xFF where nothing was read.
    const HXRCalData& flashCopy() const { return *flashCopy_; }
    /// Where this host keeps the unit's files.
    const CalFolder& calFolder() const { return cache_.folder(); }
    CorrectionState& corrections() { return corrections_; }
    const ControlEndpoint& control() const { return control_; }
    const DataEndpoint& data() const { return data_; }

  private:
    std::optional<StatusRecord> firstContact(const ControlClaim& control, const char* hostAddr,
                                             const char* deviceAddr, std::uint16_t port);
    bool stampDateAndTime(const ControlClaim& control, const StatusRecord& record);
    HXRStatus fillImage(const ControlClaim& control);
    bool readPages(const ControlClaim& control, int first, int last);
    void adoptCorrections();
    std::optional<std::span<const std::byte>> requestOne(const ControlClaim& control,
                                                         const CommandList& list);

    platform::Clock& clock_;
    FlashCache cache_;
    bool calChecksumFailed_ = false;
    CorrectionState corrections_;
    bool connected_ = false;
    std::uint32_t serialNumber_ = 0xFFFFFFFF;
    bool serialNumberRead_ = false;  ///< any number may be a unit's
    std::atomic<HXRStatus> linkStatus_ = hxrNoError;
    ControlEndpoint control_;
    DataEndpoint data_;
    std::atomic<bool> timeSeeded_ = false;
    CommandList statusRequest_;
    platform::AlignedPointer<HXRCalData> flashCopy_;
};

/// Appends the words that set a unit's date and time registers to the time of a fix, good or bad.
void appendTimeOf(const GpsFix& fix, CommandList& list);

/// The GPS fix that a status record tells.
GpsFix fixOf(const StatusRecord& record);

}  // namespace hxr
