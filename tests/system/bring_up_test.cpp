#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "support/installation.h"
#include "support/process_resources.h"

namespace hxr {
namespace {

using test::Installation;
using namespace std::chrono_literals;
using Words = std::vector<std::uint32_t>;

class BringUp : public Installation {
  protected:
    sim::SimulatedUnit& connectedUnit() {
        sim::SimulatedUnit& unit = startUnit();
        EXPECT_EQ(connect(), hxrNoError);
        forgetWhatWasSent(unit);
        return unit;
    }

    /// What a unit holds once it has run all that had left this host by now.
    static sim::UnitState stateOf(sim::SimulatedUnit& unit) {
        datagramsAt(unit);
        return unit.state();
    }

    std::uint16_t coarseTune() {
        std::uint16_t value = 0;
        EXPECT_EQ(hxrAdminGetCoarseTuneVal(handle, &value), hxrNoError);
        return value;
    }

    int gpsState() {
        int state = -1;
        EXPECT_EQ(hxrGetGPSState(handle, &state), hxrNoError);
        return state;
    }
};

TEST_F(BringUp, LeavesTheUnitsChipsAsTheyShouldRest) {
    sim::SimulatedUnit& unit = connectedUnit();
    const sim::UnitState state = stateOf(unit);
    EXPECT_EQ(state.gpsMessages.size(), 3U);
    EXPECT_EQ(state.lastStrobe->mask, 15);
    EXPECT_EQ(state.timebaseMode, 4);
    EXPECT_EQ(state.chips.chipRegister(0x45, 0x0025), 0x00);
    EXPECT_EQ(state.chips.chipRegister(0x42, 0x0000), 0x81);
    EXPECT_EQ(state.registers.read(0x0320), state.registers.read(0x032C));
    EXPECT_EQ(state.registers.read(0x0321), 4991U << 16 | 0x0200U);
    EXPECT_EQ(state.registers.read(0x0322), 0x5E10A0B1U);
    EXPECT_FALSE(state.streaming);
    EXPECT_TRUE(device(handle).loContext.cbbLoaded);
}

TEST_F(BringUp, ThatFailsAtAnyDatagramLeavesNothingBehind) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);  // fills the cache
    hxrCloseDevice(handle);
    forgetWhatWasSent(unit);
    ASSERT_EQ(connect(), hxrNoError);
    const std::size_t datagrams = datagramsAt(unit);
    std::vector<std::size_t> requests;  // places of the status requests among them
    const auto packets = unit.recording().packets();
    for (std::size_t i = 0; i < datagrams; ++i)
        if (packets[i].content() == Words{0x11000008}) requests.push_back(i);
    ASSERT_EQ(requests.size(), 3U);
    hxrCloseDevice(handle);

    clock.shortenTimeouts(10);
    const std::size_t descriptors = test::openDescriptors(), threads = test::threads();
    for (std::size_t count = 0; count <= datagrams; ++count) {
        handle = -1;
        unit.faults().silenceAfterDatagrams(count);
        const HXRStatus expected = count <= requests[1]   ? hxrConnectionLostErr
                                   : count <= requests[2] ? hxrDataSyncErr
                                                          : hxrNoError;
        EXPECT_EQ(connect(), expected) << count;
        EXPECT_EQ(handle >= 0, expected == hxrNoError) << count;
        if (handle >= 0) hxrCloseDevice(handle);
        EXPECT_EQ(api::deviceTable().find(0), nullptr) << count;
        EXPECT_EQ(test::openDescriptors(), descriptors) << count;
        EXPECT_EQ(test::threads(threads), threads) << count;
        // What the unit hasn't come to yet goes with its socket.
        unit.stop();
        unit.faults().revive();
        unit.start();
    }
}

