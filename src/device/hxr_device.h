#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "cal/correction_state.h"
#include "device/holdover_writer.h"
#include "device/interface_lock.h"
#include "device/last_status.h"
#include "device/published.h"
#include "device/settings.h"
#include "hxr_api.h"
#include "link/device_interface.h"
#include "platform/clock.h"
#include "rf/full_band_plan.h"
#include "rf/lo_context.h"

namespace hxr {

class StreamEngine;
class SweepEngine;
struct StreamCounters;

/// One receiver unit: its link, all its settings and its last health values.
///
/// What guards a field: settings, flags, group and engines the interface lock; synthesizers, corrections and captures the
/// claim of the control endpoint; destinations of the unit's samples the claim of the data endpoint. A group's settings,
/// flags and engines are held by its master.
struct HXRDevice : Settings {
    /// @param unitLink    an attached link
    /// @param unitClock   outlives the device
    /// @throws std::bad_alloc, std::system_error
    HXRDevice(std::unique_ptr<DeviceInterface> unitLink, platform::Clock& unitClock);

    /// Aborts what runs, synthesizers off.
    ~HXRDevice();
    HXRDevice(const HXRDevice&) = delete;
    HXRDevice& operator=(const HXRDevice&) = delete;

    bool isSlave() const { return master != nullptr; }

    platform::Clock* clock;
    std::unique_ptr<DeviceInterface> link;
    CorrectionState* corrections;   ///< the link's
    CorrectionOverrides overrides;  ///< for the next plan
    LoContext loContext;
    Published<LastStatus> lastStatus;
    Published<TimebaseState> timebase;

    bool disableLOOnAbort = true;  ///< an abort also turns the synthesizers off
    bool changing = false;         ///< an initiate or abort is in progress
    bool initiated = false;        ///< most settings are locked
    bool sweepConfigured = false;
    bool streamConfigured = false;
    bool fullBandConfigured = false;
    bool vsgConfigured = false;
    std::vector<HXRDevice*> slaves;  ///< the other units of the group, owned by the device table
    HXRDevice* master = nullptr;     ///< whose `slaves` this unit is in

    std::shared_ptr<const StreamCounters> streamCounters;  ///< of the last local stream

    std::unique_ptr<FullBandPlan> fullBandPlan;  ///< the last full-band capture, until the next or an abort
    std::array<std::int32_t, words::channelsPerUnit> lastBand{};  ///< of the full-band capture, by channel

    // What uses the link comes last, so that it is destroyed first.
    HoldoverWriter holdoverWriter;
    std::array<DataClaim, mostUnits> streamData;  ///< of all units of the group, while a stream runs
    std::shared_ptr<SweepEngine> sweepEngine;     ///< while a sweep plan is in place; on a group's master
    std::shared_ptr<StreamEngine> streamEngine;   ///< while a local stream runs; on a group's master
};

/// The units of a group, the master first.
class GroupUnits {
  public:
    explicit GroupUnits(HXRDevice& master) {
        units_[size_++] = &master;
        for (HXRDevice* slave : master.slaves) units_[size_++] = slave;
    }

    std::size_t size() const { return size_; }
    HXRDevice& operator[](std::size_t position) const { return *units_[position]; }
    HXRDevice* const* begin() const { return units_.data(); }
    HXRDevice* const* end() const { return units_.data() + size_; }

  private:
    std::array<HXRDevice*, mostUnits> units_{};
    std::size_t size_ = 0;
};

/// The device, then its `slaves`, in order.
inline GroupUnits groupUnits(HXRDevice& device) { return GroupUnits(device); }

/// Has the corrections follow the unit's overrides as they stand now. Under the interface lock, with the control endpoint
/// claimed.
inline void useOverrides(HXRDevice& device) {
    static_cast<CorrectionOverrides&>(*device.corrections) = device.overrides;
}

/// Whether the group that a unit belongs to is initiated, or is being initiated or aborted; or the unit by itself.
bool isInitiated(const HXRDevice& device);

}  // namespace hxr
