#include "device/hxr_device.h"

#include "device/initiate.h"
#include "stream/stream_engine.h"
#include "sweep/sweep_engine.h"

namespace hxr {

HXRDevice::HXRDevice(std::unique_ptr<DeviceInterface> unitLink, platform::Clock& unitClock)
    : clock(&unitClock), link(std::move(unitLink)), corrections(&link->corrections()) {}

HXRDevice::~HXRDevice() { abort(*this, IdleLo::off); }

std::vector<HXRDevice*> groupUnits(HXRDevice& device) {
    std::vector<HXRDevice*> units{&device};
    units.insert(units.end(), device.slaves.begin(), device.slaves.end());
    return units;
}

}  // namespace hxr
