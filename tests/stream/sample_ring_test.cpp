#include "stream/sample_ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

namespace hxr {
namespace {

constexpr std::size_t blockSamples = 2048;
constexpr double nsPerSample = 20;

/// The sample of a channel at a position, different on every channel.
ci16 sampleAt(std::size_t channel, std::int64_t position) {
    return {static_cast<std::int16_t>(position),
            static_cast<std::int16_t>((position >> 16) * 4 + static_cast<int>(channel))};
}

ChannelSettings streaming(const std::vector<std::size_t>& channels, int units) {
    ChannelSettings settings;
    settings.channelCount = 4 * units;
    for (const std::size_t channel : channels) settings.channelEnabled[channel] = true;
    return settings;
}

/// A unit that pushes its counter.
class Unit {
  public:
    Unit(SampleRing& ring, const StreamLayout& layout, std::size_t unit)
        : ring_(ring), layout_(layout), unit_(unit) {}

    void push(std::size_t turns, std::optional<double> trigger = std::nullopt,
              std::uint64_t startTime = 1'000'000) {
        const std::size_t channels = layout_.channelsOfUnit[unit_];
        std::vector<std::vector<ci16>> blocks(channels * turns, std::vector<ci16>(blockSamples));
        std::vector<std::vector<const void*>> places(channels);
        for (std::size_t channel = 0; channel < channels; ++channel) {
            for (std::size_t turn = 0; turn < turns; ++turn) {
                auto& block = blocks[channel * turns + turn];
                for (std::size_t i = 0; i < blockSamples; ++i)
                    block[i] = sampleAt(layout_.firstChannelOfUnit[unit_] + channel,
                                        position_ + static_cast<std::int64_t>(turn * blockSamples + i));
                places[channel].push_back(block.data());
            }
        }
        SampleRing::Blocks all{
            .position = position_,
            .frames = turns,
            .samplesPerFrame = blockSamples,
            .time = startTime + static_cast<std::uint64_t>(static_cast<double>(position_) * nsPerSample),
            .trigger = trigger};
        for (std::size_t channel = 0; channel < channels; ++channel) all.of[channel] = places[channel];
        ring_.push(unit_, all);
        position_ += static_cast<std::int64_t>(turns * blockSamples);
    }

    /// Samples that never come.
    void lose(std::int64_t frames) { position_ += frames * static_cast<std::int64_t>(blockSamples); }

  private:
    SampleRing& ring_;
    const StreamLayout& layout_;
    std::size_t unit_;
    std::int64_t position_ = 0;
};

/// Pulls until so many samples are there, or fewer where no more will come.
struct Reader {
    Reader(SampleRing& source, const StreamLayout& layout) : ring(source), channels(layout.channelCount) {}

    SampleRing::Pulled pull(std::int64_t wanted, std::span<double> triggers = {}) {
        samples.assign(channels, std::vector<ci16>(static_cast<std::size_t>(wanted)));
        std::vector<void*> buffers;
        for (auto& channel : samples) buffers.push_back(channel.data());
        return ring.pull(wanted, {}, {buffers, 0}, triggers);
    }

    /// Pulls until nothing is left, and tells which frames came, whole or in parts.
    std::vector<std::int64_t> framesLeft() {
        std::vector<std::int64_t> frames;
        while (ring.available() > 0) {
            const auto pulled = pull(blockSamples / 2);
            const auto position = static_cast<std::int64_t>(pulled.time - 1'000'000) / 20;
            EXPECT_TRUE(holds(position, pulled.samples)) << position;
            if (position % static_cast<std::int64_t>(blockSamples) == 0)
                frames.push_back(position / static_cast<std::int64_t>(blockSamples));
        }
        return frames;
    }

    /// Whether all channels hold the instants from a position on.
    bool holds(std::int64_t first, std::int64_t count) const {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            for (std::int64_t i = 0; i < count; ++i) {
                const ci16 expected = sampleAt(channel, first + i),
                           got = samples[channel][static_cast<std::size_t>(i)];
                if (got.re != expected.re || got.im != expected.im) return false;
            }
        }
        return true;
    }

