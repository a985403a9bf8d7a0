#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <map>

#include "support/installation.h"

namespace hxr {
namespace {

using test::Installation;
using namespace std::chrono_literals;
using Words = std::vector<std::uint32_t>;

TEST(Texts, NameEveryStatus) {
    const std::map<int, std::string> texts{{-15, "Unknown error"},
                                           {-14, "Sweep not started error"},
                                           {-13, "Sweep already started error"},
                                           {-12, "ADC clock/alignment error"},
                                           {-11, "Invalid operation on multi-receiver system error"},
                                           {-10, "Data sync error"},
                                           {-9, "Flash I/O error"},
                                           {-8, "Invalid parameter error"},
                                           {-7, "Invalid configuration error"},
                                           {-6, "Memory allocation error"},
                                           {-5, "Max devices connected error"},
                                           {-4, "Invalid device error"},
                                           {-3, "Null pointer error"},
                                           {-2, "Connection lost error"},
                                           {-1, "Device not found"},
                                           {0, "No error"},
                                           {1, "Setting clamped"},
                                           {2, "ADC overflow"},
                                           {3, "Uncal data, potential USB data loss"},
                                           {4, "Temp drift warning"},
                                           {5, "DDR buffer overflow"},
                                           {6, "Calibration data checksum failed"},
                                           {7, "Unknown error"}};
    for (const auto& [status, text] : texts)
        EXPECT_EQ(hxrGetErrorString(static_cast<HXRStatus>(status)), text);
    EXPECT_STREQ(hxrGetAPIVersion(), "1.0.0");
}

TEST(Handles, AreCheckedBeforePointers) {
    const std::vector<std::function<HXRStatus(int)>> entries{
        [](int handle) { return hxrPairDevice(handle, nullptr, nullptr, 1); },
        [](int handle) { return hxrGetPairedDevices(handle, nullptr); },
        [](int handle) { return hxrCloseDevice(handle); },
        [](int handle) { return hxrGetSerialNumber(handle, nullptr); },
        [](int handle) { return hxrGetFirmwareVersion(handle, nullptr, nullptr, nullptr); },
        [](int handle) { return hxrGetCalDate(handle, nullptr); },
        [](int handle) { return hxrGetChannelCount(handle, nullptr); },
        [](int handle) { return hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr); },
        [](int handle) { return hxrGetFullDeviceDiagnostics(handle, nullptr); },
        [](int handle) { return hxrSetLowPowerState(handle); },
        [](int handle) { return hxrSetFanEnabled(handle, 1); },
        [](int handle) { return hxrGetFanEnabled(handle, nullptr); },
        [](int handle) { return hxrSetFanSetPoint(handle, 20); },
        [](int handle) { return hxrGetFanSetPoint(handle, nullptr); },
        [](int handle) { return hxrInitiate(handle); },
        [](int handle) { return hxrAbort(handle); },
        [](int handle) { return hxrSetReference(handle, 2); },
        [](int handle) { return hxrGetReference(handle, nullptr); },
        [](int handle) { return hxrSetGPSTimebaseUpdate(handle, 2); },
        [](int handle) { return hxrGetGPSTimebaseUpdate(handle, nullptr); },
        [](int handle) { return hxrGetGPSHoldoverInfo(handle, nullptr, nullptr); },
        [](int handle) { return hxrGetGPSState(handle, nullptr); },
        [](int handle) { return hxrGetGPSInfo(handle, 1, nullptr, nullptr, nullptr, nullptr, nullptr); },
        [](int handle) { return hxrWriteMessageToGPS(handle, 0, 0, 9); },
        [](int handle) { return hxrAdminGetLOLockFlags(handle, nullptr, nullptr); },
        [](int handle) { return hxrAdminGetCoarseTuneVal(handle, nullptr); },
        [](int handle) { return hxrAdminSetCoarseTuneVal(handle, 0); },
        [](int handle) { return hxrAdminInitFullBandLOs(handle, true, true); },
        [](int handle) { return hxrAdminReInitChans(handle); },
        [](int handle) { return hxrAdminSetVSGPatternDirect(handle, nullptr, -1); },
        [](int handle) { return hxrAdminSetVSGAtten(handle, 8); },
        [](int handle) { return hxrAdminGetFullBandIQ(handle, 4, true, 0, 7, nullptr, 0); },
        [](int handle) { return hxrAdminGetFullBandIQ(handle, 4, true, 0, 7, nullptr, 0, true, nullptr); },
        [](int handle) { return hxrAdminConfigureForCBBReadback(handle); },
        [](int handle) {
            unsigned char byte = 0;
            return hxrAdminCBBReadback(handle, true, true, 4, -1, byte, byte, byte);
        },
        [](int handle) { return hxrAdminHasCBBData(handle, nullptr); },
        [](int handle) { return hxrAdminHasPretestCorrections(handle, nullptr); },
        [](int handle) { return hxrAdminHasChamberCorrections(handle, nullptr); },
        [](int handle) { return hxrAdminSetCorrectionMode(handle, true); },
        [](int handle) { return hxrAdminSetCorrectionIndex(handle, 7); },
        [](int handle) { return hxrAdminSetLOFT(handle, 1, 1); },
        [](int handle) { return hxrAdminManualLoadCorrections(handle, nullptr); },
        [](int handle) { return hxrAdminSetDisableLOOnAbort(handle, true); }};
    for (const int handle : {-1, 0, 3, 4, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        for (const auto& entry : entries) EXPECT_EQ(entry(handle), hxrInvalidDeviceErr) << handle;
    }
}

class Entries : public Installation {};

TEST_F(Entries, RefuseNullPointers) {
    const std::string host = test::hostAddress(), unit = test::unitAddress();
    int number = 0;
    EXPECT_EQ(hxrConnectDevice(nullptr, host.c_str(), unit.c_str(), 5000), hxrNullPointerErr);
    EXPECT_EQ(hxrConnectDevice(&number, nullptr, unit.c_str(), 5000), hxrNullPointerErr);
    EXPECT_EQ(hxrConnectDevice(&number, host.c_str(), nullptr, 5000), hxrNullPointerErr);
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(hxrPairDevice(handle, nullptr, unit.c_str(), 5000), hxrNullPointerErr);
    EXPECT_EQ(hxrPairDevice(handle, host.c_str(), nullptr, 5000), hxrNullPointerErr);
    EXPECT_EQ(hxrGetPairedDevices(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetSerialNumber(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetFirmwareVersion(handle, &number, &number, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetFirmwareVersion(handle, nullptr, &number, &number), hxrNullPointerErr);
    EXPECT_EQ(hxrGetCalDate(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetChannelCount(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetFullDeviceDiagnostics(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetFanEnabled(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetFanSetPoint(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetReference(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetGPSTimebaseUpdate(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetGPSState(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrAdminGetCoarseTuneVal(handle, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr), hxrNoError);
    EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, nullptr, nullptr), hxrNoError);
    EXPECT_EQ(hxrGetGPSInfo(handle, 1, nullptr, nullptr, nullptr, nullptr, nullptr), hxrNoError);
    forgetWhatWasSent(*units[0]);
    EXPECT_EQ(hxrAdminGetLOLockFlags(handle, nullptr, nullptr), hxrNoError);
    EXPECT_EQ(datagramsAt(*units[0]), 1U) << "a status is read all the same";
}

TEST_F(Entries, RefuseTextsThatAreNoAddresses) {
    for (const char* text : {"", "unit", "10.0.0", "10.0.0.256", "10.0.0.1 ", "::1"}) {
        EXPECT_EQ(hxrConnectDevice(&handle, test::hostAddress().c_str(), text, 5000), hxrDeviceNotFoundErr)
            << text;
        EXPECT_EQ(hxrConnectDevice(&handle, text, test::unitAddress().c_str(), 5000), hxrDeviceNotFoundErr)
            << text;
    }
    EXPECT_EQ(handle, -1);
}

TEST_F(Entries, GiveThreeOfTheElevenHealthValues) {
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    std::array<float, 11> all{};
    float supply = 0, rail = 0, temperature = 0;
    EXPECT_EQ(hxrGetFullDeviceDiagnostics(handle, all.data()), hxrNoError);
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, &supply, &rail, &temperature), hxrNoError);
    EXPECT_EQ((std::vector{supply, rail, temperature}), (std::vector{all[0], all[1], all[4]}));
}

TEST_F(Entries, AskTheUnitAtMostOnceASecond) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    forgetWhatWasSent(unit);
    float supply = 0;
    clock.advance(1000ms);
    hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr);
    EXPECT_EQ(unit.recording().counts().statusReplies, 0U);
    clock.advance(1ms);
    for (int i = 0; i < 3; ++i) hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr);
    EXPECT_EQ(unit.recording().counts().statusReplies, 1U);

    // While a sweep owns the control endpoint, the last values do.
    ControlClaim sweep = device(handle).link->claimControl(EndpointOwner::sweep);
    clock.advance(5000ms);
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr), hxrNoError);
    EXPECT_EQ(unit.recording().counts().statusReplies, 1U);
    sweep.release();
    hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr);
    EXPECT_EQ(unit.recording().counts().statusReplies, 2U);
}

TEST_F(Entries, SetTheFan) {
    struct Case {
        std::function<HXRStatus(int)> call;
        HXRStatus status;
        std::uint32_t word;  // 0: none is sent
        unsigned on;
        float degrees;
    };
    const auto setPoint = [](float degrees) { return [=](int h) { return hxrSetFanSetPoint(h, degrees); }; };
    const auto enable = [](unsigned on) { return [=](int h) { return hxrSetFanEnabled(h, on); }; };
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const std::vector<Case> cases{
        {enable(1), hxrNoError, 0x0C0001C4, 1, 50},
        {enable(2), hxrNoError, 0x0C0101C4, 0, 50},
        {setPoint(5), hxrNoError, 0x0C010182, 0, 5},
        {enable(1), hxrNoError, 0x0C000182, 1, 5},
        {setPoint(4.9F), hxrSettingClamped, 0x0C000182, 1, 5},
        {setPoint(60), hxrNoError, 0x0C0001D3, 1, 60},
        {setPoint(60.1F), hxrSettingClamped, 0x0C0001D3, 1, 60},
        {setPoint(-infinity), hxrSettingClamped, 0x0C000182, 1, 5},
        {setPoint(infinity), hxrSettingClamped, 0x0C0001D3, 1, 60},
        {setPoint(std::nanf("")), hxrInvalidParameterErr, 0, 1, 60},
        {enable(0), hxrNoError, 0x0C0101D3, 0, 60},
    };
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    for (const Case& c : cases) {
        forgetWhatWasSent(unit);
        EXPECT_EQ(c.call(handle), c.status);
        if (c.word != 0) {
            ASSERT_TRUE(unit.recording().waitForPackets(1, 5s));
        }
        if (c.word == 0) {
            EXPECT_EQ(datagramsAt(unit), 0U);
        } else {
            EXPECT_EQ(unit.recording().words(), Words{c.word});
        }
        unsigned on = 9;
        float degrees = 0;
        EXPECT_EQ(hxrGetFanEnabled(handle, &on), hxrNoError);
        EXPECT_EQ(hxrGetFanSetPoint(handle, &degrees), hxrNoError);
        EXPECT_EQ(on, c.on);
        EXPECT_EQ(degrees, c.degrees);
    }
}

TEST_F(Entries, PutAUnitToRestWordForWord) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    device(handle).loContext.lowLoReady.fill(true);
    forgetWhatWasSent(unit);
    EXPECT_EQ(hxrSetLowPowerState(handle), hxrNoError);
    ASSERT_TRUE(unit.recording().waitForPackets(1, 5s));
    const Words expected{1,          0x41000081, 0x42000081, 0x43000081, 0x44000081, 0x45000081, 0x51043F27,
                         0x47060000, 0x51066060, 0x51070200, 0x90002B83, 0xA0002B83, 0xD0002B83, 0xE0002B83,
                         0x05000050, 1,          1,          1,          0x93000067, 0x91000007, 0x94000028,
                         0x05000050, 1,          1,          1,          0xA3000067, 0xA1000007, 0xA4000028,
                         0x05000050, 1,          1,          1,          0xD3000067, 0xD1000007, 0xD4000028,
                         0x05000050, 1,          1,          1,          0xE3000067, 0xE1000007, 0xE4000028,
                         0x4C000000, 1};
    ASSERT_EQ(expected.size(), 44U);
    EXPECT_EQ(unit.recording().packets().at(0).content(), expected);
    for (const bool ready : device(handle).loContext.lowLoReady) EXPECT_FALSE(ready);
}

TEST_F(Entries, LeaveAnInitiatedUnitAlone) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    forgetWhatWasSent(unit);
    device(handle).initiated = true;
    EXPECT_EQ(hxrSetReference(handle, 0), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSetGPSTimebaseUpdate(handle, 0), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrWriteMessageToGPS(handle, 0x20110021, 2, 1), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrAdminSetCoarseTuneVal(handle, 1), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSetFanEnabled(handle, 0), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSetFanSetPoint(handle, 30), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSetLowPowerState(handle), hxrInvalidConfigurationErr);
    startUnit();
    EXPECT_EQ(pair(1), hxrInvalidConfigurationErr);
    EXPECT_EQ(api::deviceTable().find(1), nullptr);
    EXPECT_EQ(datagramsAt(unit), 0U);
    EXPECT_TRUE(device(handle).fanEnabled);
    device(handle).initiated = false;
}

class Groups : public Installation {
  protected:
    void startUnits(int count) {
        for (int i = 0; i < count; ++i) startUnit();
        ASSERT_EQ(connect(), hxrNoError);
        for (int i = 1; i < std::min(count, 4); ++i) ASSERT_EQ(pair(i), hxrNoError);
    }
};

TEST_F(Groups, OfFourActAsOne) {
    startUnits(4);
    int channels = 0;
    EXPECT_EQ(hxrGetChannelCount(handle, &channels), hxrNoError);
    EXPECT_EQ(channels, 16);
    for (const auto& unit : units) forgetWhatWasSent(*unit);
    EXPECT_EQ(hxrSetFanEnabled(handle, 0), hxrNoError);
    EXPECT_EQ(hxrSetLowPowerState(handle), hxrNoError);
    for (const auto& unit : units) {
        ASSERT_TRUE(unit->recording().waitForPackets(2, 5s));
        EXPECT_EQ(unit->recording().words().front(), 0x0C0101C4U);
        EXPECT_EQ(unit->recording().packets().at(1).content().size(), 44U);
    }

    // A slave's slot takes part in nothing that belongs to its master.
    for (const auto& unit : units) forgetWhatWasSent(*unit);
    for (int slave = 1; slave < 4; ++slave) {
        EXPECT_EQ(hxrCloseDevice(slave), hxrMultiReceiverErr);
        EXPECT_EQ(hxrSetFanEnabled(slave, 1), hxrMultiReceiverErr);
        EXPECT_EQ(hxrSetFanSetPoint(slave, 20), hxrMultiReceiverErr);
        EXPECT_EQ(hxrGetChannelCount(slave, &channels), hxrNoError);
        EXPECT_EQ(channels, 4);
    }
    for (const auto& unit : units) EXPECT_EQ(datagramsAt(*unit), 0U);
    EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
    for (int slot = 0; slot < 4; ++slot) EXPECT_EQ(api::deviceTable().find(slot), nullptr);
}

TEST_F(Groups, TakeNoFifthUnit) {
    startUnits(5);
    forgetWhatWasSent(*units[4]);
    EXPECT_EQ(pair(4), hxrMultiReceiverErr);
    int fifth = -1;
    EXPECT_EQ(hxrConnectDevice(&fifth, test::hostAddress().c_str(), test::unitAddress(4).c_str(),
                               test::controlPort),
              hxrMaxDevicesConnectedErr);
    EXPECT_EQ(fifth, -1);
    EXPECT_EQ(hxrPairDevice(2, test::hostAddress().c_str(), test::unitAddress(4).c_str(), test::controlPort),
              hxrMultiReceiverErr);
    EXPECT_EQ(datagramsAt(*units[4]), 0U);
    EXPECT_EQ(device(handle).slaves.size(), 3U);
}

TEST_F(Groups, AndSingleUnitsShareTheTablesFourPlaces) {
    for (int i = 0; i < 5; ++i) startUnit();
    for (int i = 0; i < 4; ++i) ASSERT_EQ(connect(i), hxrNoError);
    EXPECT_EQ(connect(4), hxrMaxDevicesConnectedErr);
    EXPECT_EQ(pair(4), hxrMaxDevicesConnectedErr);
    EXPECT_EQ(datagramsAt(*units[4]), 0U);
}

TEST_F(Groups, AreNotPairedThroughASlave) {
    startUnits(2);
    startUnit();
    const std::string unit = test::unitAddress(2);
    EXPECT_EQ(hxrPairDevice(1, test::hostAddress().c_str(), unit.c_str(), test::controlPort),
              hxrMultiReceiverErr);
    EXPECT_EQ(api::deviceTable().find(2), nullptr);
    EXPECT_TRUE(device(1).slaves.empty());
    EXPECT_EQ(device(handle).channelCount, 8);
}

TEST_F(Groups, PassAWarningOnAndAreUnchangedByAnError) {
    startUnits(1);
    sim::UnitOptions bad;
    bad.image = test::imageFor(1, {.goodChecksum = false});
    startUnit(std::move(bad));
    EXPECT_EQ(hxrPairDevice(handle, test::hostAddress().c_str(), "nowhere", 5000), hxrDeviceNotFoundErr);
    EXPECT_EQ(device(handle).channelCount, 4);
    EXPECT_EQ(pair(1), hxrCalChecksumFailed);
    EXPECT_EQ(device(handle).channelCount, 8);
}

TEST_F(Groups, GiveAFreedSlotToTheNextUnit) {
    for (int i = 0; i < 2; ++i) startUnit();
    ASSERT_EQ(connect(0), hxrNoError);
    ASSERT_EQ(connect(1), hxrNoError);
    EXPECT_EQ(handle, 1);
    EXPECT_EQ(hxrCloseDevice(0), hxrNoError);
    ASSERT_EQ(connect(0), hxrNoError);
    EXPECT_EQ(handle, 0);
}

}  // namespace
}  // namespace hxr
