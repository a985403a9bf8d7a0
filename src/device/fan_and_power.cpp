#include "device/fan_and_power.h"

#include <cmath>

#include "device/group_access.h"
#include "device/setting_limits.h"
#include "link/words.h"
#include "rf/rest_words.h"

namespace hxr {
namespace {

/// Whether the fan may be set through this unit: it is the master of an idle group.
HXRStatus fanAccess(const HXRDevice& device) {
    if (device.isSlave()) return hxrMultiReceiverErr;
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    return hxrNoError;
}

HXRStatus pushFan(const ControlOfGroup& group, float degrees, bool on) {
    const CommandList list = singlePacket({fanWord(degrees, on)});
    for (const UnitControl& unit : group.units()) {
        if (!unit.device->link->sendList(unit.control, list)) return unit.device->link->lastStatus();
    }
    return hxrNoError;
}

}  // namespace

std::uint32_t fanWord(float degrees, bool on) {
    constexpr double offsetDegrees = 256.0;
    constexpr double codesPerDegree = 1.4776334776334776;
    const double setPoint = std::floor((degrees + offsetDegrees) * codesPerDegree + 0.5);
    return words::fan(on, static_cast<std::uint16_t>(setPoint));
}

HXRStatus setFanEnabled(HXRDevice& device, bool on, InterfaceLock& lock) {
    if (const HXRStatus refused = fanAccess(device); refused != hxrNoError) return refused;
    const ControlOfGroup group(device);
    if (!group) return hxrInvalidConfigurationErr;
    device.fanEnabled = on;
    const float degrees = device.fanSetPoint;
    const Unlocked traffic(lock);
    return pushFan(group, degrees, on);
}

HXRStatus setFanSetPoint(HXRDevice& device, float degrees, InterfaceLock& lock) {
    if (const HXRStatus refused = fanAccess(device); refused != hxrNoError) return refused;
    const ControlOfGroup group(device);
    if (!group) return hxrInvalidConfigurationErr;
    const HXRStatus stored = storeWithin(fanSetPointLimits, degrees, device.fanSetPoint);
    if (stored < 0) return stored;
    const float setPoint = device.fanSetPoint;
    const bool on = device.fanEnabled;
    const Unlocked traffic(lock);
    if (const HXRStatus lost = pushFan(group, setPoint, on); lost != hxrNoError) return lost;
    return stored;
}

HXRStatus setLowPowerState(HXRDevice& device, InterfaceLock& lock) {
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    const ControlOfGroup group(device);
    if (!group) return hxrInvalidConfigurationErr;
    const Unlocked traffic(lock);
    for (const UnitControl& unit : group.units()) {
        unit.device->link->sendList(unit.control, buildLowPower(unit.device->loContext));
        if (unit.device->link->lastStatus() != hxrNoError) return device.link->lastStatus();
    }
    return hxrNoError;
}

}  // namespace hxr
