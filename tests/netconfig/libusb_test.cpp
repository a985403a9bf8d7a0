/// Units on the system's own USB, as far as the system knows: the kernel's side of a device file answers from a simulated
/// unit. To be run with the emulated device files in front of the system's.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libusb.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "sim/emulated_usb.h"
#include "usb_installation.h"

namespace {

bool cancelsGetLost = false;

}  // namespace

/// Stands in front of libusb's: a cancel that the device never answers.
extern "C" int libusb_cancel_transfer(libusb_transfer* transfer) {
    using Cancel = int (*)(libusb_transfer*);
    static const auto real = reinterpret_cast<Cancel>(dlsym(RTLD_NEXT, "libusb_cancel_transfer"));
    return cancelsGetLost ? 0 : real(transfer);
}

namespace hxr {
namespace {

using sim::EmulatedUsb;
using sim::Fx3Unit;
using sim::UsbAnswer;
using test::Bytes;

/// All units are there from the start: the system tells of later ones when it likes.
class LibUsb : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        usb = std::make_unique<EmulatedUsb>();
        bool superSpeed = true;
        for (const char16_t* serial : {u"20000001", u"20000002", u"20000003"}) {
            units.push_back(std::make_unique<Fx3Unit>(
                sim::Fx3Options{.serialNumber = serial, .eraseBusy = 0, .superSpeed = superSpeed}));
            usb->plugIn(*units.back());
            superSpeed = !superSpeed;
        }
        units.push_back(std::make_unique<Fx3Unit>(sim::Fx3Options{.blank = true}));
        usb->plugIn(*units.back());
    }
    static void TearDownTestSuite() {
        for (std::size_t i = 0; i < units.size(); ++i) {
            EXPECT_EQ(usb->claims(i), 0) << i;
            EXPECT_TRUE(usb->kernelHolds(i)) << i;
            EXPECT_EQ(units[i]->brokenRules(), 0U) << i;
        }
        usb.reset();
        units.clear();
    }

    LibUsb() {
        clock.shortenTimeouts(10);
        configNetTable().useEnvironment(platform::systemUsbBus(), clock);
    }
    ~LibUsb() override { hxrConfigNetCloseDevice(handle); }

    test::TestClock clock;
    std::int32_t handle = -1;
    static inline std::vector<std::unique_ptr<Fx3Unit>> units;
    static inline std::unique_ptr<EmulatedUsb> usb;
};

TEST_F(LibUsb, UnitsAreListedOpenedAndSpokenTo) {
    std::array<std::int32_t, 4> serials{};
    std::int32_t count = 4;
    ASSERT_EQ(hxrNetworkConfigGetDeviceList(serials.data(), &count), hxrNoError);
    ASSERT_EQ(count, 3);
    std::sort(serials.begin(), serials.begin() + 3);
    EXPECT_EQ(serials, (std::array<std::int32_t, 4>{20000001, 20000002, 20000003, 0}));
    for (std::size_t i = 0; i < units.size(); ++i) {
        EXPECT_EQ(usb->claims(i), 0);
        EXPECT_TRUE(usb->kernelHolds(i));
    }
    ASSERT_EQ(hxrNetworkConfigOpenDevice(&handle, 20000002), hxrNoError);
    EXPECT_EQ(usb->claims(1), 1);
    EXPECT_FALSE(usb->kernelHolds(1));
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

TEST_F(LibUsb, TransferThatNeverComesBackIsAbandonedAndTheCloseTells) {
    ASSERT_EQ(hxrNetworkConfigOpenDevice(&handle, 20000002), hxrNoError);
    units[1]->fail(1, UsbAnswer::silent);
    cancelsGetLost = true;
    std::int32_t port = 0;
    EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrConnectionLostErr);
    EXPECT_EQ(hxrNetworkConfigCloseDevice(handle), hxrConnectionLostErr);
    cancelsGetLost = false;
    EXPECT_EQ(hxrNetworkConfigCloseDevice(handle), hxrInvalidDeviceErr);
    units[1]->powerCycle();
    EXPECT_EQ(hxrNetworkConfigOpenDevice(&handle, 20000002), hxrNoError);
    EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrNoError);
}

TEST_F(LibUsb, ThreadsOfTheUsbTakeNoSignals) {
    std::int32_t count = 0, serial = 0;
    ASSERT_EQ(hxrNetworkConfigGetDeviceList(&serial, &count), hxrNoError);
    int found = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name, line, blocked;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name != "libusb_event") continue;
        std::ifstream status(task.path() / "status");
        while (std::getline(status, line)) {
            if (line.starts_with("SigBlk:")) blocked = line.substr(8);
        }
        constexpr auto interrupt = 1ULL << 1, terminate = 1ULL << 14, alarm = 1ULL << 13;
        EXPECT_EQ(~std::stoull(blocked, nullptr, 16) & (interrupt | terminate | alarm), 0U) << name;
        ++found;
    }
    EXPECT_GT(found, 0);
}

TEST_F(LibUsb, LibraryStaysMappedWhenAProgramUnloadsIt) {
    void* const library = dlopen(HXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto list = reinterpret_cast<decltype(&hxrNetworkConfigGetDeviceList)>(
        dlsym(library, "hxrNetworkConfigGetDeviceList"));
    std::array<std::int32_t, 4> serials{};
    std::int32_t count = 4;
    EXPECT_EQ(list(serials.data(), &count), hxrNoError);  // starts the threads of the USB
    EXPECT_EQ(dlclose(library), 0);
    void* const still = dlopen(HXR_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(still, nullptr);
    EXPECT_EQ(list(serials.data(), &count), hxrNoError);
    EXPECT_GT(count, 0);
    dlclose(still);
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
