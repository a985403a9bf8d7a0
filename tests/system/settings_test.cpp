#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "support/installation.h"

namespace hxr {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double turn = 2 * std::numbers::pi;

/// A setting as a text that tells any two values apart, zeros of both signs too.
struct Shown {
    std::string text;

    Shown(const char* value) : text(value) {}
    Shown(const std::string& value) : text(value) {}
    Shown(double value) {
        std::array<char, 40> digits{};
        std::snprintf(digits.data(), digits.size(), "%.17g", value);
        text = digits.data();
    }
    bool operator==(const Shown&) const = default;
};

void PrintTo(const Shown& shown, std::ostream* out) { *out << shown.text; }

using Settings = std::map<std::string, Shown>;

#define FIELD(name) \
    { #name, d.name }
#define EACH(name) add(#name, d.name[c])

/// All settings of a unit, by name.
Settings settingsOf(const HXRDevice& d) {
    Settings all{FIELD(channelCount),       FIELD(focusChannel),    FIELD(sharedFreq),
                 FIELD(vsgEnabled),         FIELD(vsgOutputLevel),  FIELD(vsgAtten),
                 FIELD(streamActive),       FIELD(streamDataType),  FIELD(streamFullScale),
                 FIELD(streamRefLevel),     FIELD(streamAtten),     FIELD(decimation),
                 FIELD(hardwareDecimation), FIELD(hostDecimation),  FIELD(streamBandwidth),
                 FIELD(hardwareBandwidth),  FIELD(outputBandwidth), FIELD(streamTriggerEdge),
                 FIELD(sweepActive),        FIELD(sweepRefLevel),   FIELD(sweepAtten),
                 FIELD(sweepCenter),        FIELD(sweepSpan),       FIELD(sweepRBW),
                 FIELD(sweepVBW),           FIELD(sweepTime),       FIELD(sweepDetector),
                 FIELD(sweepVideoUnits),    FIELD(sweepScale),      FIELD(sweepWindow),
                 FIELD(localStream),        FIELD(streamPort),      FIELD(vrtContextEnabled),
                 FIELD(vrtContextInterval), FIELD(vrtEndianness)};
    all.emplace("vsgPattern", static_cast<double>(d.vsgPattern.size()));
    for (std::size_t c = 0; c < mostChannels; ++c) {
        const auto add = [&](const char* name, const Shown& value) {
            all.emplace(std::string(name) + " " + std::to_string(c), value);
        };
        EACH(channelEnabled);
        EACH(channelShared);
        EACH(channelFreq);
        EACH(channelPhaseOffset);
        EACH(channelDelay);
        EACH(vrtStreamId);
        EACH(vrtDestAddress);
        EACH(vrtDestPort);
        add("vrtDestMAC", static_cast<double>(d.vrtDestMAC[c]));
    }
    return all;
}

/// A call, what it returns, the settings that it changes, and the datagrams that master and slave get.
struct Row {
    const char* text;
    std::function<HXRStatus(int)> call;
    HXRStatus status;
    Settings changes{};
    std::array<std::size_t, 2> datagrams{};
};

#define CALL(entry) #entry, [=](int h) { return entry; }

/// A group of two units: settings of the slave are named with "slave " before them.
class SettingsOfAGroup : public test::Installation {
  protected:
    void SetUp() override {
        startUnit();
        startUnit();
        ASSERT_EQ(connect(), hxrNoError);
        ASSERT_EQ(pair(1), hxrNoError);
        device(handle).corrections->image->vsgLevel[0][0] = -3.0F;
    }

    Settings settings() const {
        Settings all = settingsOf(device(handle));
        for (const auto& [name, value] : settingsOf(device(handle + 1))) all.emplace("slave " + name, value);
        return all;
    }

    /// Makes the calls one after the other. Each changes what its row says and nothing else.
    void run(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.text);
            Settings expected = settings();
            for (const auto& unit : units) forgetWhatWasSent(*unit);
            EXPECT_EQ(row.call(3), hxrInvalidDeviceErr);
            EXPECT_EQ(row.call(handle), row.status);
            EXPECT_EQ((std::array{datagramsAt(*units[0]), datagramsAt(*units[1])}), row.datagrams);
            for (const auto& [name, value] : row.changes) expected.at(name) = value;
            for (const auto& [name, value] : settings()) EXPECT_EQ(value, expected.at(name)) << name;
        }
    }
};

