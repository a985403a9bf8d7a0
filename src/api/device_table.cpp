#include "api/device_table.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "device/group_access.h"
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
    return slot < slots_.size() ? slots_[slot].device.get() : nullptr;
}

/// The lowest slot that is not taken, null if all are.
DeviceTable::Slot* DeviceTable::emptySlot() {
    const auto found = std::ranges::find(slots_, false, &Slot::taken);
    return found == slots_.end() ? nullptr : &*found;
}

DeviceTable::Slot& DeviceTable::slotOf(const HXRDevice& device) {
    return *std::ranges::find_if(slots_, [&](const Slot& slot) { return slot.device.get() == &device; });
}

/// What is done once in a process: the signal operations choose the best that its processor has.
void DeviceTable::initialiseOnce() {
    if (initialised_) return;
    dspInitialise();
    initialised_ = true;
}

/// Attaches and opens a unit for a slot, which is taken from now on unless this fails.
HXRStatus DeviceTable::openUnit(Slot& slot, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                                OpenAs as, InterfaceLock& lock, std::unique_ptr<HXRDevice>& opened) {
    const Environment environment = environment_;
    slot.taken = true;
    HXRStatus result = hxrNoError;
    try {
        const Unlocked traffic(lock);
        platform::Clock& clock = *environment.clock;
        auto link = std::make_unique<DeviceInterface>(
            environment.makeEndpoint(clock), environment.makeEndpoint(clock), environment.calFolder, clock);
        result = link->attach(link->claimControl(EndpointOwner::lifecycle), hostAddr, deviceAddr, port);
        if (result == hxrNoError) {
            auto device = std::make_unique<HXRDevice>(std::move(link), clock);
            result = open(*device, as);
            if (result == hxrNoError) opened = std::move(device);
        }
    } catch (const std::bad_alloc&) {
        result = hxrMemoryAllocationErr;
    } catch (const std::system_error&) {
        result = hxrMemoryAllocationErr;  // no thread to be had
    }
    slot.taken = opened != nullptr;
    return opened && opened->link->calChecksumFailed() ? hxrCalChecksumFailed : result;
}

HXRStatus DeviceTable::connect(int* handle, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                               InterfaceLock& lock) {
    if (handle == nullptr || hostAddr == nullptr || deviceAddr == nullptr) return hxrNullPointerErr;
    initialiseOnce();
    Slot* const slot = emptySlot();
    if (slot == nullptr) return hxrMaxDevicesConnectedErr;

    std::unique_ptr<HXRDevice> unit;
    const HXRStatus result = openUnit(*slot, hostAddr, deviceAddr, port, OpenAs::singleUnit, lock, unit);
    if (!unit) return result;
    slot->device = std::move(unit);
    *handle = static_cast<int>(slot - slots_.data());
    return result;
}

HXRStatus DeviceTable::pair(HXRDevice& master, const char* hostAddr, const char* deviceAddr,
                            std::uint16_t port, InterfaceLock& lock) {
    if (hostAddr == nullptr || deviceAddr == nullptr) return hxrNullPointerErr;
    initialiseOnce();
    const ControlClaim masterStays = master.link->claimControl(EndpointOwner::entry);
    if (!masterStays) return hxrInvalidConfigurationErr;
    Slot* const slot = emptySlot();
    const auto groupIsFull = [&] { return master.slaves.size() == mostSlaves; };
    // With the table full there is no slot to open the unit in before it is refused; so it is for a full group, which
    // fills the table, and for a slave.
    if (slot == nullptr)
        return groupIsFull() || master.isSlave() ? hxrMultiReceiverErr : hxrMaxDevicesConnectedErr;
    master.slaves.reserve(mostSlaves);

    std::unique_ptr<HXRDevice> unit;
    const HXRStatus result = openUnit(*slot, hostAddr, deviceAddr, port, OpenAs::pairedUnit, lock, unit);
    if (!unit) return result;

    const HXRStatus refused = master.isSlave()      ? hxrMultiReceiverErr
                              : isInitiated(master) ? hxrInvalidConfigurationErr
                              : groupIsFull()       ? hxrMultiReceiverErr
                                                    : hxrNoError;
    if (refused != hxrNoError) {
        {
            const Unlocked traffic(lock);
            unit.reset();
        }
        slot->taken = false;
        return refused;
    }
    unit->master = &master;
    master.slaves.push_back(unit.get());
    slot->device = std::move(unit);
    master.channelCount = words::channelsPerUnit * static_cast<int>(1 + master.slaves.size());
    return result;
}

HXRStatus DeviceTable::close(HXRDevice& device, InterfaceLock& lock) {
    if (device.isSlave()) return hxrMultiReceiverErr;
    // A slave can have been initiated by itself.
    for (HXRDevice* unit : groupUnits(device)) {
        if (unit != &device && abort(*unit, IdleLo::off, lock) == hxrInvalidConfigurationErr)
            return hxrInvalidConfigurationErr;
    }
    if (abort(device, IdleLo::off, lock) == hxrInvalidConfigurationErr || !GroupTakeover(device))
        return hxrInvalidConfigurationErr;

    // From here on nobody finds the units. Their slots stay taken until their sockets are closed.
    const GroupUnits group = groupUnits(device);
    std::array<Slot*, mostUnits> slots{};
    std::array<std::unique_ptr<HXRDevice>, mostUnits> units;
    for (std::size_t u = 0; u < group.size(); ++u) {
        slots[u] = &slotOf(group[u]);
        units[u] = std::move(slots[u]->device);
        units[u]->master = nullptr;
    }
    device.slaves.clear();
    {
        const Unlocked traffic(lock);
        for (std::size_t u = units.size(); u-- > 0;) units[u].reset();
    }
    for (std::size_t u = 0; u < group.size(); ++u) slots[u]->taken = false;
    return hxrNoError;
}

DeviceTable& deviceTable() {
    static DeviceTable* const table = std::make_unique<DeviceTable>().release();
    return *table;
}

}  // namespace hxr::api
