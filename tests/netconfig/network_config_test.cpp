/// Units on the USB, through the exported entries: finding, opening, addresses.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "netconfig/network_settings.h"
#include "usb_installation.h"

namespace hxr {
namespace {

using sim::Fx3Unit;
using sim::UsbAnswer;
using std::chrono::milliseconds;
using test::Bytes;

constexpr std::uint32_t macPage = 49152, networkPage = 49408;

class NetworkConfig : public test::UsbInstallation {
  protected:
    std::vector<std::int32_t> list(std::int32_t room) {
        std::vector<std::int32_t> serials(8, -7);
        std::int32_t count = room;
        EXPECT_EQ(hxrNetworkConfigGetDeviceList(serials.data(), &count), hxrNoError);
        for (auto i = static_cast<std::size_t>(count); i < serials.size(); ++i) EXPECT_EQ(serials[i], -7);
        serials.resize(static_cast<std::size_t>(count));
        return serials;
    }

    static std::uint32_t wordOf(const Fx3Unit& unit, std::uint32_t page, std::size_t word) {
        const auto bytes = unit.flash.read(page, 1024);
        std::uint32_t value = 0;
        for (std::size_t i = 4; i-- > 0;) value = value << 8 | bytes[4 * word + i];
        return value;
    }
};

TEST_F(NetworkConfig, ListsUnitsThatHaveASerialNumber) {
    EXPECT_TRUE(list(8).empty());
    for (const char16_t* serial : {u"20000001", u"1234567", u"123456789", u"2000000\u0161", u"20000002"})
        bus.plugIn({.serialNumber = serial});
    bus.plugIn({.serialNumber = u"20000003", .blank = true});
    bus.ports[4]->isTaken = true;  // open elsewhere
    EXPECT_EQ(list(8), (std::vector<std::int32_t>{20000001, 20000002}));
    for (const char16_t* serial : {u"20000004", u"20000005", u"20000006"})
        bus.plugIn({.serialNumber = serial});
    EXPECT_EQ(list(8), (std::vector<std::int32_t>{20000001, 20000002, 20000004, 20000005}));
    EXPECT_EQ(list(1), (std::vector<std::int32_t>{20000001}));
    EXPECT_TRUE(list(0).empty());

    std::int32_t count = -2, serial = 0;
    EXPECT_EQ(hxrConfigNetGetDeviceList(&serial, &count), hxrNoError);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(hxrConfigNetGetDeviceList(nullptr, &count), hxrNullPointerErr);
    EXPECT_EQ(hxrConfigNetGetDeviceList(&serial, nullptr), hxrNullPointerErr);
    for (const auto& port : bus.ports) {
        EXPECT_EQ(port->claimed, 0);
        EXPECT_TRUE(port->unit.messages().empty());
    }
}

TEST_F(NetworkConfig, OpensFourUnitsAndNoMore) {
    std::int32_t opened = 77;
    for (const char16_t* serial : {u"20000001", u"20000002", u"20000003", u"20000004", u"20000005"})
        bus.plugIn({.serialNumber = serial});
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(hxrNetworkConfigOpenDevice(&opened, 20000001 + i), hxrNoError);
        EXPECT_EQ(opened, i);
    }
    EXPECT_EQ(hxrNetworkConfigOpenDevice(&opened, 20000009), hxrDeviceNotFoundErr);
    EXPECT_EQ(hxrNetworkConfigOpenDevice(&opened, 20000005), hxrMaxDevicesConnectedErr);
    EXPECT_EQ(hxrNetworkConfigOpenDevice(nullptr, 20000005), hxrNullPointerErr);
    EXPECT_EQ(opened, 3);
    EXPECT_EQ(hxrNetworkConfigCloseDevice(1), hxrNoError);
    EXPECT_EQ(hxrNetworkConfigCloseDevice(1), hxrInvalidDeviceErr);
    EXPECT_EQ(hxrNetworkConfigOpenDevice(&opened, 20000005), hxrNoError);
    EXPECT_EQ(opened, 1);
    // A preset closes, too.
    EXPECT_EQ(hxrConfigNetPreset(1), hxrNoError);
    EXPECT_EQ(bus.ports[4]->unit.messages().back(), 0xFFFA);
    EXPECT_EQ(hxrConfigNetPreset(1), hxrInvalidDeviceErr);
    EXPECT_EQ(bus.ports[4]->open, 0);
    // What the system refuses frees the slot all the same.
    bus.ports[0]->refusesClose = true;
    EXPECT_EQ(hxrConfigNetCloseDevice(0), hxrConnectionLostErr);
    EXPECT_EQ(hxrConfigNetCloseDevice(0), hxrInvalidDeviceErr);
}

TEST_F(NetworkConfig, UnitsThatLackWhatIsNeededDoNotOpen) {
    struct Case {
        const char* what;
        std::vector<sim::UsbEndpoint> endpoints;
        bool opens;
    };
    const sim::UsbEndpoint out{0x01, 2, 512}, in{0x81, 2, 512}, interruptOut{0x02, 3, 64};
    const Case cases[] = {{"as it should be", {out, in}, true},
                          {"one more", {out, in, {0x82, 2, 512}}, true},
                          {"no bulk OUT", {interruptOut, in}, false},
                          {"nothing but OUT", {out}, false},
                          {"nothing", {}, false},
                          {"two OUT", {out, {0x02, 2, 512}, in}, false},
                          {"OUT behind", {interruptOut, in, out}, true}};
    for (const Case& c : cases) {
        bus.ports.clear();
        bus.plugIn({.alternateSettings = {c.endpoints}});
        std::int32_t opened = -1;
        EXPECT_EQ(hxrConfigNetOpenDevice(&opened, 12345678), c.opens ? hxrNoError : hxrDeviceNotFoundErr)
            << c.what;
        EXPECT_EQ(opened, c.opens ? 0 : -1) << c.what;
        hxrConfigNetCloseDevice(0);
    }
    bus.ports.clear();
    Fx3Unit& unit = bus.plugIn({.alternateSettings = {{out, in}, {in}}, .presentSetting = 1});
    ASSERT_EQ(hxrConfigNetOpenDevice(&handle, 12345678), hxrNoError);
    EXPECT_EQ(unit.settingRequests(), 1U);
    hxrConfigNetCloseDevice(handle);
    bus.ports[0]->isTaken = true;
    EXPECT_EQ(hxrConfigNetOpenDevice(&handle, 12345678), hxrDeviceNotFoundErr);
}

TEST_F(NetworkConfig, OpeningWaitsForTheFpga) {
    struct Case {
        int busy;
        std::int32_t status;
        std::size_t asked;
    };
    const Case cases[] = {{0, 2, 1}, {7, 2, 8}, {299, 2, 300}, {300, 1, 300}};
    for (const Case& c : cases) {
        bus.ports.clear();
        const std::size_t pausesBefore = clock.sleeps().size();
        Fx3Unit& unit = openUnit({.fpgaBusy = c.busy});
        std::int32_t status = -1;
        EXPECT_EQ(hxrConfigNetGetFPGAStatus(handle, &status), hxrNoError);
        EXPECT_EQ(status, c.status) << c.busy;
        EXPECT_EQ(unit.messages(), std::vector<std::uint16_t>(c.asked, 0xFFEF));
        const auto pauses = clock.sleeps();
        EXPECT_EQ(pauses.size() - pausesBefore, static_cast<std::size_t>(c.busy));
        if (c.busy > 0) {
            EXPECT_EQ(pauses.back(), milliseconds(100));
        }
        hxrConfigNetCloseDevice(handle);
    }
    for (const std::size_t after : {0U, 1U, 4U}) {
        bus.ports.clear();
        bus.plugIn({.fpgaBusy = 10}).fail(after, UsbAnswer::stalled);
        std::int32_t opened = -1;
        EXPECT_EQ(hxrConfigNetOpenDevice(&opened, 12345678), hxrConnectionLostErr) << after;
        EXPECT_EQ(opened, -1);
        EXPECT_EQ(bus.ports[0]->open, 0);
    }
}

TEST_F(NetworkConfig, FailedTransferIsForGood) {
    struct Case {
        UsbAnswer answer;
        std::size_t shortened;
    };
    const Case cases[] = {
        {UsbAnswer::stalled, 0}, {UsbAnswer::silent, 0}, {UsbAnswer::gone, 0}, {UsbAnswer::done, 1}};
    std::array<char, 18> text{};
    for (const Case& c : cases) {
        for (const std::size_t after : {0U, 1U}) {
            if (c.shortened > 0 && after == 0) continue;  // all of a message always goes
            bus.ports.clear();
            Fx3Unit& unit = openUnit();
            unit.fail(after, c.answer, c.shortened);
            EXPECT_EQ(hxrNetworkConfigGetIP(handle, text.data()), hxrConnectionLostErr);
            if (c.answer == UsbAnswer::silent) {
                // Once for the transfer, once for its end.
                const auto waits = clock.timeouts();
                EXPECT_EQ(waits[waits.size() - 1], milliseconds(2000));
                EXPECT_EQ(waits[waits.size() - 2], milliseconds(2000));
            }
            const std::size_t sent = unit.messages().size();
            std::int32_t value = 0;
            EXPECT_EQ(hxrConfigNetGetFirmwareVersion(handle, &value), hxrConnectionLostErr);
            EXPECT_EQ(hxrConfigNetEraseFlashPage(handle, 0), hxrConnectionLostErr);
            EXPECT_EQ(hxrConfigNetSetMAC(handle, "00:11:22:33:44:55"), hxrConnectionLostErr);
            // What is wrong with the arguments comes first.
            EXPECT_EQ(hxrNetworkConfigSetIP(handle, "1.2.3", 1), hxrInvalidParameterErr);
            EXPECT_EQ(hxrConfigNetEraseFlashPage(handle, 0x10000), hxrInvalidParameterErr);
            EXPECT_EQ(hxrConfigNetGetPort(handle, nullptr), hxrNullPointerErr);
            EXPECT_EQ(unit.messages().size(), sent);
            EXPECT_EQ(after == 0 ? hxrConfigNetCloseDevice(handle) : hxrConfigNetPreset(handle),
                      after == 0 ? hxrNoError : hxrConnectionLostErr);
            EXPECT_EQ(unit.messages().size(), sent);
        }
    }
}

TEST_F(NetworkConfig, AddressesAreSetAtOnceAndIfWantedForGood) {
    Fx3Unit& unit = openUnit();
    std::array<char, 18> text{};
    std::int32_t port = 0;
    const std::array<std::uint8_t, 4> other{1, 2, 3, 4};
    unit.flash.write(networkPage, 20, other);  // what is not ours stays

    EXPECT_EQ(hxrNetworkConfigSetIP(handle, "192.168.2.10", 2), hxrNoError);
    EXPECT_EQ(unit.registers[10], 0xC0A8020AU);
    EXPECT_EQ(hxrNetworkConfigSetPort(handle, -5, 2), hxrNoError);
    EXPECT_EQ(unit.flash.erases(), 0U);
    EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrNoError);
    EXPECT_EQ(port, -5);

