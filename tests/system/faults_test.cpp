#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "cal/image.h"
#include "support/installation.h"
#include "support/peer.h"

namespace hxr {
namespace {

using sim::ReplyFault;
using sim::ReplyKind;
using sim::ReplyMatch;
using test::Installation;
using namespace std::chrono_literals;

/// What goes wrong on the wire while a unit is connected, and what the connect says.
struct ConnectFault {
    const char* name;
    std::function<void(sim::SimulatedUnit&)> arrange;
    HXRStatus status;
    bool hitsAReply = true;
    bool comesLate = false;  ///< the reply reaches this host after the connect has given up
};

std::function<void(sim::SimulatedUnit&)> onReply(const ReplyMatch& match, const ReplyFault& fault) {
    return [=](sim::SimulatedUnit& unit) { unit.faults().add(match, fault); };
}

constexpr ReplyMatch everyReply{.kind = ReplyKind::any, .times = ReplyMatch::always};
constexpr ReplyMatch firstStatus{.kind = ReplyKind::status};
constexpr ReplyMatch destinationStatus{.kind = ReplyKind::status, .skip = 1};
constexpr ReplyMatch lastStatus{.kind = ReplyKind::status, .skip = 2};

ReplyMatch page(std::uint16_t number) { return {.kind = ReplyKind::page, .page = number}; }

std::function<void(sim::SimulatedUnit&)> clockBits(std::uint16_t bits) {
    return [=](sim::SimulatedUnit& unit) {
        unit.changeHealth([=](sim::Health& health) { health.clockStatus = bits; });
    };
}

std::function<void(sim::SimulatedUnit&)> deadAfterReplies(std::size_t count) {
    return [=](sim::SimulatedUnit& unit) { unit.faults().silenceAfterReplies(count); };
}

const std::vector<ConnectFault> connectFaults{
    {"NoAnswerAtAll", onReply(everyReply, ReplyFault::lose()), hxrConnectionLostErr},
    {"FirstStatusLost", onReply(firstStatus, ReplyFault::lose()), hxrConnectionLostErr},
    {"FirstStatusLate", onReply(firstStatus, ReplyFault::delayBy(3000ms)), hxrConnectionLostErr, true, true},
    {"FirstStatusFromElsewhere",
     onReply(firstStatus, ReplyFault::sendFrom(sim::Endpoint::of(test::unitAddress(7), test::controlPort))),
     hxrConnectionLostErr},
    {"FirstStatusEmpty", onReply(firstStatus, ReplyFault::setLength(0)), hxrNoError},
    {"FirstStatusOf3Bytes", onReply(firstStatus, ReplyFault::setLength(3)), hxrNoError},
    {"FirstStatusOf319Bytes", onReply(firstStatus, ReplyFault::setLength(319)), hxrNoError},
    {"FirstStatusOfWrongMagic", onReply(firstStatus, ReplyFault::setMagic(0)), hxrNoError},
    {"FirstPageLost", onReply(page(128), ReplyFault::lose()), hxrConnectionLostErr},
    {"PretestPageLost", onReply(page(163), ReplyFault::lose()), hxrConnectionLostErr},
    {"ChamberHeadLost", onReply(page(192), ReplyFault::lose()), hxrConnectionLostErr},
    {"MiddlePageLost", onReply(page(700), ReplyFault::lose()), hxrConnectionLostErr},
    {"LastPageLost", onReply(page(1151), ReplyFault::lose()), hxrConnectionLostErr},
    {"DiesAfterTheFirstStatus", deadAfterReplies(1), hxrConnectionLostErr, false},
    {"DiesAmongThePages", deadAfterReplies(500), hxrConnectionLostErr, false},
    {"DiesBeforeTheDestinations", deadAfterReplies(967), hxrConnectionLostErr, false},
    {"DiesBeforeTheLastStatus", deadAfterReplies(968), hxrDataSyncErr, false},
    {"ShortPage", onReply(page(300), ReplyFault::setLength(8215)), hxrNoError},
    {"LongPage", onReply(page(300), ReplyFault::setLength(8217)), hxrNoError},
    {"DestinationStatusLost", onReply(destinationStatus, ReplyFault::lose()), hxrConnectionLostErr},
    {"DestinationStatusOf3Bytes", onReply(destinationStatus, ReplyFault::setLength(3)), hxrNoError},
    {"LastStatusLost", onReply(lastStatus, ReplyFault::lose()), hxrDataSyncErr},
    {"LastStatusEmpty", onReply(lastStatus, ReplyFault::setLength(0)), hxrDataSyncErr},
    {"LastStatusOf3Bytes", onReply(lastStatus, ReplyFault::setLength(3)), hxrDataSyncErr},
    {"LastStatusOf319Bytes", onReply(lastStatus, ReplyFault::setLength(319)), hxrDataSyncErr},
    {"LastStatusOf9000Bytes", onReply(lastStatus, ReplyFault::setLength(9000)), hxrNoError},
    {"WrongMagic", onReply(lastStatus, ReplyFault::setMagic(0x52000051)), hxrDataSyncErr},
    {"ClockBit8Clear", clockBits(0x0E00), hxrADCAlignmentErr, false},
    {"ClockBit11Clear", clockBits(0x0700), hxrADCAlignmentErr, false},
    {"AllOtherClockBits", clockBits(0xF0FF), hxrADCAlignmentErr, false},
};

class ConnectFaults : public Installation, public testing::WithParamInterface<ConnectFault> {};

TEST_P(ConnectFaults, EndsInItsStatusAndTheNextConnectWorks) {
    const ConnectFault& fault = GetParam();
    sim::SimulatedUnit& unit = startUnit();
    fault.arrange(unit);
    if (fault.status < 0) clock.shortenTimeouts(4);
    EXPECT_EQ(connect(), fault.status);
    EXPECT_EQ(unit.faults().hits() > 0, fault.hitsAReply);
    EXPECT_EQ(api::deviceTable().find(0) != nullptr, fault.status >= 0);
    EXPECT_EQ(handle >= 0, fault.status >= 0);
    if (handle >= 0) hxrCloseDevice(handle);
    if (fault.comesLate) {
        EXPECT_TRUE(test::Peer(test::hostAddress(), test::controlPort).receive());
    }

    unit.faults().clear();
    unit.faults().revive();
    unit.setHealth({});
    clock.shortenTimeouts(1);
    ASSERT_EQ(connect(), hxrNoError);
    int serial = 0;
    hxrGetSerialNumber(handle, &serial);
    EXPECT_EQ(serial, 12345678);
}

INSTANTIATE_TEST_SUITE_P(OnTheWire, ConnectFaults, testing::ValuesIn(connectFaults),
                         [](const auto& test) { return std::string(test.param.name); });

class Faults : public Installation {};

TEST_F(Faults, AWrongPageStopsTheReadingAndLeavesFlashReadModeOn) {
    sim::SimulatedUnit& unit = startUnit();
    onReply(page(300), ReplyFault::setLength(8215))(unit);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(unit.state().flashReadMode);
    EXPECT_FALSE(unit.recording().pagesServed().contains(301));
    EXPECT_FALSE(std::filesystem::exists(cacheFile()));

    // The image holds the pages read so far and nothing behind them.
    const auto held = cal::bytesOf(device(handle).link->flashCopy());
    const auto flash = unit.image();
    constexpr std::size_t wrongPage = (300 - 128) * 8192;
    EXPECT_EQ(std::memcmp(held.data() + 0x80000, flash.data() + 0x80000, wrongPage - 0x80000), 0);
    EXPECT_TRUE(cal::isErased(held.subspan(wrongPage)));
}

TEST_F(Faults, WhatIsNoStatusTellsNothingOfTheUnit) {
    sim::SimulatedUnit& unit = startUnit();
    onReply(firstStatus, ReplyFault::setLength(319))(unit);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(device(handle).link->serialNumber(), 0xFFFFFFFF);
    EXPECT_FALSE(device(handle).link->timeSeeded());
    EXPECT_TRUE(!std::filesystem::exists(machineFolder) || std::filesystem::is_empty(machineFolder));
}

TEST_F(Faults, AUnitThatStartsLateIsFoundByTheNextConnect) {
    sim::SimulatedUnit& unit = startUnit();
    unit.stop();  // the host's datagrams find no port
    clock.shortenTimeouts(10);
    EXPECT_EQ(connect(), hxrConnectionLostErr);
    unit.start();
    clock.shortenTimeouts(1);
    EXPECT_EQ(connect(), hxrNoError);
}

TEST_F(Faults, AfterTheLinkIsLostGettersAndCloseStillWork) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    forgetWhatWasSent(unit);
    unit.faults().silenceAfterReplies(0);
    clock.shortenTimeouts(20);
    clock.advance(1001ms);
    float supply = -1;
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr), hxrConnectionLostErr);
    EXPECT_EQ(supply, -1);
    ASSERT_TRUE(unit.recording().waitForPackets(1, 10s));

    // The unit is back, the link is not: nothing is sent, and nothing waits.
    unit.faults().revive();
    unit.clearRecording();
    clock.advance(5000ms);
    std::array<float, 11> values{};
    EXPECT_EQ(hxrGetFullDeviceDiagnostics(handle, values.data()), hxrConnectionLostErr);
    EXPECT_NEAR(values[0], 12.1, 0.01);
    EXPECT_EQ(hxrSetFanEnabled(handle, 0), hxrConnectionLostErr);
    EXPECT_EQ(hxrSetFanSetPoint(handle, 30), hxrConnectionLostErr);
    EXPECT_EQ(hxrSetLowPowerState(handle), hxrConnectionLostErr);
    EXPECT_EQ(datagramsAt(unit), 0U);
    int serial = 0;
    EXPECT_EQ(hxrGetSerialNumber(handle, &serial), hxrNoError);
    EXPECT_EQ(serial, 12345678);
    EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
    EXPECT_EQ(hxrCloseDevice(handle), hxrInvalidDeviceErr);
}

