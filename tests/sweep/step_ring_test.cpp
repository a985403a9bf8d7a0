/// The ring of samples between the link's thread and the transforms.

#include "sweep/step_ring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace hxr {
namespace {

using namespace std::chrono_literals;

/// Steps of so many samples that the ring holds three of them.
constexpr int longStep = 1000;
constexpr int stepsOfLong = 3;

SweepPlan planOf(int steps, int blocksPerStep) {
    SweepPlan plan;
    plan.stepCount = steps;
    plan.blocksPerStep = blocksPerStep;
    return plan;
}

/// Writes blocks that begin and end with their number, and hands them over.
void write(StepRing& ring, int first, int blocks) {
    for (int i = 0; i < blocks; ++i) {
        cf32* const block = ring.writePlace();
        block[0].re = block[samplesPerBlock - 1].im = static_cast<float>(first + i);
        ring.advance();
    }
    ring.publish(blocks);
}

bool holds(const StepRing::Claim& claim, int blocksPerStep) {
    bool asWritten = true;
    for (int i = 0; i < blocksPerStep; ++i) {
        const cf32* const block = claim.samples + std::ptrdiff_t{i} * samplesPerBlock;
        const auto number = static_cast<float>(claim.number * blocksPerStep + i);
        asWritten = asWritten && block[0].re == number && block[samplesPerBlock - 1].im == number;
    }
    return asWritten;
}

/// Starts a wait that must not end before `allow` is called. A wait that ends too soon is noticed if it does so within
/// the pause that it is given; one that ends in time never fails.
template <typename Result>
class Wait {
  public:
    explicit Wait(std::function<Result()> wait)
        : result_(std::async(std::launch::async, [this, wait] {
              Result result = wait();
              early_ = !allowed_;
              return result;
          })) {}

    Wait& allow() {
        result_.wait_for(20ms);
        allowed_ = true;
        return *this;
    }
    Result take() {
        Result result = result_.get();
        EXPECT_FALSE(early_);
        return result;
    }

  private:
    std::atomic<bool> allowed_ = false, early_ = false;
    std::future<Result> result_;
};

TEST(StepRing, StepsComeWholeAndInOrderAlsoBesideASlowClaimer) {
    struct Case {
        int steps, blocksPerStep, blocksAtATime, sweptSteps;
    };
    const Case cases[] = {
        {519, 1, 16, 6000},      // 2441 steps fit
        {519, 10, 128, 600},     // 244 steps
        {4, longStep, 128, 10},  // three steps
        {1, 1180, 77, 7},        // the longest, in handfuls that end anywhere
        {3000, 1, 1, 7000},      // a whole sweep of more than the usual size
    };
    for (const Case& c : cases) {
        StepRing ring(planOf(c.steps, c.blocksPerStep));
        std::atomic<int> claimed = 0, wrong = 0;
        const auto claimAll = [&](int looks) {
            std::int64_t last = -1;
            while (const auto claim = ring.claim()) {
                if (claim->number <= last || claim->step != claim->number) ++wrong;
                last = claim->number;
                for (int i = 0; i < looks; ++i) {
                    if (!holds(*claim, c.blocksPerStep)) ++wrong;
                    std::this_thread::yield();
                }
                ring.release(*claim);
                if (++claimed == c.sweptSteps) ring.stop();
            }
        };
        std::thread fast(claimAll, 1), slow(claimAll, 5);
        for (int written = 0; written < c.sweptSteps * c.blocksPerStep;) {
            const int blocks = std::min(c.blocksAtATime, c.sweptSteps * c.blocksPerStep - written);
            ASSERT_TRUE(ring.waitForRoom(blocks));
            write(ring, written, blocks);
            written += blocks;
        }
        fast.join();
        slow.join();
        EXPECT_EQ(wrong, 0) << c.blocksPerStep;
        EXPECT_EQ(claimed, c.sweptSteps);
    }
}

TEST(StepRing, APartOfAStepIsNotToBeClaimed) {
    StepRing ring(planOf(1, 3));
    write(ring, 0, 2);
    Wait<std::int64_t> claimer([&] { return ring.claim().value().number; });
    claimer.allow();
    write(ring, 2, 1);
    EXPECT_EQ(claimer.take(), 0);
}

TEST(StepRing, RoomCountsFromTheOldestHeldClaim) {
    StepRing ring(planOf(1, longStep));
    for (int step = 0; step < stepsOfLong; ++step) {
        ASSERT_TRUE(ring.waitForRoom(longStep));
        write(ring, step * longStep, longStep);
    }
    const auto first = ring.claim().value(), second = ring.claim().value(), third = ring.claim().value();

    Wait<bool> writer([&] { return ring.waitForRoom(1); });
    ring.release(third);
    ring.release(second);
    writer.allow();
    EXPECT_TRUE(holds(first, longStep));
    ring.release(first);
    EXPECT_TRUE(writer.take());
    EXPECT_TRUE(ring.waitForRoom(stepsOfLong * longStep));
}

TEST(StepRing, SixtyFourClaimsAtMostStandFromTheOldestOn) {
    constexpr int most = 64;
    StepRing ring(planOf(1, 1));
    write(ring, 0, 2 * most);
    const auto oldest = ring.claim().value();
    for (int i = 1; i < most; ++i) ring.release(ring.claim().value());

    Wait<std::int32_t> next([&] { return ring.claim().value().step; });
    next.allow();
    ring.release(oldest);
    EXPECT_EQ(next.take(), most);
}

TEST(StepRing, StopEndsEveryWait) {
    StepRing full(planOf(1, longStep)), empty(planOf(1, 1)), held(planOf(1, 1));
    for (int step = 0; step < stepsOfLong; ++step) write(full, step * longStep, longStep);
    write(held, 0, 100);
    for (int i = 0; i < 64; ++i) held.claim();

    Wait<bool> room([&] { return full.waitForRoom(1); });
    Wait<bool> step([&] { return empty.claim().has_value(); });
    Wait<bool> sameStep([&] { return empty.claim().has_value(); });
    Wait<bool> further([&] { return held.claim().has_value(); });
    for (Wait<bool>* wait : {&room, &step, &sameStep, &further}) wait->allow();
    for (StepRing* ring : {&full, &empty, &held}) ring->stop();
    for (Wait<bool>* wait : {&room, &step, &sameStep, &further}) EXPECT_FALSE(wait->take());

    // Later ones too, whatever there is to claim.
    EXPECT_FALSE(full.claim().has_value());
    EXPECT_FALSE(empty.waitForRoom(1));
}

TEST(StepRing, RestartCountsStepsAnewAndGoesOnWithTheSamples) {
    StepRing ring(planOf(2, longStep));
    for (int step = 0; step < 4; ++step) {
        if (step == 2) ring.restart();
        ASSERT_TRUE(ring.waitForRoom(longStep));
        write(ring, step * longStep, longStep);
        const auto claim = ring.claim().value();
        EXPECT_EQ(claim.step, step % 2);
        EXPECT_TRUE(holds(claim, longStep)) << step;
        ring.release(claim);
    }
}

}  // namespace
}  // namespace hxr
