#include "sim/emulated_usb.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace hxr::sim {
namespace {

void throwIfFailed(GError* error) {
    if (error == nullptr) return;
    const std::string text = error->message;
    g_error_free(error);
    throw std::runtime_error(text);
}

}  // namespace

/// The kernel's half of a device file. Its calls come from a thread of the emulation's own.
class EmulatedUsb::Device {
  public:
    Device(UMockdevTestbed* testbed, Fx3Unit& unit, int number) : unit_(unit), testbed_(testbed) {
        char text[8];
        std::snprintf(text, sizeof text, "%03d", number);
        node_ = std::string("/dev/bus/usb/001/") + text;
        path_ = std::string("/sys/devices/usb1/1-") + std::to_string(number);
        std::string hex;
        for (const auto& bytes : {unit.descriptor(1, 0), unit.descriptor(2, 0)}) {
            for (const std::uint8_t byte : bytes) {
                std::snprintf(text, sizeof text, "%02X", byte);
                hex += text;
            }
        }
        const std::string number3 = node_.substr(node_.size() - 3);
        const std::string description =
            "P: " + path_.substr(4) + "\nN: bus/usb/001/" + number3 +
            "\nE: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: BUSNUM=001\nE: DEVNUM=" + number3 +
            "\nE: DEVNAME=" + node_ + "\nA: busnum=1\\n\nA: devnum=" + std::to_string(number) +
            "\\n\nA: bConfigurationValue=1\\n\nA: speed=5000\\n\nH: descriptors=" + hex + "\n";
        GError* error = nullptr;
        umockdev_testbed_add_from_string(testbed_, description.c_str(), &error);
        throwIfFailed(error);
        handler_ = umockdev_ioctl_base_new();
        g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(handle), this);
        umockdev_testbed_attach_ioctl(testbed_, node_.c_str(), handler_, &error);
        throwIfFailed(error);
    }
    ~Device() {
        umockdev_testbed_detach_ioctl(testbed_, node_.c_str(), nullptr);
        umockdev_testbed_remove_device(testbed_, path_.c_str());
        for (const Request& request : requests_) umockdev_ioctl_data_unref(request.urb);
        g_object_unref(handler_);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    int claims() const {
        const std::lock_guard lock(mutex_);
        return claims_;
    }
    bool kernelHolds() const {
        const std::lock_guard lock(mutex_);
        return kernelHolds_;
    }

  private:
    struct Request {
        UMockdevIoctlData* urb;
        bool isBack;
    };

    static gboolean handle(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        int error = 0;
        auto& device = *static_cast<Device*>(self);
        {
            const std::lock_guard lock(device.mutex_);
            error = device.answer(umockdev_ioctl_client_get_request(client),
                                  umockdev_ioctl_client_get_arg(client));
        }
        if (error == EAGAIN) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
        return TRUE;
    }

    /// @return the error number of the system call
    int answer(gulong request, UMockdevIoctlData* argument) {
        switch (request) {
            case USBDEVFS_GET_CAPABILITIES: {
                auto* const into = umockdev_ioctl_data_resolve(argument, 0, sizeof(std::uint32_t), nullptr);
                std::uint32_t capabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM;
                umockdev_ioctl_data_update(into, 0, reinterpret_cast<guint8*>(&capabilities),
                                           sizeof capabilities);
                umockdev_ioctl_data_unref(into);
                return 0;
            }
            case USBDEVFS_CLAIMINTERFACE:
                if (kernelHolds_) return EBUSY;
                ++claims_;
                return 0;
            case USBDEVFS_DISCONNECT_CLAIM:
                kernelHolds_ = false;
                ++claims_;
                return 0;
            case USBDEVFS_RELEASEINTERFACE:
                --claims_;
                return 0;
            case USBDEVFS_IOCTL:
                return command(argument);
            case USBDEVFS_SUBMITURB:
                return submit(argument);
            case USBDEVFS_DISCARDURB:
                return discard();
            case USBDEVFS_REAPURB:
            case USBDEVFS_REAPURBNDELAY:
                return reap(argument);
            default:
                return ENOTTY;
        }
    }

    /// Of those that go to an interface: the kernel's driver lets it go, or takes it again.
    int command(UMockdevIoctlData* argument) {
        auto* const data = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_ioctl), nullptr);
        usbdevfs_ioctl command;
        std::memcpy(&command, data->data, sizeof command);
        umockdev_ioctl_data_unref(data);
        const auto code = static_cast<unsigned>(command.ioctl_code);
        if (code != USBDEVFS_CONNECT && code != USBDEVFS_DISCONNECT) return ENOTTY;
        if (code == USBDEVFS_CONNECT && claims_ > 0) return EBUSY;
        kernelHolds_ = code == USBDEVFS_CONNECT;
        return 0;
    }

    int submit(UMockdevIoctlData* argument) {
        if (gone_) return ENODEV;
        auto* const data = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr);
        usbdevfs_urb urb;
        std::memcpy(&urb, data->data, sizeof urb);
        auto* const buffer = umockdev_ioctl_data_resolve(data, offsetof(usbdevfs_urb, buffer),
                                                         static_cast<gsize>(urb.buffer_length), nullptr);
        std::vector<std::uint8_t> bytes(buffer->data, buffer->data + urb.buffer_length);
        std::size_t headBytes = 0;
        const UsbAnswer answer = run(urb, bytes, headBytes);
        Request request{data, answer != UsbAnswer::silent};
        if (answer == UsbAnswer::done) {
            const std::size_t room = static_cast<std::size_t>(urb.buffer_length) - headBytes;
            urb.actual_length = static_cast<int>(std::min(bytes.size(), room));
            if (!bytes.empty())
                umockdev_ioctl_data_update(buffer, headBytes, bytes.data(), urb.actual_length);
        }
        gone_ = answer == UsbAnswer::gone;
        urb.status = answer == UsbAnswer::stalled ? -EPIPE : answer == UsbAnswer::gone ? -ENODEV : 0;
        umockdev_ioctl_data_unref(buffer);
        store(request, urb);
        requests_.push_back(request);
        return 0;
    }

    /// @param bytes      of the request; those of the answer then
    /// @param headBytes  that stand ahead of the answer's in the buffer
    UsbAnswer run(const usbdevfs_urb& urb, std::vector<std::uint8_t>& bytes, std::size_t& headBytes) {
        constexpr std::size_t setupBytes = 8;
        if (urb.type == USBDEVFS_URB_TYPE_CONTROL) {
            headBytes = setupBytes;
            const auto word = [&](std::size_t at) {
                return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
            };
            const Fx3Unit::Setup setup{bytes[0], bytes[1], word(2), word(4), word(6)};
            bytes.erase(bytes.begin(), bytes.begin() + setupBytes);
            return unit_.control(setup, bytes);
        }
        if ((urb.endpoint & 0x80) == 0) return unit_.bulkOut(bytes);
        const std::size_t room = bytes.size();
        bytes.clear();
        return unit_.bulkIn(room, bytes);
    }

    static void store(const Request& request, usbdevfs_urb urb) {
        usbdevfs_urb now;
        std::memcpy(&now, request.urb->data, sizeof now);
        now.status = urb.status;
        now.actual_length = urb.actual_length;
        umockdev_ioctl_data_update(request.urb, 0, reinterpret_cast<guint8*>(&now), sizeof now);
    }

    /// Only one is ever under way.
    int discard() {
        for (Request& request : requests_) {
            if (request.isBack) continue;
            usbdevfs_urb urb{};
            urb.status = -ENOENT;
            store(request, urb);
            request.isBack = true;
            return 0;
        }
        return EINVAL;
    }

    int reap(UMockdevIoctlData* argument) {
        for (auto it = requests_.begin(); it != requests_.end(); ++it) {
            if (!it->isBack) continue;
            auto* const into = umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr);
            umockdev_ioctl_data_set_ptr(into, 0, it->urb);
            umockdev_ioctl_data_unref(into);
            umockdev_ioctl_data_unref(it->urb);
            requests_.erase(it);
            return 0;
        }
        return gone_ ? ENODEV : EAGAIN;
    }

    Fx3Unit& unit_;
    UMockdevTestbed* testbed_;
    std::string node_, path_;
    UMockdevIoctlBase* handler_;
    mutable std::mutex mutex_;
    std::list<Request> requests_;
    int claims_ = 0;
    bool kernelHolds_ = true;
    bool gone_ = false;
};

struct EmulatedUsb::Parts {
    UMockdevTestbed* testbed = umockdev_testbed_new();
    std::vector<std::unique_ptr<Device>> devices;
};

EmulatedUsb::EmulatedUsb() : parts_(std::make_unique<Parts>()) {
    if (umockdev_in_mock_environment() == FALSE) throw std::runtime_error("to be run by umockdev-wrapper");
}

EmulatedUsb::~EmulatedUsb() {
    parts_->devices.clear();
    g_object_unref(parts_->testbed);
}

void EmulatedUsb::plugIn(Fx3Unit& unit) {
    constexpr std::size_t firstNumber = 2;
    const auto number = static_cast<int>(parts_->devices.size() + firstNumber);
    parts_->devices.push_back(std::make_unique<Device>(parts_->testbed, unit, number));
}

int EmulatedUsb::claims(std::size_t unit) const { return parts_->devices.at(unit)->claims(); }

bool EmulatedUsb::kernelHolds(std::size_t unit) const { return parts_->devices.at(unit)->kernelHolds(); }

}  // namespace hxr::sim