TEST_F(Faults, OfASlaveEndTheWalkOverItsGroup) {
    startUnit();
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    ASSERT_EQ(pair(1), hxrNoError);
    units[1]->faults().silenceAfterReplies(0);
    clock.shortenTimeouts(20);
    device(1).link->readStatus(device(1).link->claimControl(EndpointOwner::entry),
                               std::make_unique<StatusRecord>().get());
    EXPECT_EQ(hxrSetFanEnabled(handle, 0), hxrConnectionLostErr);  // the slave's status
    EXPECT_EQ(hxrSetLowPowerState(handle), hxrNoError);            // the master's
    EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
}

TEST_F(Faults, AWrongMagicInBetweenIsNoLostLink) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    unit.changeHealth([](sim::Health& health) { health.supplyVolts = 11.0; });
    unit.faults().add({.kind = ReplyKind::status}, ReplyFault::setMagic(0));
    clock.advance(1001ms);
    float supply = 0;
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr), hxrNoError);
    EXPECT_NEAR(supply, 12.1, 0.01);
    EXPECT_TRUE(device(handle).lastStatus.copy().dataSyncFault);

    // The bad record didn't count, so the next call asks again.
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr), hxrNoError);
    EXPECT_NEAR(supply, 11.0, 0.01);
    EXPECT_FALSE(device(handle).lastStatus.copy().dataSyncFault);
}

}  // namespace
}  // namespace hxr
