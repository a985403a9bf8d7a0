#include "platform/usb_bus.h"

namespace hxr::platform {
namespace {

/// A machine that has no USB, as far as this build knows.
class NoBus final : public UsbBus {
    std::vector<std::unique_ptr<UsbDevice>> devices() override { return {}; }
};

}  // namespace

UsbBus& systemUsbBus() {
    static NoBus bus;
    return bus;
}

}  // namespace hxr::platform
