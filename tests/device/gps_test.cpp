#include "device/gps.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <optional>
#include <tuple>

#include "device/gps_frames.h"
#include "device/health.h"
#include "device/holdover_record.h"
#include "device/open_sequence.h"
#include "device/timebase.h"
#include "device/ubx.h"
#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::gpsMessage;
using test::registerWords;
using test::ScriptedUnit;
using test::StatusDatagram;
using test::Words;

TEST(GpsMessages, AreFramesOfItsProtocol) {
    EXPECT_EQ(gpsReportMessage(), gpsMessage(test::reportFrame, 3));
    EXPECT_EQ(gpsTimePulseMessage(), gpsMessage(test::timePulseFrame, 3));
    EXPECT_EQ(gpsStationaryMessage(), gpsMessage(test::stationaryFrame, 2));
    EXPECT_EQ(gpsReportMessage().front(), 0x04090020U);
    EXPECT_EQ(gpsTimePulseMessage().front(), 0x04130020U);
    EXPECT_EQ(gpsStationaryMessage(), registerWords(0,
                                                    "04050020 8A0662B5 01000009 00210000 EE022011 FFFFFF4B "
                                                    "0 0 0 05000100 0 0"));
}

TEST(GpsMessages, CarryAsManyBytesOfAValueAsAsked) {
    EXPECT_EQ(buildGpsValueMessage(0x20110021, 2, 1), gpsStationaryMessage());
    EXPECT_EQ(buildGpsValueMessage(0x50990001, 0x1122334455667788, 8),
              gpsMessage("B5 62 06 8A 10 00 00 01 00 00 01 00 99 50 88 77 66 55 44 33 22 11 EF 47", 2));
    const Words keyAlone = gpsMessage("B5 62 06 8A 08 00 00 01 00 00 21 00 11 20 EB 53", 2);
    EXPECT_EQ(buildGpsValueMessage(0x20110021, 2, 0), keyAlone);
    EXPECT_EQ(buildGpsValueMessage(0x20110021, 2, -1), keyAlone);
}

class Gps : public testing::Test {
  protected:
    test::TestClock clock;
    ScriptedUnit unit{clock};
    HXRDevice& device = *unit.device;
};

TEST_F(Gps, GoesToAnIdleUnitOnly) {
    EXPECT_EQ(writeToGps(device, 0x20110021, 2, 9), hxrInvalidParameterErr);
    device.initiated = true;
    EXPECT_EQ(writeToGps(device, 0x20110021, 2, 1), hxrInvalidConfigurationErr);
    EXPECT_TRUE(unit.takeSent().empty());
    device.initiated = false;
    EXPECT_EQ(writeToGps(device, 0x20110021, 2, 1), hxrNoError);
    EXPECT_EQ(unit.takeSent().front(),
              registerWords(0, "04050020 8A0662B5 01000009 00210000 EE022011 FFFFFF4B 0 0 0 05000100"));
}

TEST_F(Gps, StateTellsAGoodFixAndWhoSteers) {
    const std::pair<StatusDatagram, GpsState> cases[] = {
        {StatusDatagram(), gpsNoFix},
        {StatusDatagram().goodFix(), gpsFix},
        {StatusDatagram().goodFix().put8(39, 0xFF), gpsFix},
        {StatusDatagram().goodFix().put8(39, 3), gpsNoFix},
        {StatusDatagram().goodFix().put8(39, 6), gpsNoFix},
        {StatusDatagram().goodFix().put8(51, 0), gpsNoFix},
        {StatusDatagram().goodFix().put32(40, 250), gpsNoFix},
        {StatusDatagram().goodFix().put32(40, 0x01000001), gpsNoFix},
        {StatusDatagram().goodFix().put32(308, 0xFFFFFDFF), gpsFix},
        {StatusDatagram().goodFix().put32(308, 0x200), gpsDisciplining},
        {StatusDatagram().put32(308, 0x200), gpsNoFix},
    };
    for (const auto& [status, expected] : cases) {
        unit.answer(status);
        int state = -1;
        EXPECT_EQ(readGpsState(device, state), hxrNoError);
        EXPECT_EQ(state, expected) << &status - &cases[0].first;
    }
}

