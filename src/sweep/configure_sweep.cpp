#include "device/group_access.h"
#include "sweep/sweep_engine.h"
#include "sweep/sweep_plan.h"

namespace hxr {

std::shared_ptr<SweepEngine> configureSweep(std::span<const UnitAccess> group, const Settings& settings) {
    const auto position = static_cast<std::size_t>(settings.focusChannel / words::channelsPerUnit);
    const int channel = settings.focusChannel % words::channelsPerUnit;
    HXRDevice& unit = *group[position].device;
    PlannedSweep planned = planSweep(settings, {unit.loContext, *unit.corrections, channel});
    return std::make_shared<SweepEngine>(unit, channel, settings, std::move(planned));
}

}  // namespace hxr
