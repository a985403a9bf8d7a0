/// Sweeps through the public interface, over the wire and under faults on it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "support/installation.h"

namespace hxr {
namespace {

using sim::ReplyFault;
using sim::ReplyKind;
using test::Installation;

class Sweep : public Installation {
  protected:
    Sweep() {
        startUnit();
        EXPECT_EQ(connect(), hxrNoError);
    }

    /// Initiates a sweep of one channel and gives its trace room.
    void configure(double start, double stop, double rbw, double vbw, int channel = 0) {
        hxrAbort(handle);
        std::vector<int> enabled(16);
        enabled[static_cast<std::size_t>(channel)] = 1;
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), channel), hxrNoError);
        ASSERT_GE(hxrSetSweepCoupling(handle, rbw, vbw, 1e-6), 0);
        ASSERT_EQ(hxrSetSweepStartStop(handle, start, stop), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        int points = 0;
        ASSERT_EQ(hxrSweepGetParameters(handle, nullptr, nullptr, nullptr, nullptr, &points), hxrNoError);
        trace.assign(static_cast<std::size_t>(points), 1234.0F);
    }

    /// Whether the trace is that of a receiver that hears nothing.
    bool isSilent() const {
        return std::ranges::all_of(trace, [](float level) { return std::isinf(level) && level < 0; });
    }

    std::vector<float> trace;
};

TEST_F(Sweep, EntriesRefuseWhatTheStateForbids) {
    EXPECT_EQ(hxrSweepStart(handle), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSweepFinish(handle, nullptr), hxrSweepNotStartedErr);
    EXPECT_EQ(hxrSweepGetParameters(handle, nullptr, nullptr, nullptr, nullptr, nullptr),
              hxrInvalidConfigurationErr);
    for (const int none : {-1, 1, 4}) {
        EXPECT_EQ(hxrSweepStart(none), hxrInvalidDeviceErr);
        EXPECT_EQ(hxrSweepFinish(none, nullptr), hxrInvalidDeviceErr);
        EXPECT_EQ(hxrGetSweep(none, nullptr), hxrInvalidDeviceErr);
        EXPECT_EQ(hxrSweepGetParameters(none, nullptr, nullptr, nullptr, nullptr, nullptr),
                  hxrInvalidDeviceErr);
    }

    configure(1e9, 1.1e9, 100e3, 100e3);
    EXPECT_EQ(hxrSweepFinish(handle, trace.data()), hxrSweepNotStartedErr);
    EXPECT_EQ(hxrSweepStart(handle), hxrNoError);
    EXPECT_EQ(hxrSweepStart(handle), hxrSweepAlreadyStartedErr);
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrSweepAlreadyStartedErr);
    HXRStatus finished = hxrInvalidDeviceErr;
    std::thread([&] { finished = hxrSweepFinish(handle, trace.data()); }).join();
    EXPECT_EQ(finished, hxrNoError);
    EXPECT_TRUE(isSilent());
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrInvalidConfigurationErr);
}

TEST_F(Sweep, PlansOfEverySizeRunAgainAndAgain) {
    struct Plan {
        const char* what;
        double start, stop, rbw, vbw;
        int sweeps;
    };
    const Plan plans[] = {
        {"one record of one block", 1e9, 1.001e9, 1e6, 1e6, 1000},
        {"all records", 100e3, 20e9, 1e6, 1e6, 2},
        {"records beyond a post of receives", 1e9, 1.1e9, 1e6, 5e3, 3},
        {"records of the most blocks, which meet in one post", 1e9, 1.3e9, 100.01, 100, 1},
    };
    for (const Plan& plan : plans) {
        configure(plan.start, plan.stop, plan.rbw, plan.vbw);
        for (int i = 0; i < plan.sweeps; ++i) {
            std::fill(trace.begin(), trace.end(), 1.0F);
            ASSERT_EQ(hxrGetSweep(handle, i % 2 == 0 ? trace.data() : nullptr), hxrNoError)
                << plan.what << ' ' << i;
            ASSERT_TRUE(i % 2 != 0 || isSilent()) << plan.what;
        }
    }
}

TEST_F(Sweep, LastStatusDecidesWhatAFinishSays) {
    struct Case {
        const char* what;
        std::function<void(sim::Health&)> change;
        HXRStatus status;
    };
    const Case cases[] = {
        {"overflow on the channel", [](sim::Health& health) { health.adcOverflow = 1; }, hxrADCOverflow},
        {"overflow on another", [](sim::Health& health) { health.adcOverflow = 14; }, hxrNoError},
        {"temperature", [](sim::Health& health) { health.temperatureA += 5; }, hxrTempDriftWarning},
        {"clocks", [](sim::Health& health) { health.clockStatus = 0; }, hxrADCAlignmentErr},
    };
    for (const Case& c : cases) {
        const sim::Health healthy = units[0]->health();
        configure(1e9, 1.1e9, 1e6, 1e6);
        units[0]->changeHealth(c.change);
        EXPECT_EQ(hxrGetSweep(handle, trace.data()), c.status) << c.what;
        EXPECT_TRUE(isSilent()) << c.what;
        units[0]->setHealth(healthy);
    }
    configure(1e9, 1.1e9, 1e6, 1e6);
    units[0]->faults().add({.kind = ReplyKind::status}, ReplyFault::setMagic(0));
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrDataSyncErr);
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrNoError);
}

