#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "cal/correction_state.h"
#include "device/acquisition_mutex.h"
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

/// One receiver unit: its link, all its settings and its last health values.
///
/// Setters write the settings and nothing else; they run while nothing initiates or aborts the same unit.
/// Engines copy the records that they need when they are configured. A group's settings are held by its
/// master.
struct HXRDevice : EnvironmentSettings,
                   ChannelSettings,
                   GeneratorSettings,
                   StreamSettings,
                   SweepSettings,
                   StreamOutputSettings {
    /// @param unitLink    an attached link
    /// @param unitClock   outlives the device
    HXRDevice(std::unique_ptr<DeviceInterface> unitLink, platform::Clock& unitClock);

    /// Aborts what runs, synthesizers off.
    ~HXRDevice();
    HXRDevice(const HXRDevice&) = delete;
    HXRDevice& operator=(const HXRDevice&) = delete;

    bool disableLOOnAbort = true;  ///< an abort also turns the synthesizers off
    bool initiated = false;        ///< most settings are locked
    bool sweepConfigured = false;
    bool streamConfigured = false;
    bool fullBandConfigured = false;
    bool vsgConfigured = false;
    std::vector<HXRDevice*> slaves;  ///< the other units of the group, owned by the device table
    bool isSlave = false;            ///< this unit is in another's `slaves`
    LoContext loContext;
    std::unique_ptr<SweepEngine> sweepEngine;    ///< while a sweep plan is in place; on a group's master
    std::unique_ptr<StreamEngine> streamEngine;  ///< while a local stream runs; on a group's master
    std::unique_ptr<FullBandPlan> fullBandPlan;  ///< the last full-band capture, until the next or an abort
    std::array<std::int32_t, words::channelsPerUnit> lastBand{};  ///< of the full-band capture, by channel
    AcquisitionMutex acquisitionMutex;
    Published<LastStatus> lastStatus;
    Published<TimebaseState> timebase;
    platform::Clock* clock;
    std::unique_ptr<DeviceInterface> link;  ///< the first to go when the device goes
    CorrectionState* corrections;           ///< the link's
};

/// The device, then its `slaves`, in order.
std::vector<HXRDevice*> groupUnits(HXRDevice& device);

}  // namespace hxr
