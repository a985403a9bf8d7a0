#include "netconfig/usb_device.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "netconfig/boot_loader.h"
#include "usb_installation.h"

namespace hxr {
namespace {

using sim::UsbAnswer;
using test::Bytes;

class USBDeviceTest : public test::UsbInstallation {};

/// A configuration of one interface; each endpoint has its companion.
Bytes configurationWith(std::initializer_list<Bytes> endpoints) {
    Bytes bytes{9,    2, 0, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, static_cast<std::uint8_t>(endpoints.size()),
                0xFF, 0, 0, 0};
    for (const Bytes& endpoint : endpoints) bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}
auto settingsOf(const Bytes& bytes) { return alternateSettingsOf(std::as_bytes(std::span(bytes))); }

TEST(UsbDescriptors, SizesFollowFromDescriptorAndCompanion) {
    struct Case {
        Bytes endpoint;
        unsigned maxPacketSize, packetsPerFrame, burst;
        TransferType type;
    };
    const Case cases[] = {
        {{7, 5, 0x81, 2, 0x00, 0x02, 0}, 512, 1, 0, TransferType::bulk},
        {{7, 5, 0x81, 2, 0x00, 0x04, 0, 6, 0x30, 15, 0, 0, 0}, 16384, 1, 15, TransferType::bulk},
        {{7, 5, 0x83, 3, 0x40, 0x10, 4}, 192, 3, 0, TransferType::interrupt},
        {{7, 5, 0x02, 1, 0x00, 0x0C, 1, 6, 0x30, 1, 2, 0, 0},
         1024 * 2 * 2 * 3,
         2,
         1,
         TransferType::isochronous},
        {{7, 5, 0x02, 1, 0x00, 0x14, 1, 6, 0x30, 15, 2, 0, 0}, 65535, 3, 15, TransferType::isochronous},
        {{9, 5, 0x02, 2, 0x08, 0x00, 0, 1, 2}, 8, 1, 0, TransferType::bulk},  // longer than needed
    };
    for (const Case& c : cases) {
        const auto settings = settingsOf(configurationWith({c.endpoint}));
        ASSERT_TRUE(settings);
        ASSERT_EQ(settings->size(), 1U);
        const EndpointDescriptor& found = settings->front().endpoints.at(0);
        EXPECT_EQ(found.address, c.endpoint[2]);
        EXPECT_EQ(found.maxPacketSize, c.maxPacketSize);
        EXPECT_EQ(found.packetsPerFrame, c.packetsPerFrame);
        EXPECT_EQ(found.burst, c.burst);
        EXPECT_EQ(transferTypeOf(found), c.type);
    }
}

TEST(UsbDescriptors, WhatDoesNotFitIsRefused) {
    const Bytes whole =
        configurationWith({{7, 5, 0x01, 2, 0, 2, 0}, {7, 5, 0x81, 2, 0, 2, 0, 6, 0x30, 15, 0, 0, 0}});
    ASSERT_TRUE(settingsOf(whole));
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(settingsOf(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))))
            << length;
    struct Case {
        std::size_t offset;
        std::uint8_t value;
        bool accepted;
    };
    const Case cases[] = {{0, 8, false},  {1, 4, false},    {2, 8, false}, {2, 34, false},  {3, 1, false},
                          {9, 1, false},  {9, 0, false},    {9, 8, false}, {18, 6, false},  {18, 200, false},
                          {32, 5, false}, {33, 0x24, true}, {13, 9, true}, {10, 0x24, true}};
    for (const Case& c : cases) {
        Bytes bytes = whole;
        bytes[c.offset] = c.value;
        EXPECT_EQ(settingsOf(bytes).has_value(), c.accepted) << c.offset << ' ' << int{c.value};
    }
    // Endpoints of no interface belong to nobody.
    Bytes orphan = whole;
    orphan[10] = 0x24;
    EXPECT_TRUE(settingsOf(orphan)->empty());
}

TEST_F(USBDeviceTest, OpensByPositionAndKnowsItsEndpoints) {
    bus.plugIn({.alternateSettings = {{{0x01, 2, 512}, {0x82, 3, 64}, {0x83, 1, 64}, {0x81, 2, 512}},
                                      {{0x02, 2, 512}}}});
    bus.plugIn({.blank = true});
    bus.plugIn();
    bus.ports.back()->identity = {0x7D31, 0x000F};  // something else of the maker's
    USBDevice usb(bus, unitClass);
    EXPECT_TRUE(usb.isOpen());
    EXPECT_EQ(usb.deviceCount(), 2);
    ASSERT_TRUE(usb.open(0));
    EXPECT_EQ(usb.serialNumber(), u"12345678");
    ASSERT_EQ(usb.endpoints().size(), 5U);
    EXPECT_EQ(usb.endpoints()[0], &usb.control());
    EXPECT_EQ(usb.bulkOut(), usb.endpoints()[1]);
    EXPECT_EQ(usb.endpoints()[4]->descriptor.address, 0x81);

    EXPECT_TRUE(usb.selectAlternateSetting(0));
    EXPECT_EQ(bus.ports[0]->unit.settingRequests(), 0U);
    EXPECT_FALSE(usb.selectAlternateSetting(2));
    EXPECT_EQ(bus.ports[0]->unit.settingRequests(), 0U);
    EXPECT_TRUE(usb.selectAlternateSetting(1));
    EXPECT_EQ(bus.ports[0]->unit.settingRequests(), 1U);
    EXPECT_EQ(usb.endpoints().size(), 2U);

    ASSERT_TRUE(usb.open(1));
    EXPECT_EQ(bus.ports[0]->open, 0);
    EXPECT_EQ(usb.vendorId(), 0x04B4);
    EXPECT_TRUE(usb.serialNumber().empty());
    for (const int outside : {2, -1}) {
        EXPECT_FALSE(usb.open(outside));
        EXPECT_FALSE(usb.isOpen());
    }
    ClassGuid other = unitClass;
    other[15] ^= 1;
    EXPECT_EQ(USBDevice(bus, other).deviceCount(), 0);
}