/// Where a unit has been told to send the samples of an input, from its registers.
std::string destinationOf(const sim::SimulatedUnit& unit, std::uint16_t input) {
    const auto registers = unit.state().registers;
    const auto first = static_cast<std::uint16_t>(0x320 + 4 * input);
    const auto address = registers.read(first).value_or(0);
    std::string text;
    for (const int shift : {24, 16, 8, 0})
        text += std::to_string(address >> shift & 0xFF) + (shift ? "." : ":");
    return text + std::to_string(registers.read(static_cast<std::uint16_t>(first + 1)).value_or(0) >> 16);
}

TEST_F(SettingsOfAGroup, ClampPhysicalQuantities) {
    struct Quantity {
        std::function<HXRStatus(int, double)> set;
        std::vector<const char*> names;
        double lowest, highest;
    };
    const std::vector<Quantity> quantities{
        {[](int h, double v) { return hxrSetChannelFreq(h, 5, v); }, {"channelFreq 5"}, 100e3, 20e9},
        {[](int h, double v) { return hxrSetChannelDelay(h, 7, v); }, {"channelDelay 7"}, -25e-9, 25e-9},
        {hxrSetSharedFreq, {"sharedFreq"}, 100e3, 20e9},
        {hxrSetStreamBandwidth, {"streamBandwidth", "hardwareBandwidth", "outputBandwidth"}, 20e3, 40e6},
        {[](int h, double v) { return hxrSetSweepCoupling(h, v, 2e4, 0.5); }, {"sweepRBW"}, 100, 10e6},
        {[](int h, double v) { return hxrSetSweepCoupling(h, 10e6, v, 0.5); }, {"sweepVBW"}, 100, 10e6},
        {[](int h, double v) { return hxrSetSweepCoupling(h, 10e6, 10e6, v); }, {"sweepTime"}, 1e-6, 1},
        {hxrSetVSGLevel, {"vsgOutputLevel"}, -80, 10},
    };
    ASSERT_EQ(hxrSetSweepCoupling(handle, 1e4, 2e4, 0.5), hxrNoError);
    for (const Quantity& q : quantities) {
        const double step = (q.highest - q.lowest) / 4096;
        const auto row = [&](double value, HXRStatus status, double stored) {
            Settings changes;
            for (const char* name : q.names) changes.emplace(name, stored);
            return Row{q.names.front(), [=](int h) { return q.set(h, value); }, status, changes};
        };
        run({row(q.highest, hxrNoError, q.highest), row(q.lowest - step, hxrSettingClamped, q.lowest),
             row(q.highest + step, hxrSettingClamped, q.highest), row(q.lowest, hxrNoError, q.lowest),
             row(1e300, hxrSettingClamped, q.highest), row(-1e300, hxrSettingClamped, q.lowest),
             row(infinity, hxrSettingClamped, q.highest), row(-infinity, hxrSettingClamped, q.lowest),
             row(notANumber, hxrInvalidParameterErr, q.lowest), row(q.highest, hxrNoError, q.highest)});
    }
}

