/// The generator among what an initiate starts and an abort ends.

#include <gtest/gtest.h>

#include <algorithm>

#include "device/initiate.h"
#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::Words;

class ConfigureGenerator : public testing::Test {
  protected:
    ConfigureGenerator() {
        device.vsgEnabled = true;
        device.lastStatus.update([&](LastStatus& status) { status.lastStatusTicks = clock.monotonicMs(); });
    }

    static constexpr std::uint32_t sixteenSamples = 0x2000000F, generatorOff = 0x51043F27;

    test::TestClock clock;
    test::ScriptedUnit unit{clock};
    HXRDevice& device = *unit.device;
};

TEST_F(ConfigureGenerator, GoesOutBehindTheRouteIfThereIsAPattern) {
    ASSERT_EQ(initiate(device), hxrNoError);
    EXPECT_TRUE(device.vsgConfigured && device.initiated);
    const std::vector<Words> sent = unit.takeSent();
    ASSERT_EQ(sent.size(), 4U);  // route, timebase, pattern, tuning
    EXPECT_EQ(sent[2].front(), sixteenSamples);
    abort(device, IdleLo::keep);
    EXPECT_FALSE(device.vsgConfigured);
    EXPECT_EQ(unit.takeSent().front()[4], generatorOff);

    device.vsgPattern.clear();
    ASSERT_EQ(initiate(device), hxrNoError);
    EXPECT_FALSE(device.vsgConfigured);
    EXPECT_EQ(unit.takeSent().size(), 2U);
}

TEST_F(ConfigureGenerator, LostLinkShowsInTheLinkAlone) {
    unit.control->lostAt = 2;  // the pattern's packet
    EXPECT_EQ(initiate(device), hxrNoError);
    EXPECT_TRUE(device.vsgConfigured);
    EXPECT_EQ(abort(device, IdleLo::off), hxrConnectionLostErr);
    EXPECT_FALSE(device.vsgConfigured);
}

TEST_F(ConfigureGenerator, IsSwitchedOffAgainWhereTheSweepBehindItFails) {
    device.sweepActive = true;
    EXPECT_EQ(initiate(device), hxrInvalidConfigurationErr);
    EXPECT_FALSE(device.vsgConfigured || device.initiated);
    EXPECT_EQ(unit.takeSent().back()[4], generatorOff);
}

}  // namespace
}  // namespace hxr
