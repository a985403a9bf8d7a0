#include "device/open_sequence.h"

#include <gtest/gtest.h>

#include <numeric>

#include "device/gps_frames.h"
#include "rf/channel_lo.h"
#include "rf/shared_lo.h"
#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::joined;
using test::registerWords;
using test::ScriptedUnit;
using test::StatusDatagram;
using test::Words;

/// A packet of the sequence, or none, and the pause behind it.
struct Step {
    Words words;
    unsigned pauseMs = 0;
};

Words contextStandIns() {
    Words block{0x042D0040};
    for (std::uint32_t i = 0; i < 45; ++i) block.push_back(i % 9 == 0 ? 0xA9A64000 : i * 0x01010101);
    return block;
}

/// The list that loads a channel's `highLo` and leaves both of its synthesizers off.
Words channelStep(int channel, const char* off) {
    return joined({buildHighLoImage(channel), registerWords(0, off)});
}

/// The whole sequence for a host at 192.168.2.2 whose clock says 2026-09-21 14:13:20 and a unit at 192.168.2.10
/// without corrections, which answers to the hardware address 0211A2B3C4D5.
std::vector<Step> sequence(OpenAs as) {
    std::vector<Step> steps{
        {buildSharedLoBringUp(SharedLoVco::tabled), 20},
        {joined({test::gpsMessage(test::reportFrame, 3), contextStandIns(),
                 registerWords(0,
                               "0 0 0 4B188000 0B0C9000 04020005 6AB07380 150907EA 0 0 0 "
                               "4A1F80A3 4A1F80A2 4A001901 4A000008")})},
        {test::gpsMessage(test::timePulseFrame, 3)},
        {test::gpsMessage(test::stationaryFrame, 2)},
        {channelStep(0, "90002B83 41000081 90002B83 4C000000"), 20},
        {channelStep(1, "A0002B83 42000081 A0002B83 4C000000"), 20},
        {channelStep(2, "D0002B83 43000081 D0002B83 4C000000"), 20},
        {channelStep(3, "E0002B83 44000081 E0002B83 4C000000"), 20},
        {registerWords(0, "0C0001C4")},
        {registerWords(0, "11000008")},
        {registerWords(0,
                       "04040320 C0A80202 137F0211 A2B3C4D5 055D2505 0 0 "
                       "04040324 C0A80202 137F0211 A2B3C4D5 055D2505 0 0 "
                       "04040328 C0A80202 137F0211 A2B3C4D5 055D2505 0 0 "
                       "0404032C C0A80202 137F0211 A2B3C4D5 055D2505 0 0")},
    };
    if (as == OpenAs::pairedUnit) {
        steps.back().pauseMs = 20;
        steps.push_back({registerWords(0, "51072000"), 20});
    }
    const std::vector<Step> converters{
        {registerWords(0,
                       "51071010 84000000 81000803 81000800 81001600 C4000000 C1000803 C1000800 C1001600 "
                       "4B1F7FFF"),
         100},
        {registerWords(0, "810019F0 81001AF0 81000D08 C10019F0 C1001AF0 C1000D08"), 250},
        {registerWords(0, "51071000"), 250},
        {registerWords(0, "81000D00 C1000D00")},
        {buildSharedLoImage(SharedLoVco::tabled), 50},
        {registerWords(0, "51071000 B300C1E0 B1000000 B4000018 F300C1E0 F1000000 F4000018"), 50},
        {registerWords(0, "0100000F")},
        {registerWords(0, "11000008")},
        {registerWords(0, "51044000 4C000000 0B048000")},
        {registerWords(0,
                       "45002500 90002B83 41000081 90002B83 A0002B83 42000081 A0002B83 "
                       "D0002B83 43000081 D0002B83 E0002B83 44000081 E0002B83 4C000000")},
    };
    steps.insert(steps.end(), converters.begin(), converters.end());
    return steps;
}

const StatusDatagram peerStatus =
    StatusDatagram().put16(312, 0x0211).put16(314, 0x5A5A).put32(316, 0xA2B3C4D5);

class OpenSequence : public testing::Test {
  protected:
    OpenSequence() { clock.setUtcSeconds(0x6AB07380 + 14 * 3600 + 13 * 60 + 20); }

    /// Opens a unit that answers both requests for its status.
    HXRStatus openHealthy(ScriptedUnit& unit, OpenAs as = OpenAs::singleUnit) {
        unit.answer(peerStatus);
        unit.answer(StatusDatagram().put32(12, 0x4E61BC00));
        return open(*unit.device, as);
    }

    test::TestClock clock;
};

class OpenSequenceAs : public OpenSequence, public testing::WithParamInterface<OpenAs> {};

TEST_P(OpenSequenceAs, SendsItsListsInOrderAndWaitsBetweenThem) {
    ScriptedUnit unit(clock);
    unit.device->loContext.lowLoReady.fill(true);
    std::vector<std::uint64_t> times;
    unit.control->onSend = [&] { times.push_back(clock.monotonicMs()); };
    std::uint64_t time = clock.monotonicMs();
    ASSERT_EQ(openHealthy(unit, GetParam()), hxrNoError);

    const auto sent = unit.takeSent();
    const auto steps = sequence(GetParam());
    ASSERT_EQ(sent.size(), steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) {
        Words expected = steps[i].words;
        while (expected.back() == 0) expected.pop_back();
        EXPECT_EQ(sent[i], expected) << i;
        EXPECT_EQ(times[i], time) << i;
        time += steps[i].pauseMs;
    }
    const auto pauses = clock.sleeps();
    EXPECT_EQ(std::accumulate(pauses.begin(), pauses.end(), std::chrono::milliseconds(0)).count(),
              GetParam() == OpenAs::pairedUnit ? 840 : 800);
}

