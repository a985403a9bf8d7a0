#include "device/synthesizer_service.h"

#include <gtest/gtest.h>

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

class SynthesizerService : public testing::Test {
  protected:
    test::TestClock clock;
    ScriptedUnit unit{clock};
    HXRDevice& device = *unit.device;
};

TEST_F(SynthesizerService, LoadsTheSynthesizersThatAreAskedFor) {
    const Words pause = registerWords(0, "05000062 0 0");
    const Words shared = joined({buildSharedLoImage(SharedLoVco::tabled), pause});
    const auto high = [&](int channel) { return joined({buildHighLoImage(channel), pause}); };
    const Words off =
        registerWords(0,
                      "45002500 90002B83 41000081 90002B83 A0002B83 42000081 A0002B83 "
                      "D0002B83 43000081 D0002B83 E0002B83 44000081 E0002B83 4C000000 05002672");
    struct Case {
        bool initShared, initHigh;
        std::vector<Words> packets;  ///< a new one after more than 256 words of images
    };
    const Case cases[] = {
        {false, false, {off, joined({pause, pause, pause, pause})}},
        {true, false, {off, joined({shared, pause, pause, pause, pause})}},
        {false, true, {off, joined({high(0), high(1), high(2)}), high(3)}},
        {true, true, {off, joined({shared, high(0), high(1)}), joined({high(2), high(3)})}},
    };
    for (const auto& [initShared, initHigh, packets] : cases) {
        device.loContext.lowLoReady.fill(true);
        EXPECT_EQ(initFullBandLos(device, initShared, initHigh), hxrNoError);
        std::vector<Words> expected = packets;
        for (Words& packet : expected)
            while (packet.back() == 0) packet.pop_back();
        EXPECT_EQ(unit.takeSent(), expected) << initShared << initHigh;
        EXPECT_EQ(device.loContext.lowLoReady, (std::array{false, false, false, false}));
    }
    unit.control->lostAt = 0;
    EXPECT_EQ(initFullBandLos(device, false, false), hxrConnectionLostErr);
}

TEST_F(SynthesizerService, ReloadsChannelByChannelUpToALostLink) {
    const char* const off[] = {"90002B83 41000081 90002B83 4C000000", "A0002B83 42000081 A0002B83 4C000000",
                               "D0002B83 43000081 D0002B83 4C000000", "E0002B83 44000081 E0002B83 4C000000"};
    for (const std::size_t sends : {4U, 3U}) {
        device.loContext.lowLoReady.fill(true);
        if (sends < 4) unit.control->lostAt = sends - 1;
        const std::size_t pausesBefore = clock.sleeps().size();
        EXPECT_EQ(reInitChannels(device), sends == 4 ? hxrNoError : hxrConnectionLostErr);
        const auto sent = unit.takeSent();
        ASSERT_EQ(sent.size(), sends);
        for (std::size_t i = 0; i < sends; ++i) {
            EXPECT_EQ(sent[i], joined({buildHighLoImage(static_cast<int>(i)), registerWords(0, off[i])}));
            EXPECT_FALSE(device.loContext.lowLoReady[i]);
        }
        const auto pauses = clock.sleeps();
        const std::vector ofThisCall(pauses.begin() + static_cast<std::ptrdiff_t>(pausesBefore),
                                     pauses.end());
        EXPECT_EQ(ofThisCall, std::vector(sends == 4 ? 4 : sends - 1, std::chrono::milliseconds(20)));
    }
}

TEST_F(SynthesizerService, GivesTheLockFlagsOfANewStatus) {
    unit.answer(StatusDatagram().put32(308, 0xFFFFFF00 | 0b0110'1000));
    LockFlags flags{};
    EXPECT_EQ(readLockFlags(device, flags), hxrNoError);
    EXPECT_EQ(flags.first, (std::array{0, 0, 0, 1}));
    EXPECT_EQ(flags.second, (std::array{0, 1, 1, 0}));
    EXPECT_EQ(readLockFlags(device, flags), hxrConnectionLostErr);
}

}  // namespace
}  // namespace hxr
