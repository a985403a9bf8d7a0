#include "device/hxr_device.h"
#include "vsg/generator_engine.h"
#include "vsg/generator_plan.h"

namespace hxr {

HXRStatus configureGenerator(HXRDevice& master) {
    const CommandList list =
        planGenerator(master, master.sharedFreq, master.loContext, *master.corrections->image);
    if (list.packetCount() == 0) return hxrNoError;
    master.link->sendList(list);
    master.vsgConfigured = true;
    return hxrNoError;
}

}  // namespace hxr
