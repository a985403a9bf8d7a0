#include "device/initiate.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::registerWords;
using test::ScriptedUnit;
using test::StatusDatagram;
using test::Words;

constexpr const char* generatorOff = "51043F27 47060000 51066060 51070200";
constexpr const char* loOff =
    "45002500 90002B83 41000081 90002B83 A0002B83 42000081 A0002B83 "
    "D0002B83 43000081 D0002B83 E0002B83 44000081 E0002B83 4C000000";

/// A group of units, the master first, and what they are sent, in the order in which it leaves.
class Group {
  public:
    /// A packet: to which unit, and its words.
    using Packet = std::pair<std::size_t, Words>;

    Group(test::TestClock& clock, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            units.push_back(std::make_unique<ScriptedUnit>(clock));
            units[i]->device->lastStatus.update(
                [&](LastStatus& status) { status.lastStatusTicks = clock.monotonicMs(); });
            units[i]->control->onSend = [this, i] { sent_.emplace_back(i, units[i]->takeSent().front()); };
            if (i == 0) continue;
            master().slaves.push_back(units[i]->device.get());
            units[i]->device->master = &master();
            units[i]->answer(StatusDatagram().put16(284, 25 << 4));
        }
        master().channelCount = static_cast<int>(4 * size);
    }

    ~Group() { abort(master(), IdleLo::off); }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    HXRDevice& master() { return *units.front()->device; }
    std::vector<Packet> takeSent() { return std::exchange(sent_, {}); }

    std::vector<std::unique_ptr<ScriptedUnit>> units;

  private:
    std::vector<Packet> sent_;
};

/// A row of an expected list: unit and words.
std::vector<Group::Packet> packets(std::initializer_list<std::pair<std::size_t, std::string>> rows) {
    std::vector<Group::Packet> all;
    for (const auto& [unit, text] : rows) all.emplace_back(unit, registerWords(0, text));
    return all;
}

/// Status request and timebase of a unit that is being prepared.
const std::string status = "11000008", timebase = "51044000 4C000000 0B048000";

struct InitiateCase {
    const char* name;
    std::size_t units;
    std::vector<std::size_t> enabled;  ///< channels of the group
    int focus;
    std::vector<Group::Packet> sent;
};

const InitiateCase initiateCases[] = {
    {"NothingEnabled", 1, {}, -1, packets({{0, "0F003100 05000001 0 0 01000008"}, {0, timebase}})},
    {"ASweepAlone", 1, {2}, 2, packets({{0, "0F003160 05000001 0 0 01000008"}, {0, timebase}})},
    {"StreamsBesideASweep",
     1,
     {0, 2, 3},
     2,
     packets({{0, "0F003169 05000001 0 0 01000004 05000001 0 0 01000008"}, {0, timebase}})},
    {"TwoUnitsStreaming",
     2,
     {1},
     -1,
     packets({{1, "0F003100 05000001 0 0 01740004 05000001 0 0 01740008"},
              {1, status},
              {1, timebase},
              {0, "0F003102 05000001 0 0 01A20004 05000001 0 0 01A20008"},
              {0, timebase}})},
    {"ThreeUnitsSweepingOnTheLast",
     3,
     {11},
     11,
     packets({{1, "0F003100 05000001 0 0 01740008"},
              {1, status},
              {1, timebase},
              {2, "0F003170 05000001 0 0 01440008"},
              {2, status},
              {2, timebase},
              {0, "0F003100 05000001 0 0 01A20008"},
              {0, timebase}})},
    {"FourUnitsStreamingAndSweeping",
     4,
     {0, 5, 10, 15},
     5,
     packets({{1, "0F003150 05000001 0 0 01740004 05000001 0 0 01740008"},
              {1, status},
              {1, timebase},
              {2, "0F003104 05000001 0 0 01440004 05000001 0 0 01440008"},
              {2, status},
              {2, timebase},
              {3, "0F003108 05000001 0 0 01140004 05000001 0 0 01140008"},
              {3, status},
              {3, timebase},
              {0, "0F003101 05000001 0 0 01A20004 05000001 0 0 01A20008"},
              {0, timebase}})},
};