    EXPECT_EQ(hxrNetworkConfigSetIP(handle, "192.168.2.11", 1), hxrNoError);
    EXPECT_EQ(hxrNetworkConfigSetPort(handle, 5001, 1), hxrNoError);
    EXPECT_EQ(unit.flash.erases(), 2U);
    const std::array<std::uint32_t, 4> record{1, 5001, 5001, 0xC0A8020B};
    for (std::size_t word = 0; word < 4; ++word) EXPECT_EQ(wordOf(unit, networkPage, word), record[word]);
    EXPECT_EQ(wordOf(unit, networkPage, 4), 0xFFFFFFFFU);
    EXPECT_EQ(wordOf(unit, networkPage, 5), 0x04030201U);

    EXPECT_EQ(hxrConfigNetSetMAC(handle, "0a-1B.c2:D3:e4:F5"), hxrNoError);
    EXPECT_EQ(unit.registers[6], 0x0A1BU);
    EXPECT_EQ(unit.registers[7], 0xC2D3E4F5U);
    EXPECT_EQ(unit.flash.erases(), 3U);
    const std::array<std::uint32_t, 4> macRecord{1, 0x0A1B, 0xC2D3E4F5, 0xFFFFFFFF};
    for (std::size_t word = 0; word < 4; ++word) EXPECT_EQ(wordOf(unit, macPage, word), macRecord[word]);