    SampleRing& ring;
    std::size_t channels;
    std::vector<std::vector<ci16>> samples;
};

TEST(SampleRing, GivesTimesAndTriggersOfWhatItGives) {
    const StreamLayout layout(streaming({1, 2}, 1));
    SampleRing ring(layout, false, nsPerSample);
    Unit unit(ring, layout, 0);
    Reader reader(ring, layout);
    unit.push(2, 100.0);
    unit.push(1, 2000.5);
    unit.push(3, 6000.0);
    EXPECT_EQ(ring.available(), 6 * 2048);

    std::array<double, 4> triggers{};
    auto pulled = reader.pull(5000, triggers);
    EXPECT_EQ(pulled.samples, 5000);
    EXPECT_EQ(pulled.time, 1'000'000U);
    ASSERT_EQ(pulled.triggers, 1U);
    EXPECT_EQ(triggers[0], 100);
    EXPECT_TRUE(reader.holds(0, 5000));

    pulled = reader.pull(3000, triggers);
    EXPECT_EQ(pulled.time, 1'100'000U);
    ASSERT_EQ(pulled.triggers, 1U);
    EXPECT_EQ(triggers[0], 2 * 2048 + 2000.5 - 5000);
    pulled = reader.pull(1 << 20, std::span(triggers).first(0));  // no room: the trigger is lost
    EXPECT_EQ(pulled.samples, 6 * 2048 - 8000);
    EXPECT_EQ(pulled.triggers, 0U);
    EXPECT_TRUE(reader.holds(8000, pulled.samples));

    // The unit's clock may be set anew: what is stored is dated by it.
    unit.push(1);
    unit.push(1, std::nullopt, 5'000'000);
    EXPECT_EQ(reader.pull(10).time, 5'000'000U + 6 * 2048 * 20);
    ring.purge();
    EXPECT_EQ(ring.available(), 0);
    EXPECT_FALSE(ring.takeOverflow());
    unit.push(1, 7.0, 5'000'000);
    EXPECT_EQ(reader.pull(10, triggers).time, 5'000'000U + 8 * 2048 * 20);
    EXPECT_EQ(triggers[0], 7);

    // What there is no room for is lost, what lies behind what is pulled waits, and a purge takes it.
    for (const double place : {1.0, 2.0, 3.0}) unit.push(1, place);
    pulled = reader.pull(2 * 2048 - 10 + 100, std::span(triggers).first(1));
    ASSERT_EQ(pulled.triggers, 1U);
    EXPECT_EQ(triggers[0], 2048 - 10 + 1);
    ring.purge();
    unit.push(1, 4.0);
    ASSERT_EQ(reader.pull(2048, triggers).triggers, 1U);
    EXPECT_EQ(triggers[0], 4);
}

TEST(SampleRing, FirstUnitThatStreamsSetsTheClock) {
    const StreamLayout layout(streaming({5, 8}, 3));
    SampleRing ring(layout, false, nsPerSample);
    Unit second(ring, layout, 1), third(ring, layout, 2);
    Reader reader(ring, layout);
    third.push(2, 50.0, 9'000'000);
    second.push(1, 60.0);
    std::array<double, 2> triggers{};
    const auto pulled = reader.pull(4096, triggers);
    EXPECT_EQ(pulled.samples, 2048);
    EXPECT_EQ(pulled.time, 1'000'000U);
    ASSERT_EQ(pulled.triggers, 1U);
    EXPECT_EQ(triggers[0], 60);
}

TEST(SampleRing, GoesRoundWithoutASeam) {
    const StreamLayout layout(streaming({0, 3}, 1));
    SampleRing ring(layout, false, nsPerSample);
    Unit unit(ring, layout, 0);
    Reader reader(ring, layout);
    constexpr std::int64_t apart = 100'003;  // no divisor of the ring's length
    for (std::int64_t position = 0; position < SampleRing::capacity + 3 * apart; position += apart) {
        while (ring.available() < apart) unit.push(64);
        ASSERT_EQ(reader.pull(apart).samples, apart);
        if (position > SampleRing::capacity - 2 * apart) {
            ASSERT_TRUE(reader.holds(position, apart)) << position;
        }
    }
    EXPECT_FALSE(ring.takeOverflow());
}

TEST(SampleRing, ConvertsToWhatIsAskedFor) {
    const StreamLayout layout(streaming({0}, 1));
    const ci16 integers[2] = {{16384, -32768}, {-3, 32767}};
    const cf32 floats[4] = {{0.5F, -1.0F}, {1.0F, 0.25F / 32768}, {-2.0F, 1.5F / 32768}, {0, 2.5F / 32768}};
    for (const bool stored : {false, true}) {
        SampleRing ring(layout, stored, nsPerSample);
        const void* const block = stored ? static_cast<const void*>(floats) : integers;
        const std::size_t count = stored ? 4 : 2;
        SampleFormat format;
        format.scale[0] = 0.5F;
        std::int64_t position = 0;
        for (const bool wanted : {false, true}) {
            SampleRing::Blocks blocks{.position = position, .frames = 1, .samplesPerFrame = count};
            position += static_cast<std::int64_t>(count);
            blocks.of[0] = {&block, 1};
            ring.push(0, blocks);
            format.floats = wanted;
            cf32 out[4];
            void* buffer = out;
            ASSERT_EQ(ring.pull(8, format, {{&buffer, 1}, 0}, {}).samples, static_cast<int>(count));
            std::array<std::int16_t, 8> codes;
            std::memcpy(codes.data(), out, sizeof codes);
            if (wanted) {
                EXPECT_EQ(out[0].re, 0.25F);
                EXPECT_EQ(out[0].im, -0.5F);
            } else if (stored) {
                EXPECT_EQ(codes, (std::array<std::int16_t, 8>{16384, -32768, 32767, 0, -32768, 2, 0, 2}));
            } else {
                EXPECT_TRUE(codes[0] == 16384 && codes[1] == -32768 && codes[2] == -3 && codes[3] == 32767);
            }
        }
    }
}

TEST(SampleRing, LosesEverythingAtOnceWhenItIsNotReadInTime) {
    const StreamLayout layout(streaming({0}, 1));
    SampleRing ring(layout, false, nsPerSample);
    Unit unit(ring, layout, 0);
    Reader reader(ring, layout);
    constexpr std::int64_t batch = 64 * 2048;
    unit.push(64);
    EXPECT_EQ(reader.pull(1000).samples, 1000);
    std::array<double, 2> triggers{};
    for (std::int64_t stored = batch - 1000; stored + batch < SampleRing::capacity; stored += batch)
        unit.push(64, 3.0);
    EXPECT_FALSE(ring.takeOverflow());
    const std::int64_t kept = ring.available();
    unit.push(64, 5.0);
    ring.purge();  // doesn't hide the loss
    unit.push(64, 5.0);
    EXPECT_TRUE(ring.takeOverflow());
    EXPECT_FALSE(ring.takeOverflow());
    EXPECT_EQ(ring.available(), batch);
    const auto pulled = reader.pull(2048, triggers);
    const std::int64_t first = 1000 + kept + batch;
    EXPECT_TRUE(reader.holds(first, 2048));
    EXPECT_EQ(pulled.time, 1'000'000U + static_cast<std::uint64_t>(first) * 20);
    ASSERT_EQ(pulled.triggers, 1U);
    EXPECT_EQ(triggers[0], 5);
}

TEST(SampleRing, WhatOneUnitHasLostAllHaveLost) {
    const StreamLayout layout(streaming({0, 4}, 2));
    SampleRing ring(layout, false, nsPerSample);
    Unit first(ring, layout, 0), second(ring, layout, 1);
    Reader reader(ring, layout);
    std::array<double, 2> triggers{};
    // Gaps that lie apart, meet and overlap: frames 2, 5 and 6 on the one, 6, 7, and 9 on the other unit.
    first.push(2);
    first.lose(1);
    first.push(2);
    first.lose(2);
    first.push(3, 3000.0);
    second.push(6);
    EXPECT_EQ(ring.available(), 4 * 2048);
    second.lose(2);
    second.push(1, 50.0);
    second.lose(1);
    second.push(2);
    EXPECT_EQ(ring.available(), 5 * 2048);
    EXPECT_EQ(reader.framesLeft(), (std::vector<std::int64_t>{0, 1, 3, 4, 8}));
    // A trigger in a frame that another unit has lost goes with it, one behind stands at its sample.
    first.push(2, 2048.0 + 7);
    EXPECT_EQ(reader.pull(blockSamples, triggers).triggers, 0U);
    first.push(1, 20.0);
    second.push(2);
    EXPECT_EQ(reader.pull(blockSamples, triggers).triggers, 1U);
    EXPECT_EQ(triggers[0], 7);
}

TEST(SampleRing, GapLongerThanTheRingDiscardsOnlyWhatIsStored) {
    constexpr std::int64_t longer = SampleRing::capacity / 2048 + 100;
    for (const bool stored : {false, true}) {
        const StreamLayout layout(streaming({0}, 1));
        SampleRing ring(layout, false, nsPerSample);
        Unit unit(ring, layout, 0);
        Reader reader(ring, layout);
        unit.push(10);
        if (!stored) {
            EXPECT_EQ(reader.framesLeft().size(), 10U);
        }
        unit.lose(longer);
        unit.push(2);
        EXPECT_EQ(ring.takeOverflow(), stored);
        EXPECT_EQ(ring.counts().overruns, stored ? 1U : 0U);
        EXPECT_EQ(ring.counts().discarded, stored ? 10U * 2048 : 0U);
        EXPECT_EQ(ring.counts().lastOverrun, stored ? 0 : -1);
        EXPECT_EQ(ring.counts().peak, 10U * 2048);
        EXPECT_EQ(reader.framesLeft(), (std::vector<std::int64_t>{longer + 10, longer + 11}));
    }
}

TEST(SampleRing, UnitWhoseClockIsSetGoesOnBesideItsGroup) {
    const StreamLayout layout(streaming({0, 4}, 2));
    SampleRing ring(layout, false, nsPerSample);
    Unit first(ring, layout, 0), second(ring, layout, 1);
    first.push(10);
    second.push(8);
    EXPECT_EQ(ring.available(), 8 * 2048);
    second.lose(SampleRing::capacity / 2048 + 100);  // by its time stamps
    second.push(5);
    first.push(5);
    EXPECT_FALSE(ring.takeOverflow());
    EXPECT_EQ(ring.available(), 13 * 2048);  // two frames are lost
}

TEST(SampleRing, UnitsStayAlignedThroughPurgesAndOverrunsTwoThreads) {
    // Two channels of the first unit, one of the third; the second doesn't stream.
    const StreamLayout layout(streaming({0, 2, 9}, 3));
    SampleRing ring(layout, false, nsPerSample);
    std::atomic<bool> running = true;
    std::array<std::atomic<std::int64_t>, 3> turns{};
    const auto worker = [&](std::size_t unit, std::size_t other, unsigned seed) {
        std::mt19937 random(seed);
        Unit source(ring, layout, unit);
        while (running) {
            // Units have one clock; only their packets come at different moments.
            if (turns[unit] > turns[other] + 500) {
                std::this_thread::yield();
                continue;
            }
            const std::size_t count = 1 + random() % 64;
            source.push(count);
            turns[unit] += static_cast<std::int64_t>(count);
            if (random() % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
        }
        ring.end();
    };
    std::thread first(worker, 0, 2, 1), third(worker, 2, 0, 2);
    Reader reader(ring, layout);
    std::mt19937 random(3);
    std::int64_t last = -1;
    for (int round = 0; round < 100; ++round) {
        if (random() % 10 == 0) ring.purge();
        // Once nothing is pulled for so long that all is lost.
        while (round == 50 && !ring.takeOverflow()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_TRUE(ring.waitForSamples());
        const auto pulled = reader.pull(1 + static_cast<std::int64_t>(random() % 100'000));
        if (pulled.samples == 0) continue;
        const auto position = static_cast<std::int64_t>(pulled.time - 1'000'000) / 20;
        ASSERT_GT(position, last) << round;
        ASSERT_TRUE(reader.holds(position, pulled.samples)) << round;
        last = position + pulled.samples - 1;
    }
    running = false;
    first.join();
    third.join();
    while (ring.waitForSamples()) reader.pull(1 << 20);
}

}  // namespace
}  // namespace hxr