class InitiateLists : public testing::TestWithParam<InitiateCase> {};

TEST_P(InitiateLists, GoOutSlavesBeforeMasterRouteBeforeStrobes) {
    test::TestClock clock;
    Group group(clock, GetParam().units);
    for (const std::size_t channel : GetParam().enabled) group.master().channelEnabled[channel] = true;
    group.master().focusChannel = GetParam().focus;
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    EXPECT_EQ(group.takeSent(), GetParam().sent);
    EXPECT_TRUE(group.master().initiated);
    for (const HXRDevice* slave : group.master().slaves) EXPECT_FALSE(slave->initiated);
}

INSTANTIATE_TEST_SUITE_P(Of, InitiateLists, testing::ValuesIn(initiateCases),
                         [](const auto& test) { return test.param.name; });

class AbortLists : public testing::TestWithParam<std::size_t> {};

TEST_P(AbortLists, GoOutMasterFirst) {
    test::TestClock clock;
    Group group(clock, GetParam());
    ASSERT_EQ(initiate(group.master()), hxrNoError);
    group.takeSent();
    std::vector<Group::Packet> kept, off;
    for (std::size_t i = 0; i < GetParam(); ++i) {
        const auto port = static_cast<std::uint16_t>(4991 + i);
        const char* const ports[] = {"0E00137F", "0E001380", "0E001381", "0E001382"};
        DeviceInterface& link = *group.units[i]->device->link;
        ASSERT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), port), hxrNoError);
        const std::string stop = "0 0 0 " + std::string(ports[i]) + ' ' + generatorOff + ' ';
        kept.emplace_back(i, registerWords(0, stop + "05002672"));
        off.emplace_back(i, registerWords(0, stop + loOff + " 05002672"));
        group.units[i]->device->loContext.lowLoReady.fill(true);
    }
    const auto isReady = [&](bool ready) {
        for (const auto& unit : group.units)
            EXPECT_EQ(unit->device->loContext.lowLoReady, (std::array{ready, ready, ready, ready}));
    };
    EXPECT_EQ(abort(group.master(), IdleLo::keep), hxrNoError);
    EXPECT_EQ(group.takeSent(), kept);
    isReady(true);
    EXPECT_FALSE(group.master().initiated);
    EXPECT_EQ(abort(group.master(), IdleLo::off), hxrNoError);  // idle already
    EXPECT_EQ(group.takeSent(), std::vector<Group::Packet>{});

    // A second initiate goes by way of idle, synthesizers off whatever an abort would leave.
    group.master().initiated = true;
    group.master().disableLOOnAbort = false;
    for (std::size_t i = 1; i < GetParam(); ++i) group.units[i]->answer(StatusDatagram());
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    auto sent = group.takeSent();
    sent.resize(GetParam());
    EXPECT_EQ(sent, off);
    isReady(false);
}

INSTANTIATE_TEST_SUITE_P(OfGroupsOf, AbortLists, testing::Values(1, 2, 3, 4),
                         testing::PrintToStringParamName());

class Initiate : public testing::Test {
  protected:
    /// The route word of the unit at a position.
    std::uint32_t routeAfter(const std::function<void(HXRDevice& master)>& set) {
        Group group(clock, 1);
        set(group.master());
        initiate(group.master());
        return group.takeSent().front().second.front();
    }

    test::TestClock clock;
};

