/// Streams through the public interface, their samples counted, under faults and over several units.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "stream/filter_design.h"
#include "stream/sample_ring.h"
#include "support/streaming.h"

namespace hxr {
namespace {

using sim::MarkerEdge;
using sim::ReplyFault;
using sim::ReplyKind;
using sim::StreamWarning;

constexpr std::int64_t counterLength = std::int64_t{1} << 28;

/// The position that a sample of the units' counters tells.
std::int64_t positionOf(const std::int16_t* sample) {
    const std::int64_t low = static_cast<std::uint16_t>(sample[0]) >> 1,
                       high = static_cast<std::uint16_t>(sample[1]) >> 3;
    return high << 15 | low;
}
int channelOf(const std::int16_t* sample) { return static_cast<std::uint16_t>(sample[1]) >> 1 & 3; }

/// Streams of counters.
class Stream : public test::Streaming {
  protected:
    /// Connects to a group of units that count.
    void connectGroup(int size, sim::UnitOptions options = {}) {
        options.streamContent = sim::StreamContent::counter;
        Streaming::connectGroup(size, options);
    }

    /// Checks that all channels hold the same unbroken run of instants, each under its own channel.
    /// @return the first position, -1 if that isn't so
    std::int64_t firstPosition() const {
        const std::int64_t first = positionOf(samples[0].data());
        for (std::size_t channel = 0; channel < samples.size(); ++channel) {
            for (std::size_t i = 0; i < samples[channel].size(); i += 2) {
                const std::int16_t* const sample = &samples[channel][i];
                const auto expected = (first + static_cast<std::int64_t>(i / 2)) % counterLength;
                if (positionOf(sample) != expected || channelOf(sample) != streaming[channel] % 4) return -1;
            }
        }
        return first;
    }
};

TEST_F(Stream, CountersAreUnbrokenOnEveryMixOfChannels) {
    connectGroup(4);
    struct Case {
        std::vector<int> channels;
        int decimation;
    };
    const Case cases[] = {{{0}, 1},          {{3}, 2},
                          {{0, 1, 2, 3}, 4}, {{1, 2, 3}, 1},
                          {{0, 5}, 2},       {{2, 4, 5, 6, 7, 13}, 1},
                          {{9, 10, 11}, 4},  {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 4}};
    for (const auto& [channels, decimation] : cases) {
        initiate(channels, decimation);
        int count = 0;
        double rate = 0, bandwidth = 0;
        ASSERT_EQ(hxrStreamParameters(handle, &count, &rate, &bandwidth), hxrNoError);
        EXPECT_EQ(count, static_cast<int>(channels.size()));
        EXPECT_EQ(rate, 50e6 / decimation);
        EXPECT_EQ(bandwidth, 40e6 / decimation);

        std::int64_t position = 0;
        std::uint64_t start = 0;
        for (const int wanted : {1, 0, 2047, 2048, 2049, 100'000, 1, 300'000}) {
            const Received received = receive(wanted);
            ASSERT_EQ(received.status, hxrNoError) << channels.size();
            ASSERT_EQ(received.loss, 0);
            ASSERT_EQ(received.left % 2048, (2048 - (position + wanted) % 2048) % 2048);
            if (wanted == 0) continue;
            ASSERT_EQ(firstPosition(), position) << channels.size() << " at " << wanted;
            const auto since =
                static_cast<std::uint64_t>(position) * 20 * static_cast<std::uint64_t>(decimation);
            if (position == 0) start = received.time;
            ASSERT_EQ(received.time, start + since);
            position += wanted;
        }
        EXPECT_EQ(hxrAbort(handle), hxrNoError);
        EXPECT_EQ(hxrStreamParameters(handle, &count, nullptr, nullptr), hxrInvalidConfigurationErr);
    }
}

TEST_F(Stream, EntriesRefuseWhatTheyCanNotDo) {
    connectGroup(1);
    int count = 0;
    std::array<std::int16_t, 64> room{};
    void* buffers[2] = {room.data(), nullptr};
    const auto fetch = [&](int device, void** into, int wanted, double* triggers, int triggerRoom) {
        return hxrStreamRecv(device, into, wanted, nullptr, 0, nullptr, nullptr, triggers, triggerRoom);
    };
    EXPECT_EQ(hxrStreamParameters(handle, &count, nullptr, nullptr), hxrInvalidConfigurationErr);
    EXPECT_EQ(fetch(handle, buffers, 1, nullptr, 0), hxrInvalidConfigurationErr);
    initiate({0, 2});
    EXPECT_EQ(hxrStreamParameters(7, &count, nullptr, nullptr), hxrInvalidDeviceErr);
    EXPECT_EQ(fetch(7, buffers, 1, nullptr, 0), hxrInvalidDeviceErr);
    EXPECT_EQ(fetch(handle, nullptr, 1, nullptr, 0), hxrNullPointerErr);
    EXPECT_EQ(fetch(handle, buffers, 1, nullptr, 0), hxrNullPointerErr);
    buffers[1] = room.data() + 32;
    EXPECT_EQ(fetch(handle, buffers, 1, nullptr, 1), hxrNullPointerErr);
    EXPECT_EQ(fetch(handle, buffers, -1, nullptr, 0), hxrInvalidParameterErr);
    double trigger = 0;
    EXPECT_EQ(fetch(handle, buffers, 1, &trigger, -1), hxrInvalidParameterErr);
    EXPECT_EQ(fetch(handle, nullptr, 0, &trigger, 1), hxrNoError);
    EXPECT_EQ(trigger, -1.0);
    EXPECT_EQ(fetch(handle, buffers, 16, &trigger, 1), hxrNoError);

    // A stream to VRT addresses brings nothing here.
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_EQ(hxrSetStreamMode(handle, 1), hxrNoError);
    initiate({0, 2});
    EXPECT_EQ(fetch(handle, buffers, 1, nullptr, 0), hxrInvalidConfigurationErr);
    float correction = 0;
    EXPECT_EQ(hxrStreamCorrection(handle, 2, &correction), hxrNoError);
    EXPECT_GT(correction, 0);
    EXPECT_TRUE(units[0]->state().streaming);
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
}

TEST_F(Stream, WarningsAreToldOnceOrForGood) {
    Streaming::connectGroup(1);
    struct Case {
        std::uint32_t trailer;
        HXRStatus status;
        bool lasts;
    };
    const Case cases[] = {
        {StreamWarning::overRange, hxrADCOverflow, false},
        {StreamWarning::sampleLoss, hxrUncalData, false},
        {StreamWarning::sampleLoss | StreamWarning::overRange, hxrUncalData, false},
        {StreamWarning::bufferOverflow | StreamWarning::sampleLoss, hxrDDRBufferOverflow, true},
        {0x00003300, hxrNoError, false},  // indicators that aren't enabled
    };
    for (const auto& [trailer, status, lasts] : cases) {
        initiate({1, 2}, 4);
        // Up to eight requests are on their way: once twice as many are answered, all of before has come in.
        const auto answered = [&] { return units[0]->recording().counts().streamReplies; };
        const auto warn = [&](std::uint32_t bits) {
            units[0]->setStreamWarnings(bits);
            for (const auto before = answered(); answered() < before + 2 * 8 * 64 * 2;)
                std::this_thread::yield();
        };
        for (const bool purge : {true, false}) {
            warn(trailer);
            warn(0);
            EXPECT_EQ(receive(1000, purge).status, purge && !lasts ? hxrNoError : status)
                << std::hex << trailer;
            EXPECT_EQ(receive(1000).status, lasts ? status : hxrNoError) << std::hex << trailer;
        }
    }
}

TEST_F(Stream, TriggersStandAtTheirSamples) {
    connectGroup(1);
    for (const unsigned falling : {0U, 1U}) {
        for (const int decimation : {1, 4, 8, 64}) {
            // Pulses of 300 samples, the first edge of each in a batch of its own.
            std::vector<MarkerEdge> edges;
            std::vector<double> expected;
            for (std::uint64_t batch = 1; batch < 12; ++batch) {
                const std::uint64_t rise = batch * 64 * 2048 + 777 * batch;
                edges.insert(edges.end(), {{rise, true}, {rise + 300, false}});
                const int factor = std::max(decimation / 4, 1);
                const double edge = static_cast<double>(rise + (falling ? 300 : 0));
                expected.push_back(factor == 1 ? edge : edge / factor + 32);
            }
            hxrAbort(handle);
            units[0]->setMarkerEdges(edges);
            ASSERT_EQ(hxrSetStreamTriggerEdge(handle, falling), hxrNoError);
            initiate({2, 3}, decimation);
            std::vector<double> found;
            const int count = static_cast<int>(expected.back()) / 7;
            for (int call = 0; call < 8; ++call) {
                for (const double position : receive(count, false, 9).triggers)
                    if (position >= 0) found.push_back(position + call * count);
            }
            EXPECT_EQ(found, expected) << decimation << ' ' << falling;
        }
    }
}

TEST_F(Stream, LateCallerLosesEverythingOnceAndGoesOnCleanly) {
    connectGroup(2);
    initiate({0, 6});
    ASSERT_EQ(receive(10).status, hxrNoError);
    // The units send as fast as they can: the ring runs over while nobody fetches.
    const std::uint64_t start = units[0]->recording().counts().streamReplies;
    while (units[0]->recording().counts().streamReplies < start + 9000) std::this_thread::yield();
    int losses = 0, lossBefore = 0;
    std::int64_t last = 9;
    for (int i = 0; i < 20; ++i) {
        const Received received = receive(100'000, i == 7);
        ASSERT_EQ(received.status, hxrNoError);
        losses += received.loss;
        const std::int64_t first = firstPosition();
        ASSERT_NE(first, -1) << i;
        // What is lost behind the samples of a call is told by that call, and shows in the next.
        EXPECT_TRUE(first == last + 1 || i == 7 || received.loss == 1 || lossBefore == 1) << i;
        lossBefore = received.loss;
        last = first + 99'999;
    }
    EXPECT_GE(losses, 1);
}

TEST_F(Stream, UnitThatFallsSilentDeliversWhatCameAndZerosBehind) {
    sim::UnitOptions options;
    options.streamsInRealTime =
        true;  // until the silence is noticed the other unit doesn't run the ring over
    options.streamPace = 0.1;
    options.streamBufferTurns = 1'000'000;
    connectGroup(2, options);
    struct Case {
        const char* what;
        std::size_t unit, replies;
        std::int64_t least;  ///< samples that come before
    };
    const Case cases[] = {{"master, configured", 0, 2, 0},
                          {"slave, configured", 1, 2, 0},
                          {"master, in its first batch", 0, 50, 0},
                          {"master, under way", 0, 1000, 500'000},
                          {"slave, under way", 1, 1000, 1'000'000}};
    for (const Case& c : cases) {
        units[c.unit]->faults().silenceAfterReplies(c.replies);
        initiate({0, 1, 4}, 2);
        HXRStatus status = hxrNoError;
        std::int64_t position = 0;
        for (; status == hxrNoError; position += 50'000) {
            status = receive(50'000).status;
            ASSERT_TRUE(status != hxrNoError || firstPosition() == position) << c.what;
        }
        EXPECT_EQ(status, hxrConnectionLostErr) << c.what;
        // What is stored is handed out all the same.
        for (; samples[2].back() != 0; position += 50'000)
            ASSERT_EQ(receive(50'000).status, hxrConnectionLostErr) << c.what;
        EXPECT_GE(position, c.least) << c.what;
        EXPECT_EQ(samples[2].back(), 0) << c.what;
        EXPECT_EQ(receive(10).status, hxrConnectionLostErr) << c.what;
        EXPECT_EQ(samples[0], std::vector<std::int16_t>(20, 0)) << c.what;
        EXPECT_EQ(hxrAbort(handle), c.unit == 0 ? hxrConnectionLostErr : hxrNoError) << c.what;

        hxrCloseDevice(handle);
        units[c.unit]->faults().revive();
        ASSERT_EQ(connect(), hxrNoError) << c.what;
        ASSERT_EQ(pair(1), hxrNoError) << c.what;
    }
}

TEST_F(Stream, WhatAUnitHasLostIsMissingOnAllChannelsOfItsGroup) {
    struct Loss {
        const char* what;
        std::function<void(sim::SimulatedUnit&)> cause;
    };
    const auto byTheUnit = [](std::uint64_t frames) {
        return [frames](sim::SimulatedUnit& unit) { unit.loseStreamTurns(frames); };
    };
    const auto onTheWire = [](std::size_t datagrams) {
        return [datagrams](sim::SimulatedUnit& unit) {
            unit.faults().add({.kind = ReplyKind::stream, .skip = 333, .times = datagrams},
                              ReplyFault::lose());
        };
    };
    const Loss losses[] = {{"1 by the unit", byTheUnit(1)},
                           {"7 by the unit", byTheUnit(7)},
                           {"4096 by the unit", byTheUnit(4096)},
                           {"1 on the wire", onTheWire(1)},
                           {"7 on the wire", onTheWire(7)}};
    for (const int decimation : {1, 8}) {
        for (const Loss& loss : losses) {
            SCOPED_TRACE(std::string(loss.what) + ", decimation " + std::to_string(decimation));
            if (handle >= 0) hxrCloseDevice(handle);
            units.clear();
            connectGroup(2);
            initiate({0, 1, 4, 5}, decimation);
            Received received = receive(1000);
            ASSERT_EQ(received.status, hxrNoError);
            const std::uint64_t start = received.time;
            const std::uint64_t nsPerSample = decimation == 1 ? 20 : 160;
            loss.cause(*units[1]);
            HXRStreamStatistics statistics{};
            do {
                received = receive(50'000);
                ASSERT_TRUE(received.status == hxrNoError || received.status == hxrDDRBufferOverflow ||
                            received.status == hxrUncalData);
                statistics.size = sizeof statistics;
                ASSERT_EQ(hxrGetStreamStatistics(handle, 1, &statistics), hxrNoError);
            } while (statistics.samplesLost == 0 ||
                     received.time - start < nsPerSample * (statistics.lastLossPosition + 100'000));
            // Behind the loss, inputs of the two units that hear the same hold the same, at the same time.
            for (int i = 0; i < 4; ++i) {
                received = receive(50'000);
                EXPECT_EQ(samples[0], samples[2]);
                EXPECT_EQ(samples[1], samples[3]);
                if (decimation > 1) continue;
                const std::int64_t first = firstPosition();
                ASSERT_NE(first, -1);
                EXPECT_EQ((received.time - start) / 20 % counterLength, static_cast<std::uint64_t>(first));
            }
        }
    }
}

TEST_F(Stream, UnitThatLostMoreThanTheRingHoldsIsInStepWithItsGroup) {
    sim::UnitOptions options;
    options.streamsInRealTime = true;
    options.streamPace = 0.1;
    options.streamBufferTurns = 1'000'000;
    connectGroup(2, options);
    initiate({0, 4});
    Received received = receive(50'000);
    ASSERT_EQ(received.status, hxrNoError);
    const std::uint64_t start = received.time;
    // Not all at once: a unit that is silent for two seconds counts as lost.
    for (int part = 0; part < 6; ++part) {
        units[1]->loseStreamTurns(SampleRing::capacity / 2048 / 6 + 100);
        received = receive(300'000);
    }
    HXRStreamStatistics statistics{};
    do {
        received = receive(300'000);
        EXPECT_EQ(received.status, hxrDDRBufferOverflow);
        statistics.size = sizeof statistics;
        ASSERT_EQ(hxrGetStreamStatistics(handle, 1, &statistics), hxrNoError);
    } while (statistics.samplesLost < static_cast<std::uint64_t>(SampleRing::capacity) ||
             (received.time - start) / 20 < statistics.lastLossPosition + 1'000'000);
    const std::int64_t first = firstPosition();
    ASSERT_NE(first, -1);
    EXPECT_EQ((received.time - start) / 20 % counterLength, static_cast<std::uint64_t>(first));
}

TEST_F(Stream, DuplicatesAndSwapsLeaveEverySampleInItsPlace) {
    // What is left of a stream in the data socket is not taken for the beginning of the next one.
    connectGroup(1);
    for (const std::size_t at : {300U, 301U, 302U}) {
        for (const bool twice : {true, false}) {
            units[0]->faults().clear();
            units[0]->faults().add({.kind = ReplyKind::stream, .skip = at, .times = 1},
                                   twice ? ReplyFault::duplicate() : ReplyFault::swapWithNext());
            initiate({0, 1, 3});
            const bool swapsFrames = !twice && at % 3 == 2;
            EXPECT_EQ(receive(64 * 2048 * 4).status, swapsFrames ? hxrUncalData : hxrNoError);
            if (!swapsFrames) {
                EXPECT_EQ(firstPosition(), 0) << at;
            }
            HXRStreamStatistics statistics{};
            statistics.size = sizeof statistics;
            ASSERT_EQ(hxrGetStreamStatistics(handle, 0, &statistics), hxrNoError);
            // A packet that comes again behind its frame is as late as one of another frame.
            EXPECT_EQ(statistics.duplicates + statistics.outOfOrder, 1U) << at << twice;
            EXPECT_EQ(statistics.samplesLost, swapsFrames ? 2048U : 0U);
            EXPECT_EQ(hxrAbort(handle), hxrNoError);
        }
    }
}

TEST_F(Stream, StatisticsCountWhatHappenedAtItsPlace) {
    connectGroup(2);
    HXRStreamStatistics statistics{};
    const auto read = [&](int unit) {
        statistics = {};
        statistics.size = sizeof statistics;
        return hxrGetStreamStatistics(handle, unit, &statistics);
    };
    EXPECT_EQ(read(0), hxrInvalidConfigurationErr);
    initiate({0, 1, 6});
    EXPECT_EQ(hxrGetStreamStatistics(handle, 0, nullptr), hxrNullPointerErr);
    EXPECT_EQ(read(2), hxrInvalidParameterErr);
    EXPECT_EQ(read(-1), hxrInvalidParameterErr);
    statistics.size = 7;
    EXPECT_EQ(hxrGetStreamStatistics(handle, 0, &statistics), hxrInvalidParameterErr);

    // A frame of the first unit that loses a packet, of which one datagram in 63 is context.
    hxrAbort(handle);
    units[0]->faults().add({.kind = ReplyKind::stream, .skip = 200, .times = 1}, ReplyFault::lose());
    initiate({0, 1, 6});
    const Received first = receive(64 * 2048 * 10);
    EXPECT_EQ(first.status, hxrUncalData);
    ASSERT_EQ(read(0), hxrNoError);
    EXPECT_EQ(statistics.size, sizeof statistics);
    EXPECT_EQ(statistics.samplesLost, 2048U);
    EXPECT_EQ((statistics.datagrams - statistics.contextPackets) / 2, statistics.samples / 2048 + 1);
    EXPECT_GT(statistics.contextPackets, 10U);
    EXPECT_GT(statistics.longestGapNs, 0U);
    EXPECT_GT(statistics.ringPeak, 0U);
    EXPECT_EQ(statistics.lastLossTime, first.time + 20 * statistics.lastLossPosition);
    const auto lost = static_cast<std::size_t>(statistics.lastLossPosition);
    for (const auto& channel : samples) {
        EXPECT_EQ(positionOf(&channel[2 * (lost - 1)]), statistics.lastLossPosition - 1);
        EXPECT_EQ(positionOf(&channel[2 * lost]), statistics.lastLossPosition + 2048);
    }
    ASSERT_EQ(read(1), hxrNoError);
    EXPECT_EQ(statistics.samplesLost, 0U);
    EXPECT_EQ(statistics.lastLossPosition, ~std::uint64_t{0});
    EXPECT_EQ(statistics.lastLossTime, 0U);

    // An older program knows the first fields only.
    statistics = {};
    statistics.size = 2 * sizeof(std::uint64_t);
    ASSERT_EQ(hxrGetStreamStatistics(handle, 1, &statistics), hxrNoError);
    EXPECT_EQ(statistics.size, 2 * sizeof(std::uint64_t));
    EXPECT_GT(statistics.datagrams, 0U);
    EXPECT_EQ(statistics.contextPackets, 0U);

    // Nobody fetches: the ring runs over. What was counted stays behind the stream's end, and begins anew with the next.
    units[1]->setStreamWarnings(StreamWarning::overRange);
    do {
        ASSERT_EQ(read(1), hxrNoError);
    } while (statistics.overruns == 0 || statistics.adcOverflows == 0);
    EXPECT_GT(statistics.samplesDiscarded, 0U);
    EXPECT_LE(statistics.ringPeak, static_cast<std::uint64_t>(SampleRing::capacity));
    EXPECT_GT(statistics.ringPeak, static_cast<std::uint64_t>(SampleRing::capacity) / 2);
    EXPECT_GE(statistics.lastLossPosition, 64U * 2048 * 10);
    EXPECT_EQ(statistics.lastLossTime, first.time + 20 * statistics.lastLossPosition);
    hxrAbort(handle);
    ASSERT_EQ(read(1), hxrNoError);
    EXPECT_GT(statistics.overruns, 0U);
    units[1]->setStreamWarnings(0);
    initiate({0, 1, 6});
    ASSERT_EQ(read(1), hxrNoError);
    EXPECT_EQ(statistics.overruns + statistics.adcOverflows, 0U);
}

TEST_F(Stream, CallForMoreThanTheRingHoldsIsServedInPieces) {
    sim::UnitOptions options;
    options.streamsInRealTime = true;
    options.streamPace = 0.5;
    options.streamBufferTurns = 1'000'000;
    connectGroup(1, options);
    // The room is there before the stream begins: to make it takes longer than the ring may last.
    constexpr auto count = static_cast<int>(2 * SampleRing::capacity + 5);
    samples.assign(1, std::vector<std::int16_t>(2 * std::size_t{count}));
    void* buffer = samples[0].data();
    initiate({2}, 4);
    int loss = -1;
    EXPECT_EQ(hxrStreamRecv(handle, &buffer, count, nullptr, 0, &loss, nullptr, nullptr, 0), hxrNoError);
    EXPECT_EQ(loss, 0);
    EXPECT_EQ(firstPosition(), 0);
}

TEST_F(Stream, CutPacketsKeepTheRotation) {
    connectGroup(1);
    units[0]->faults().add({.kind = ReplyKind::stream, .skip = 500, .times = 1}, ReplyFault::setLength(19));
    // In the same batch: its warning is told with the samples of the next one at the latest.
    units[0]->faults().add({.kind = ReplyKind::stream, .skip = 520, .times = 1}, ReplyFault::setLength(4000));
    initiate({0, 1, 3}, 1);
    ASSERT_EQ(receive(500'000).status, hxrUncalData);
    EXPECT_EQ(receive(100'000).status, hxrNoError);
    EXPECT_EQ(firstPosition(), 500'000);
}

TEST_F(Stream, AbortAtAnyMomentLeavesTheUnitsInOrder) {
    Streaming::connectGroup(2);
    std::mt19937 random(5);
    for (int round = 0; round < 100; ++round) {
        const std::vector<std::vector<int>> mixes = {{0}, {1, 5}, {4, 6, 7}, {0, 1, 2, 3, 4, 5, 6, 7}};
        initiate(mixes[random() % mixes.size()], 1 << (random() % 5));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        const int count = static_cast<int>(random() % 2 * (random() % 10'000));
        ASSERT_EQ(receive(count).status, hxrNoError);
        ASSERT_EQ(hxrAbort(handle), hxrNoError) << round;
        datagramsAt(*units[0]);
        EXPECT_FALSE(units[0]->state().streaming);
    }
    initiate({0, 7});
    EXPECT_EQ(receive(100'000).status, hxrNoError);
}

TEST_F(Stream, RunsBesideASweepAndStatusReads) {
    sim::UnitOptions options;
    options.streamsInRealTime = true;
    options.streamPace = 0.05;  // units that don't keep pace with each other run the ring over for good
    options.streamBufferTurns = 1'000'000;  // a unit that is slow is late, and loses nothing
    connectGroup(2, std::move(options));
    for (const int focus : {2, 5}) {
        ASSERT_EQ(hxrAbort(handle), hxrNoError);
        ASSERT_GE(hxrSetSweepCoupling(handle, 1e6, 1e6, 1e-6), hxrNoError);
        ASSERT_EQ(hxrSetSweepStartStop(handle, 1e9, 3e9), hxrNoError);
        initiate({0, 1, 7}, 4, focus);
        int points = 0;
        ASSERT_EQ(hxrSweepGetParameters(handle, nullptr, nullptr, nullptr, nullptr, &points), hxrNoError);
        std::jthread sweeping([&](const std::stop_token& stop) {
            std::vector<float> trace(static_cast<std::size_t>(points));
            while (!stop.stop_requested()) {
                const HXRStatus status = hxrGetSweep(handle, trace.data());
                // A status read may have the unit's control endpoint at the moment.
                EXPECT_TRUE(status == hxrNoError || status == hxrSweepAlreadyStartedErr) << status;
            }
        });
        std::int64_t position = 0;
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(receive(20'000).status, hxrNoError);
            const std::int64_t first = firstPosition();
            ASSERT_GE(first,
                      position);  // later, where a status kept this thread so long that the ring ran over
            position = first + 20'000;
            clock.advance(std::chrono::seconds(2));
            int state = 0;
            EXPECT_EQ(hxrGetGPSState(handle, &state), hxrNoError);
            EXPECT_EQ(hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr), hxrNoError);
        }
    }
    EXPECT_EQ(hxrAbort(handle), hxrNoError);
}

/// What a unit's counter gives, full scale 1.
std::complex<double> countedAt(std::int64_t position, int channel) {
    if (position < 0) return 0;
    const auto rail = [](std::int64_t value) { return static_cast<std::int16_t>(value) / 32768.0; };
    return {rail(position << 1), rail(position >> 15 << 3 | channel << 1)};
}

TEST_F(Stream, FloatsAreTheIntegersTimesTheirFactor) {
    connectGroup(1);
    ASSERT_EQ(hxrSetStreamDataType(handle, 1), hxrNoError);
    for (const unsigned fullScale : {1U, 0U}) {
        hxrAbort(handle);
        ASSERT_EQ(hxrSetStreamFullScale(handle, fullScale), hxrNoError);
        initiate({0, 3}, 2);
        ASSERT_EQ(receiveFloats(40'000).status, hxrNoError);
        for (std::size_t channel = 0; channel < 2; ++channel) {
            float factor = 1;
            ASSERT_EQ(hxrStreamCorrection(handle, streaming[channel], &factor), hxrNoError);
            if (fullScale == 1) factor = 1;
            for (std::size_t i = 0; i < floats[channel].size(); i += 2) {
                const double expected = countedAt(static_cast<std::int64_t>(i / 2), 0).real();
                ASSERT_EQ(floats[channel][i], static_cast<float>(expected) * factor) << i;
            }
        }
    }
}

TEST_F(Stream, HostFilterAgreesWithDoublePrecision) {
    connectGroup(1);
    constexpr int count = 300;
    for (const int factor : {2, 4, 8, 16, 32, 64}) {
        const double bandwidth = 0.8 * 12.5e6 / factor;
        const std::vector<cf32> taps = designHostTaps(bandwidth, 4, factor);
        std::vector<std::complex<double>> expected(count);
        for (int n = 0; n < count; ++n) {
            for (std::size_t tap = 0; tap < taps.size(); ++tap)
                expected[static_cast<std::size_t>(n)] +=
                    double{taps[tap].re} * countedAt(n * factor - static_cast<std::int64_t>(tap), 2);
        }
        hxrAbort(handle);
        ASSERT_EQ(hxrSetStreamDataType(handle, 1), hxrNoError);
        ASSERT_EQ(hxrSetStreamFullScale(handle, 1), hxrNoError);
        initiate({1, 2}, 4 * factor);
        ASSERT_EQ(receiveFloats(count).status, hxrNoError);
        hxrAbort(handle);
        ASSERT_EQ(hxrSetStreamDataType(handle, 0), hxrNoError);
        initiate({1, 2}, 4 * factor);
        ASSERT_EQ(receive(count).status, hxrNoError);
        for (std::size_t n = 0; n < count; ++n) {
            EXPECT_NEAR(floats[1][2 * n], expected[n].real(), 2e-5) << factor << ' ' << n;
            EXPECT_NEAR(floats[1][2 * n + 1], expected[n].imag(), 2e-5) << factor << ' ' << n;
            const double rounded = std::clamp(std::nearbyint(32768.0 * floats[1][2 * n]), -32768.0, 32767.0);
            EXPECT_EQ(samples[1][2 * n], rounded) << factor << ' ' << n;
        }
    }
}

}  // namespace
}  // namespace hxr
