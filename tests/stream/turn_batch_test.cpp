#include "stream/turn_batch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace hxr {
namespace {

constexpr std::uint32_t dataHeader = 0x14000806, contextHeader = 0x4400001C;

/// Datagrams of a batch, as an endpoint hands them out.
class Batch {
  public:
    struct Packet {
        std::uint32_t header = dataHeader;
        std::uint32_t seconds = 0;
        std::uint64_t picoseconds = 0;
        std::int16_t value = 0;  ///< of all samples
        std::uint32_t trailer = 0;
        std::uint32_t length = 8216;
    };

    explicit Batch(const std::vector<Packet>& packets) {
        for (const Packet& packet : packets) {
            auto buffer = std::make_unique<std::array<std::byte, receiveRoom>>();
            buffer->fill(std::byte{0xEE});
            const auto put = [&](std::size_t at, std::uint32_t word) {
                for (int i = 0; i < 4; ++i)
                    (*buffer)[at + static_cast<std::size_t>(i)] = std::byte(word >> (24 - 8 * i));
            };
            put(0, packet.header);
            put(8, packet.seconds);
            put(12, static_cast<std::uint32_t>(packet.picoseconds >> 32));
            put(16, static_cast<std::uint32_t>(packet.picoseconds));
            for (std::size_t i = 0; i < 4096; ++i) std::memcpy(buffer->data() + 20 + 2 * i, &packet.value, 2);
            put(8212, packet.trailer);
            // What lies behind a datagram's end is left from another one.
            std::fill(buffer->begin() + packet.length, buffer->end(), std::byte{0x77});
            result.buffers[static_cast<std::size_t>(result.count)] = buffer->data();
            result.lengths[static_cast<std::size_t>(result.count++)] = packet.length;
            buffers_.push_back(std::move(buffer));
        }
    }

    ReceiveResult result;