TEST_F(SettingsOfAGroup, RefuseSelectorsAndChannelsOutOfTheirSets) {
    constexpr int least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();
    struct Selector {
        std::function<HXRStatus(int, int)> set;
        const char* name;
        int lowest, highest;
    };
    const auto plain = [](HXRStatus (*entry)(int, unsigned)) {
        return [=](int h, int v) { return entry(h, static_cast<unsigned>(v)); };
    };
    const std::vector<Selector> selectors{
        {plain(hxrSetStreamDataType), "streamDataType", 0, 1},
        {plain(hxrSetStreamFullScale), "streamFullScale", 0, 1},
        {plain(hxrSetStreamTriggerEdge), "streamTriggerEdge", 0, 1},
        {plain(hxrSetStreamVrtEndianness), "vrtEndianness", 0, 1},
        {plain(hxrSetSweepScale), "sweepScale", 0, 2},
        {plain(hxrSetSweepWindow), "sweepWindow", 0, 2},
        {[](int h, int v) { return hxrSetSweepDetector(h, static_cast<unsigned>(v), 2); }, "sweepDetector", 0,
         2},
        {[](int h, int v) { return hxrSetSweepDetector(h, 2, static_cast<unsigned>(v)); }, "sweepVideoUnits",
         0, 3},
        {hxrSetStreamAtten, "streamAtten", -1, 6},
        {hxrSetSweepAtten, "sweepAtten", -1, 6},
        {[](int h, int v) { return hxrSetChannelShared(h, 6, v); }, "channelShared 6", 0, 1},
        {[](int h, int v) { return hxrSetStreamVrtCntxInterval(h, 1, v); }, "vrtContextInterval", 3, 4095},
    };
    for (const Selector& s : selectors) {
        const auto row = [&](int value, HXRStatus status, int stored) {
            return Row{s.name, [=](int h) { return s.set(h, value); }, status, {{s.name, stored}}};
        };
        run({row(s.lowest, hxrNoError, s.lowest), row(s.highest, hxrNoError, s.highest),
             row(s.lowest - 1, hxrInvalidParameterErr, s.highest),
             row(s.highest + 1, hxrInvalidParameterErr, s.highest),
             row(least, hxrInvalidParameterErr, s.highest), row(most, hxrInvalidParameterErr, s.highest)});
    }

    double number = -1;
    int shared = -1;
    for (const int c : {-1, 8, least, most}) {
        run({{CALL(hxrSetChannelShared(h, c, 1)), hxrInvalidParameterErr},
             {CALL(hxrGetChannelShared(h, c, nullptr)), hxrInvalidParameterErr},
             {CALL(hxrSetChannelFreq(h, c, 2e9)), hxrInvalidParameterErr},
             {CALL(hxrGetChannelFreq(h, c, nullptr)), hxrInvalidParameterErr},
             {CALL(hxrSetChannelPhaseOffset(h, c, 1)), hxrInvalidParameterErr},
             {CALL(hxrGetChannelPhaseOffset(h, c, nullptr)), hxrNullPointerErr},
             {CALL(hxrSetChannelDelay(h, c, 1e-9)), hxrInvalidParameterErr},
             {CALL(hxrGetChannelDelay(h, c, nullptr)), hxrNullPointerErr},
             {CALL(hxrSetStreamVrtChannelID(h, c, 99)), hxrInvalidParameterErr}});
        EXPECT_EQ(hxrGetChannelShared(handle, c, &shared), hxrInvalidParameterErr);
        EXPECT_EQ(hxrGetChannelFreq(handle, c, &number), hxrInvalidParameterErr);
        EXPECT_EQ(hxrGetChannelPhaseOffset(handle, c, &number), hxrInvalidParameterErr);
        EXPECT_EQ(hxrGetChannelDelay(handle, c, &number), hxrInvalidParameterErr);
    }
    EXPECT_EQ(shared, -1);
    EXPECT_EQ(number, -1);
    // A slave's slot stands for its own four channels.
    EXPECT_EQ(hxrSetChannelFreq(handle + 1, 4, 2e9), hxrInvalidParameterErr);
}