    hxrConfigNetCloseDevice(handle);
    unit.powerCycle();
    ASSERT_EQ(hxrNetworkConfigOpenDevice(&handle, 12345678), hxrNoError);
    EXPECT_EQ(hxrNetworkConfigGetIP(handle, text.data()), hxrNoError);
    EXPECT_STREQ(text.data(), "192.168.2.11");
    EXPECT_EQ(hxrNetworkConfigGetMAC(handle, text.data()), hxrNoError);
    EXPECT_STREQ(text.data(), "0A:1B:C2:D3:E4:F5");
    EXPECT_EQ(hxrNetworkConfigGetPort(handle, &port), hxrNoError);
    EXPECT_EQ(port, 5001);
    std::int32_t version = 0;
    EXPECT_EQ(hxrConfigNetGetFirmwareVersion(handle, &version), hxrNoError);
    EXPECT_EQ(version, 0x0102);

    unit.registers[6] = 0x10000;
    EXPECT_EQ(hxrNetworkConfigGetMAC(handle, text.data()), hxrInvalidParameterErr);
}

TEST_F(NetworkConfig, TextsThatAreNoAddressesSendNothing) {
    Fx3Unit& unit = openUnit();
    const std::size_t sent = unit.messages().size();
    for (const char* ip : {"", "1.2.3", "1.2.3.256", "1.2.-3.4", "1.2.3.4.5", "192.168.002.0010", "192..2.3",
                           "192.168.2.x", "1.2.3.", ".1.2.3", " 1.2.3.4", "+1.2.3.4", "1x.2.3.4", "1.2.3.4 "})
        EXPECT_EQ(hxrNetworkConfigSetIP(handle, ip, 1), hxrInvalidParameterErr) << ip;
    for (const char* mac : {"", "00:11:22:33:44:5", "00:11:22:33:44:556", "00:11:22:33:44:5g",
                            "0 :11:22:33:44:55", "-1:11:22:33:44:55", "0x:11:22:33:44:55"})
        EXPECT_EQ(hxrConfigNetSetMAC(handle, mac), hxrInvalidParameterErr) << mac;
    EXPECT_EQ(unit.messages().size(), sent);
    EXPECT_EQ(parseIp("192.168.002.010"), 0xC0A8020AU);
    EXPECT_EQ(ipText(0xFF000001), "255.0.0.1");

    EXPECT_EQ(hxrNetworkConfigSetIP(handle, nullptr, 1), hxrNullPointerErr);
    EXPECT_EQ(hxrConfigNetSetMAC(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrNetworkConfigGetMAC(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrNetworkConfigGetIP(handle, nullptr), hxrNullPointerErr);
    for (const int wrong : {-1, 1, 4, 1000})
        EXPECT_EQ(hxrNetworkConfigSetIP(wrong, nullptr, 1), hxrInvalidDeviceErr);
}

TEST_F(NetworkConfig, RecordsAreNotTouchedOnceSomethingFails) {
    struct Case {
        std::size_t after;  ///< transfers that pass
        std::size_t erases;
    };
    // Register, read of the record and its reply, erase, two looks at it with their replies, three parts of the page.
    const Case cases[] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 1}, {7, 1}, {10, 1}, {11, 1}, {12, 1}};
    for (const Case& c : cases) {
        bus.ports.clear();
        Fx3Unit& unit = openUnit();
        unit.fail(c.after, UsbAnswer::stalled);
        EXPECT_EQ(hxrNetworkConfigSetIP(handle, "10.0.0.1", 1), hxrConnectionLostErr) << c.after;
        EXPECT_EQ(unit.flash.erases(), c.erases) << c.after;
        hxrConfigNetCloseDevice(handle);
        bus.ports.clear();
        Fx3Unit& another = openUnit();
        another.fail(c.after, UsbAnswer::stalled);
        EXPECT_EQ(hxrConfigNetSetMAC(handle, "00:11:22:33:44:55"),
                  c.after < 12 ? hxrConnectionLostErr : hxrNoError)
            << c.after;
        EXPECT_EQ(another.registers.contains(7), c.after >= 12) << c.after;
        hxrConfigNetCloseDevice(handle);
    }
}

