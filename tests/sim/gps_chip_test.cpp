#include "sim/gps_chip.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace hxr::sim {
namespace {

using Words = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

/// Solutions on, once a second.
const Words everySecond = {0x8A0662B5, 0x01000019, 0x00010000, 0x0201107A, 0x00107A00,
                           0x30210001, 0x000A03E8, 0xBB012091, 0xFFFFFFB5};
/// The time pulse.
const Words timePulse = {0x8A0662B5, 0x01000042, 0x00230000, 0x30002005, 0x01200500, 0x40050002, 0x000F4240,
                         0x40050003, 0x000F4240, 0x40050004, 0x00000001, 0x40050005, 0x00000032, 0x10050007,
                         0x05000901, 0x000B0110, 0x0C011005, 0x00200500, 0xFFFF7576};
/// A unit that doesn't move.
const Words stationary = {0x8A0662B5, 0x01000009, 0x00210000, 0xEE022011, 0xFFFFFF4B};

/// A message around a payload, filled up to whole words with idle bytes.
Words message(std::uint8_t classCode, std::uint8_t id, const Bytes& payload) {
    Bytes bytes = {0xB5, 0x62, classCode, id, static_cast<std::uint8_t>(payload.size()), 0};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    unsigned sum = 0, sumOfSums = 0;
    for (std::size_t i = 2; i < bytes.size(); ++i) sumOfSums += sum += bytes[i];
    bytes.push_back(static_cast<std::uint8_t>(sum));
    bytes.push_back(static_cast<std::uint8_t>(sumOfSums));
    while (bytes.size() % 4 != 0) bytes.push_back(0xFF);
    Words words(bytes.size() / 4);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        words[i / 4] |= static_cast<std::uint32_t>(bytes[i]) << (i % 4 * 8);
    return words;
}

TEST(GpsChip, KeepsTheValuesOfSoundMessages) {
    GpsChip chip;
    EXPECT_TRUE(chip.take(everySecond).empty());
    EXPECT_EQ(
        chip.configuration(),
        (GpsChip::Configuration{{0x107A0001, 1}, {0x107A0002, 0}, {0x30210001, 1000}, {0x2091000A, 1}}));
    EXPECT_TRUE(chip.take(timePulse).empty());
    EXPECT_TRUE(chip.take(stationary).empty());
    EXPECT_EQ(chip.configuration().size(), 15u);
    EXPECT_EQ(chip.configuration().at(0x40050002), 1'000'000u);
    EXPECT_EQ(chip.configuration().at(0x20110021), 2u);
    EXPECT_TRUE(chip.take(message(6, 0x8A, {0, 1, 0, 0, 1, 0, 5, 0x50, 1, 2, 3, 4, 5, 6, 7, 8})).empty());
    EXPECT_EQ(chip.configuration().at(0x50050001), 0x0807060504030201u);
}

TEST(GpsChip, TakesAMessageThatGoesOnInTheNextBlockAndTwoInOne) {
    GpsChip chip;
    EXPECT_TRUE(chip.take(std::span(everySecond).first(4)).empty());
    EXPECT_TRUE(chip.configuration().empty());
    Words rest(everySecond.begin() + 4, everySecond.end());
    rest.insert(rest.end(), stationary.begin(), stationary.end());
    EXPECT_TRUE(chip.take(rest).empty());
    EXPECT_EQ(chip.configuration().size(), 5u);
}

TEST(GpsChip, TellsWhatIsWrongAndTakesNothingOfIt) {
    Words wrongSum = stationary;
    wrongSum[3] ^= 0x00010000;
    Words stray = stationary;
    stray.insert(stray.begin(), 0xFFFF00FF);
    const struct {
        const char* wrong;
        Words words;
        std::size_t values;
    } cases[] = {
        {"checksum", wrongSum, 0},
        {"outside a message", stray, 1},
        {"outside a message", {0x8A0663B5, 0xFFFFFFFF}, 0},
        {"longer than", {0x8A0662B5, 0xFFFF0900}, 0},
        {"unknown kind", message(6, 1, {1, 7, 1}), 0},
        {"impossible header", message(6, 0x8A, {0, 1, 0}), 0},
        {"impossible header", message(6, 0x8A, {1, 1, 0, 0}), 0},
        {"impossible header", message(6, 0x8A, {0, 0, 0, 0}), 0},
        {"inside a key", message(6, 0x8A, {0, 1, 0, 0, 0x21, 0, 0x11, 0x20, 2, 1}), 0},
        {"without the value of key 0x20110021", message(6, 0x8A, {0, 1, 0, 0, 0x21, 0, 0x11, 0x20}), 0},
        {"without the value of key 0x60110021", message(6, 0x8A, {0, 1, 0, 0, 0x21, 0, 0x11, 0x60, 2}), 0},
        {"a flag beyond 1", message(6, 0x8A, {0, 1, 0, 0, 0x01, 0, 0x7A, 0x10, 2}), 0},
    };
    for (const auto& test : cases) {
        GpsChip chip;
        const auto lines = chip.take(test.words);
        ASSERT_EQ(lines.size(), 1u) << test.wrong;
        EXPECT_NE(lines[0].find(test.wrong), std::string::npos) << lines[0];
        EXPECT_EQ(chip.configuration().size(), test.values) << test.wrong;
    }
}

TEST(GpsChip, GivesSolutionsAtItsRateUntilTheyAreSwitchedOff) {
    const std::chrono::sys_seconds minute{1'700'000'040s};
    GpsChip chip;
    EXPECT_EQ(chip.solutionTime(minute + 7s), minute + 7s);
    chip.take(message(6, 0x8A, {0, 1, 0, 0, 0x01, 0, 0x21, 0x30, 0x88, 0x13}));  // 5 s
    EXPECT_EQ(chip.solutionTime(minute + 19s), minute + 15s);
    chip.take(message(6, 0x8A, {0, 1, 0, 0, 0x0A, 0, 0x91, 0x20, 0}));
    EXPECT_EQ(chip.solutionTime(minute + 40s), minute + 15s);
    chip.take(everySecond);
    EXPECT_EQ(chip.solutionTime(minute + 41s), minute + 41s);
}

}  // namespace
}  // namespace hxr::sim
