#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "sim/byte_order.h"
#include "sim/data_datagram.h"
#include "sim/simulated_unit.h"
#include "support/loopback.h"
#include "support/peer.h"
#include "synthesizer_images.h"

namespace hxr::sim {
namespace {

using test::Words;
using namespace std::chrono_literals;

constexpr std::uint16_t dataPort = 4991;
constexpr int aMoment = 30;
constexpr std::uint32_t streamPath = 0x0F003000;  // little-endian samples

std::uint64_t bigAt(const std::vector<std::uint8_t>& bytes, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes[at + i];
    return value;
}

/// A packet of a counting unit, taken apart.
struct Packet {
    explicit Packet(std::vector<std::uint8_t> datagram) : bytes(std::move(datagram)) {
        const auto first = static_cast<std::uint32_t>(bigAt(bytes, 0, 4));
        type = first >> 28;
        count = first >> 16 & 15;
        identifier = static_cast<std::uint32_t>(bigAt(bytes, 4, 4));
        nanoseconds = bigAt(bytes, 8, 4) * 1'000'000'000 + bigAt(bytes, 12, 8) / 1000;
        EXPECT_EQ((first & 0xFFFF) * 4, bytes.size());
        if (type == 1) trailer = static_cast<std::uint32_t>(bigAt(bytes, bytes.size() - 4, 4));
    }
    std::uint32_t sample(std::size_t n) const { return getLittle32(bytes, dataHeaderBytes + 4 * n); }
    std::uint64_t position(std::size_t n = 0) const {
        return (sample(n) & 0xFFFF) >> 1 | std::uint64_t{sample(n) >> 19} << 15;
    }
    unsigned channel() const { return sample(0) >> 17 & 3; }
    bool marker(std::size_t n) const { return ((sample(n) ^ sample(n) >> 16) & 1) != 0; }

    std::vector<std::uint8_t> bytes;
    std::uint32_t type = 0, count = 0, identifier = 0, trailer = 0;
    std::uint64_t nanoseconds = 0;
};

struct StreamServiceTest : ::testing::Test {
    SimulatedUnit& startUnit(UnitOptions options = {}) {
        options.address = test::nextAddress();
        options.image = makeBlankImage();
        options.streamContent = StreamContent::counter;
        units.push_back(std::make_unique<SimulatedUnit>(std::move(options)));
        units.back()->start();
        return *units.back();
    }

    void run(SimulatedUnit& unit, Words words) {
        words.push_back(0x11000008);
        host.sendWords(unit.address(), test::controlPort, words);
        ASSERT_TRUE(host.receive()) << "the status that tells that the words have run";
    }
    static Words started(unsigned channels, unsigned code, std::uint32_t start = 0x0E01137F) {
        const std::uint32_t timing = (start >> 16 & 255) - 1;
        return {0x04040008,
                101,
                102,
                103,
                104,
                0,
                0,
                streamPath | code << 8 | channels,
                0x01000006 | timing << 16,
                start};
    }
    void ask(const SimulatedUnit& unit, std::uint32_t datagrams) {
        sink.sendWords(unit.address(), dataPort, {0x43660000 | datagrams});
    }
    std::optional<Packet> next(int timeoutMs = 10'000) {
        auto datagram = sink.receive(timeoutMs);
        if (!datagram) return std::nullopt;
        return Packet(std::move(datagram->bytes));
    }