TEST_F(NetworkConfig, BlankUnitIsStartedFromAFile) {
    bus.plugIn({.serialNumber = u"20000001"});
    Fx3Unit& unit = bus.plugIn({.blank = true});
    EXPECT_EQ(hxrConfigNetBootstrapDevice(&handle, nullptr), hxrNullPointerErr);
    const auto file = write(test::firmware());
    EXPECT_EQ(hxrConfigNetBootstrapDevice(nullptr, file.c_str()), hxrNullPointerErr);
    EXPECT_EQ(hxrConfigNetBootstrapDevice(&handle, (folder.path() / "none").c_str()), hxrDeviceNotFoundErr);
    EXPECT_EQ(handle, -1);
    ASSERT_EQ(hxrConfigNetBootstrapDevice(&handle, file.c_str()), hxrNoError);
    EXPECT_EQ(clock.sleeps().back(), milliseconds(2000));
    EXPECT_FALSE(unit.inBootLoader());
    EXPECT_EQ(list(4), (std::vector<std::int32_t>{20000001, 11111111}));

    // The firmware with its number goes to the flash, and the unit comes up with it.
    EXPECT_EQ(hxrConfigNetClearFx3(handle), hxrNoError);
    EXPECT_EQ(hxrConfigNetWriteFx3(handle, file.c_str(), 20000002), hxrNoError);
    EXPECT_EQ(hxrConfigNetPreset(handle), hxrNoError);
    EXPECT_EQ(list(4), (std::vector<std::int32_t>{20000001, 20000002}));
    // Nobody is in the boot loader any more, but a unit with the placeholder would still be opened.
    EXPECT_EQ(hxrConfigNetBootstrapDevice(&handle, file.c_str()), hxrDeviceNotFoundErr);
    bus.plugIn({.serialNumber = u"11111111"});
    EXPECT_EQ(hxrConfigNetBootstrapDevice(&handle, file.c_str()), hxrNoError);
}

}  // namespace
}  // namespace hxr
