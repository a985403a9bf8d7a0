#include "device/group_access.h"
#include "vsg/generator_engine.h"
#include "vsg/generator_plan.h"

namespace hxr {

bool configureGenerator(const UnitAccess& master, Settings& settings) {
    HXRDevice& device = *master.device;
    const CommandList list =
        planGenerator(settings, settings.sharedFreq, device.loContext, *device.corrections->image);
    if (list.packetCount() == 0) return false;
    device.link->sendList(master.control, list);
    return true;
}

}  // namespace hxr