TEST_F(USBDeviceTest, WrongTablesAreShownAndNotOpened) {
    struct Case {
        std::uint8_t type;
        Bytes bytes;
        const char* shown;
    };
    const Case cases[] = {
        {2,
         {9, 2, 12, 0, 1, 1, 0, 0x80, 50, 9, 4, 0},
         "Wrong Device Configuration: Please correct firmware descriptor table\n"},
        {15,
         {5, 15, 8, 0, 1, 10, 16, 3},
         "Wrong BOS Descriptor: Please correct firmware BOS descriptor table\n"},
        {2, {9, 2, 9, 0, 0, 1, 0, 0x80, 50}, ""},  // no interface
        {1, {18, 1, 0}, ""},
    };
    for (const Case& c : cases) {
        bus.ports.clear();
        bus.plugIn().setDescriptor(c.type, c.bytes);
        testing::internal::CaptureStderr();
        USBDevice unit(bus, unitClass);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.shown);
        EXPECT_FALSE(unit.isOpen());
        EXPECT_EQ(bus.ports[0]->open, 0);
    }
}

TEST_F(USBDeviceTest, RefusedCloseIsTold) {
    bus.plugIn();
    USBDevice usb(bus, unitClass);
    bus.ports[0]->refusesClose = true;
    try {
        usb.close();
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Failed to close handle to driver.");
    }
    EXPECT_FALSE(usb.isOpen());
    EXPECT_EQ(bus.ports[0]->open, 0);
}

TEST_F(USBDeviceTest, BootLoaderTakesOnlyWhatReadsBackRightTheThirdTime) {
    struct Case {
        const char* what;
        std::function<void(sim::Fx3Unit&)> happens;
        std::function<void(Bytes&)> spoil;
        bool starts;
        std::size_t requests;
    };
    // Blocks of 64, 2048, 2048, 904 and 4 bytes, three times written and read, and the start.
    constexpr std::size_t all = 5 * 6 + 1;
    const auto nothing = [](sim::Fx3Unit&) {};
    const auto asItIs = [](Bytes&) {};
    const Case cases[] = {
        {"a whole image", nothing, asItIs, true, all},
        {"two differences", [](auto& unit) { unit.spoilMemory(0x40003000, 2); }, asItIs, true, all},
        {"three differences", [](auto& unit) { unit.spoilMemory(0x40003000, 3); }, asItIs, false, 6},
        {"a difference in the third block", [](auto& unit) { unit.spoilMemory(0x40003840, 3); }, asItIs,
         false, 18},
        {"a write that fails early", [](auto& unit) { unit.failMemory(2, UsbAnswer::stalled, 2); }, asItIs,
         true, all},
        {"a write that fails late", [](auto& unit) { unit.failMemory(4, UsbAnswer::stalled, 1); }, asItIs,
         false, 6},
        {"a read that fails late", [](auto& unit) { unit.failMemory(5, UsbAnswer::silent, 1); }, asItIs,
         false, 6},
        {"other letters", nothing, [](Bytes& image) { image[0] = 'D'; }, false, 0},
        {"an empty file", nothing, [](Bytes& image) { image.clear(); }, false, 0},
        {"a wrong checksum", nothing, [](Bytes& image) { image.back() ^= 1; }, true, all},
        {"a record past the end", nothing, [](Bytes& image) { image.resize(200); }, false, 6},
        {"a cut head", nothing, [](Bytes& image) { image.resize(4 + 8 + 64 + 3); }, false, 6},
    };
    for (const Case& c : cases) {
        bus.ports.clear();
        sim::Fx3Unit& unit = bus.plugIn({.blank = true});
        USBDevice usb(bus, unitClass);
        c.happens(unit);
        Bytes image = test::firmware();
        c.spoil(image);
        loadFirmware(usb.control(), write(image), clock);
        EXPECT_EQ(unit.inBootLoader(), !c.starts) << c.what;
        EXPECT_EQ(unit.memoryRequests(), c.requests) << c.what;
    }
    USBDevice usb(bus, unitClass);
    loadFirmware(usb.control(), folder.path() / "not there", clock);
    loadFirmware(usb.control(), folder.path(), clock);
    EXPECT_EQ(bus.ports[0]->unit.memoryRequests(), 6U);
}

}  // namespace
}  // namespace hxr