  private:
    std::vector<std::unique_ptr<std::array<std::byte, receiveRoom>>> buffers_;
};

TEST(TurnAssembler, CompletesATurnInTheNextBatchWithItsTimeAndTrigger) {
    TurnAssembler assembler(3);
    TurnBatch turns;
    {
        // The buffers of a batch are used anew while the next one is read.
        Batch first({{.seconds = 5, .picoseconds = 999'999'999'999, .value = 1},
                     {.value = 2},
                     {.header = contextHeader, .length = 112},
                     {.value = 3},
                     {.seconds = 6, .picoseconds = 40'960'000, .value = 4, .trailer = 0x00100100},
                     {.seconds = 99, .value = 5}});
        assembler.read(first.result, turns);
    }
    EXPECT_EQ(turns.turns, 1U);
    EXPECT_EQ(turns.time, 5'999'999'999U);
    EXPECT_FALSE(turns.triggered[0]);

    Batch second({{.header = contextHeader, .length = 112}, {.value = 6}, {.seconds = 7, .value = 7}});
    assembler.read(second.result, turns);
    ASSERT_EQ(turns.turns, 1U);
    EXPECT_EQ(turns.time, 6'000'040'960U);
    EXPECT_TRUE(turns.triggered[0]);
    for (std::size_t channel = 0; channel < 3; ++channel)
        EXPECT_EQ(turns.samples[channel][0][2047].im, static_cast<int>(channel) + 4);

    // Nothing but context packets: the turn under way tells the time, though it isn't complete.
    Batch third({Batch::Packet{.header = contextHeader, .length = 112}});
    assembler.read(third.result, turns);
    EXPECT_EQ(turns.turns, 0U);
    EXPECT_EQ(turns.time, 7'000'000'000U);
    Batch fourth({{.value = 8}, {.value = 9}});
    assembler.read(fourth.result, turns);
    EXPECT_EQ(turns.turns, 1U);
    assembler.read(third.result, turns);
    EXPECT_FALSE(turns.time);
}

TEST(TurnAssembler, IndicatorsCountWithTheirEnableBits) {
    struct Case {
        std::uint32_t trailer;
        bool overflow, loss, ddr, trigger;
    };
    const Case cases[] = {{0x02002000, true, false, false, false}, {0x01001000, false, true, false, false},
                          {0x00200200, false, false, true, false}, {0x00100100, false, false, false, true},
                          {0x03303300, true, true, true, true},    {0x03300000, false, false, false, false},
                          {0x00003300, false, false, false, false}};
    for (const Case& c : cases) {
        TurnAssembler assembler(1);
        TurnBatch turns;
        Batch batch({Batch::Packet{.trailer = c.trailer}});
        // The packet's size says where its trailer stands.
        assembler.read(batch.result, turns);
        EXPECT_EQ(turns.adcOverflow, c.overflow) << std::hex << c.trailer;
        EXPECT_EQ(turns.sampleLoss, c.loss) << std::hex << c.trailer;
        EXPECT_EQ(turns.ddrOverflow, c.ddr) << std::hex << c.trailer;
        EXPECT_EQ(turns.triggered[0], c.trigger) << std::hex << c.trailer;
    }
}

TEST(TurnAssembler, CutPacketsKeepTheirPlaceAndNothingBehindTheirEndIsRead) {
    for (const std::uint32_t length : {0U, 3U, 19U, 20U, 22U, 5000U, 8212U, 8215U}) {
        TurnAssembler assembler(2);
        TurnBatch turns;
        Batch batch({{.value = 11}, {.value = 12, .length = length}, {.value = 13}, {.value = 14}});
        assembler.read(batch.result, turns);
        ASSERT_EQ(turns.turns, 2U) << length;
        EXPECT_TRUE(turns.sampleLoss) << length;
        EXPECT_FALSE(turns.ddrOverflow || turns.adcOverflow) << length;
        const std::size_t whole = length < 20 ? 0 : std::min<std::size_t>((length - 20) / 4, 2048);
        for (std::size_t i = 0; i < 2048; ++i) {
            ASSERT_EQ(turns.samples[1][0][i].re,
                      i < whole || (i == whole && length % 4 >= 2 && length >= 20) ? 12 : 0)
                << length << ' ' << i;
        }
        EXPECT_EQ(turns.samples[1][1][0].re, 14) << length;
    }
    // A size field that points beyond the datagram, or into its header, gives no trailer.
    for (const std::uint32_t header : {0x1400FFFFU, 0x14000000U, 0x14000005U}) {
        TurnAssembler assembler(1);
        TurnBatch turns;
        Batch batch({Batch::Packet{.header = header, .trailer = 0x03303300}});
        assembler.read(batch.result, turns);
        EXPECT_EQ(turns.turns, 1U);
        EXPECT_FALSE(turns.ddrOverflow) << std::hex << header;
    }
}

TEST(TurnAssembler, BatchThatTimedOutCountsUpToItsFirstGap) {
    TurnAssembler assembler(2);
    TurnBatch turns;
    Batch batch({{.value = 1}, {.value = 2}, {.value = 3}, {.length = 0}, {.value = 5}});
    batch.result.timedOut = true;
    assembler.read(batch.result, turns);
    EXPECT_EQ(turns.turns, 1U);
    EXPECT_FALSE(turns.sampleLoss);
}

/// Turns of one channel whose marker is told sample by sample.
class MarkedTurns {
  public:
    explicit MarkedTurns(std::vector<std::vector<ci16>> turns) : turns_(std::move(turns)) {
        batch.turns = turns_.size();
        for (std::size_t i = 0; i < turns_.size(); ++i) batch.samples[0][i] = turns_[i].data();
    }
    TurnBatch batch;

  private:
    std::vector<std::vector<ci16>> turns_;
};

/// A turn whose marker rises and falls at places in turn, from a first value on.
std::vector<ci16> marked(bool marker, const std::vector<int>& changes) {
    std::vector<ci16> turn(2048);
    for (int j = 0; j < 2048; ++j) {
        if (std::ranges::count(changes, j) > 0) marker = !marker;
        // Either rail can carry the marker.
        turn[static_cast<std::size_t>(j)] = j % 2 == 0 ? ci16{static_cast<std::int16_t>(marker), 0}
                                                       : ci16{7, static_cast<std::int16_t>(marker ? 2 : 3)};
    }
    return turn;
}

TEST(TriggerFinder, FindsTheFirstEdgeOfABatch) {
    struct Case {
        const char* what;
        int edge;
        std::vector<std::vector<ci16>> turns;
        std::vector<bool> triggered;
        std::optional<double> found;
    };
    const Case cases[] = {
        {"rising", +1, {marked(false, {100, 200})}, {true}, 100},
        {"falling", -1, {marked(false, {100, 200})}, {true}, 200},
        {"at the first sample", +1, {marked(true, {})}, {true}, 0},
        {"at the last sample", +1, {marked(false, {2047})}, {true}, 2047},
        {"in an unmarked packet", +1, {marked(false, {100})}, {false}, std::nullopt},
        {"in the second turn", +1, {marked(false, {}), marked(false, {5})}, {true, true}, 2053},
        {"the marker stood high when the packets began to be marked",
         +1,
         {marked(true, {}), marked(true, {50, 60})},
         {false, true},
         2108},
        {"twice", +1, {marked(false, {10, 20, 30}), marked(true, {40, 50})}, {true, true}, 10},
    };
    for (const Case& c : cases) {
        MarkedTurns turns(c.turns);
        std::copy(c.triggered.begin(), c.triggered.end(), turns.batch.triggered.begin());
        TriggerFinder finder(c.edge);
        EXPECT_EQ(finder.find(turns.batch), c.found) << c.what;
    }

    // From batch to batch: the last sample's marker is the one that counts.
    TriggerFinder finder(+1);
    MarkedTurns high({marked(false, {10})}), next({marked(true, {70, 80})});
    high.batch.triggered[0] = next.batch.triggered[0] = true;
    EXPECT_EQ(finder.find(high.batch), 10);
    EXPECT_EQ(finder.find(next.batch), 80);
}

}  // namespace
}  // namespace hxr