TEST_F(BringUp, RefusesTheDataPortForControl) {
    startUnit({.controlPort = 4991, .dataPort = 5000});
    const std::size_t descriptors = test::openDescriptors();
    EXPECT_EQ(hxrConnectDevice(&handle, test::hostAddress().c_str(), test::unitAddress().c_str(), 4991),
              hxrInvalidConfigurationErr);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(api::deviceTable().find(0), nullptr);
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(BringUp, TellsTheStateOfGpsAndWhoSteersTheTimebase) {
    sim::SimulatedUnit& unit = connectedUnit();
    EXPECT_EQ(gpsState(), 1);
    EXPECT_EQ(hxrSetGPSTimebaseUpdate(handle, 1), hxrNoError);
    EXPECT_EQ(gpsState(), 2);
    EXPECT_EQ(stateOf(unit).timebaseMode, 8);
    sim::GpsFix fix = unit.fix();
    fix.timeAccuracyNs = 250;
    unit.setFix(fix);
    EXPECT_EQ(gpsState(), 0);
    unsigned on = 9;
    EXPECT_EQ(hxrGetGPSTimebaseUpdate(handle, &on), hxrNoError);
    EXPECT_EQ(on, 1U);

    unit.faults().silenceAfterReplies(0);
    clock.shortenTimeouts(20);
    int state = -1;
    EXPECT_EQ(hxrGetGPSState(handle, &state), hxrConnectionLostErr);
    EXPECT_EQ(state, 0);
}

TEST_F(BringUp, TellsTimeAndPlaceOfTheFix) {
    sim::SimulatedUnit& unit = connectedUnit();
    sim::GpsFix fix;
    fix.clock = sim::GpsFix::Clock::fixed;
    fix.longitude = -122.6810001;
    unit.setFix(fix);
    int updated = -1;
    std::uint64_t seconds = 0;
    double latitude = 0, longitude = 0, altitude = 0;
    const auto info = [&](int refresh) {
        EXPECT_EQ(hxrGetGPSInfo(handle, refresh, &updated, &seconds, &latitude, &longitude, &altitude),
                  hxrNoError);
    };
    clock.advance(1h);
    info(1);
    EXPECT_EQ(updated, 1);
    EXPECT_EQ(seconds, 1'715'953'328U);
    EXPECT_NEAR(longitude, -122.6810001, 1e-9);
    EXPECT_NEAR(latitude, fix.latitude, 1e-9);
    EXPECT_NEAR(altitude, fix.heightMetres, 1e-9);

    forgetWhatWasSent(unit);
    unit.setFix(sim::GpsFix::none());
    for (const int refresh : {0, 2, -1}) {
        info(refresh);
        EXPECT_EQ(updated, 0);
        EXPECT_EQ(seconds, 1'715'953'328U);
    }
    EXPECT_EQ(datagramsAt(unit), 0U);
    info(1);
    EXPECT_EQ(latitude, 0);
}

TEST_F(BringUp, SendsTheTimebaseWhenItsSettingsChange) {
    sim::SimulatedUnit& unit = connectedUnit();
    const std::uint16_t dac = stateOf(unit).timebaseDac;
    unsigned reference = 9;
    EXPECT_EQ(hxrSetReference(handle, 1), hxrNoError);
    EXPECT_EQ(hxrGetReference(handle, &reference), hxrNoError);
    EXPECT_EQ(reference, 1U);
    EXPECT_EQ(stateOf(unit).timebaseMode, 0);
    EXPECT_EQ(stateOf(unit).expander[4] & 0x40, 0x40);
    EXPECT_EQ(stateOf(unit).timebaseDac, dac);
    const auto tune = static_cast<std::uint16_t>(coarseTune() + 100);
    EXPECT_EQ(hxrAdminSetCoarseTuneVal(handle, tune), hxrNoError);
    EXPECT_EQ(coarseTune(), tune);
    EXPECT_EQ(stateOf(unit).timebaseDac, dac + 100);
    EXPECT_EQ(hxrSetReference(handle, 0), hxrNoError);
    EXPECT_EQ(stateOf(unit).timebaseMode, 4);
    EXPECT_EQ(stateOf(unit).expander[4] & 0x40, 0);

    forgetWhatWasSent(unit);
    EXPECT_EQ(hxrWriteMessageToGPS(handle, 0x20110021, 2, 9), hxrInvalidParameterErr);
    EXPECT_EQ(datagramsAt(unit), 0U);
    EXPECT_EQ(hxrWriteMessageToGPS(handle, 0x20110021, 2, 1), hxrNoError);
    const auto messages = stateOf(unit).gpsMessages;
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[3], messages[2]);  // the unit was told at bring-up that it stands still
}

TEST_F(BringUp, FindsTheTimebaseAgainWhereTheUnitHadSteeredIt) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    const std::uint16_t factoryTune = coarseTune();
    const HXRCalData& image = *device(handle).corrections->image;
    EXPECT_EQ(factoryTune, image.coarseTuneLog[3]);  // four entries
    EXPECT_EQ(image.coarseTuneLog[4], 0xFFFF);
    int inUse = -1;
    std::uint64_t time = 1;
    EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, &inUse, &time), hxrNoError);
    EXPECT_EQ(inUse, 0);
    EXPECT_EQ(time, 0U);

    // It steers at the temperature of an initiate.
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    const std::uint16_t steered = 0x9A00;
    unit.setOscillator({.trueDac = steered});
    ASSERT_EQ(hxrSetGPSTimebaseUpdate(handle, 1), hxrNoError);
    clock.setUtcSeconds(1'790'001'234);
    EXPECT_EQ(gpsState(), 2);
    const std::uint16_t remembered = coarseTune();
    EXPECT_NE(remembered, factoryTune);
    EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, &inUse, &time), hxrNoError);
    EXPECT_EQ(inUse, 0);  // none was there at the connect
    hxrCloseDevice(handle);

    unit.setFix(sim::GpsFix::none());
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(coarseTune(), remembered);
    EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, &inUse, &time), hxrNoError);
    EXPECT_EQ(inUse, 1);
    EXPECT_EQ(time, 1'790'001'234U);
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_EQ(stateOf(unit).timebaseDac, steered);
    hxrCloseDevice(handle);

    // A later calibration takes over from the record.
    unit.loadImage(test::imageFor(0, {.calDate = 1'790'001'234}));
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(coarseTune(), factoryTune);
    EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, &inUse, &time), hxrNoError);
    EXPECT_EQ(inUse, 0);
    EXPECT_EQ(time, 1'790'001'234U);
}

TEST_F(BringUp, OfAGroupIsInitiatedAndAborted) {
    for (int i = 0; i < 2; ++i) startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    ASSERT_EQ(pair(1), hxrNoError);
    for (const bool again : {false, true}) {
        for (const auto& unit : units) forgetWhatWasSent(*unit);
        EXPECT_EQ(hxrInitiate(handle), hxrNoError);
        // Abort, if any, then route and strobes, the slave's status, the timebase.
        EXPECT_EQ(datagramsAt(*units[0]), again ? 3U : 2U);
        EXPECT_EQ(datagramsAt(*units[1]), again ? 4U : 3U);
        EXPECT_EQ(units[0]->state().lastStrobe->timing, 0xA2);
        EXPECT_EQ(units[1]->state().lastStrobe->timing, 0x74);
        EXPECT_EQ(units[1]->state().lastStrobe->mask, 8);
        EXPECT_EQ(hxrSetReference(handle, 1), hxrInvalidConfigurationErr);
    }
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_EQ(hxrSetReference(handle, 1), hxrNoError);
    for (const auto& unit : units) forgetWhatWasSent(*unit);
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    for (const auto& unit : units) EXPECT_EQ(datagramsAt(*unit), 0U);
}

TEST_F(BringUp, AbortKeepsSynthesizersWhereItIsTold) {
    sim::SimulatedUnit& unit = connectedUnit();
    for (const bool off : {true, false}) {
        device(handle).disableLOOnAbort = off;
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        forgetWhatWasSent(unit);
        EXPECT_EQ(hxrAbort(handle), hxrNoError);
        EXPECT_EQ(datagramsAt(unit), 1U);
        const Words words = unit.recording().words();
        EXPECT_EQ(words.front(), 0x0E00137FU);
        EXPECT_EQ(std::ranges::count(words, 0x45002500U), off ? 1 : 0);
    }
}

TEST_F(BringUp, ThenALostLinkInitiatesAndAborts) {
    sim::SimulatedUnit& unit = connectedUnit();
    unit.faults().silenceAfterReplies(0);
    clock.shortenTimeouts(20);
    clock.advance(1001ms);
    EXPECT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_EQ(hxrSetReference(handle, 1), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrAbort(handle), hxrConnectionLostErr);
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_EQ(hxrSetReference(handle, 1), hxrConnectionLostErr);
    EXPECT_EQ(hxrWriteMessageToGPS(handle, 0x20110021, 2, 1), hxrConnectionLostErr);
    EXPECT_EQ(hxrAdminReInitChans(handle), hxrConnectionLostErr);
    EXPECT_EQ(hxrAdminInitFullBandLOs(handle, true, true), hxrConnectionLostErr);
}

TEST_F(BringUp, GivesServiceToSynthesizers) {
    sim::SimulatedUnit& unit = connectedUnit();
    unit.changeHealth([](sim::Health& health) {
        health.firstLockFlags = 0b1001;
        health.secondLockFlags = 0b0010;
    });
    std::array<int, 4> first{}, second{};
    EXPECT_EQ(hxrAdminGetLOLockFlags(handle, first.data(), second.data()), hxrNoError);
    EXPECT_EQ(first, (std::array{1, 0, 0, 1}));
    EXPECT_EQ(second, (std::array{0, 1, 0, 0}));
    forgetWhatWasSent(unit);
    EXPECT_EQ(hxrAdminInitFullBandLOs(handle, true, true), hxrNoError);
    EXPECT_EQ(hxrAdminReInitChans(handle), hxrNoError);
    EXPECT_EQ(datagramsAt(unit), 3U + 4U);
}

}  // namespace
}  // namespace hxr