TEST_F(Initiate, RoutesByTheMastersSettings) {
    EXPECT_EQ(routeAfter([](HXRDevice& master) { master.localStream = false; }), 0x0F001100U);
    EXPECT_EQ(routeAfter([](HXRDevice& master) {
                  master.localStream = false;
                  master.vrtEndianness = 1;
              }),
              0x0F003100U);
    EXPECT_EQ(routeAfter([](HXRDevice& master) { master.hardwareDecimation = 2; }), 0x0F003200U);
    EXPECT_EQ(routeAfter([](HXRDevice& master) { master.hardwareDecimation = 8; }), 0x0F003300U);

    // A slave's own settings count for nothing.
    Group group(clock, 2);
    HXRDevice& slave = *group.master().slaves.front();
    slave.channelEnabled.fill(true);
    slave.hardwareDecimation = 2;
    slave.localStream = false;
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    EXPECT_EQ(group.takeSent().front(), packets({{1, "0F003100 05000001 0 0 01740008"}}).front());
}

TEST_F(Initiate, LeavesAUnitsTimebaseAloneThatSteersIt) {
    Group group(clock, 2);
    group.units[1]->control->replies.front() = StatusDatagram().put32(308, 0x200).bytes();
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    EXPECT_EQ(group.takeSent(), packets({{1, "0F003100 05000001 0 0 01740008"},
                                         {1, status},
                                         {0, "0F003100 05000001 0 0 01A20008"},
                                         {0, timebase}}));
}

TEST_F(Initiate, MovesEachUnitToItsTemperature) {
    Group group(clock, 2);
    for (const auto& unit : group.units) {
        HXRDevice& device = *unit->device;
        for (int i = 0; i < 7; ++i) {
            device.corrections->image->tempAtIndex[i] = static_cast<float>(10 * i);
            device.corrections->image->coarseTuneByTemp[i] = static_cast<std::int16_t>(0x100 * i);
        }
        device.lastStatus.update([](LastStatus& last) {
            last.temperatureA = 40;
            last.tempDrifted = true;
        });
    }
    // The slave is found at 25 degrees. The master is asked once its last status is over a second old.
    clock.advance(std::chrono::milliseconds(1001));
    group.units[0]->answer(StatusDatagram().put16(284, 43 << 4));
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    EXPECT_EQ(group.takeSent(), packets({{1, "0F003100 05000001 0 0 01740008"},
                                         {1, status},
                                         {1, "51044000 4C000000 0B048280"},
                                         {0, "0F003100 05000001 0 0 01A20008"},
                                         {0, status},
                                         {0, "51044000 4C000000 0B04844C"}}));
    const auto drifts = [&](std::size_t i) { return group.units[i]->device->lastStatus.copy().tempDrifted; };
    EXPECT_FALSE(drifts(0));  // 3 degrees from where it was at initiate
    EXPECT_TRUE(drifts(1));   // 15 degrees
}

TEST_F(Initiate, NeedsAChannelToSweep) {
    Group group(clock, 1);
    group.master().sweepActive = true;
    EXPECT_EQ(initiate(group.master()), hxrInvalidConfigurationErr);
    EXPECT_FALSE(group.master().initiated);
    EXPECT_FALSE(group.master().sweepConfigured);
}

TEST_F(Initiate, OnALostLinkGoesThroughAndAbortTells) {
    Group group(clock, 2);
    group.master().link->loseLink();
    EXPECT_EQ(abort(group.master(), IdleLo::off), hxrNoError);  // idle
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    HXRDevice& master = group.master();
    EXPECT_TRUE(master.initiated);
    master.sweepConfigured = master.streamConfigured = master.fullBandConfigured = master.vsgConfigured =
        true;
    EXPECT_EQ(abort(master, IdleLo::off), hxrConnectionLostErr);
    EXPECT_FALSE(master.initiated || master.sweepConfigured || master.streamConfigured ||
                 master.fullBandConfigured || master.vsgConfigured);
}

TEST_F(Initiate, ALostSlaveShowsInItsOwnLinkOnly) {
    Group group(clock, 2);
    group.units[1]->control->replies.clear();
    EXPECT_EQ(initiate(group.master()), hxrNoError);
    EXPECT_EQ(group.units[1]->device->link->lastStatus(), hxrConnectionLostErr);
    EXPECT_EQ(abort(group.master(), IdleLo::off), hxrNoError);
}

}  // namespace
}  // namespace hxr
