/// Units on the system's own USB, as far as the system knows: the kernel's side of a device file answers from a simulated
/// unit. To be run with the emulated device files in front of the system's.

#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <thread>

#include "usb_installation.h"

namespace hxr {
namespace {

using sim::Fx3Unit;
using sim::UsbAnswer;
using test::Bytes;

/// The kernel's half of a device file. Its calls come from a thread of the emulation's own.
class EmulatedDevice {
  public:
    EmulatedDevice(UMockdevTestbed* testbed, Fx3Unit& unit, int number) : unit_(unit), testbed_(testbed) {
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
        EXPECT_EQ(error, nullptr) << (error == nullptr ? "" : error->message);
        handler_ = umockdev_ioctl_base_new();
        g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(handle), this);
        umockdev_testbed_attach_ioctl(testbed_, node_.c_str(), handler_, &error);
        EXPECT_EQ(error, nullptr) << (error == nullptr ? "" : error->message);
    }
    ~EmulatedDevice() {
        umockdev_testbed_detach_ioctl(testbed_, node_.c_str(), nullptr);
        umockdev_testbed_remove_device(testbed_, path_.c_str());
        for (const Request& request : requests_) umockdev_ioctl_data_unref(request.urb);
        g_object_unref(handler_);
    }
    EmulatedDevice(const EmulatedDevice&) = delete;
    EmulatedDevice& operator=(const EmulatedDevice&) = delete;

    int claims() const {
        const std::lock_guard lock(mutex_);
        return claims_;
    }

  private:
    struct Request {
        UMockdevIoctlData* urb;
        bool isBack;
    };

    static gboolean handle(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        int error = 0;
        auto& device = *static_cast<EmulatedDevice*>(self);
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
            case USBDEVFS_DISCONNECT_CLAIM:
                ++claims_;
                return 0;
            case USBDEVFS_RELEASEINTERFACE:
                --claims_;
                return 0;
            case USBDEVFS_GETDRIVER:
                return ENODATA;
            case USBDEVFS_CONNECT:
            case USBDEVFS_IOCTL:
                return ENODATA;
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

    int submit(UMockdevIoctlData* argument) {
        if (gone_) return ENODEV;
        auto* const data = umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr);
        usbdevfs_urb urb;
        std::memcpy(&urb, data->data, sizeof urb);
        auto* const buffer = umockdev_ioctl_data_resolve(data, offsetof(usbdevfs_urb, buffer),
                                                         static_cast<gsize>(urb.buffer_length), nullptr);
        Bytes bytes(buffer->data, buffer->data + urb.buffer_length);
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
    UsbAnswer run(const usbdevfs_urb& urb, Bytes& bytes, std::size_t& headBytes) {
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
    bool gone_ = false;
};

/// All units are there from the start: the system tells of later ones when it likes.
class LibUsb : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        testbed = umockdev_testbed_new();
        int number = 2;
        for (const char16_t* serial : {u"20000001", u"20000002", u"20000003"}) {
            units.push_back(std::make_unique<Fx3Unit>(
                sim::Fx3Options{.serialNumber = serial, .eraseBusy = 0, .superSpeed = number % 2 == 0}));
            devices.push_back(std::make_unique<EmulatedDevice>(testbed, *units.back(), number++));
        }
        units.push_back(std::make_unique<Fx3Unit>(sim::Fx3Options{.blank = true}));
        devices.push_back(std::make_unique<EmulatedDevice>(testbed, *units.back(), number));
    }
    static void TearDownTestSuite() {
        for (std::size_t i = 0; i < units.size(); ++i) {
            EXPECT_EQ(devices[i]->claims(), 0) << i;
            EXPECT_EQ(units[i]->brokenRules(), 0U) << i;
        }
        devices.clear();
        units.clear();
        g_object_unref(testbed);
    }

    LibUsb() {
        clock.shortenTimeouts(10);
        configNetTable().useEnvironment(platform::systemUsbBus(), clock);
    }
    ~LibUsb() override { hxrConfigNetCloseDevice(handle); }

