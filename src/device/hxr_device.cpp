#include "device/hxr_device.h"

#include "device/initiate.h"
#include "stream/stream_engine.h"
#include "sweep/sweep_engine.h"

namespace hxr {

HXRDevice::HXRDevice(std::unique_ptr<DeviceInterface> unitLink, platform::Clock& unitClock)
    : clock(&unitClock),
      link(std::move(unitLink)),
      corrections(&link->corrections()),
      holdoverWriter(link->calFolder()) {}

HXRDevice::~HXRDevice() { abortForDestruction(*this); }

bool isInitiated(const HXRDevice& device) {
    const auto locked = [](const HXRDevice& unit) { return unit.initiated || unit.changing; };
    return locked(device) || (device.isSlave() && locked(*device.master));
}

}  // namespace hxr
