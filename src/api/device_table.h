#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "device/hxr_device.h"
#include "device/open_sequence.h"
#include "hxr_api.h"
#include "link/flash_cache.h"
#include "link/udp_device.h"
#include "platform/clock.h"

namespace hxr::api {

/// What the units of this process are opened upon: the machine's, unless a program that links the core puts
/// its own in their place before the first connect.
struct Environment {
    platform::Clock* clock = &platform::systemClock();
    CalFolder calFolder;
    std::function<std::unique_ptr<UDPDevice>(platform::Clock&)> makeEndpoint;

    /// Endpoints over the operating system's sockets, and the machine-wide folder.
    Environment();
};

/// The open units of this process, by handle. It owns them, members of groups included.
///
/// All operations are called under the interface lock, which they give back while they wait for a unit. A slot whose unit
/// is being opened or closed is taken, and nobody finds a unit there.
class DeviceTable {
  public:
    static constexpr int size = 4;

    /// Puts another environment in place for units that are opened from now on.
    void useEnvironment(Environment environment) { environment_ = std::move(environment); }

    /// Takes the interface lock.
    InterfaceLock lock() { return InterfaceLock(mutex_); }

    /// The unit of a handle, null if there is none.
    HXRDevice* find(int handle) const;

    /// Opens a unit in the lowest empty slot.
    ///
    /// @param handle  receives the slot
    /// @return as `hxrConnectDevice`; after an error the table is as it was
    HXRStatus connect(int* handle, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                      InterfaceLock& lock);

    /// Opens a further unit and ties it to a master.
    /// @return as `hxrPairDevice`; after an error table and group are as they were
    HXRStatus pair(HXRDevice& master, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                   InterfaceLock& lock);

    /// Closes a unit with its slaves.
    /// @return `hxrMultiReceiverErr` for a slave, which is closed with its master only; `hxrInvalidConfigurationErr` if
    ///         somebody uses an endpoint of the group
    HXRStatus close(HXRDevice& device, InterfaceLock& lock);

  private:
    struct Slot {
        std::unique_ptr<HXRDevice> device;
        bool taken = false;  ///< by a unit, also while it is being opened or closed
    };

    void initialiseOnce();
    Slot* emptySlot();
    Slot& slotOf(const HXRDevice& device);
    HXRStatus openUnit(Slot& slot, const char* hostAddr, const char* deviceAddr, std::uint16_t port,
                       OpenAs as, InterfaceLock& lock, std::unique_ptr<HXRDevice>& opened);

    std::mutex mutex_;
    bool initialised_ = false;
    Environment environment_;
    std::array<Slot, size> slots_;
};

/// The table of this process. Units that are left open stay open to the process's end: nothing of the library
/// runs when it is unloaded.
DeviceTable& deviceTable();

}  // namespace hxr::api
