/// Firmware, bitstream and calibration in a unit's flash, through the exported entries.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "usb_installation.h"

namespace hxr {
namespace {

using sim::Fx3Unit;
using sim::UsbAnswer;
using test::Bytes;

class Flash : public test::UsbInstallation {
  protected:
    static Bytes noise(std::size_t count) {
        std::mt19937 random(7);
        Bytes bytes(count);
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
        return bytes;
    }
};

TEST_F(Flash, PagesAreWrittenReadAndErased) {
    Fx3Unit& unit = openUnit({.eraseBusy = 3});
    const Bytes page = noise(1024);
    Bytes back(32768);
    const std::size_t before = unit.messages().size();
    EXPECT_EQ(hxrConfigNetWriteFlashPage(handle, 0xFFFF, page.data()), hxrNoError);
    EXPECT_EQ(Bytes(unit.flash.read(0xFFFF, 1024)), page);
    EXPECT_EQ(
        std::vector(unit.messages().begin() + static_cast<std::ptrdiff_t>(before), unit.messages().end()),
        (std::vector<std::uint16_t>{0xFFF0, 0xFFF1, 0xFFF2}));
    EXPECT_EQ(hxrConfigNetReadFlashPage(handle, 0xFFFF, back.data()), hxrNoError);
    EXPECT_TRUE(std::equal(page.begin(), page.end(), back.begin()));
    EXPECT_EQ(hxrConfigNetEraseFlashPage(handle, 0xFF00), hxrNoError);
    EXPECT_EQ(clock.sleeps(), std::vector(3, std::chrono::milliseconds(200)));
    EXPECT_EQ(unit.flash.read(0xFFFF, 1), Bytes{0xFF});

    EXPECT_EQ(hxrConfigNetWriteFlashPage(handle, 0x10000, page.data()), hxrInvalidParameterErr);
    EXPECT_EQ(hxrConfigNetReadFlashPage(handle, 0x10000, back.data()), hxrInvalidParameterErr);
    EXPECT_EQ(hxrConfigNetEraseFlashPage(handle, 0x10000), hxrInvalidParameterErr);
    EXPECT_EQ(hxrConfigNetWriteFlashPage(handle, 0, nullptr), hxrNullPointerErr);
    for (const std::size_t after : {0U, 1U, 2U}) {
        hxrConfigNetCloseDevice(handle);
        bus.ports.clear();
        Fx3Unit& failing = openUnit();
        failing.fail(after, UsbAnswer::stalled);
        EXPECT_EQ(hxrConfigNetWriteFlashPage(handle, 5, page.data()), hxrConnectionLostErr);
        EXPECT_EQ(failing.messages().size(), 1 + after);
    }
}

TEST_F(Flash, EraseThatDoesNotEndIsGivenUp) {
    Fx3Unit& unit = openUnit({.eraseBusy = 1000});
    EXPECT_EQ(hxrConfigNetEraseFlashPage(handle, 256), hxrNoError);
    EXPECT_EQ(clock.sleeps().size(), 50U);
    EXPECT_EQ(std::ranges::count(unit.messages(), 0xFFF9), 50);
}

TEST_F(Flash, SectionsLieWhereTheyBelong) {
    Fx3Unit& unit = openUnit();
    struct Section {
        HXRStatus (*clear)(int);
        HXRStatus (*write)(int, const std::uint8_t*);
        HXRStatus (*read)(int, std::uint8_t*);
        std::uint32_t page;
        std::size_t bytes, erases;
        std::uint32_t keptBefore, keptBehind;  ///< pages that a clear leaves
    };
    const Section sections[] = {
        {hxrConfigNetClearCBB, hxrConfigNetWriteCBB, hxrConfigNetReadCBB, 1024, 0x40000, 1, 1023, 1280},
        {hxrConfigNetClearPretest, hxrConfigNetWritePretest, hxrConfigNetReadPretest, 1280, 0x40000, 1, 1279,
         1536},
        {hxrConfigNetClearChamber, hxrConfigNetWriteCorrections, nullptr, 1536, 0x780000, 30, 1535, 9216},
        {hxrConfigNetClearCorrections, nullptr, nullptr, 1280, 0, 31, 1279, 9216},
        {hxrConfigNetClearFx3, nullptr, nullptr, 0, 0, 2, 512, 512},
        {hxrConfigNetClearFPGA, nullptr, nullptr, 16384, 0, 64, 16383, 32768},
    };
    const std::array<std::uint8_t, 1> mark{0x5A};
    const Bytes data = noise(0x780000);
    for (const Section& section : sections) {
        for (const auto page : {section.keptBefore, section.keptBehind}) unit.flash.write(page, 0, mark);
        const std::size_t erases = unit.flash.erases();
        EXPECT_EQ(section.clear(handle), hxrNoError);
        EXPECT_EQ(unit.flash.erases() - erases, section.erases) << section.page;
        for (const auto page : {section.keptBefore, section.keptBehind})
            EXPECT_EQ(unit.flash.read(page, 1)[0], mark[0]) << page;
        EXPECT_EQ(section.clear(7), hxrInvalidDeviceErr);
        if (section.write == nullptr) continue;
        EXPECT_EQ(section.write(handle, nullptr), hxrNullPointerErr);
        ASSERT_EQ(section.write(handle, data.data()), hxrNoError) << section.page;
        EXPECT_TRUE(std::ranges::equal(unit.flash.read(section.page, section.bytes),
                                       std::span(data).first(section.bytes)));
        if (section.read == nullptr) continue;
        EXPECT_EQ(section.read(handle, nullptr), hxrNullPointerErr);
        Bytes back(section.bytes);
        ASSERT_EQ(section.read(handle, back.data()), hxrNoError);
        EXPECT_TRUE(std::ranges::equal(back, std::span(data).first(section.bytes)));
        EXPECT_EQ(section.clear(handle), hxrNoError);  // for the next mark
    }
    // All sections are one image.
    Bytes image(0x800000);
    ASSERT_EQ(hxrConfigNetReadCorrections(handle, image.data()), hxrNoError);
    EXPECT_EQ(image, unit.flash.read(1024, image.size()));
    std::int32_t serial = 0;
    const std::array<std::uint8_t, 4> number{0x78, 0x56, 0x34, 0x12};
    unit.flash.erase(1536);
    unit.flash.write(1536, 8, number);
    EXPECT_EQ(hxrConfigNetGetSerialFromFlash(handle, &serial), hxrNoError);
    EXPECT_EQ(serial, 0x12345678);
}

TEST_F(Flash, WhatDoesNotReadBackIsTold) {
    constexpr std::size_t reads = 8;  // of 32 KiB
    Bytes data = noise(0x40000);
    for (std::size_t block = 0; block < reads; ++block) {
        data[(block + 1) * 0x8000 - 1] = 0;  // where the flash will fail
        hxrConfigNetCloseDevice(handle);
        bus.ports.clear();
        Fx3Unit& unit = openUnit();
        unit.flash.stick(static_cast<std::uint32_t>(1024 + 32 * block + 31), 1023);
        EXPECT_EQ(hxrConfigNetWriteCBB(handle, data.data()), hxrFlashIOErr) << block;
        EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(unit.messages(), 0xFFFD)), block + 1);
        // A read that fails is a difference, too.
        hxrConfigNetCloseDevice(handle);
        bus.ports.clear();
        Fx3Unit& failing = openUnit();
        failing.fail(3 * 256 + 2 * block + 1, UsbAnswer::stalled);
        EXPECT_EQ(hxrConfigNetWriteCBB(handle, data.data()), hxrFlashIOErr) << block;
        EXPECT_EQ(hxrConfigNetClearCBB(handle), hxrConnectionLostErr);
    }
    hxrConfigNetCloseDevice(handle);
    bus.ports.clear();
    openUnit().fail(100, UsbAnswer::stalled);
    EXPECT_EQ(hxrConfigNetWriteCBB(handle, data.data()), hxrConnectionLostErr);
}

