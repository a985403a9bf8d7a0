#include "netconfig/config_net_table.h"

#include <algorithm>
#include <vector>

#include "netconfig/boot_loader.h"
#include "netconfig/network_settings.h"
#include "netconfig/usb_device.h"

namespace hxr {
namespace {

/// Opens the units that run firmware one after the other, until `wanted` takes one by its serial number.
/// @return whether it took one, which is open then
template <typename Wanted>
bool openUnit(USBDevice& usb, Wanted wanted) {
    const int count = usb.deviceCount();
    for (int position = 0; position < count; ++position) {
        if (!usb.open(position) || usb.vendorId() != unitIdentity.vendor ||
            usb.productId() != unitIdentity.product)
            continue;
        const auto serial = serialOf(usb);
        if (serial && wanted(*serial)) return true;
    }
    return false;
}

}  // namespace

int ConfigNetTable::list(std::span<std::int32_t> serials) const {
    std::vector<std::int32_t> found;
    USBDevice usb(*bus_, unitClass);
    openUnit(usb, [&](std::int32_t serial) {
        found.push_back(serial);
        return false;
    });
    found.resize(std::min({found.size(), std::size_t{size}, serials.size()}));
    std::ranges::copy(found, serials.begin());
    return static_cast<int>(found.size());
}

HXRStatus ConfigNetTable::open(int& handle, std::int32_t serial) {
    auto usb = std::make_unique<USBDevice>(*bus_, unitClass);
    if (!openUnit(*usb, [&](std::int32_t present) { return present == serial; })) return hxrDeviceNotFoundErr;
    const auto slot = std::find(devices_.begin(), devices_.end(), nullptr);
    if (slot == devices_.end()) return hxrMaxDevicesConnectedErr;

    auto device = std::make_unique<ConfigNetDevice>(*clock_);
    if (!device->setUp(std::move(usb))) return hxrDeviceNotFoundErr;
    std::int32_t fpga = 0;
    if (const HXRStatus status = waitForFpga(*device, fpga); status != hxrNoError) return status;
    handle = static_cast<int>(slot - devices_.begin());
    fpgaStatus_[static_cast<std::size_t>(handle)] = fpga;
    *slot = std::move(device);
    return hxrNoError;
}

HXRStatus ConfigNetTable::bootstrap(int& handle, const std::filesystem::path& firmware) {
    constexpr std::chrono::milliseconds comeBack{2000};
    constexpr std::int32_t placeholderSerial = 11111111;
    {
        USBDevice usb(*bus_, unitClass);
        const int count = usb.deviceCount();
        for (int position = 0; position < count; ++position) {
            if (!usb.open(position) || !bootLoaderRuns(usb.control(), *clock_)) continue;
            loadFirmware(usb.control(), firmware, *clock_);
            break;
        }
    }
    clock_->sleep(comeBack);
    return open(handle, placeholderSerial);
}

ConfigNetDevice* ConfigNetTable::find(int handle) const {
    return handle < 0 || handle >= size ? nullptr : devices_[static_cast<std::size_t>(handle)].get();
}

void ConfigNetTable::close(int handle) {
    const auto device = std::move(devices_[static_cast<std::size_t>(handle)]);
    device->close();
}

ConfigNetTable& configNetTable() {
    static ConfigNetTable* const table = std::make_unique<ConfigNetTable>().release();
    return *table;
}

}  // namespace hxr
