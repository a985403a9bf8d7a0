#include "link/win_udp_interface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "support/loopback.h"
#include "support/peer.h"
#include "support/test_clock.h"

namespace hxr {
namespace {

using test::controlPort;
using test::Peer;
using test::TestClock;
using namespace std::chrono_literals;

constexpr unsigned longTimeoutMs = 1'000'000;  // a test that waits it out is ended by its own limit
constexpr unsigned shortTimeoutMs = 20;

const std::string host = test::hostAddress();
const std::string unit = test::unitAddress();

class Endpoint : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(endpoint.open(host.c_str(), unit.c_str(), controlPort, controlPort));
    }

    void answer(const std::vector<std::uint8_t>& datagram) { peer.send(host, controlPort, datagram); }

    TestClock clock;
    WinUDPInterface endpoint{clock};
    Peer peer{unit, controlPort};
    std::array<std::uint32_t, wordsPerPacket> words{};
};

std::vector<std::uint8_t> numbered(std::uint8_t number, std::size_t size = 100) {
    return std::vector<std::uint8_t>(size, number);
}

int numberOf(const ReceiveResult& result, int position) {
    return std::to_integer<int>(result.buffers[static_cast<std::size_t>(position)][0]);
}

TEST_F(Endpoint, SendsWordsLeastSignificantByteFirst) {
    words[0] = 0x11000008;
    words[511] = 0xA1B2C3D4;
    endpoint.send(3, words.data());
    EXPECT_EQ(endpoint.waitSend(3), 2048U);
    const auto datagram = peer.receive().value().bytes;
    ASSERT_EQ(datagram.size(), 2048U);
    EXPECT_EQ(std::vector(datagram.begin(), datagram.begin() + 4),
              (std::vector<std::uint8_t>{8, 0, 0, 0x11}));
    EXPECT_EQ(std::vector(datagram.end() - 4, datagram.end()),
              (std::vector<std::uint8_t>{0xD4, 0xC3, 0xB2, 0xA1}));
}

TEST_F(Endpoint, CollectsABatchInOrderOfArrivalWhateverItsSize) {
    for (const int count : {0, 1, 64, 100, 256}) {
        endpoint.postReceives(5, count, longTimeoutMs);
        for (int i = 0; i < count; ++i) answer(numbered(static_cast<std::uint8_t>(i)));
        const ReceiveResult& result = *endpoint.collectReceives(5);
        EXPECT_FALSE(result.timedOut);
        ASSERT_EQ(result.count, count);
        for (int i = 0; i < count; ++i) EXPECT_EQ(numberOf(result, i), i);
    }
}

TEST_F(Endpoint, ServesSlotsInTheOrderOfTheirPosts) {
    endpoint.postReceives(9, 2, longTimeoutMs);
    endpoint.postReceives(2, 3, longTimeoutMs);
    for (std::uint8_t i = 0; i < 5; ++i) answer(numbered(i));
    const ReceiveResult& second = *endpoint.collectReceives(2);
    const ReceiveResult& first = *endpoint.collectReceives(9);
    EXPECT_EQ((std::vector{numberOf(first, 0), numberOf(first, 1)}), (std::vector{0, 1}));
    EXPECT_EQ((std::vector{numberOf(second, 0), numberOf(second, 1), numberOf(second, 2)}),
              (std::vector{2, 3, 4}));
}

TEST_F(Endpoint, WhatArrivesUnaskedAnswersTheNextRequest) {
    answer(numbered(7));
    endpoint.postReceives(0, 1, longTimeoutMs);
    EXPECT_EQ(numberOf(*endpoint.collectReceives(0), 0), 7);
}

TEST_F(Endpoint, CutsLongDatagramsAndKeepsShortOnes) {
    const std::vector<std::size_t> sizes{0, 1, 8216, 9000, 9001, 20000};
    endpoint.postReceives(0, static_cast<int>(sizes.size()), longTimeoutMs);
    for (const std::size_t size : sizes) answer(numbered(1, size));
    const ReceiveResult& result = *endpoint.collectReceives(0);
    EXPECT_FALSE(result.timedOut);
    for (std::size_t i = 0; i < sizes.size(); ++i)
        EXPECT_EQ(result.lengths[i], std::min<std::size_t>(sizes[i], 9000));
    EXPECT_TRUE(endpoint.isOpen());
}