TEST_F(SettingsOfAGroup, ChooseWhatSweepsAndWhatStreams) {
    struct Case {
        std::vector<int> enabled;
        int focus, focusChannel;
        bool sweeps, streams;
    };
    const std::vector<Case> cases{
        {{0, 1, 0, 0, 0, 0, 0, 0}, 2, -1, false, true},  {{0, 0, 1, 0, 0, 0, 0, 0}, 2, 2, true, false},
        {{1, 0, 0, 0, 0, 0, 0, -5}, 7, 7, true, true},   {{0, 0, 0, 0, 0, 0, 0, 0}, 0, -1, false, false},
        {{1, 1, 1, 1, 1, 1, 1, 1}, -1, -1, false, true}, {{1, 0, 0, 0, 0, 0, 0, 0}, 8, -1, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.focus);
        EXPECT_EQ(hxrSetChannelConfig(handle, c.enabled.data(), c.focus), hxrNoError);
        std::vector<int> enabled(9, 77);
        int focus = 77;
        EXPECT_EQ(hxrGetChannelConfig(handle, enabled.data(), &focus), hxrNoError);
        EXPECT_EQ(focus, c.focusChannel);
        for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(enabled[i], c.enabled[i] != 0) << i;
        EXPECT_EQ(enabled[8], 77);
        EXPECT_EQ(device(handle).sweepActive, c.sweeps);
        EXPECT_EQ(device(handle).streamActive, c.streams);
    }
    EXPECT_EQ(hxrGetChannelConfig(handle, nullptr, nullptr), hxrNoError);

    // Only what streams can share a frequency.
    const std::vector<int> enabled{0, 1, 1, 1, 1, 1, 1, 1};
    ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), 7), hxrNoError);
    for (int c = 0; c < 8; ++c) {
        EXPECT_EQ(hxrSetChannelShared(handle, c, c != 3), hxrNoError);
        int shared = 9;
        EXPECT_EQ(hxrGetChannelShared(handle, c, &shared), hxrNoError);
        EXPECT_EQ(shared, c != 0 && c != 3 && c != 7) << c;
    }
    run({{CALL(hxrSetChannelConfig(h, nullptr, 1)), hxrNullPointerErr},
         {CALL(hxrGetChannelShared(h, 0, nullptr)), hxrNoError},
         {CALL(hxrGetChannelFreq(h, 0, nullptr)), hxrNoError},
         {CALL(hxrGetSharedFreq(h, nullptr)), hxrNoError}});
}

