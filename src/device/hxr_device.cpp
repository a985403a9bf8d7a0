#include "device/hxr_device.h"

#include "device/health.h"

namespace hxr {

HXRStatus HXRDevice::open() {
    StatusRecord record;
    link->readStatus(&record);
    parseStatus(*this, &record);

    const LastStatus status = lastStatus.copy();
    if (status.dataSyncFault) return hxrDataSyncErr;
    if (status.adcAlignFault) return hxrADCAlignmentErr;
    return hxrNoError;
}

std::vector<HXRDevice*> groupUnits(HXRDevice& device) {
    std::vector<HXRDevice*> units{&device};
    units.insert(units.end(), device.slaves.begin(), device.slaves.end());
    return units;
}

}  // namespace hxr
