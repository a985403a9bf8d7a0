#include <new>
#include <system_error>

#include "device/hxr_device.h"
#include "sweep/sweep_engine.h"
#include "sweep/sweep_plan.h"

namespace hxr {

HXRStatus configureSweep(HXRDevice& master) {
    const auto position = static_cast<std::size_t>(master.focusChannel / words::channelsPerUnit);
    const int channel = master.focusChannel % words::channelsPerUnit;
    HXRDevice& unit = *groupUnits(master)[position];
    try {
        PlannedSweep planned = planSweep(master, {unit.loContext, *unit.corrections, channel});
        master.sweepEngine = std::make_unique<SweepEngine>(unit, channel, master, std::move(planned));
    } catch (const std::bad_alloc&) {
        return hxrMemoryAllocationErr;
    } catch (const std::system_error&) {
        return hxrMemoryAllocationErr;  // no thread to be had
    }
    return hxrNoError;
}

}  // namespace hxr