TEST_F(SettingsOfAGroup, ReadBackWhatAChannelKeeps) {
    const auto phase = [](double radians) {
        return [=](int h) { return hxrSetChannelPhaseOffset(h, 4, radians); };
    };
    const char* name = "channelPhaseOffset 4";
    run({{"1", phase(1), hxrNoError, {{name, turn - 1}}},
         {"-1", phase(-1), hxrNoError, {{name, 1.0}}},
         {"a turn", phase(turn), hxrNoError, {{name, 0.0}}},
         {"infinite", phase(infinity), hxrInvalidParameterErr},
         {"infinite", phase(-infinity), hxrInvalidParameterErr},
         {"none", phase(notANumber), hxrInvalidParameterErr},
         {"half a turn", phase(-turn / 2), hxrNoError, {{name, turn / 2}}},
         {"nothing", phase(0.0), hxrNoError, {{name, 0.0}}},
         {"nothing below", phase(-0.0), hxrNoError, {{name, 0.0}}},
         {"a turn back", phase(-turn), hxrNoError, {{name, 0.0}}},
         {"next to nothing", phase(1e-30), hxrNoError, {{name, 0.0}}},
         {"least", phase(-5e-324), hxrNoError, {{name, 5e-324}}}});
    double kept = 0;
    for (const double radians : {10.0, -10.0, 1000.0, -12345.678}) {
        double expected = -radians;
        while (expected < 0) expected += turn;
        while (expected >= turn) expected -= turn;
        EXPECT_EQ(phase(radians)(handle), hxrNoError);
        EXPECT_EQ(hxrGetChannelPhaseOffset(handle, 4, &kept), hxrNoError);
        EXPECT_NEAR(kept, expected, 1e-9);
    }
    for (const double radians : {1e300, -1e300, std::numeric_limits<double>::max()}) {
        EXPECT_EQ(phase(radians)(handle), hxrNoError);
        EXPECT_EQ(hxrGetChannelPhaseOffset(handle, 4, &kept), hxrNoError);
        EXPECT_TRUE(kept >= 0 && kept < turn) << kept;
    }

    hxrSetChannelDelay(handle, 4, 1.5e-9);
    hxrSetChannelFreq(handle, 4, 99'999);
    hxrSetSharedFreq(handle, 3.5e9);
    double delay = 0, own = 0, shared = 0;
    EXPECT_EQ(hxrGetChannelDelay(handle, 4, &delay), hxrNoError);
    EXPECT_EQ(hxrGetChannelFreq(handle, 4, &own), hxrNoError);
    EXPECT_EQ(hxrGetSharedFreq(handle, &shared), hxrNoError);
    EXPECT_EQ((std::vector{delay, own, shared}), (std::vector{1.5e-9, 100e3, 3.5e9}));
}

TEST_F(SettingsOfAGroup, DescribeAStream) {
    const auto rate = [](double all, double unit, double host) {
        return Settings{{"decimation", all}, {"hardwareDecimation", unit}, {"hostDecimation", host}};
    };
    run({{CALL(hxrSetStreamSampleRate(h, 8)), hxrNoError, rate(8, 4, 2)},
         {CALL(hxrSetStreamSampleRate(h, 3)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamSampleRate(h, 0)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamSampleRate(h, -8)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamSampleRate(h, std::numeric_limits<int>::min())), hxrInvalidParameterErr},
         {CALL(hxrSetStreamSampleRate(h, 512)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamSampleRate(h, 4)), hxrNoError, rate(4, 4, 1)},
         {CALL(hxrSetStreamSampleRate(h, 256)), hxrNoError, rate(256, 4, 64)},
         {CALL(hxrSetStreamSampleRate(h, 2)), hxrNoError, rate(2, 2, 1)},
         {CALL(hxrSetStreamSampleRate(h, 1)), hxrNoError, rate(1, 1, 1)},
         {CALL(hxrSetStreamRefLevel(h, 1e300)), hxrNoError, {{"streamRefLevel", 1e300}}},
         {CALL(hxrSetStreamRefLevel(h, -infinity)), hxrNoError, {{"streamRefLevel", -infinity}}},
         {CALL(hxrSetStreamRefLevel(h, notANumber)), hxrNoError, {{"streamRefLevel", notANumber}}},
         {CALL(hxrSetStreamVrtChannelID(h, 5, 0)), hxrNoError, {{"vrtStreamId 5", 0.0}}},
         {CALL(hxrSetStreamVrtChannelID(h, 0, 6)), hxrNoError, {{"vrtStreamId 0", 6.0}}},
         {CALL(hxrSetStreamVrtChannelID(h, 0, 6)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtChannelID(h, 1, 8)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtChannelID(h, 1, 9)), hxrNoError, {{"vrtStreamId 1", 9.0}}},
         {CALL(hxrSetStreamVrtChannelID(h, 1, -1)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtCntxInterval(h, 1, 100)), hxrNoError, {{"vrtContextInterval", 100.0}}},
         {CALL(hxrSetStreamVrtCntxInterval(h, 2, 100)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtCntxInterval(h, -1, 100)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtCntxInterval(h, 0, -7)),
          hxrNoError,
          {{"vrtContextEnabled", 0.0}, {"vrtContextInterval", 63.0}}},
         {CALL(hxrSetStreamVrtCntxInterval(h, 1, 2)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtCntxInterval(h, 1, 3)),
          hxrNoError,
          {{"vrtContextEnabled", 1.0}, {"vrtContextInterval", 3.0}}}});
}

TEST_F(SettingsOfAGroup, GiveTheCorrectionOfAStreamingChannel) {
    const std::vector<int> enabled{1, 0, 0, 0, 0, 1, 0, 0};
    ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), 0), hxrNoError);
    device(handle).streamCorrection[5] = 0.1;
    float factor = -1;
    EXPECT_EQ(hxrStreamCorrection(handle, 5, nullptr), hxrNullPointerErr);
    EXPECT_EQ(hxrStreamCorrection(handle, -1, &factor), hxrInvalidConfigurationErr);
    device(handle).streamConfigured = true;
    for (const int c : {-1, 0, 1, 8})
        EXPECT_EQ(hxrStreamCorrection(handle, c, &factor), hxrInvalidParameterErr);
    EXPECT_EQ(factor, -1);
    EXPECT_EQ(hxrStreamCorrection(handle, 5, &factor), hxrNoError);
    EXPECT_EQ(factor, 0.1F);
}

