#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "cal/correction_state.h"
#include "device/acquisition_mutex.h"
#include "device/last_status.h"
#include "device/settings.h"
#include "hxr_api.h"
#include "link/device_interface.h"
#include "platform/clock.h"
#include "rf/lo_context.h"

namespace hxr {

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
    HXRDevice(std::unique_ptr<DeviceInterface> unitLink, platform::Clock& unitClock)
        : clock(&unitClock), link(std::move(unitLink)), corrections(&link->corrections()) {}

    /// Brings a unit that has just been attached up. Called once.
    ///
    /// @return `hxrNoError`; `hxrDataSyncErr` if the unit's status is none or doesn't come;
    ///         `hxrADCAlignmentErr` if its converter clocks are not aligned
    HXRStatus open();

    bool disableLOOnAbort = true;  ///< an abort also turns the synthesizers off
    bool initiated = false;        ///< most settings are locked
    bool sweepConfigured = false;
    bool streamConfigured = false;
    bool fullBandConfigured = false;
    bool vsgConfigured = false;
    std::vector<HXRDevice*> slaves;  ///< the other units of the group, owned by the device table
    bool isSlave = false;            ///< this unit is in another's `slaves`
    LoContext loContext;
    SweepResult sweepResult;
    std::array<std::int32_t, words::channelsPerUnit> lastBand{};  ///< of the full-band capture, by channel
    AcquisitionMutex acquisitionMutex;
    PublishedStatus lastStatus;
    platform::Clock* clock;
    std::unique_ptr<DeviceInterface> link;  ///< the first to go when the device goes
    CorrectionState* corrections;           ///< the link's
};

/// The device, then its `slaves`, in order.
std::vector<HXRDevice*> groupUnits(HXRDevice& device);

}  // namespace hxr