TEST_P(OpenSequenceAs, LeavesAnIdleUnitThatIsListenedTo) {
    ScriptedUnit unit(clock);
    unit.device->loContext.lowLoReady.fill(true);
    ASSERT_EQ(openHealthy(unit, GetParam()), hxrNoError);
    const HXRDevice& device = *unit.device;
    EXPECT_FALSE(device.initiated);
    EXPECT_EQ(device.loContext.lowLoReady, (std::array{false, false, false, false}));
    EXPECT_EQ(device.lastStatus.copy().serialNumber, 12345678U);
    EXPECT_TRUE(unit.data->isOpen());
    EXPECT_EQ(unit.data->localPort(), 4991);
    EXPECT_EQ(unit.data->remotePort(), 4991);
    EXPECT_EQ(unit.data->localAddress(), "192.168.2.2");
    EXPECT_EQ(unit.data->remoteAddress(), "192.168.2.10");
}

INSTANTIATE_TEST_SUITE_P(Of, OpenSequenceAs, testing::Values(OpenAs::singleUnit, OpenAs::pairedUnit),
                         [](const auto& test) {
                             return test.param == OpenAs::singleUnit ? "ASingleUnit" : "APairedUnit";
                         });

TEST_F(OpenSequence, TakesOverWhatTheFlashHolds) {
    for (const bool erased : {true, false}) {
        ScriptedUnit unit(clock, 5000, std::vector(16, erased ? std::byte{0xFF} : std::byte{0x11}));
        HXRCalData& image = *unit.device->corrections->image;
        image.loftI[0][0] = 77;
        image.coarseTuneByTemp[0] = 77;
        ASSERT_EQ(openHealthy(unit), hxrNoError);
        EXPECT_EQ(unit.device->loContext.cbbLoaded, !erased);
        EXPECT_EQ(image.loftI[0][0], erased ? 77 : 0x1111);
        EXPECT_EQ(image.coarseTuneByTemp[0], 77);  // behind the pretest section
        EXPECT_EQ(unit.device->timebase.copy().coarseTune, 0x8000);
    }
}

TEST_F(OpenSequence, FailsByWhatTheLastStatusSays) {
    struct Case {
        const char* what;
        std::vector<StatusDatagram> answers;
        HXRStatus status;
    };
    const Case cases[] = {
        {"no status for the destinations", {}, hxrConnectionLostErr},
        {"a wrong magic before the destinations",
         {StatusDatagram().put32(0, 0), StatusDatagram()},
         hxrNoError},
        {"no last status", {StatusDatagram()}, hxrDataSyncErr},
        {"a wrong magic", {StatusDatagram(), StatusDatagram().put32(0, 0x52000051)}, hxrDataSyncErr},
        {"a short record", {StatusDatagram(), StatusDatagram().resize(319)}, hxrDataSyncErr},
        {"a clock fault", {StatusDatagram(), StatusDatagram().put16(290, 0x0B00)}, hxrADCAlignmentErr},
        {"both", {StatusDatagram(), StatusDatagram().put16(290, 0).put32(0, 0)}, hxrDataSyncErr},
    };
    for (const auto& [what, answers, status] : cases) {
        ScriptedUnit unit(clock);
        for (const StatusDatagram& answer : answers) unit.answer(answer);
        EXPECT_EQ(open(*unit.device, OpenAs::singleUnit), status) << what;
    }
}

TEST_F(OpenSequence, NeedsAnotherPortForDataThanForControl) {
    ScriptedUnit unit(clock, 4991);
    EXPECT_EQ(openHealthy(unit), hxrInvalidConfigurationErr);
    EXPECT_EQ(unit.takeSent().size(), 11U);  // up to the destinations
    EXPECT_EQ(unit.data->opens, 0);
}

TEST_F(OpenSequence, EndsInTheStatusOfTheStepAtWhichTheLinkIsLost) {
    const std::size_t lastOfLoading = 7, lastBeforeData = 10, lastStatus = 18;
    const std::size_t count = sequence(OpenAs::singleUnit).size();
    for (std::size_t lostAt = 0; lostAt < count; ++lostAt) {
        ScriptedUnit unit(clock);
        unit.control->lostAt = lostAt;
        const HXRStatus status = openHealthy(unit);
        EXPECT_EQ(status, lostAt <= lastBeforeData ? hxrConnectionLostErr
                          : lostAt <= lastStatus   ? hxrDataSyncErr
                                                   : hxrNoError)
            << lostAt;
        EXPECT_EQ(unit.device->link->lastStatus(), hxrConnectionLostErr) << lostAt;
        EXPECT_EQ(unit.data->isOpen(), lostAt > lastBeforeData) << lostAt;
        if (lostAt <= lastOfLoading) {
            EXPECT_EQ(unit.control->sent.size(), lostAt + 1);
        }
    }
}

}  // namespace
}  // namespace hxr
