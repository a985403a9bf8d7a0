#include "device/hxr_device.h"
#include "sweep/sweep_engine.h"
#include "sweep/sweep_plan.h"

namespace hxr {

HXRStatus configureSweep(HXRDevice& master) {
    const auto position = static_cast<std::size_t>(master.focusChannel / words::channelsPerUnit);
    const int channel = master.focusChannel % words::channelsPerUnit;
    HXRDevice& unit = *groupUnits(master)[position];
    PlannedSweep planned = planSweep(master, {unit.loContext, *unit.corrections, channel});
    master.sweepEngine = std::make_unique<SweepEngine>(unit, channel, master, std::move(planned));
    return hxrNoError;
}

}  // namespace hxr