    std::vector<std::unique_ptr<SimulatedUnit>> units;
    std::string address = test::nextAddress();
    test::Peer host{address, test::controlPort};
    test::Peer sink{address, dataPort};
};

TEST_F(StreamServiceTest, ChannelsTakeTurnsAndContextsGoBetween) {
    SimulatedUnit& unit = startUnit();
    const struct {
        unsigned channels, code;
        std::uint32_t context;
        std::size_t interval;
    } cases[] = {{0b0001, 1, 0x10000003, 0}, {0b1111, 2, 0x10010003, 3}, {0b1010, 3, 0x10010001, 1}};
    for (const auto& test : cases) {
        run(unit, {test.context});
        run(unit, {0x0409005B, 0xA9A64000, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0});  // of the last channel
        run(unit, started(test.channels, test.code));
        std::vector<unsigned> inputs;
        for (unsigned input = 0; input < 4; ++input)
            if ((test.channels >> input & 1) != 0) inputs.push_back(input);

        constexpr std::uint32_t asked = 67;
        ask(unit, 50);
        ask(unit, asked - 50);
        std::size_t data = 0, contexts = 0;
        std::uint64_t start = 0;
        for (std::uint32_t i = 0; i < asked; ++i) {
            const auto packet = next();
            ASSERT_TRUE(packet);
            const std::size_t turn = data / inputs.size();
            const bool context = test.interval > 0 && data % inputs.size() == 0 &&
                                 contexts < turn / test.interval * inputs.size();
            const unsigned input = inputs[(context ? contexts : data) % inputs.size()];
            ASSERT_EQ(packet->type, context ? 4u : 1u) << i;
            EXPECT_EQ(packet->identifier, 101 + input);
            if (i == 0) start = packet->nanoseconds;
            EXPECT_EQ(packet->nanoseconds - start, turn * 2048 * 20 << (test.code - 1));
            if (context) {
                ++contexts;
                EXPECT_EQ(packet->bytes.size(), 112u);
                EXPECT_EQ(bigAt(packet->bytes, 20, 4) == 0xA9A64000, input == 3);
                continue;
            }
            EXPECT_EQ(packet->count, turn & 15);
            EXPECT_EQ(packet->trailer, 0u);
            EXPECT_EQ(packet->channel(), input);
            EXPECT_EQ(packet->position(), turn * 2048);
            EXPECT_EQ(packet->position(2047), turn * 2048 + 2047);
            ++data;
        }
        EXPECT_FALSE(next(aMoment)) << "nothing goes unasked";
    }
    run(unit, {0x0E00137F});
    EXPECT_EQ(unit.brokenRules(), 0u);
    ask(unit, 5);
    EXPECT_FALSE(next(aMoment));
    EXPECT_EQ(unit.brokenRules(), 1u) << "samples of a stream that has stopped";
}

TEST_F(StreamServiceTest, UnitsOfAGroupStartWithTheirMaster) {
    UnitOptions tied;
    tied.syncLine = std::make_shared<SyncLine>();
    SimulatedUnit& master = startUnit(tied);
    SimulatedUnit& slave = startUnit(tied);
    for (int round = 0; round < 2; ++round) {
        run(slave, started(0b0010, 1, 0x0E75137F));
        ask(slave, 2);
        EXPECT_FALSE(next(aMoment)) << "before the master";
        run(master, started(0b0001, 1, 0x0EA3137F));
        const auto ofSlave = next();
        ask(master, 1);
        ASSERT_TRUE(next());
        const auto ofMaster = next();
        ASSERT_TRUE(ofSlave && ofMaster);
        EXPECT_EQ(ofSlave->position(), 0u);
        EXPECT_EQ(ofSlave->channel() + ofMaster->channel(), 1u);
        run(slave, {0x0E00137F});
        run(master, {0x0E00137F});
    }
    run(master, started(0b0001, 1, 0x0EA3137F));
    run(slave, started(0b0010, 1, 0x0E75137F));
    ask(slave, 1);
    EXPECT_FALSE(next(aMoment)) << "its master's start was another stream's";
    run(master, started(0b0001, 1, 0x0EA3137F));
    const auto late = next();
    ask(master, 1);
    const auto first = next();
    ASSERT_TRUE(late && first);
    EXPECT_EQ(late->nanoseconds, first->nanoseconds);
    EXPECT_EQ(master.brokenRules() + slave.brokenRules(), 0u);

    // One that was told nothing doesn't start, not even with the others.
    run(slave, {0x0E00137F, 0x01740008, 0x0E75137F});
    EXPECT_EQ(slave.brokenRules(), 1u);
    EXPECT_FALSE(slave.state().streaming);
}

TEST_F(StreamServiceTest, TimeStampsFollowTheUnitsClock) {
    SimulatedUnit& unit = startUnit();
    const std::uint32_t set = 1'500'000'000;
    run(unit, {0x04010007, set, 0, 0, 0, 0});
    run(unit, started(0b0100, 1));
    ask(unit, 1);
    const auto packet = next();
    ASSERT_TRUE(packet);
    EXPECT_GE(packet->nanoseconds / 1'000'000'000, set);
    EXPECT_LT(packet->nanoseconds / 1'000'000'000, set + 600);
}

TEST_F(StreamServiceTest, AUnitInRealTimeIsNeverEarlyAndLosesWhatIsFetchedTooLate) {
    UnitOptions options;
    options.streamsInRealTime = true;
    options.streamBufferTurns = 4;
    SimulatedUnit& unit = startUnit(options);
    constexpr std::uint64_t turnNs = 2048 * 80;
    run(unit, started(0b0011, 3));
    const auto now = [] {
        return static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch() / 1ns);
    };
    std::uint64_t position = 0;
    std::uint64_t losses = 0;
    constexpr std::uint32_t lost = StreamWarning::sampleLoss | StreamWarning::bufferOverflow;
    for (int i = 0; i < 200; ++i) {
        ask(unit, 2);
        const auto first = next();
        const auto second = next();
        ASSERT_TRUE(first && second);
        ASSERT_LE(first->nanoseconds + turnNs, now()) << "sent before its last sample was taken";
        ASSERT_EQ(first->position(), second->position());
        ASSERT_EQ(first->trailer, second->trailer);
        ASSERT_EQ(first->trailer == lost, first->position() != position) << i;
        losses += first->trailer == lost ? 1 : 0;
        position = first->position() + 2048;
        if (i == 100) {
            const std::uint64_t late = first->nanoseconds + 10 * turnNs;
            while (now() < late) std::this_thread::yield();
        }
    }
    EXPECT_GE(losses, 1u);
}

TEST_F(StreamServiceTest, MarkersStandWhereTheyWerePut) {
    SimulatedUnit& unit = startUnit();
    const std::vector<MarkerEdge> edges = {{0, true},    {1, false},    {2047, true}, {2048, false},
                                           {5000, true}, {5001, false}, {8191, true}, {12288, false}};
    unit.setMarkerEdges(edges);
    unit.setStreamWarnings(0x2000);  // an indicator that isn't enabled
    run(unit, started(0b1001, 1));
    ask(unit, 16);
    const std::array<bool, 8> holdsEdge = {true, true, true, true, false, false, true, false};
    for (std::size_t turn = 0; turn < 8; ++turn) {
        for (int channel = 0; channel < 2; ++channel) {
            const auto packet = next();
            ASSERT_TRUE(packet);
            EXPECT_EQ(packet->trailer, 0x2000u | (holdsEdge[turn] ? StreamWarning::trigger : 0)) << turn;
            for (std::size_t n = 0; n < 2048; ++n) {
                bool high = false;
                for (const MarkerEdge& edge : edges)
                    if (edge.sample <= 2048 * turn + n) high = edge.high;
                ASSERT_EQ(packet->marker(n), high) << turn << " " << n;
            }
        }
    }
}

TEST_F(StreamServiceTest, FaultsFallOnSinglePackets) {
    SimulatedUnit& unit = startUnit();
    unit.faults().add({.kind = ReplyKind::stream, .skip = 3}, ReplyFault::lose());
    unit.faults().add({.kind = ReplyKind::stream, .skip = 5}, ReplyFault::setLength(4000));
    run(unit, started(0b0001, 1));
    ask(unit, 40);
    std::vector<std::size_t> lengths;
    while (const auto datagram = sink.receive(aMoment)) lengths.push_back(datagram->bytes.size());
    ASSERT_EQ(lengths.size(), 39u);
    EXPECT_EQ(lengths[4], 4000u);
    unit.faults().silenceAfterReplies(7);
    ask(unit, 40);
    for (int i = 0; i < 7; ++i) ASSERT_TRUE(next());
    EXPECT_FALSE(next(aMoment));
}

}  // namespace
}  // namespace hxr::sim
