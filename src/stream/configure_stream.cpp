#include "device/group_access.h"
#include "device/health.h"
#include "stream/stream_engine.h"
#include "stream/stream_plan.h"

namespace hxr {
namespace {

/// The status whose GPS fix a unit's date and time are to be set to, good or bad, if that has never been sent.
std::optional<StatusRecord> timeSeedFor(const UnitAccess& unit) {
    DeviceInterface& link = *unit.device->link;
    StatusRecord record;
    if (link.timeSeeded() || !link.readStatus(unit.control, &record) || !record.magicIsRight())
        return std::nullopt;
    return record;
}

std::vector<UnitToPlan> unitsToPlan(std::span<const UnitAccess> group) {
    std::vector<UnitToPlan> units;
    for (const UnitAccess& unit : group) {
        HXRDevice& device = *unit.device;
        units.push_back({device.loContext, *device.corrections, device.streamPort, timeSeedFor(unit)});
    }
    return units;
}

/// The units send by themselves once they are started. The master comes last.
void startVrtStream(std::span<const UnitAccess> group, const std::vector<StreamLists>& lists) {
    for (std::size_t u = group.size(); u-- > 0;) {
        sendConfiguration(group[u], lists[u]);
        requestStatus(*group[u].device, group[u].control);
    }
    for (std::size_t u = group.size(); u-- > 0;) {
        group[u].device->link->sendList(group[u].control, lists[u].start);
        requestStatus(*group[u].device, group[u].control);
    }
}

}  // namespace

bool sendConfiguration(const UnitAccess& unit, const StreamLists& lists) {
    DeviceInterface& link = *unit.device->link;
    const bool sent = link.sendList(unit.control, lists.config);
    if (sent && lists.seedsTime) link.noteTimeSeedSent();
    return sent;
}

std::shared_ptr<StreamEngine> configureStream(std::span<const UnitAccess> group, Settings& settings) {
    std::vector<StreamLists> lists = planStream(settings, unitsToPlan(group));
    if (settings.localStream) return std::make_shared<StreamEngine>(group, settings, std::move(lists));
    startVrtStream(group, lists);
    return nullptr;
}

}  // namespace hxr