TEST_F(Gps, AnswersFromTheLastStatusWhileSomeoneElseReads) {
    unit.answer(StatusDatagram().goodFix());
    int state = -1;
    readGpsState(device, state);
    unit.takeSent();
    ControlClaim somebodyElse = controlOf(device);
    GpsInfo info{};
    EXPECT_EQ(readGpsState(device, state), hxrNoError);
    EXPECT_EQ(state, gpsFix);
    EXPECT_EQ(readGpsInfo(device, true, info), hxrNoError);
    EXPECT_TRUE(unit.takeSent().empty());
    somebodyElse.release();

    // Nobody answers: the state is the last that was known.
    EXPECT_EQ(readGpsState(device, state), hxrConnectionLostErr);
    EXPECT_EQ(state, gpsFix);
    EXPECT_TRUE(controlOf(device));
}

TEST_F(Gps, InfoIsWhatTheFixSays) {
    clock.advance(std::chrono::milliseconds(12'345));  // a time that no other test has seen
    unit.answer(StatusDatagram()
                    .put16(32, 2024)
                    .put8(34, 2)
                    .put8(35, 29)
                    .put8(36, 23)
                    .put8(37, 59)
                    .put8(38, 59)
                    .put32(52, static_cast<unsigned>(-1'226'810'001))
                    .put32(56, static_cast<unsigned>(-337'654'321))
                    .put32(60, static_cast<unsigned>(-12'345)));
    GpsInfo info{};
    EXPECT_EQ(readGpsInfo(device, true, info), hxrNoError);
    EXPECT_TRUE(info.updated);
    EXPECT_EQ(info.seconds, 1'709'251'200U);  // 1 March 2024, 00:00:00
    EXPECT_DOUBLE_EQ(info.longitude, -122.6810001);
    EXPECT_DOUBLE_EQ(info.latitude, -33.7654321);
    EXPECT_DOUBLE_EQ(info.altitude, -12.345);

    unit.takeSent();
    EXPECT_EQ(readGpsInfo(device, false, info), hxrNoError);
    EXPECT_FALSE(info.updated);
    EXPECT_EQ(info.longitude, -122.6810001);
    EXPECT_TRUE(unit.takeSent().empty());

    // What was seen last is remembered for all units together.
    ScriptedUnit other(clock);
    clock.advance(std::chrono::milliseconds(1));
    other.answer(StatusDatagram());
    readGpsInfo(*other.device, true, info);
    for (HXRDevice* polled : {&device, other.device.get()}) {
        readGpsInfo(*polled, false, info);
        EXPECT_TRUE(info.updated);
    }
}

/// The record file of unit 12345678.
std::filesystem::path recordFile(const ScriptedUnit& unit) {
    return unit.folder.path() / "rk12345678gps.bin";
}

/// A record of 64 bytes, least significant byte first.
std::string recordOf(std::uint64_t time, std::uint64_t tune, std::uint32_t mark = 0x00677073,
                     std::uint32_t version = 1) {
    std::string bytes;
    const auto put = [&](std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i) bytes.push_back(static_cast<char>(value >> 8 * i));
    };
    put(mark, 4);
    put(version, 4);
    put(time, 8);
    put(tune, 8);
    bytes.resize(64);
    return bytes;
}

void write(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

struct Steered {
    const char* what;
    unsigned dac, readback;
    bool fix, flag, followed;
};

TEST_F(Gps, FollowsAUnitThatHasSteeredItsTimebaseFarEnough) {
    const Steered cases[] = {
        {"8 above", 0x8000, 0x8008, true, true, false},
        {"9 above", 0x8000, 0x8009, true, true, true},
        {"8 below", 0x8000, 0x7FF8, true, true, false},
        {"9 below", 0x8000, 0x7FF7, true, true, true},
        {"8 further, over the end of the range", 0xFFFC, 0x0004, true, true, true},
        {"not disciplined", 0x8000, 0x9000, true, false, false},
        {"no good fix", 0x8000, 0x9000, false, true, false},
    };
    // Half way between two temperatures: the part of -10.5 counts as -10.
    device.corrections->image->coarseTuneByTemp[0] = -10;
    device.corrections->image->coarseTuneByTemp[1] = -11;
    device.corrections->tempFraction = 0.5;
    clock.setUtcSeconds(0x112233445);
    for (const auto& [what, dac, readback, fix, flag, followed] : cases) {
        SCOPED_TRACE(what);
        std::filesystem::remove(recordFile(unit));
        const TimebaseState before{.coarseTune = 0x1234, .timebaseDAC = static_cast<std::uint16_t>(dac)};
        device.timebase.update([&](TimebaseState& timebase) { timebase = before; });
        StatusDatagram status = StatusDatagram().disciplined(readback).put32(12, 0x4E61BC00);
        if (!fix) status.put8(51, 0);
        if (!flag) status.put32(308, 0);
        unit.answer(status);
        requestStatus(device);

        const TimebaseState after = device.timebase.copy();
        const auto tune = static_cast<std::uint16_t>(readback + 10);
        EXPECT_EQ(after.timebaseDAC, followed ? readback : dac);
        EXPECT_EQ(after.coarseTune, followed ? tune : 0x1234);
        EXPECT_EQ(after.holdoverCoarseTune, followed ? tune : 0);
        EXPECT_EQ(after.holdoverTime, followed ? 0x112233445U : 0);
        EXPECT_FALSE(after.holdoverValid);
        const auto record = test::contentOf(recordFile(unit));
        EXPECT_EQ(std::string(record.begin(), record.end()), followed ? recordOf(0x112233445, tune) : "");
    }
}

TEST_F(Gps, DoesNotFollowWhatIsNoStatus) {
    unit.answer(StatusDatagram().disciplined(0x9000));
    requestStatus(device);
    setCoarseTune(device, 0x7000);
    unit.answer(StatusDatagram().disciplined(0x9000).put32(0, 0));
    requestStatus(device);
    EXPECT_EQ(device.timebase.copy().coarseTune, 0x7000);
}

TEST_F(Gps, FollowsWithoutAFileWhereNoneCanBeWritten) {
    std::filesystem::create_directory(recordFile(unit));
    unit.answer(StatusDatagram().disciplined(0x9000).put32(12, 0x4E61BC00));
    requestStatus(device);
    EXPECT_EQ(device.timebase.copy().coarseTune, 0x9000);
    EXPECT_FALSE(readHoldoverRecord(device.link->calFolder(), 12345678));
}

TEST_F(Gps, HoldoverRecordIsReadIfItIsOne) {
    const std::string good = recordOf(0x0102030405060708, 0xABCD);
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"good", good, true},
        {"longer", good + "more", true},
        {"a byte short", good.substr(0, 63), false},
        {"empty", "", false},
        {"another mark", recordOf(5, 6, 0x01677073), false},
        {"another version", recordOf(5, 6, 0x00677073, 2), false},
    };
    EXPECT_FALSE(readHoldoverRecord(device.link->calFolder(), 12345678));
    for (const auto& [what, content, isOne] : cases) {
        write(recordFile(unit), content);
        const auto record = readHoldoverRecord(device.link->calFolder(), 12345678);
        ASSERT_EQ(record.has_value(), isOne) << what;
        if (!isOne) continue;
        EXPECT_EQ(record->time, 0x0102030405060708U);
        EXPECT_EQ(record->coarseTune, 0xABCDU);
    }
    EXPECT_FALSE(readHoldoverRecord(device.link->calFolder(), 12345679));
}

/// What a unit starts with: the factory's history, dated 1000 and up, and a holdover record.
struct Start {
    const char* what;
    unsigned logEntries;
    std::optional<std::uint64_t> recordTime;
    std::uint16_t coarseTune;
};

TEST(TimebaseStart, IsTheNewestOfHistoryAndRecord) {
    const Start cases[] = {
        {"nothing known", 0, {}, 0x8000},
        {"a record only", 0, 1, 0x5555},
        {"a record of no time", 0, 0, 0x8000},
        {"one entry", 1, {}, 0x7000},
        {"a full history", 64, {}, 0x703F},
        {"an older record", 3, 1001, 0x7002},
        {"a record of the same time", 3, 1002, 0x7002},
        {"a newer record", 3, 1003, 0x5555},
        {"a newer record than a full history's", 64, 1064, 0x5555},
    };
    for (const auto& [what, logEntries, recordTime, coarseTune] : cases) {
        SCOPED_TRACE(what);
        test::TestClock clock;
        ScriptedUnit unit(clock);
        HXRCalData& image = *unit.device->corrections->image;
        for (unsigned i = 0; i < logEntries; ++i) {
            image.coarseTuneLog[i] = static_cast<std::uint16_t>(0x7000 + i);
            image.coarseTuneDate[i] = 1000 + i;
        }
        image.coarseTuneByTemp[0] = 0x0100;
        if (recordTime) write(recordFile(unit), recordOf(*recordTime, 0x5555));
        unit.answer(StatusDatagram());
        unit.answer(StatusDatagram().put32(12, 0x4E61BC00));
        ASSERT_EQ(open(*unit.device, OpenAs::singleUnit), hxrNoError);

        const TimebaseState timebase = unit.device->timebase.copy();
        EXPECT_EQ(timebase.coarseTune, coarseTune);
        EXPECT_EQ(timebase.timebaseDAC, coarseTune + 0x0100);
        EXPECT_EQ(timebase.holdoverValid, recordTime.has_value());
        EXPECT_EQ(timebase.holdoverTime, recordTime.value_or(0));
        EXPECT_EQ(timebase.holdoverCoarseTune, recordTime ? 0x5555U : 0U);
        const auto sent = unit.takeSent();
        EXPECT_EQ(sent[sent.size() - 2], (Words{0x51044000, 0x4C000000, 0x0B040000U + coarseTune + 0x0100U}));
    }
}

TEST(Timebase, IsSentWithItsReferenceAndWhoSteersIt) {
    test::TestClock clock;
    ScriptedUnit unit(clock);
    HXRDevice& device = *unit.device;
    struct Step {
        std::function<HXRStatus()> call;
        HXRStatus status;
        const char* words;
    };
    const Step steps[] = {
        {[&] { return setReference(device, 2); }, hxrInvalidParameterErr, nullptr},
        {[&] { return setReference(device, 0); }, hxrNoError, nullptr},
        {[&] { return setReference(device, 1); }, hxrNoError, "51044040 4C000000 0B008000"},
        {[&] { return setGpsTimebaseUpdate(device, 2); }, hxrInvalidParameterErr, nullptr},
        {[&] { return setGpsTimebaseUpdate(device, 0); }, hxrNoError, nullptr},
        {[&] { return setGpsTimebaseUpdate(device, 1); }, hxrNoError, "51044040 4C000000 0B088000"},
        {[&] { return setReference(device, 0); }, hxrNoError, "51044000 4C000000 0B088000"},
        {[&] { return setCoarseTune(device, 0xFFFF); }, hxrNoError, "51044000 4C000000 0B080002"},
        {[&] { return setGpsTimebaseUpdate(device, 0); }, hxrNoError, "51044000 4C000000 0B040002"},
    };
    device.corrections->image->coarseTuneByTemp[0] = 3;  // over the end of the range
    for (const Step& step : steps) {
        EXPECT_EQ(step.call(), step.status);
        const auto expected =
            step.words == nullptr ? std::vector<Words>{} : std::vector<Words>{registerWords(0, step.words)};
        EXPECT_EQ(unit.takeSent(), expected) << &step - steps;
    }
    device.initiated = true;
    EXPECT_EQ(setReference(device, 0), hxrInvalidConfigurationErr);
    EXPECT_EQ(setGpsTimebaseUpdate(device, 0), hxrInvalidConfigurationErr);
    EXPECT_EQ(setCoarseTune(device, 1), hxrInvalidConfigurationErr);
    EXPECT_EQ(setReference(device, 2), hxrInvalidParameterErr);
    EXPECT_EQ(unit.takeSent(), std::vector<Words>{});
    EXPECT_EQ(device.timebase.copy().coarseTune, 0xFFFF);
    device.initiated = false;
    unit.control->lostAt = 0;
    EXPECT_EQ(setReference(device, 1), hxrConnectionLostErr);
    EXPECT_EQ(setCoarseTune(device, 1), hxrConnectionLostErr);
}

}  // namespace
}  // namespace hxr