TEST_F(SettingsOfAGroup, DescribeASweep) {
    const auto range = [](double start, double stop) {
        return Settings{{"sweepCenter", (start + stop) / 2}, {"sweepSpan", stop - start}};
    };
    constexpr double low = 100e3, high = 20e9;
    run({{CALL(hxrSetSweepStartStop(h, low, high)), hxrNoError, range(low, high)},
         {CALL(hxrSetSweepCenterSpan(h, 1e9, 10)), hxrSettingClamped, range(1e9 - 5, 1e9 + 95)},
         {CALL(hxrSetSweepCenterSpan(h, 2e9, 100)), hxrNoError, range(2e9 - 50, 2e9 + 50)},
         {CALL(hxrSetSweepStartStop(h, 30e9, 30e9)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepStartStop(h, 3e9, 2e9)), hxrSettingClamped, range(3e9, 3e9 + 100)},
         {CALL(hxrSetSweepStartStop(h, 99'999, 1e9)), hxrSettingClamped, range(low, 1e9)},
         {CALL(hxrSetSweepStartStop(h, high - 20, high - 10)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepStartStop(h, 0, 0)), hxrSettingClamped, range(low, low + 100)},
         {CALL(hxrSetSweepStartStop(h, -infinity, infinity)), hxrSettingClamped, range(low, high)},
         {CALL(hxrSetSweepStartStop(h, infinity, infinity)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepStartStop(h, -infinity, -infinity)), hxrSettingClamped, range(low, low + 100)},
         {CALL(hxrSetSweepStartStop(h, infinity, -infinity)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepStartStop(h, -1e308, 1e308)), hxrSettingClamped, range(low, high)},
         {CALL(hxrSetSweepStartStop(h, notANumber, 1e9)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepStartStop(h, 1e9, notANumber)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCenterSpan(h, notANumber, 1e9)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCenterSpan(h, 1e9, notANumber)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCenterSpan(h, infinity, infinity)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCenterSpan(h, -infinity, infinity)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCenterSpan(h, 1e9, -infinity)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepCenterSpan(h, 1e308, 1e308)), hxrSettingClamped, range(high - 100, high)},
         {CALL(hxrSetSweepCenterSpan(h, 1e9, infinity)), hxrSettingClamped, range(low, high)},
         {CALL(hxrSetSweepCoupling(h, 200, 300, 0.25)),
          hxrNoError,
          {{"sweepRBW", 200.0}, {"sweepVBW", 300.0}, {"sweepTime", 0.25}}},
         {CALL(hxrSetSweepCoupling(h, 400, notANumber, 2)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepCoupling(h, 1, 1e9, 2)),
          hxrSettingClamped,
          {{"sweepRBW", 100.0}, {"sweepVBW", 10e6}, {"sweepTime", 1.0}}},
         {CALL(hxrSetSweepDetector(h, 0, 3)), hxrNoError, {{"sweepDetector", 0.0}, {"sweepVideoUnits", 3.0}}},
         {CALL(hxrSetSweepDetector(h, 3, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepDetector(h, 1, 4)), hxrInvalidParameterErr},
         {CALL(hxrSetSweepRefLevel(h, infinity)), hxrNoError, {{"sweepRefLevel", infinity}}},
         {CALL(hxrSetSweepRefLevel(h, notANumber)), hxrNoError, {{"sweepRefLevel", notANumber}}}});
}

TEST_F(SettingsOfAGroup, DescribeTheGenerator) {
    run({{CALL(hxrSetVSGEnabled(h, -3)), hxrNoError, {{"vsgEnabled", 1.0}}},
         {CALL(hxrSetVSGEnabled(h, 0)), hxrNoError, {{"vsgEnabled", 0.0}}},
         // The level is single precision before it is compared.
         {CALL(hxrSetVSGLevel(h, 10.0000001)), hxrNoError, {{"vsgOutputLevel", 10.0}}},
         {CALL(hxrSetVSGLevel(h, 0.1)), hxrNoError, {{"vsgOutputLevel", 0.1F}}}});
    // A unit that never had generator data.
    device(handle).corrections->image->vsgLevel[0][0] = 1000.0F;
    run({{CALL(hxrSetVSGLevel(h, 20)), hxrSettingClamped, {{"vsgOutputLevel", 10.0}}},
         {CALL(hxrSetVSGLevel(h, 0)), hxrInvalidConfigurationErr, {{"vsgOutputLevel", 0.0}}},
         {CALL(hxrSetVSGLevel(h, notANumber)), hxrInvalidParameterErr}});

    const std::vector<std::complex<float>> floats(4112, {1.0F, 0.0F});
    const auto* const rails = reinterpret_cast<const float*>(floats.data());
    run({{CALL(hxrSetVSGPattern(h, nullptr, 16, 1)), hxrNullPointerErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), 8, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), 0, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), -16, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), 4112, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), 16, 2)), hxrInvalidParameterErr},
         {CALL(hxrSetVSGPattern(h, floats.data(), 4096, 1)), hxrNoError, {{"vsgPattern", 4096.0}}},
         // Service looks at neither length nor frequency.
         {CALL(hxrAdminSetVSGPatternDirect(h, nullptr, 16)), hxrNullPointerErr},
         {CALL(hxrAdminSetVSGPatternDirect(h, rails, -1)), hxrInvalidParameterErr},
         {CALL(hxrAdminSetVSGPatternDirect(h, rails, 4112)), hxrNoError, {{"vsgPattern", 4112.0}}},
         {CALL(hxrAdminSetVSGPatternDirect(h, rails, 3)), hxrNoError, {{"vsgPattern", 3.0}}},
         {CALL(hxrAdminSetVSGAtten(h, 7)), hxrNoError, {{"vsgAtten", 28.0}}},
         {CALL(hxrAdminSetVSGAtten(h, 8)), hxrInvalidParameterErr},
         {CALL(hxrAdminSetVSGAtten(h, -1)), hxrInvalidParameterErr},
         {CALL(hxrAdminSetVSGAtten(h, 0)), hxrNoError, {{"vsgAtten", 0.0}}}});
    EXPECT_EQ(device(handle).vsgPattern, (std::vector<std::complex<float>>(3, {1.0F, 0.0F})));
    run({{CALL(hxrAdminSetVSGPatternDirect(h, rails, 0)), hxrNoError, {{"vsgPattern", 0.0}}}});
}

