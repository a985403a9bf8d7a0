#include "stream/frame_batch.h"

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
        std::uint32_t identifier = 1;
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
            put(4, packet.identifier);
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

/// Three channels at 50 MS/s: what the packets of a stream are, by frame and channel.
constexpr std::array<std::uint32_t, 3> identifiers{11, 12, 13};
constexpr std::uint64_t frameTime = 40'960'000;  // picoseconds

/// The packet of a channel in a frame; its samples tell both.
Batch::Packet packetOf(int frame, int channel) {
    return {.identifier = identifiers[static_cast<std::size_t>(channel)],
            .seconds = 5,
            .picoseconds = static_cast<std::uint64_t>(frame) * frameTime,
            .value = static_cast<std::int16_t>(10 * frame + channel)};
}

std::vector<Batch::Packet> packetsOf(const std::vector<int>& framesAndChannels) {
    std::vector<Batch::Packet> packets;
    for (const int each : framesAndChannels) packets.push_back(packetOf(each / 10, each % 10));
    return packets;
}

TEST(FrameAssembler, NumbersFramesByTimeAndDropsWhatDoesNotBelong) {
    struct Case {
        const char* what;
        std::vector<int> packets;  ///< ten times the frame, plus the channel
        std::vector<std::int64_t> frames;
        std::uint64_t duplicates, outOfOrder, lost;
        std::int64_t lastLoss;
    };
    const Case cases[] = {
        {"in order", {0, 1, 2, 10, 11, 12}, {0, 1}, 0, 0, 0, -1},
        {"twice in a row", {0, 1, 1, 2, 10, 11, 12}, {0, 1}, 1, 0, 0, -1},
        {"the first twice", {0, 0, 1, 2, 10, 11, 12}, {0, 1}, 1, 0, 0, -1},
        {"the last twice", {0, 1, 2, 2, 10, 11, 12}, {0, 1}, 1, 0, 0, -1},
        {"again a frame later", {0, 1, 2, 10, 1, 11, 12}, {0, 1}, 0, 1, 0, -1},
        {"swapped within a frame", {0, 2, 1, 10, 11, 12}, {0, 1}, 0, 1, 0, -1},
        {"swapped across frames", {0, 1, 10, 2, 11, 12}, {1}, 0, 1, 1, 0},
        {"one lost", {0, 1, 2, 10, 12, 20, 21, 22}, {0, 2}, 0, 0, 1, 1},
        {"the first of a frame lost", {0, 1, 2, 11, 12, 20, 21, 22}, {0, 2}, 0, 0, 1, 1},
        {"lost across frames", {0, 1, 11, 12, 20, 21, 22}, {2}, 0, 0, 2, 1},
        {"whole frames lost", {0, 1, 2, 40, 41, 42, 50, 51, 52}, {0, 4, 5}, 0, 0, 3, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // In one batch, and cut in two anywhere.
        for (std::size_t cut = 0; cut < c.packets.size(); ++cut) {
            FrameAssembler assembler(identifiers, 1);
            FrameBatch frames;
            std::vector<std::int64_t> numbers;
            std::uint64_t duplicates = 0, outOfOrder = 0, lost = 0;
            std::int64_t lastLoss = -1;
            const auto packets = packetsOf(c.packets);
            const auto middle = packets.begin() + static_cast<std::ptrdiff_t>(cut);
            for (const auto& part :
                 {std::vector(packets.begin(), middle), std::vector(middle, packets.end())}) {
                Batch batch(part);
                assembler.read(batch.result, frames);
                for (std::size_t f = 0; f < frames.frames; ++f) {
                    numbers.push_back(frames.number[f]);
                    EXPECT_EQ(frames.time[f],
                              5'000'000'000 + 40'960 * static_cast<std::uint64_t>(numbers.back()));
                    for (std::size_t channel = 0; channel < 3; ++channel)
                        EXPECT_EQ(frames.samples[channel][f][2047].im,
                                  10 * numbers.back() + static_cast<int>(channel));
                }
                duplicates += frames.duplicates;
                outOfOrder += frames.outOfOrder;
                lost += frames.framesLost;
                if (frames.lastLoss >= 0) {
                    lastLoss = frames.lastLoss;
                    EXPECT_TRUE(frames.sampleLoss);
                    EXPECT_EQ(frames.lastLossTime,
                              5'000'000'000 + 40'960 * static_cast<std::uint64_t>(lastLoss));
                }
            }
            EXPECT_EQ(numbers, c.frames) << cut;
            EXPECT_EQ(duplicates, c.duplicates) << cut;
            EXPECT_EQ(outOfOrder, c.outOfOrder) << cut;
            EXPECT_EQ(lost, c.lost) << cut;
            EXPECT_EQ(lastLoss, c.lastLoss) << cut;
        }
    }
}

TEST(FrameAssembler, ClockThatIsSetIsNoLoss) {
    // Times in nanoseconds of the frames' packets behind the first, and the numbers that these get.
    const std::pair<std::vector<std::int64_t>, std::vector<std::int64_t>> cases[] = {
        {{40'960, 90'000'000'000, 90'000'040'960}, {1, 2, 3}},  // forward by more than a minute
        {{40'960, -3'000'000'000, -2'999'959'040}, {1, 2, 3}},  // back by seconds
        {{40'961, 81'919, 122'881}, {1, 2, 3}},                 // rounded
        {{40'960, 1'000'000'000'000 + 20, 1'000'000'040'980}, {1, 2, 3}},
    };
    for (const auto& [times, numbers] : cases) {
        FrameAssembler assembler(std::array<std::uint32_t, 1>{1}, 1);
        FrameBatch frames;
        constexpr std::int64_t start = 2'000'000'000'000;
        std::vector<Batch::Packet> packets{{.seconds = 2000}};
        for (const std::int64_t time : times) {
            const auto at = static_cast<std::uint64_t>(start + time);
            packets.push_back({.seconds = static_cast<std::uint32_t>(at / 1'000'000'000),
                               .picoseconds = at % 1'000'000'000 * 1000});
        }
        Batch batch(packets);
        assembler.read(batch.result, frames);
        ASSERT_EQ(frames.frames, 4U);
        EXPECT_EQ(frames.framesLost, 0U);
        EXPECT_FALSE(frames.sampleLoss);
        EXPECT_TRUE(std::equal(numbers.begin(), numbers.end(), frames.number.begin() + 1));
        EXPECT_EQ(frames.time[3], static_cast<std::uint64_t>(start + times[2]));
    }
}

TEST(FrameAssembler, ContextPacketsAndTriggersLieBetweenBatches) {
    FrameAssembler assembler(identifiers, 1);
    FrameBatch frames;
    const Batch::Packet context{.header = contextHeader, .length = 112};
    auto first = packetOf(0, 0);
    first.trailer = 0x00100100;
    Batch one({first, context, packetOf(0, 1)});
    assembler.read(one.result, frames);
    EXPECT_EQ(frames.frames, 0U);
    EXPECT_EQ(frames.contextPackets, 1U);
    Batch two({context, packetOf(0, 2), packetOf(1, 0)});
    assembler.read(two.result, frames);
    ASSERT_EQ(frames.frames, 1U);
    EXPECT_TRUE(frames.triggered[0]);
    EXPECT_EQ(frames.datagrams, 3U);
}

TEST(FrameAssembler, IndicatorsCountWithTheirEnableBits) {
    struct Case {
        std::uint32_t trailer;
        bool overflow, loss, ddr, trigger;
    };
    const Case cases[] = {{0x02002000, true, false, false, false}, {0x01001000, false, true, false, false},
                          {0x00200200, false, false, true, false}, {0x00100100, false, false, false, true},
                          {0x03303300, true, true, true, true},    {0x03300000, false, false, false, false},
                          {0x00003300, false, false, false, false}};
    for (const Case& c : cases) {
        FrameAssembler assembler(std::array<std::uint32_t, 1>{1}, 1);
        FrameBatch frames;
        Batch batch({Batch::Packet{.trailer = c.trailer}});
        // The packet's size says where its trailer stands.
        assembler.read(batch.result, frames);
        EXPECT_EQ(frames.adcOverflow, c.overflow) << std::hex << c.trailer;
        EXPECT_EQ(frames.sampleLoss, c.loss) << std::hex << c.trailer;
        EXPECT_EQ(frames.ddrOverflow, c.ddr) << std::hex << c.trailer;
        EXPECT_EQ(frames.triggered[0], c.trigger) << std::hex << c.trailer;
    }
}

TEST(FrameAssembler, CutPacketsKeepTheirPlaceAndNothingBehindTheirEndIsRead) {
    for (const std::uint32_t length : {0U, 3U, 19U, 20U, 22U, 5000U, 8212U, 8215U}) {
        FrameAssembler assembler(identifiers, 1);
        FrameBatch frames;
        auto packets = packetsOf({0, 1, 2, 10, 11, 12});
        packets[1].length = length;
        Batch batch(packets);
        assembler.read(batch.result, frames);
        ASSERT_EQ(frames.frames, 2U) << length;
        EXPECT_TRUE(frames.sampleLoss) << length;
        EXPECT_FALSE(frames.ddrOverflow || frames.adcOverflow) << length;
        const std::size_t whole = length < 20 ? 0 : std::min<std::size_t>((length - 20) / 4, 2048);
        for (std::size_t i = 0; i < 2048; ++i) {
            ASSERT_EQ(frames.samples[1][0][i].re,
                      i < whole || (i == whole && length % 4 >= 2 && length >= 20) ? 1 : 0)
                << length << ' ' << i;
        }
        EXPECT_EQ(frames.samples[1][1][0].re, 11) << length;
    }
    // A size field that points beyond the datagram, or into its header, gives no trailer.
    for (const std::uint32_t header : {0x1400FFFFU, 0x14000000U, 0x14000005U}) {
        FrameAssembler assembler(std::array<std::uint32_t, 1>{1}, 1);
        FrameBatch frames;
        Batch batch({Batch::Packet{.header = header, .trailer = 0x03303300}});
        assembler.read(batch.result, frames);
        EXPECT_EQ(frames.frames, 1U);
        EXPECT_FALSE(frames.ddrOverflow) << std::hex << header;
    }
}

TEST(FrameAssembler, BatchThatTimedOutCountsUpToItsFirstGap) {
    FrameAssembler assembler(std::array<std::uint32_t, 2>{11, 12}, 1);
    FrameBatch frames;
    auto packets = packetsOf({0, 1, 10, 11, 20});
    packets[3].length = 0;
    Batch batch(packets);
    batch.result.timedOut = true;
    assembler.read(batch.result, frames);
    EXPECT_EQ(frames.frames, 1U);
    EXPECT_FALSE(frames.sampleLoss);
}

/// Frames of one channel whose marker is told sample by sample.
class MarkedFrames {
  public:
    explicit MarkedFrames(std::vector<std::vector<ci16>> frames) : frames_(std::move(frames)) {
        batch.frames = frames_.size();
        for (std::size_t i = 0; i < frames_.size(); ++i) batch.samples[0][i] = frames_[i].data();
    }
    FrameBatch batch;

  private:
    std::vector<std::vector<ci16>> frames_;
};

/// A frame whose marker rises and falls at places in turn, from a first value on.
std::vector<ci16> marked(bool marker, const std::vector<int>& changes) {
    std::vector<ci16> turn(2048);
    for (int j = 0; j < 2048; ++j) {
        if (std::ranges::count(changes, j) > 0) marker = !marker;
        // Either of I and Q can carry the marker.
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
        std::optional<TriggerFinder::Place> found;
    };
    const Case cases[] = {
        {"rising", +1, {marked(false, {100, 200})}, {true}, {{0, 100}}},
        {"falling", -1, {marked(false, {100, 200})}, {true}, {{0, 200}}},
        {"at the first sample", +1, {marked(true, {})}, {true}, {{0, 0}}},
        {"at the last sample", +1, {marked(false, {2047})}, {true}, {{0, 2047}}},
        {"in an unmarked packet", +1, {marked(false, {100})}, {false}, std::nullopt},
        {"in the second frame", +1, {marked(false, {}), marked(false, {5})}, {true, true}, {{1, 5}}},
        {"the marker stood high when the packets began to be marked",
         +1,
         {marked(true, {}), marked(true, {50, 60})},
         {false, true},
         {{1, 60}}},
        {"twice", +1, {marked(false, {10, 20, 30}), marked(true, {40, 50})}, {true, true}, {{0, 10}}},
    };
    for (const Case& c : cases) {
        MarkedFrames turns(c.turns);
        std::copy(c.triggered.begin(), c.triggered.end(), turns.batch.triggered.begin());
        TriggerFinder finder(c.edge);
        EXPECT_TRUE(finder.find(turns.batch) == c.found) << c.what;
    }

    // From batch to batch: the last sample's marker is the one that counts.
    TriggerFinder finder(+1);
    MarkedFrames high({marked(false, {10})}), next({marked(true, {70, 80})});
    high.batch.triggered[0] = next.batch.triggered[0] = true;
    EXPECT_EQ(finder.find(high.batch)->sample, 10);
    EXPECT_EQ(finder.find(next.batch)->sample, 80);
}

}  // namespace
}  // namespace hxr