    test::TestClock clock;
    std::int32_t handle = -1;
    static inline UMockdevTestbed* testbed = nullptr;
    static inline std::vector<std::unique_ptr<Fx3Unit>> units;
    static inline std::vector<std::unique_ptr<EmulatedDevice>> devices;
};

TEST_F(LibUsb, UnitsAreListedOpenedAndSpokenTo) {
    std::array<std::int32_t, 4> serials{};
    std::int32_t count = 4;
    ASSERT_EQ(hxrNetworkConfigGetDeviceList(serials.data(), &count), hxrNoError);
    ASSERT_EQ(count, 3);
    std::sort(serials.begin(), serials.begin() + 3);
    EXPECT_EQ(serials, (std::array<std::int32_t, 4>{20000001, 20000002, 20000003, 0}));
    for (const auto& device : devices) EXPECT_EQ(device->claims(), 0);
    ASSERT_EQ(hxrNetworkConfigOpenDevice(&handle, 20000002), hxrNoError);
    EXPECT_EQ(devices[1]->claims(), 1);
    EXPECT_EQ(units[1]->settingRequests(), 0U);

    std::int32_t version = 0;
    EXPECT_EQ(hxrConfigNetGetFirmwareVersion(handle, &version), hxrNoError);
    EXPECT_EQ(version, 0x0102);
    std::array<char, 16> ip{};
    EXPECT_EQ(hxrNetworkConfigSetIP(handle, "192.168.2.17", 1), hxrNoError);
    EXPECT_EQ(hxrNetworkConfigGetIP(handle, ip.data()), hxrNoError);
    EXPECT_STREQ(ip.data(), "192.168.2.17");
    Bytes page(1024), back(32768);
    for (std::size_t i = 0; i < page.size(); ++i) page[i] = static_cast<std::uint8_t>(i * 7);
    EXPECT_EQ(hxrConfigNetWriteFlashPage(handle, 1024, page.data()), hxrNoError);
    EXPECT_EQ(hxrConfigNetReadFlashPage(handle, 1024, back.data()), hxrNoError);
    EXPECT_TRUE(std::equal(page.begin(), page.end(), back.begin()));
}

/// Runs the program for users, who sees the same devices.
/// @return what it printed, and its exit status behind
std::string run(const std::string& arguments) {
    std::string text;
    FILE* const output = popen((HXR_NETCONFIG " " + arguments + " 2>&1").c_str(), "r");
    for (int c; (c = std::fgetc(output)) != EOF;) text += static_cast<char>(c);
    return text + std::to_string(WEXITSTATUS(pclose(output)));
}

TEST_F(LibUsb, ProgramShowsSetsBacksUpAndWrites) {
    EXPECT_EQ(run("list"), "20000001\n20000002\n20000003\n0");
    EXPECT_EQ(run("set 20000001 --ip 10.1.2.3 --port 5001 --mac 02:1B:C5:00:12:AF"),
              "set. Connections over the network have to be made anew.\n0");
    EXPECT_EQ(
        run("show 20000001 --json"),
        R"({"serial": 20000001, "ip": "10.1.2.3", "port": 5001, "mac": "02:1B:C5:00:12:AF", "firmware": 258, )"
        R"("calibrationSerial": -1, "fpgaReady": true})"
        "\n0");
    EXPECT_NE(run("show 20000009").find("see 70-hxr.rules.\n1"), std::string::npos);
    EXPECT_NE(run("set 20000001 --ip 10.1.2").find("IP address: Invalid parameter"), std::string::npos);
    EXPECT_NE(run("set 20000001").back(), '0');

    const test::TemporaryFolder folder;
    const std::string saved = (folder.path() / "saved").string();
    const Bytes mark(1024, 0x42);
    units[0]->flash.write(1600, 0, mark);
    EXPECT_EQ(run("backup 20000001 " + saved), "8388608 bytes in " + saved + "\n0");
    units[0]->flash.erase(1536);
    EXPECT_EQ(run("restore 20000001 " + saved), "restored\n0");
    EXPECT_EQ(units[0]->flash.read(1600, 1024), mark);
    units[0]->flash.stick(1600, 3);
    EXPECT_NE(run("restore 20000001 " + saved).find("The flash doesn't keep what is written"),
              std::string::npos);

    const std::string image = (folder.path() / "image").string();
    const Bytes firmware = test::firmware(0x0305);
    std::ofstream(image, std::ios::binary)
        .write(reinterpret_cast<const char*>(firmware.data()), std::ssize(firmware));
    EXPECT_EQ(run("update 20000001 --firmware " + image), "written; the unit starts anew\n0");
    EXPECT_EQ(units[0]->flash.read(255, 1024)[1023], 0x05);
    EXPECT_FALSE(units[0]->inBootLoader());
}

TEST_F(LibUsb, TransferThatDoesNotComeIsCancelledAndPulledOutUnitIsLost) {
    for (const UsbAnswer answer : {UsbAnswer::silent, UsbAnswer::stalled, UsbAnswer::gone}) {
        ASSERT_EQ(hxrNetworkConfigOpenDevice(&handle, 20000003), hxrNoError);
        units[2]->fail(1, answer);
        std::int32_t port = 0;
        EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrConnectionLostErr);
        EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrConnectionLostErr);
        EXPECT_EQ(hxrNetworkConfigCloseDevice(handle), hxrNoError);
        units[2]->powerCycle();
    }
}

TEST_F(LibUsb, BlankUnitGetsItsFirmware) {
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "firmware";
    const Bytes image = test::firmware();
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()), std::ssize(image));
    // The system doesn't tell that it is another device now, so it isn't found.
    EXPECT_EQ(hxrConfigNetBootstrapDevice(&handle, file.c_str()), hxrDeviceNotFoundErr);
    EXPECT_FALSE(units[3]->inBootLoader());
}

}  // namespace
}  // namespace hxr
