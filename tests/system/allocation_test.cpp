// The interface without memory: every allocation of a call fails once.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

#include "support/allocation.h"
#include "support/installation.h"
#include "support/process_resources.h"

namespace hxr {
namespace {

using test::openDescriptors;

class Allocation : public test::Installation {};

/// Makes one allocation more of `call` succeed each time, until nothing fails any more.
/// @param afterFailure  looks at what a failure has left
long failEveryAllocation(const std::function<HXRStatus()>& call,
                         const std::function<void(long)>& afterFailure) {
    for (long granted = 0; granted < 3000; ++granted) {
        test::grantAllocations(granted);
        const HXRStatus status = call();
        test::grantAllAllocations();
        if (status == hxrNoError) return granted;
        EXPECT_EQ(status, hxrMemoryAllocationErr) << granted;
        afterFailure(granted);
    }
    ADD_FAILURE() << "it never succeeds";
    return 0;
}

TEST_F(Allocation, FailuresNeverCrossTheInterface) {
    startUnit();
    startUnit();
    // The first connects fill the caches, so that the others are short.
    for (const int unit : {0, 1}) {
        ASSERT_EQ(connect(unit), hxrNoError);
        ASSERT_EQ(hxrCloseDevice(handle), hxrNoError);
    }
    const std::string host = test::hostAddress(), master = test::unitAddress(0), slave = test::unitAddress(1);
    const std::size_t descriptorsBefore = openDescriptors();
    int opened = -1;
    const long ofConnect = failEveryAllocation(
        [&] { return hxrConnectDevice(&opened, host.c_str(), master.c_str(), test::controlPort); },
        [&](long granted) {
            EXPECT_EQ(api::deviceTable().find(0), nullptr) << granted;
            EXPECT_EQ(opened, -1) << granted;
            EXPECT_EQ(openDescriptors(), descriptorsBefore) << granted;
        });
    EXPECT_GT(ofConnect, 50);

    const std::size_t descriptorsOfOne = openDescriptors();
    failEveryAllocation([&] { return hxrPairDevice(opened, host.c_str(), slave.c_str(), test::controlPort); },
                        [&](long granted) {
                            EXPECT_EQ(api::deviceTable().find(1), nullptr) << granted;
                            EXPECT_TRUE(device(opened).slaves.empty()) << granted;
                            EXPECT_EQ(device(opened).channelCount, 4) << granted;
                            EXPECT_EQ(openDescriptors(), descriptorsOfOne) << granted;
                        });

    const std::string file = cacheFile().string();
    test::grantAllocations(0);
    const HXRStatus fan = hxrSetFanEnabled(opened, 1);
    const HXRStatus lowPower = hxrSetLowPowerState(opened);
    const bool loaded = hxrCalLoadFromFile(file.c_str(), device(opened).corrections->image.get());
    test::grantAllAllocations();
    EXPECT_EQ(fan, hxrMemoryAllocationErr);
    EXPECT_EQ(lowPower, hxrMemoryAllocationErr);
    EXPECT_FALSE(loaded);

    // A capture and a readback: what isn't told leaves no trace, so that the next tuning loads the channel's synthesizer.
    std::vector<float> samples(2 * 2048);
    unsigned char byte = 0;
    const auto isUntold = [&](std::size_t channel) {
        return [&, channel](long granted) {
            EXPECT_FALSE(device(opened).loContext.lowLoReady[channel]) << granted;
            EXPECT_EQ(device(opened).lastBand[channel], 0) << granted;
            EXPECT_EQ(device(opened).fullBandConfigured, channel == 2) << granted;
        };
    };
    failEveryAllocation(
        [&] { return hxrAdminGetFullBandIQ(opened, 1, false, 1e9, 0, samples.data(), 1, true, nullptr); },
        isUntold(1));
    failEveryAllocation([&] { return hxrAdminCBBReadback(opened, false, true, 2, 0, byte, byte, byte); },
                        isUntold(2));

    // A slave that is initiated by itself, and a sweep on it through its master.
    ASSERT_EQ(hxrInitiate(1), hxrNoError);
    std::vector<int> enabled(16);
    enabled[5] = 1;
    ASSERT_EQ(hxrSetChannelConfig(opened, enabled.data(), 5), hxrNoError);
    ASSERT_EQ(hxrSetSweepStartStop(opened, 1e9, 1.1e9), hxrNoError);
    ASSERT_EQ(hxrSetSweepCoupling(opened, 1e6, 1e6, 1e-6), hxrNoError);
    const auto isIdle = [&] {
        return !device(opened).initiated && device(opened).sweepEngine == nullptr &&
               device(opened).streamEngine == nullptr;
    };
    failEveryAllocation([&] { return hxrInitiate(opened); },
                        [&](long granted) { EXPECT_TRUE(isIdle()) << granted; });
    ASSERT_EQ(hxrAbort(opened), hxrNoError);

    // A stream of both units, with the host's filter: whatever fails, no unit is left streaming.
    enabled[0] = enabled[6] = 1;  // beside the sweep's
    ASSERT_EQ(hxrSetChannelConfig(opened, enabled.data(), -1), hxrNoError);
    ASSERT_EQ(hxrSetStreamSampleRate(opened, 8), hxrNoError);
    for (const auto& unit : units) forgetWhatWasSent(*unit);
    failEveryAllocation([&] { return hxrInitiate(opened); },
                        [&](long granted) {
                            EXPECT_TRUE(isIdle()) << granted;
                            for (const auto& unit : units) {
                                forgetWhatWasSent(*unit);
                                EXPECT_FALSE(unit->state().streaming) << granted;
                            }
                        });
    ASSERT_EQ(hxrAbort(opened), hxrNoError);
    // The units' clocks were set when they were connected, and never again.
    constexpr std::uint32_t setsTheDate = 0x04010005;
    for (const auto& unit : units) {
        datagramsAt(*unit);
        EXPECT_EQ(std::ranges::count(unit->recording().words(), setsTheDate), 0);
    }

    // The stream's own threads need no memory at all, nor does an abort: not for a stream that units send by themselves.
    std::vector<std::int16_t> received(2 * 100'000);
    std::array<void*, 3> buffers{received.data(), received.data(), received.data()};
    test::starve([](std::string_view thread) { return thread == "Stream Thread"; });
    EXPECT_EQ(hxrInitiate(opened), hxrNoError);
    EXPECT_EQ(hxrStreamRecv(opened, buffers.data(), 100'000, nullptr, 0, nullptr, nullptr, nullptr, 0),
              hxrNoError);
    test::starve(nullptr);
    ASSERT_EQ(hxrAbort(opened), hxrNoError);
    ASSERT_EQ(hxrAbort(1), hxrNoError);
    ASSERT_EQ(hxrSetStreamMode(opened, 1), hxrNoError);
    ASSERT_EQ(hxrInitiate(opened), hxrNoError);
    EXPECT_TRUE(units[1]->state().streaming);
    test::grantAllocations(0);
    const HXRStatus aborted = hxrAbort(opened);
    test::grantAllAllocations();
    EXPECT_EQ(aborted, hxrNoError);
    for (const auto& unit : units) {
        datagramsAt(*unit);
        EXPECT_FALSE(unit->state().streaming);
    }
    enabled[0] = enabled[6] = 0;
    ASSERT_EQ(hxrSetChannelConfig(opened, enabled.data(), 5), hxrNoError);

    ASSERT_EQ(hxrInitiate(opened), hxrNoError);
    failEveryAllocation(
        [&] { return hxrSweepStart(opened); },
        [&](long granted) { EXPECT_EQ(hxrSweepFinish(opened, nullptr), hxrSweepNotStartedErr) << granted; });
    EXPECT_EQ(hxrSweepFinish(opened, nullptr), hxrNoError);
    ASSERT_EQ(hxrSweepStart(opened), hxrNoError);
    test::grantAllocations(0);
    const HXRStatus closed = hxrCloseDevice(opened);
    test::grantAllAllocations();
    EXPECT_EQ(closed, hxrNoError);
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

}  // namespace
}  // namespace hxr
