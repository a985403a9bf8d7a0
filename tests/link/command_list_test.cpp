#include "link/command_list.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "link/builders.h"
#include "link/words.h"

namespace hxr {
namespace {

using Words = std::vector<std::uint32_t>;

/// The words that were appended to the current packet of a list.
Words appended(const CommandList& list) {
    const auto packet = list.packet(list.packetCount() - 1);
    const std::size_t used =
        static_cast<std::size_t>(list.writeIndex()) - (list.packetCount() - 1) * packet.size();
    return Words(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(used));
}

CommandList filledUpTo(int words) {
    CommandList list;
    list.beginPacket();
    for (int i = 0; i < words; ++i) list.append(1);
    return list;
}

TEST(CommandList, GrowsByWholePacketsOfZeros) {
    CommandList list;
    EXPECT_EQ(list.packetCount(), 0U);
    list.append(5);  // no packet, no room
    EXPECT_TRUE(list.words().empty());

    list.beginPacket();
    EXPECT_EQ(list.words(), Words(512, 0));
    list.append(7);
    list.expectData(3);
    list.beginPacket();
    list.expectStatus(1);
    EXPECT_EQ(list.words().size(), 1024U);
    EXPECT_EQ(list.writeIndex(), 512);
    EXPECT_EQ(list.dataReplies(), (Words{3, 0}));
    EXPECT_EQ(list.statusReplies(), (Words{0, 1}));

    list.clear();
    EXPECT_EQ(list.packetCount(), 0U);
    EXPECT_EQ(list.writeIndex(), 0);
}

TEST(CommandList, DropsWhatDoesntFit) {
    CommandList full = filledUpTo(513);
    EXPECT_EQ(full.words().size(), 512U);
    EXPECT_EQ(full.writeIndex(), 512);

    CommandList list = filledUpTo(510);
    list.append({8, 8, 8});
    EXPECT_EQ(list.writeIndex(), 510);
    list.append({9, 9});
    EXPECT_EQ(list.words().back(), 9U);
}

TEST(CommandList, ARegisterAtThePacketsEndKeepsItsOpeningWord) {
    CommandList list = filledUpTo(511);
    appendRegister(list, 5, 77);
    EXPECT_EQ(list.words().back(), 0x04010005U);

    CommandList block = filledUpTo(509);
    appendRegisterBlock(block, 0x40, Words{1, 2, 3});
    EXPECT_EQ(Words(block.words().end() - 3, block.words().end()), (Words{0x04030040, 0, 0}));
}

TEST(Builders, WriteRegisters) {
    CommandList list;
    list.beginPacket();
    appendRegister(list, 0x1234, 0xCAFE);
    appendRegisterBlock(list, 0x20, Words{1, 2});
    appendRegisterBlock(list, 0x20, {});
    EXPECT_EQ(appended(list),
              (Words{0x04011234, 0xCAFE, 0, 0, 0, 0, 0x04020020, 1, 2, 0, 0, 0x04000020, 0, 0}));
}

/// The checksum of an IPv4 header as a router computes it: over the header's bytes.
std::uint32_t routersChecksum(std::uint16_t totalLength, std::uint32_t source, std::uint32_t destination) {
    const auto high = [](std::uint32_t value) { return value >> 16; };
    const auto low = [](std::uint32_t value) { return value & 0xFFFF; };
    std::uint64_t sum = 0;
    for (const std::uint32_t halfWord :
         {0x4500U, static_cast<std::uint32_t>(totalLength), 0U, 0U, 16U << 8 | 17U, 0U, high(source),
          low(source), high(destination), low(destination)}) {
        sum += halfWord;
    }
    while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint32_t>(~sum & 0xFFFF);
}

TEST(Builders, SetStreamDestinations) {
    struct Case {
        const char* destination;
        const char* source;
        std::uint32_t to, from;
    };
    for (const Case& c : {Case{"192.168.2.2", "192.168.2.10", 0xC0A80202, 0xC0A8020A},
                          Case{"255.255.255.255", "255.255.255.254", 0xFFFFFFFF, 0xFFFFFFFE},
                          Case{"0.0.0.0", "0.0.0.0", 0, 0}}) {
        CommandList list;
        list.beginPacket();
        appendStreamDestination(list, 2, c.destination, c.source, 4991, 0x0211A2B3C4D5);
        const std::uint32_t checksums =
            routersChecksum(8244, c.from, c.to) << 16 | routersChecksum(140, c.from, c.to);
        EXPECT_EQ(appended(list), (Words{0x04040328, c.to, 0x137F0211, 0xA2B3C4D5, checksums, 0, 0}));
    }
}

TEST(Builders, ReadAddressesAsFarAsTheyGo) {
    const std::vector<std::pair<const char*, std::uint32_t>> cases{
        {"192.168.2.2", 0xC0A80202},
        {"1.2.3", 0},
        {"", 0},
        {"1.2.3.", 0},
        {"10.256.3.4", 0x0A000000},
        {"300.1.1.1", 0},
        {"a.b.c.d", 0},
        {"1.2.3.256", 0x01020300},
        {"1.2.3.4.5", 0x01020304},
        {"1.2.99999999999999999999.4", 0x01020000}};
    for (const auto& [text, address] : cases) EXPECT_EQ(addressFromText(text), address) << text;
}

TEST(Builders, SteerTheTimebase) {
    struct Case {
        std::uint32_t reference;
        bool gpsUpdate;
        Words words;
    };
    for (const Case& c : {Case{0, false, {0x51044000, 0x4C000000, 0x0B048000}},
                          Case{1, false, {0x51044040, 0x4C000000, 0x0B008000}},
                          Case{0, true, {0x51044000, 0x4C000000, 0x0B088000}},
                          Case{1, true, {0x51044040, 0x4C000000, 0x0B088000}}}) {
        CommandList list;
        list.beginPacket();
        appendTimebaseWords(list, 0x8000, c.reference, c.gpsUpdate);
        EXPECT_EQ(appended(list), c.words);
    }
}

TEST(Builders, RouteChannels) {
    struct Case {
        std::vector<int> enabled;
        int focus, unit, decimation;
        bool local, littleEndian;
        std::uint32_t word;
    };
    for (const Case& c :
         {Case{{}, -1, 0, 1, false, false, 0x0F001100}, Case{{0}, 0, 0, 1, true, false, 0x0F003140},
          Case{{0, 2, 3}, 2, 0, 2, true, true, 0x0F003269}, Case{{0, 5, 7}, 5, 1, 4, false, true, 0x0F003358},
          Case{{0, 5, 7}, 5, 0, 4, false, false, 0x0F001301}}) {
        std::array<bool, 8> enabled{};
        for (const int channel : c.enabled) enabled[static_cast<std::size_t>(channel)] = true;
        CommandList list;
        list.beginPacket();
        appendChannelRoute(list, c.unit, {enabled, c.focus}, c.decimation, c.local, c.littleEndian);
        EXPECT_EQ(appended(list), Words{c.word});
    }
}

TEST(Builders, TellAUnitItsPlaceInTheGroup) {
    EXPECT_EQ(groupTimingByte(0, 1), 0);
    EXPECT_EQ(groupTimingByte(0, 2), 0xA2);
    EXPECT_EQ(groupTimingByte(1, 4), 0x74);
    EXPECT_EQ(groupTimingByte(2, 4), 0x44);
    EXPECT_EQ(groupTimingByte(3, 4), 0x14);
}

TEST(Words, CountPausesInTicks) {
    EXPECT_EQ(words::pauseTicks(100), 0x0062);
    EXPECT_EQ(words::pauseTicks(1000), 0x03D8);
    EXPECT_EQ(words::pauseTicks(10000), 0x2672);
    EXPECT_EQ(words::pauseTicks(1e9), 65535);
}

}  // namespace
}  // namespace hxr