TEST_F(Endpoint, OneMissingDatagramTimesOutForGood) {
    endpoint.postReceives(0, 3, shortTimeoutMs);
    answer(numbered(1));
    answer(numbered(2));
    const ReceiveResult& result = *endpoint.collectReceives(0);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.lengths[1], 100U);
    EXPECT_EQ(result.lengths[2], 0U);
    EXPECT_FALSE(endpoint.isOpen());
    EXPECT_TRUE(endpoint.lost());

    // Nothing waits another time-out on the closed socket, and nothing goes out.
    endpoint.postReceives(0, 1, longTimeoutMs);
    EXPECT_TRUE(endpoint.collectReceives(0)->timedOut);
    endpoint.send(0, words.data());
    EXPECT_EQ(endpoint.waitSend(0), 0U);

    // A new socket doesn't help: the endpoint stays lost.
    EXPECT_TRUE(endpoint.open(host.c_str(), unit.c_str(), controlPort, controlPort));
    endpoint.send(0, words.data());
    EXPECT_EQ(endpoint.waitSend(0), 0U);
    EXPECT_FALSE(peer.receive(20));
}

TEST_F(Endpoint, SecondSendWithoutWaitLosesTheEndpoint) {
    endpoint.send(4, words.data());
    endpoint.send(4, words.data());
    EXPECT_TRUE(endpoint.lost());
    EXPECT_EQ(endpoint.waitSend(4), 2048U);
    EXPECT_EQ(peer.receive().value().bytes.size(), 2048U);
    EXPECT_FALSE(peer.receive(20));
}

TEST_F(Endpoint, OtherSendersAreNotHeard) {
    Peer stranger(test::unitAddress(1), controlPort);
    Peer samePlaceOtherPort(unit, controlPort + 1);
    endpoint.postReceives(0, 1, longTimeoutMs);
    stranger.send(host, controlPort, numbered(1));
    samePlaceOtherPort.send(host, controlPort, numbered(2));
    answer(numbered(3));
    EXPECT_EQ(numberOf(*endpoint.collectReceives(0), 0), 3);
}

TEST_F(Endpoint, UnitsThatShareTheHostsPortGetTheirOwnDatagramsOnly) {
    WinUDPInterface other(clock);
    Peer otherPeer(test::unitAddress(1), controlPort);
    ASSERT_TRUE(other.open(host.c_str(), test::unitAddress(1).c_str(), controlPort, controlPort));
    endpoint.postReceives(0, 2, longTimeoutMs);
    other.postReceives(0, 2, longTimeoutMs);
    for (int i = 0; i < 2; ++i) {
        answer(numbered(1));
        otherPeer.send(host, controlPort, numbered(2));
    }
    const ReceiveResult& first = *endpoint.collectReceives(0);
    const ReceiveResult& second = *other.collectReceives(0);
    EXPECT_EQ(numberOf(first, 0) + numberOf(first, 1), 2);
    EXPECT_EQ(numberOf(second, 0) + numberOf(second, 1), 4);
}

TEST_F(Endpoint, WithdrawsWhatWillNeverBeAnswered) {
    endpoint.postReceives(1, 5, longTimeoutMs);
    answer(numbered(1));
    answer(numbered(2));
    const int taken = endpoint.withdrawReceives(1);
    EXPECT_GE(taken, 3);
    const ReceiveResult& result = *endpoint.collectReceives(1);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.count, 5 - taken);

    // What the withdrawn receives would have taken waits for the next ones.
    const int left = taken - 3;
    endpoint.postReceives(2, left + 1, longTimeoutMs);
    answer(numbered(9));
    EXPECT_EQ(numberOf(*endpoint.collectReceives(2), left), 9);
}

TEST_F(Endpoint, CloseEndsEveryWaitFromAnyThread) {
    std::vector<std::thread> collectors;
    std::atomic<int> timedOut = 0;
    for (int slot = 0; slot < 4; ++slot) {
        endpoint.postReceives(slot, 1, longTimeoutMs);
        collectors.emplace_back([&, slot] { timedOut += endpoint.collectReceives(slot)->timedOut ? 1 : 0; });
    }
    while (clock.timeouts().size() < 4) std::this_thread::yield();  // asked for just before each wait
    std::thread closer([&] { EXPECT_TRUE(endpoint.close()); });
    EXPECT_TRUE(endpoint.close());
    closer.join();
    for (std::thread& collector : collectors) collector.join();
    EXPECT_EQ(timedOut, 4);
    EXPECT_EQ(endpoint.localAddress(), "");
    EXPECT_EQ(endpoint.remotePort(), 0);
    EXPECT_TRUE(endpoint.collectReceives(0)->timedOut);

    // Nobody waited in vain, so the endpoint isn't lost: it works when it is opened again.
    EXPECT_FALSE(endpoint.lost());
    EXPECT_TRUE(endpoint.open(host.c_str(), unit.c_str(), controlPort, controlPort));
    endpoint.send(0, words.data());
    EXPECT_EQ(endpoint.waitSend(0), 2048U);
}