TEST_F(SettingsOfAGroup, MoveAPatternUp) {
    // The samples lie at an odd address, as a caller's packed record may have them.
    const auto isMovedUp = [&](unsigned type, auto i, decltype(i) q, std::complex<double> sample) {
        constexpr std::size_t count = 48;
        std::array<char, 1 + count * 2 * sizeof i> bytes{};
        for (std::size_t n = 0; n < count; ++n) {
            std::memcpy(bytes.data() + 1 + 2 * n * sizeof i, &i, sizeof i);
            std::memcpy(bytes.data() + 1 + (2 * n + 1) * sizeof i, &q, sizeof q);
        }
        EXPECT_EQ(hxrSetVSGPattern(handle, bytes.data() + 1, count, type), hxrNoError);
        const auto& pattern = device(handle).vsgPattern;
        ASSERT_EQ(pattern.size(), count);
        for (std::size_t n = 0; n < count; ++n) {
            const auto expected = sample * std::polar(1.0, turn * 3 * static_cast<double>(n) / 16);
            EXPECT_LT(std::abs(std::complex<double>(pattern[n]) - expected), 2e-7) << type << ' ' << n;
        }
    };
    isMovedUp(1, 1.0F, 0.0F, {1.0, 0.0});
    isMovedUp(1, 0.5F, -0.25F, {0.5, -0.25});
    isMovedUp(0, std::int16_t{-32768}, 0, {-1.0, 0.0});
    isMovedUp(0, std::int16_t{16384}, -8192, {0.5, -0.25});
}