TEST_F(Flash, FirmwareGetsItsNumberAndItsVersionAtTheEnd) {
    struct Case {
        const char* what;
        std::int32_t serial;
        std::function<void(Bytes&)> change;
        HXRStatus status;
        const char16_t* comesUpAs;  ///< null: not at all
        bool told;
    };
    const auto asItIs = [](Bytes&) {};
    const Case cases[] = {
        {"as it should be", 20000007, asItIs, hxrNoError, u"20000007", false},
        {"a number of seven digits", 2000007, asItIs, hxrNoError, u"11111111", false},
        {"a number of nine digits", 200000007, asItIs, hxrNoError, u"11111111", false},
        {"a wrong checksum", 20000007, [](Bytes& image) { image[20] ^= 0x80; }, hxrNoError, nullptr, true},
        {"something at the end", 20000007, [](Bytes& image) { image.resize(0x40000, 0xEE); }, hxrNoError,
         u"20000007", false},
        {"no version", 20000007, [](Bytes& image) { *std::ranges::find(image, 'V') = 'v'; },
         hxrInvalidParameterErr, nullptr, true},
        {"one byte too long", 20000007, [](Bytes& image) { image.resize(0x40001); }, hxrInvalidParameterErr,
         nullptr, false},
    };
    for (const Case& c : cases) {
        hxrConfigNetCloseDevice(handle);
        bus.ports.clear();
        Fx3Unit& unit = openUnit();
        ASSERT_EQ(hxrConfigNetClearFx3(handle), hxrNoError);
        const std::size_t before = unit.messages().size();
        Bytes image = test::firmware(0x0405);
        c.change(image);
        testing::internal::CaptureStdout();
        EXPECT_EQ(hxrConfigNetWriteFx3(handle, write(image).c_str(), c.serial), c.status) << c.what;
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  c.told ? "Fail to boot due to checksum error\n" : "")
            << c.what;
        if (c.status != hxrNoError) {
            EXPECT_EQ(unit.messages().size(), before) << c.what;
            continue;
        }
        const Bytes written = unit.flash.read(0, 0x40000);
        EXPECT_EQ(Bytes(written.end() - 2, written.end()), (Bytes{0x04, 0x05})) << c.what;
        EXPECT_EQ(written[0x3FFFD], image.size() < 0x40000 ? 0 : 0xEE) << c.what;
        unit.powerCycle();
        EXPECT_EQ(unit.inBootLoader(), c.comesUpAs == nullptr) << c.what;
        hxrConfigNetCloseDevice(handle);
        if (c.comesUpAs == nullptr) continue;
        const std::u16string number = c.comesUpAs;
        EXPECT_EQ(hxrConfigNetOpenDevice(&handle, std::stoi(std::string(number.begin(), number.end()))),
                  hxrNoError)
            << c.what;
    }
    EXPECT_EQ(hxrConfigNetWriteFx3(9, nullptr, 1), hxrInvalidDeviceErr);
    openUnit({.serialNumber = u"30000000"});
    EXPECT_EQ(hxrConfigNetWriteFx3(handle, nullptr, 1), hxrNullPointerErr);
    for (const auto& path : {folder.path(), folder.path() / "none"})
        EXPECT_EQ(hxrConfigNetWriteFx3(handle, path.c_str(), 1), hxrInvalidParameterErr);
}

TEST_F(Flash, BitstreamIsWrittenBitsReversed) {
    Fx3Unit& unit = openUnit();
    EXPECT_EQ(hxrConfigNetWriteFGPA(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrConfigNetWriteFGPA(handle, (folder.path() / "none").c_str()), hxrInvalidParameterErr);
    EXPECT_EQ(hxrConfigNetWriteFGPA(handle, write(Bytes(0x1000001)).c_str()), hxrInvalidParameterErr);
    EXPECT_EQ(unit.messages().size(), 1U);
    const Bytes bits = noise(100'001);
    ASSERT_EQ(hxrConfigNetWriteFGPA(handle, write(bits).c_str()), hxrNoError);
    const Bytes written = unit.flash.read(16384, 0x1000000);
    for (std::size_t i = 0; i < written.size(); ++i) {
        const unsigned original = i < bits.size() ? bits[i] : 0;
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < 8; ++bit) reversed |= (original >> bit & 1) << (7 - bit);
        ASSERT_EQ(written[i], reversed) << i;
    }
}

}  // namespace
}  // namespace hxr