TEST(EndpointWithoutAUnit, ARefusedDatagramIsNoErrorOfALaterOperation) {
    const std::string address = test::unitAddress(2);
    TestClock clock;
    WinUDPInterface endpoint(clock);
    ASSERT_TRUE(endpoint.open(host.c_str(), address.c_str(), controlPort, controlPort));
    const std::array<std::uint32_t, wordsPerPacket> words{};
    endpoint.postReceives(0, 1, longTimeoutMs);
    for (int i = 0; i < 20; ++i) {
        endpoint.send(0, words.data());
        ASSERT_EQ(endpoint.waitSend(0), 2048U);
    }

    // The unit starts late, and the wait is still on.
    Peer peer(address, controlPort);
    peer.send(host, controlPort, numbered(5));
    const ReceiveResult& result = *endpoint.collectReceives(0);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(numberOf(result, 0), 5);
}

TEST(EndpointOpening, RefusesWhatIsNoAddress) {
    WinUDPInterface endpoint;
    const std::string taken = "192.0.2.77";  // not an address of this machine
    for (const std::string& local : {std::string("localhost"), std::string("1.2.3"), std::string(), taken}) {
        EXPECT_FALSE(endpoint.open(local.c_str(), "127.0.0.2", controlPort, controlPort)) << local;
        EXPECT_FALSE(endpoint.isOpen());
        EXPECT_EQ(endpoint.localAddress(), "");
    }
    EXPECT_FALSE(endpoint.open("127.0.0.1", "256.0.0.1", controlPort, controlPort));
    EXPECT_TRUE(endpoint.close());
}

TEST_F(Endpoint, ClosesUnderThreadsThatPostAndCollect) {
    std::atomic<bool> running = true;
    std::vector<std::thread> users;
    for (int slot = 0; slot < 3; ++slot) {
        users.emplace_back([&, slot] {
            while (running) {
                endpoint.postReceives(slot, 200, longTimeoutMs);
                if (slot == 0) endpoint.withdrawReceives(slot);
                endpoint.collectReceives(slot);
                if (!endpoint.isOpen()) std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(endpoint.close());
        EXPECT_TRUE(endpoint.open(host.c_str(), unit.c_str(), controlPort, controlPort));
        answer(numbered(1));
    }
    running = false;
    endpoint.close();
    for (std::thread& user : users) user.join();
}

/// A socket that nothing comes to, and that takes nothing until it was asked so many times.
class StuckSocket final : public platform::UdpSocket {
  public:
    StuckSocket(int refusals, int& ends) : refusals_(refusals), ends_(ends) {}
    bool send(std::span<const std::byte>) override { return refusals_-- <= 0; }
    void waitSendable(std::chrono::milliseconds) override { std::this_thread::sleep_for(1ms); }
    std::size_t receive(std::span<platform::ReceivePlace>) override { return 0; }
    std::size_t receiveBuffer() const override { return 0; }
    void waitReceivable() override { std::this_thread::sleep_for(1ms); }
    void shutDown() override { ++ends_; }

  private:
    int refusals_;
    int& ends_;
};

class StuckEndpoint : public testing::Test {
  protected:
    void openWith(int refusals) {
        endpoint = std::make_unique<WinUDPInterface>(
            clock, [this, refusals](auto&&...) { return std::make_shared<StuckSocket>(refusals, ends); });
        ASSERT_TRUE(endpoint->open("127.0.0.1", "127.0.0.2", controlPort, controlPort));
    }

    TestClock clock{40};
    int ends = 0;
    std::unique_ptr<WinUDPInterface> endpoint;
    std::array<std::uint32_t, wordsPerPacket> words{};
};

TEST_F(StuckEndpoint, ASendThatDoesntFinishLosesTheEndpointAndClosesItOnce) {
    openWith(1'000'000);
    endpoint->send(0, words.data());
    EXPECT_FALSE(endpoint->lost());
    EXPECT_EQ(endpoint->waitSend(0), 0U);
    EXPECT_TRUE(endpoint->lost());
    EXPECT_FALSE(endpoint->isOpen());
    EXPECT_EQ(clock.timeouts(), std::vector{2000ms});
    endpoint->close();
    EXPECT_EQ(ends, 1);
}

TEST_F(StuckEndpoint, AReceiveThatTimesOutClosesItOnce) {
    openWith(0);
    endpoint->postReceives(0, 1, 400);
    EXPECT_TRUE(endpoint->collectReceives(0)->timedOut);
    EXPECT_EQ(clock.timeouts(), std::vector{400ms});
    endpoint->close();
    EXPECT_EQ(ends, 1);
}

TEST_F(StuckEndpoint, ASendIsOnItsWayBeforeItsReplyIsCollected) {
    clock.shortenTimeouts(1);
    openWith(3);
    endpoint->send(0, words.data());
    endpoint->postReceives(0, 1, 1);
    endpoint->collectReceives(0);
    EXPECT_EQ(endpoint->waitSend(0), 2048U);
}

}  // namespace
}  // namespace hxr