TEST_F(SettingsOfAGroup, LeadStreamsToVrtDestinationsAndBack) {
    const std::string host = test::hostAddress();
    constexpr std::uint64_t mac = 0x0123456789AB;
    const Settings fifth{{"slave vrtDestAddress 1", "10.1.2.3"},
                         {"slave vrtDestPort 1", 6000.0},
                         {"slave vrtDestMAC 1", double{mac}}};
    run({{CALL(hxrSetStreamMode(h, 2)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamMode(h, 0)), hxrNoError},
         {CALL(hxrSetStreamVrtAddr(h, -1, nullptr, 1, 1)), hxrNullPointerErr},
         {CALL(hxrSetStreamVrtAddr(h, -1, "10.1.2.3", 1, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtAddr(h, -4, "10.1.2.3", 1, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtAddr(h, 8, "10.1.2.3", 1, 1)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamVrtAddr(h, 5, "10.1.2.3", 6000, mac)), hxrNoError, fifth},
         {CALL(hxrSetStreamMode(h, 1)),
          hxrNoError,
          {{"localStream", 0.0}, {"slave localStream", 0.0}},
          {1, 1}},
         {CALL(hxrSetStreamMode(h, 1)), hxrNoError},
         {CALL(hxrSetStreamVrtAddr(h, 2, "10.9.8.7", 7000, 0)),
          hxrNoError,
          {{"vrtDestAddress 2", "10.9.8.7"}, {"vrtDestPort 2", 7000.0}},
          {1, 0}}});
    EXPECT_EQ(destinationOf(*units[0], 0), "192.168.2.2:4991");
    EXPECT_EQ(destinationOf(*units[0], 2), "10.9.8.7:7000");
    EXPECT_EQ(destinationOf(*units[1], 1), "10.1.2.3:6000");
    run({{CALL(hxrSetStreamMode(h, 0)),
          hxrNoError,
          {{"localStream", 1.0}, {"slave localStream", 1.0}},
          {2, 2}},
         {CALL(hxrSetStreamLocalAddr(h, -1, 5100)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamLocalAddr(h, 2, 5100)), hxrInvalidParameterErr},
         {CALL(hxrSetStreamLocalAddr(h, 1, 5100)), hxrNoError, {{"slave streamPort", 5100.0}}, {0, 2}},
         {CALL(hxrSetStreamLocalAddr(h, 0, test::controlPort)),
          hxrInvalidConfigurationErr,
          {{"streamPort", double{test::controlPort}}},
          {2, 0}}});
    for (std::uint16_t input = 0; input < 4; ++input) {
        EXPECT_EQ(destinationOf(*units[0], input), host + ":5000");
        EXPECT_EQ(destinationOf(*units[1], input), host + ":5100");
    }
    EXPECT_EQ(device(handle + 1).link->data()->localPort(), 5100);
}

TEST_F(SettingsOfAGroup, SayWhenAUnitCannotBeTold) {
    ASSERT_EQ(hxrSetStreamMode(handle, 1), hxrNoError);
    clock.shortenTimeouts(100);
    units[1]->faults().silenceAfterDatagrams(0);
    EXPECT_EQ(hxrSetStreamMode(handle, 0), hxrConnectionLostErr);
    EXPECT_TRUE(device(handle).localStream);
    EXPECT_FALSE(device(handle + 1).localStream);
    EXPECT_EQ(hxrSetStreamVrtAddr(handle, 7, "10.1.2.3", 4991, 0), hxrConnectionLostErr);
    EXPECT_EQ(device(handle + 1).vrtDestAddress[3], "10.1.2.3");
    EXPECT_EQ(hxrSetStreamLocalAddr(handle, 1, 5100), hxrInvalidConfigurationErr);
}

}  // namespace
}  // namespace hxr
