#include "device/fan_and_power.h"

#include <cmath>

#include "device/setting_limits.h"
#include "link/words.h"
#include "rf/rest_words.h"

namespace hxr {
namespace {

/// Whether the fan may be set through this unit: it is the master of an idle group.
HXRStatus fanAccess(const HXRDevice& device) {
    if (device.isSlave) return hxrMultiReceiverErr;
    if (device.initiated) return hxrInvalidConfigurationErr;
    return hxrNoError;
}

HXRStatus pushFan(HXRDevice& device) {
    const CommandList list = singlePacket({fanWord(device.fanSetPoint, device.fanEnabled)});
    for (HXRDevice* unit : groupUnits(device)) {
        if (!unit->link->sendList(list)) return unit->link->lastStatus();
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

HXRStatus setFanEnabled(HXRDevice& device, bool on) {
    if (const HXRStatus refused = fanAccess(device); refused != hxrNoError) return refused;
    device.fanEnabled = on;
    return pushFan(device);
}

HXRStatus setFanSetPoint(HXRDevice& device, float degrees) {
    if (const HXRStatus refused = fanAccess(device); refused != hxrNoError) return refused;
    const HXRStatus stored = storeWithin(fanSetPointLimits, degrees, device.fanSetPoint);
    if (stored < 0) return stored;
    if (const HXRStatus lost = pushFan(device); lost != hxrNoError) return lost;
    return stored;
}

HXRStatus setLowPowerState(HXRDevice& device) {
    if (device.initiated) return hxrInvalidConfigurationErr;
    for (HXRDevice* unit : groupUnits(device)) {
        unit->link->sendList(buildLowPower(unit->loContext));
        if (unit->link->lastStatus() != hxrNoError) return device.link->lastStatus();
    }
    return hxrNoError;
}

}  // namespace hxr
