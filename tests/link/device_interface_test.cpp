#include "link/device_interface.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/scripted_endpoint.h"
#include "support/temporary_folder.h"
#include "support/test_clock.h"

namespace hxr {
namespace {

using test::ScriptedEndpoint;

class Link : public testing::Test {
  protected:
    CommandList packets(int count) {
        CommandList list;
        for (int i = 0; i < count; ++i) {
            list.beginPacket();
            list.append(static_cast<std::uint32_t>(i + 1));
        }
        return list;
    }

    /// Opens the control endpoint, as an attach does that then finds no unit.
    void openControl() { link.attach(claim(), "10.0.0.1", "10.0.0.2", 5000); }

    ControlClaim claim() { return link.claimControl(EndpointOwner::entry); }

    test::TestClock clock;
    test::TemporaryFolder folder;
    ScriptedEndpoint* const control =
        new ScriptedEndpoint;                             // NOLINT: owned by the link, looked at by the tests
    ScriptedEndpoint* const data = new ScriptedEndpoint;  // NOLINT
    DeviceInterface link{std::unique_ptr<UDPDevice>(control), std::unique_ptr<UDPDevice>(data),
                         CalFolder(folder.path(), folder.path()), clock};
};

TEST_F(Link, SendsWholePacketsInOrder) {
    CommandList cleared = packets(2);
    cleared.clear();
    EXPECT_TRUE(link.sendList(claim(), cleared));
    EXPECT_TRUE(control->sent.empty());
    CommandList empty;
    empty.beginPacket();
    EXPECT_TRUE(link.sendList(claim(), empty));
    EXPECT_TRUE(link.sendList(claim(), packets(3)));
    ASSERT_EQ(control->sent.size(), 4U);
    EXPECT_EQ(control->sent[0], std::vector<std::uint32_t>(512, 0));
    EXPECT_EQ(control->sent[3][0], 3U);
}

TEST_F(Link, StopsAtTheFirstPacketThatFails) {
    control->shortSend = 1;
    EXPECT_FALSE(link.sendList(claim(), packets(3)));
    EXPECT_EQ(control->sent.size(), 2U);
    EXPECT_EQ(link.lastStatus(), hxrConnectionLostErr);

    // The status stays, also if a later send would do.
    EXPECT_TRUE(link.sendList(claim(), packets(1)));
    EXPECT_EQ(link.lastStatus(), hxrConnectionLostErr);
}

TEST_F(Link, CountsAPacketAsFailedOnALostEndpoint) {
    control->lostAt = 0;
    EXPECT_FALSE(link.sendList(claim(), packets(2)));
    EXPECT_EQ(control->sent.size(), 1U);
    EXPECT_EQ(link.lastStatus(), hxrConnectionLostErr);
}

TEST_F(Link, TouchesNothingForANullBuffer) {
    EXPECT_FALSE(link.readStatus(claim(), nullptr));
    EXPECT_FALSE(link.readFlashPage(claim(), 128, nullptr));
    EXPECT_TRUE(control->sent.empty());
    EXPECT_TRUE(control->calls.empty());
    EXPECT_EQ(link.lastStatus(), hxrNoError);
}

TEST_F(Link, PostsBeforeItAsksAndWaitsFourSeconds) {
    const std::vector<std::string> request{"post 0 1 4000", "send 0", "wait 0", "collect 0"};
    StatusRecord record;
    link.readStatus(claim(), &record);
    EXPECT_EQ(control->calls, request);
    control->calls.clear();
    std::vector<std::byte> page(flashPageBytes, std::byte{1});
    EXPECT_FALSE(link.readFlashPage(claim(), 128, page.data()));
    EXPECT_EQ(control->calls, request);
    EXPECT_EQ(page, std::vector(flashPageBytes, std::byte{1}));
}

TEST_F(Link, LeavesTheRecordAsItWasWhenNoReplyComes) {
    const std::vector<std::byte> bytes(320, std::byte{0x55});
    StatusRecord record(bytes);
    const StatusRecord before = record;
    EXPECT_FALSE(link.readStatus(claim(), &record));
    EXPECT_EQ(record, before);
    EXPECT_EQ(link.lastStatus(), hxrConnectionLostErr);
}

TEST_F(Link, TurnsThePagesWordsRound) {
    std::vector<std::byte> page(flashPageBytes, std::byte{0xEE});
    const auto answer = [&](std::size_t size) {
        std::vector<std::byte> datagram(size);
        for (std::size_t i = 20; i < std::min<std::size_t>(size, 8212); ++i)
            datagram[i] = static_cast<std::byte>(i - 20);
        control->replies.push_back(datagram);
    };
    for (const std::size_t wrongSize : {0U, 20U, 8215U, 8217U, 9000U}) {
        answer(wrongSize);
        EXPECT_FALSE(link.readFlashPage(claim(), 200, page.data()));
        EXPECT_EQ(page, std::vector(flashPageBytes, std::byte{0xEE})) << wrongSize;
        EXPECT_EQ(link.lastStatus(), hxrNoError);
    }
    answer(8216);
    EXPECT_TRUE(link.readFlashPage(claim(), 200, page.data()));
    for (std::size_t i = 0; i < page.size(); i += 4) {
        for (std::size_t b = 0; b < 4; ++b) ASSERT_EQ(page[i + b], static_cast<std::byte>(i + 3 - b));
    }
    EXPECT_EQ(control->sent.back()[0], 0x1E0000C8U);
    EXPECT_EQ(control->sent.back()[1], 0x12000001U);
}

TEST_F(Link, OpensTheDataSocketBesideTheControlSocket) {
    EXPECT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), 4991), hxrInvalidDeviceErr);
    openControl();
    EXPECT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), 5000), hxrInvalidConfigurationErr);
    EXPECT_FALSE(data->isOpen());

    EXPECT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), 4991), hxrNoError);
    EXPECT_EQ(data->localAddress(), "10.0.0.1");
    EXPECT_EQ(data->remoteAddress(), "10.0.0.2");
    EXPECT_EQ(data->localPort(), 4991);
    EXPECT_EQ(data->remotePort(), 4991);
    EXPECT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), 4992), hxrNoError);
    EXPECT_EQ(data->localPort(), 4992);
    EXPECT_EQ(data->opens, 2);
    EXPECT_EQ(data->closes, 1);

    control->close();
    EXPECT_EQ(link.openDataSocket(link.claimData(EndpointOwner::entry), 4993), hxrInvalidConfigurationErr);
    EXPECT_EQ(data->localPort(), 4992);
}

TEST_F(Link, NamesItsCacheFileAfterTheSerialNumber) {
    const std::string path = folder.path().string() + "/";
    const FlashCache cache(CalFolder(folder.path(), "unused"));
    EXPECT_EQ(cache.fileName(12345678), path + "12345678.hxr_adjust");
    EXPECT_EQ(cache.fileName(42), path + "00000042.hxr_adjust");
    EXPECT_EQ(cache.fileName(0xFFFFFFFF), path + "-0000001.hxr_adjust");
}

}  // namespace
}  // namespace hxr
