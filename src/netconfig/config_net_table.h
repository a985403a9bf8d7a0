#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>

#include "hxr_api.h"
#include "netconfig/config_net_device.h"
#include "platform/clock.h"
#include "platform/usb_bus.h"

namespace hxr {

/// The units that this process has open on their USB ports, by handle. Whoever uses the table or a unit holds its lock.
class ConfigNetTable {
  public:
    static constexpr int size = 4;

    std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }

    /// Puts another bus and clock in place for units that are opened from now on.
    void useEnvironment(platform::UsbBus& bus, platform::Clock& clock) {
        bus_ = &bus;
        clock_ = &clock;
    }

    /// Writes serial numbers of the units that are there, at most four.
    /// @return how many
    /// @throws std::bad_alloc
    int list(std::span<std::int32_t> serials) const;

    /// Opens a unit in the first free slot.
    /// @return as `hxrConfigNetOpenDevice`; without success all is as before
    /// @throws std::bad_alloc
    HXRStatus open(int& handle, std::int32_t serial);

    /// Starts a firmware in the first unit that has none, and opens it.
    /// @return as `hxrConfigNetBootstrapDevice`; without success the table is as before
    /// @throws std::bad_alloc
    HXRStatus bootstrap(int& handle, const std::filesystem::path& firmware);

    /// The unit of a handle, null if there is none.
    ConfigNetDevice* find(int handle) const;
    /// What was found of the FPGA of an open unit.
    std::int32_t fpgaStatus(int handle) const { return fpgaStatus_[static_cast<std::size_t>(handle)]; }

    /// Closes an open unit and frees its slot.
    /// @throws std::runtime_error if the system refuses, with the slot free all the same
    void close(int handle);

  private:
    std::mutex mutex_;
    platform::UsbBus* bus_ = &platform::systemUsbBus();
    platform::Clock* clock_ = &platform::systemClock();
    std::array<std::unique_ptr<ConfigNetDevice>, size> devices_;
    std::array<std::int32_t, size> fpgaStatus_{};
};

/// The table of this process. Units that are left open stay open to the process's end.
ConfigNetTable& configNetTable();

}  // namespace hxr
