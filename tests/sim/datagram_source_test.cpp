#include "sim/datagram_source.h"

#include <gtest/gtest.h>

#include "support/loopback.h"
#include "support/peer.h"

namespace hxr::sim {
namespace {

using test::Peer;

constexpr std::uint16_t port = 5000;

TEST(DatagramSource, AnswersOneTriggerWithAllDatagramsInOrderByEitherRoad) {
    for (const bool offload : {false, true}) {
        const std::string host = test::nextAddress();
        const std::string source = test::nextAddress();
        Peer receiver(host, port);
        DatagramSource sender({.local = Endpoint::of(source, port),
                               .peer = Endpoint::of(host, port),
                               .segmentationOffload = offload});
        constexpr std::size_t count = 100;
        sender.answer(count);
        receiver.sendWords(source, port, {1});
        for (std::size_t i = 0; i < count; ++i) {
            const auto datagram = receiver.receive();
            ASSERT_TRUE(datagram) << i;
            ASSERT_EQ(datagram->bytes.size(), 8216u);
            ASSERT_EQ(datagram->bytes[0], i);
        }
        EXPECT_EQ(sender.waitForAnswer().datagrams, count);
        EXPECT_FALSE(receiver.receive(1));
    }
}

TEST(DatagramSource, EndsItsWaitForATriggerThatNeverComes) {
    DatagramSource sender(
        {.local = Endpoint::of(test::nextAddress(), port), .peer = Endpoint::of(test::nextAddress(), port)});
    sender.answer(10);
    sender.stop();
    EXPECT_EQ(sender.waitForAnswer().datagrams, 0u);
}

TEST(DatagramSource, NeverRunsAheadOfItsPace) {
    DatagramSource sender({.local = Endpoint::of(test::nextAddress(), port),
                           .peer = Endpoint::of(test::nextAddress(), port),
                           .datagramBytes = 100,
                           .datagramsPerSecond = 10'000.0});
    EXPECT_GE(sender.send(300).time, std::chrono::milliseconds(30));
}

}  // namespace
}  // namespace hxr::sim
