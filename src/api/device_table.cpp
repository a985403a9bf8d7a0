#include "api/device_table.h"

#include <algorithm>

#include "device/initiate.h"
#include "dsp/instruction_set.h"
#include "link/win_udp_interface.h"
#include "link/words.h"

namespace hxr::api {
namespace {

constexpr std::size_t mostSlaves = 3;

}  // namespace

Environment::Environment()
    : makeEndpoint([](platform::Clock& time) { return std::make_unique<WinUDPInterface>(time); }) {}

HXRDevice* DeviceTable::find(int handle) const {
    const auto slot = static_cast<unsigned>(handle);
    return slot < devices_.size() ? devices_[slot].get() : nullptr;
}

/// The slot that holds `device`, null for an empty one.
std::unique_ptr<HXRDevice>* DeviceTable::slotOf(const HXRDevice* device) {
    const auto found = std::find_if(devices_.begin(), devices_.end(),
                                    [&](const auto& slot) { return slot.get() == device; });
    return found == devices_.end() ? nullptr : &*found;
}

/// What is done once in a process: the signal operations choose the best that its processor has.
void DeviceTable::initialiseOnce() {
    if (initialised_) return;
    dspInitialise();
    initialised_ = true;
}

HXRStatus DeviceTable::connect(int* handle, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                               OpenAs as) {
    if (handle == nullptr || hostAddr == nullptr || deviceAddr == nullptr) return hxrNullPointerErr;
    initialiseOnce();
    std::unique_ptr<HXRDevice>* const slot = slotOf(nullptr);
    if (slot == nullptr) return hxrMaxDevicesConnectedErr;

    platform::Clock& clock = *environment_.clock;
    auto link = std::make_unique<DeviceInterface>(
        environment_.makeEndpoint(clock), environment_.makeEndpoint(clock), environment_.calFolder, clock);
    if (const HXRStatus failed = link->attach(hostAddr, deviceAddr, port); failed != hxrNoError)
        return failed;

    auto device = std::make_unique<HXRDevice>(std::move(link), clock);
    if (const HXRStatus failed = open(*device, as); failed != hxrNoError) return failed;

    const bool checksumFailed = device->link->calChecksumFailed();
    *slot = std::move(device);
    *handle = static_cast<int>(slot - devices_.data());
    return checksumFailed ? hxrCalChecksumFailed : hxrNoError;
}

HXRStatus DeviceTable::pair(HXRDevice& master, const char* hostAddr, const char* deviceAddr,
                            std::uint16_t port) {
    if (hostAddr == nullptr || deviceAddr == nullptr) return hxrNullPointerErr;
    // With the table full there is no slot to open the unit in before it is refused; so it is for a full group, which
    // fills the table, and for a slave.
    const bool groupIsFull = master.slaves.size() == mostSlaves;
    if ((groupIsFull || master.isSlave) && slotOf(nullptr) == nullptr) return hxrMultiReceiverErr;
    master.slaves.reserve(mostSlaves);

    int handle = -1;
    const HXRStatus connected = connect(&handle, hostAddr, deviceAddr, port, OpenAs::pairedUnit);
    if (connected < 0) return connected;

    HXRDevice& unit = *find(handle);
    const auto refuse = [&](HXRStatus reason) {
        close(unit);
        return reason;
    };
    if (master.isSlave || unit.isSlave) return refuse(hxrMultiReceiverErr);
    if (master.initiated || unit.initiated) return refuse(hxrInvalidConfigurationErr);

    master.slaves.push_back(&unit);
    unit.isSlave = true;
    master.channelCount = words::channelsPerUnit * static_cast<int>(1 + master.slaves.size());
    return connected;
}

HXRStatus DeviceTable::close(HXRDevice& device) {
    if (device.isSlave) return hxrMultiReceiverErr;
    abort(device, IdleLo::off);
    for (const HXRDevice* slave : device.slaves) slotOf(slave)->reset();
    slotOf(&device)->reset();
    return hxrNoError;
}

DeviceTable& deviceTable() {
    static DeviceTable* const table = std::make_unique<DeviceTable>().release();
    return *table;
}

}  // namespace hxr::api
