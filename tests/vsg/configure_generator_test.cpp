/// The generator among what an initiate starts and an abort ends.

#include <gtest/gtest.h>

#include <algorithm>

#include "device/initiate.h"
#include "support/scripted_unit.h"
#include "vsg/generator_engine.h"

namespace hxr {
namespace {

using test::Words;

class ConfigureGenerator : public testing::Test {
  protected:
    ConfigureGenerator() {
        unit.device->vsgEnabled = true;
        unit.device->lastStatus.update(
            [&](LastStatus& status) { status.lastStatusTicks = clock.monotonicMs(); });
    }

    static bool contains(const std::vector<Words>& packets, std::uint32_t word) {
        return std::ranges::any_of(
            packets, [&](const Words& words) { return std::ranges::find(words, word) != words.end(); });
    }

    static constexpr std::uint32_t sixteenSamples = 0x2000000F, generatorOff = 0x51043F27;

    test::TestClock clock;
    test::ScriptedUnit unit{clock};
    HXRDevice& device = *unit.device;
};

TEST_F(ConfigureGenerator, GoesOutBehindTheRouteAndEndsWithAnAbort) {
    ASSERT_EQ(initiate(device), hxrNoError);
    EXPECT_TRUE(device.vsgConfigured && device.initiated);
    std::vector<Words> sent = unit.takeSent();
    ASSERT_EQ(sent.size(), 4U);  // route, timebase, pattern, tuning
    EXPECT_EQ(sent[2].front(), sixteenSamples);
    EXPECT_EQ(sent[3].back(), 0x4C000000U);

    device.vsgEnabled = false;  // stops nothing by itself
    EXPECT_EQ(abort(device, IdleLo::keep), hxrNoError);
    EXPECT_FALSE(device.vsgConfigured);
    EXPECT_TRUE(contains(unit.takeSent(), generatorOff));
    ASSERT_EQ(initiate(device), hxrNoError);
    EXPECT_FALSE(device.vsgConfigured);
    EXPECT_FALSE(contains(unit.takeSent(), sixteenSamples));
}

TEST_F(ConfigureGenerator, OfAnEmptyPatternDoesNothing) {
    device.vsgPattern.clear();
    ASSERT_EQ(initiate(device), hxrNoError);
    EXPECT_FALSE(device.vsgConfigured);
    EXPECT_EQ(unit.takeSent().size(), 2U);
}

TEST_F(ConfigureGenerator, LostLinkShowsInTheLinkAlone) {
    unit.control->lostAt = 2;  // the pattern's packet
    EXPECT_EQ(initiate(device), hxrNoError);
    EXPECT_TRUE(device.vsgConfigured);
    EXPECT_EQ(device.link->lastStatus(), hxrConnectionLostErr);
    EXPECT_EQ(abort(device, IdleLo::off), hxrConnectionLostErr);
    EXPECT_FALSE(device.vsgConfigured);
}

TEST_F(ConfigureGenerator, IsSwitchedOffAgainWhereTheSweepBehindItFails) {
    device.sweepActive = true;
    device.focusChannel = -1;
    EXPECT_EQ(initiate(device), hxrInvalidConfigurationErr);
    EXPECT_FALSE(device.vsgConfigured || device.initiated);
    const std::vector<Words> sent = unit.takeSent();
    EXPECT_TRUE(contains(sent, sixteenSamples));
    EXPECT_TRUE(contains({sent.back()}, generatorOff));
}

}  // namespace
}  // namespace hxr