TEST_F(Sweep, LostReplyEndsTheLinkAndNeverHangs) {
    clock.shortenTimeouts(40);
    for (const std::size_t lost : {0U, 300U, 518U}) {  // of 519 blocks
        configure(100e3, 20e9, 1e6, 1e6);
        units[0]->faults().add({.kind = ReplyKind::samples, .skip = lost}, ReplyFault::lose());
        EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrConnectionLostErr) << lost;
        EXPECT_TRUE(isSilent());
        EXPECT_EQ(hxrSweepStart(handle), hxrNoError);
        EXPECT_EQ(hxrSweepFinish(handle, trace.data()), hxrConnectionLostErr);
        EXPECT_EQ(hxrAbort(handle), hxrConnectionLostErr);
        EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
        EXPECT_EQ(connect(), hxrNoError);
    }
}

TEST_F(Sweep, AbortAtAnyMomentLeavesTheLinkInOrder) {
    std::mt19937 generator(11);
    float supply = 0;
    for (int round = 0; round < 100; ++round) {
        // Long and short records: whole posts in flight, and posts that two packets share.
        configure(100e3, 6e9, round % 2 == 0 ? 1e6 : 30e3, round % 4 < 2 ? 30e3 : 3e3);
        ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
        std::this_thread::sleep_for(std::chrono::microseconds(generator() % 8000));
        ASSERT_EQ(hxrAbort(handle), hxrNoError) << round;
        ASSERT_EQ(hxrSweepFinish(handle, nullptr), hxrSweepNotStartedErr);

        clock.advance(std::chrono::seconds(2));
        ASSERT_EQ(hxrGetDeviceDiagnostics(handle, &supply, nullptr, nullptr), hxrNoError) << round;
        ASSERT_NEAR(supply, units[0]->health().supplyVolts, 0.02) << round;
    }
    configure(1e9, 1.2e9, 1e6, 1e6);
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrNoError);
    EXPECT_TRUE(isSilent());
}

TEST_F(Sweep, StatusAtItsEndMovesTheTimebaseWhileTheCallerLooks) {
    configure(1e9, 1.1e9, 1e6, 1e6);
    std::uint16_t tune = 0, tuneBefore = 0;
    for (int round = 0; round < 20; ++round) {
        units[0]->changeHealth([&](sim::Health& health) {
            health.disciplined = true;
            health.timebaseReadback = static_cast<std::uint16_t>(0x9000 + 100 * round);
        });
        ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
        for (int look = 0; look < 100; ++look) {
            std::uint64_t time = 0;
            EXPECT_EQ(hxrAdminGetCoarseTuneVal(handle, &tune), hxrNoError);
            EXPECT_EQ(hxrGetGPSHoldoverInfo(handle, nullptr, &time), hxrNoError);
            EXPECT_EQ(hxrGetGPSInfo(handle, 1, nullptr, &time, nullptr, nullptr, nullptr), hxrNoError);
        }
        EXPECT_EQ(hxrSweepFinish(handle, trace.data()), hxrNoError);
        EXPECT_EQ(hxrAdminGetCoarseTuneVal(handle, &tune), hxrNoError);
        EXPECT_TRUE(round == 0 || tune == tuneBefore + 100) << round;
        tuneBefore = tune;
    }
}

TEST_F(Sweep, ControlEndpointIsItsOwnUntilItsEnd) {
    configure(1e9, 1.6e9, 1e6, 1e6);  // 17 packets: one more than are out at a time
    units[0]->changeHealth([](sim::Health& health) { health.firstLockFlags = 5; });
    std::array<int, 4> first{}, second{};
    EXPECT_EQ(hxrAdminGetLOLockFlags(handle, first.data(), nullptr), hxrNoError);
    EXPECT_EQ(first, (std::array{1, 0, 1, 0}));

    units[0]->changeHealth([](sim::Health& health) { health.firstLockFlags = 10; });
    ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
    EXPECT_EQ(hxrAdminGetLOLockFlags(handle, first.data(), second.data()), hxrNoError);
    EXPECT_EQ(first, (std::array{1, 0, 1, 0}));  // of the last status
    EXPECT_EQ(hxrAdminInitFullBandLOs(handle, true, true), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrAdminReInitChans(handle), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrSweepFinish(handle, trace.data()), hxrNoError);
    EXPECT_TRUE(isSilent());

    // The next user of the endpoint takes the slots that the sweep has just left.
    for (int round = 0; round < 200; ++round) {
        int state = 0;
        ASSERT_EQ(hxrGetSweep(handle, trace.data()), hxrNoError) << round;
        ASSERT_EQ(hxrGetGPSState(handle, &state), hxrNoError) << round;
    }
}

TEST_F(Sweep, ChannelOfASlaveSweepsOnItsUnit) {
    startUnit();
    ASSERT_EQ(pair(1), hxrNoError);
    configure(1e9, 1.1e9, 1e6, 1e6, 6);
    forgetWhatWasSent(*units[0]);
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrNoError);
    EXPECT_EQ(datagramsAt(*units[0]), 0U);
    EXPECT_TRUE(units[1]->tuning(2).loHz);
    units[1]->changeHealth([](sim::Health& health) { health.adcOverflow = 1 << 2; });
    EXPECT_EQ(hxrGetSweep(handle, trace.data()), hxrADCOverflow);

    // The master's control endpoint is free: its health can be asked for.
    ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
    clock.advance(std::chrono::seconds(2));
    const std::size_t before = units[0]->recording().counts().packets;
    EXPECT_EQ(hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr), hxrNoError);
    EXPECT_EQ(units[0]->recording().counts().packets, before + 1);
    EXPECT_EQ(hxrSweepFinish(handle, nullptr), hxrADCOverflow);
}

}  // namespace
}  // namespace hxr
