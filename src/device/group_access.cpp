#include "device/group_access.h"

#include <utility>

#include "stream/stream_engine.h"
#include "sweep/sweep_engine.h"

namespace hxr {

ControlOfGroup::ControlOfGroup(HXRDevice& master) {
    const GroupUnits group = groupUnits(master);
    for (std::size_t u = 0; u < group.size(); ++u) {
        units_[u] = {&group[u], group[u].link->claimControl(EndpointOwner::entry)};
        if (!units_[u].control) {
            units_ = {};
            return;
        }
    }
    size_ = group.size();
}

GroupTakeover::GroupTakeover(HXRDevice& master) : master_(master) {
    if (!claimFreeEndpoints()) {
        units_ = {};
        return;
    }
    size_ = groupUnits(master).size();
    for (std::size_t u = 0; u < size_; ++u) {
        if (!units_[u].control) units_[u].control = master.sweepEngine->takeControl();
        if (!units_[u].data) units_[u].data = std::move(master.streamData[u]);
        units_[u].control.changeOwner(EndpointOwner::lifecycle);
        units_[u].data.changeOwner(EndpointOwner::lifecycle);
    }
    sweepEngine_ = std::exchange(master.sweepEngine, nullptr);
    streamEngine_ = std::exchange(master.streamEngine, nullptr);
    master.changing = true;
}

GroupTakeover::~GroupTakeover() {
    if (*this) master_.changing = false;
}

/// @return false if one is neither free nor with an engine of the group
bool GroupTakeover::claimFreeEndpoints() {
    const GroupUnits group = groupUnits(master_);
    for (std::size_t u = 0; u < group.size(); ++u) {
        UnitAccess& unit = units_[u];
        unit.device = &group[u];
        const bool sweeps = master_.sweepEngine && master_.sweepEngine->hasControlOf(group[u]);
        if (!sweeps) unit.control = group[u].link->claimControl(EndpointOwner::lifecycle);
        const bool streams = static_cast<bool>(master_.streamData[u]);
        if (!streams) unit.data = group[u].link->claimData(EndpointOwner::lifecycle);
        if ((!sweeps && !unit.control) || (!streams && !unit.data)) return false;
    }
    return true;
}

void GroupTakeover::stopEngines() {
    if (sweepEngine_) sweepEngine_->stop();
    if (streamEngine_) streamEngine_->stop();
    sweepEngine_.reset();
    streamEngine_.reset();
}

}  // namespace hxr
