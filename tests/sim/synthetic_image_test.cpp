#include "sim/synthetic_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace hxr::sim {
namespace {

using Image = std::vector<std::uint8_t>;

template <typename Value>
Value at(const Image& image, std::size_t offset) {
    Value value;
    std::memcpy(&value, image.data() + offset, sizeof value);
    return value;
}

/// The sum by the long way: blank what doesn't count in a copy, then add up every word.
std::uint32_t plainSum(Image copy) {
    std::fill_n(copy.begin(), 0x80000, 0xFF);
    std::fill_n(copy.begin() + 0x8001C, 4, 0xFF);
    std::fill(copy.begin() + 0x80020, copy.begin() + 0x802A0, 0xFF);
    std::uint32_t sum = 0;
    for (std::size_t offset = 0; offset < copy.size(); offset += 4) sum += at<std::uint32_t>(copy, offset);
    return sum;
}

bool erasedBetween(const Image& image, std::size_t begin, std::size_t end) {
    return std::all_of(image.begin() + static_cast<std::ptrdiff_t>(begin),
                       image.begin() + static_cast<std::ptrdiff_t>(end),
                       [](auto byte) { return byte == 0xFF; });
}

TEST(SyntheticImage, CarriesAChecksumThatAPlainSumConfirms) {
    const Image good = makeSyntheticImage({});
    ASSERT_EQ(good.size(), 8u << 20);
    EXPECT_EQ(at<std::uint32_t>(good, 0x8001C), plainSum(good));
    const Image bad = makeSyntheticImage({.goodChecksum = false});
    EXPECT_NE(at<std::uint32_t>(bad, 0x8001C), plainSum(bad));

    Image changed = good;
    changed[0x700000] ^= 0x55;
    changed[0x80021] ^= 0x55;
    changed[0x12345] ^= 0x55;
    sealImage(changed);
    EXPECT_EQ(at<std::uint32_t>(changed, 0x8001C), plainSum(changed));
}

TEST(SyntheticImage, LeavesAbsentSectionsErased) {
    const struct {
        SyntheticImageOptions options;
        std::size_t begin;
        std::size_t end;
    } cases[] = {{{.cbb = false}, 0, 0x40000},
                 {{.pretest = false}, 0x40000, 0x80000},
                 {{.chamber = false}, 0x80000, 0x800000}};
    for (const auto& test : cases) {
        const Image image = makeSyntheticImage(test.options);
        EXPECT_TRUE(erasedBetween(image, test.begin, test.end));
        for (const std::size_t section : {0x0u, 0x40000u, 0x80000u}) {
            EXPECT_EQ(erasedBetween(image, section, section + 16), section == test.begin);
        }
    }
    EXPECT_TRUE(erasedBetween(makeSyntheticImage({}), 0x66F434, 0x800000)) << "behind the last table";
}

TEST(SyntheticImage, BelongsToItsUnit) {
    const Image image = makeSyntheticImage({.serialNumber = 777, .calDate = 1'600'000'000});
    EXPECT_EQ(at<std::uint32_t>(image, 0x80008), 777u);
    EXPECT_EQ(at<std::uint64_t>(image, 0x80010), 1'600'000'000u);
    EXPECT_EQ(image, makeSyntheticImage({.serialNumber = 777, .calDate = 1'600'000'000}));
    EXPECT_NE(at<float>(image, 0x09744C), at<float>(makeSyntheticImage({.serialNumber = 778}), 0x09744C));
}

TEST(SyntheticImage, FillsEveryTableToItsEndWithPlausibleValues) {
    const Image image = makeSyntheticImage({});
    const struct {
        const char* table;
        std::size_t begin;
        std::size_t end;
        float low;
        float high;
    } tables[] = {
        {"vsgLevel", 0x41720, 0x45760, -40, 15},
        {"vsgGain", 0x45760, 0x45F68, 0.9f, 1.1f},
        {"vsgPhase", 0x45F68, 0x46770, -0.1f, 0.1f},
        {"vsgOffset", 0x46770, 0x47780, -0.01f, 0.01f},
        {"tempAtIndex", 0x802B0, 0x802CC, -31, 61},
        {"gainTable", 0x80AD4, 0xE30F4, -30, 20},
        {"fullGridRatio", 0xE30F4, 0x2507B4, 0.9f, 1.1f},
        {"fullGridPhase", 0x2507B4, 0x3BDE74, -0.1f, 0.1f},
        {"fullGridLevel", 0x3BDE74, 0x52B534, -1, 1},
        {"lowGridRatio", 0x52B534, 0x595F74, 0.9f, 1.1f},
        {"lowGridPhase", 0x595F74, 0x6009B4, -0.1f, 0.1f},
        {"lowGridLevel", 0x6009B4, 0x66B3F4, -1, 1},
        {"phasePairTable", 0x66B3F4, 0x66F434, -3.2f, 3.2f},
    };
    for (const auto& table : tables) {
        float lowest = table.high;
        float highest = table.low;
        bool inside = true;
        for (std::size_t offset = table.begin; offset < table.end; offset += 4) {
            const float value = at<float>(image, offset);
            inside = inside && value >= table.low && value <= table.high;  // false for a NaN, too
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
        EXPECT_TRUE(inside) << table.table;
        EXPECT_LT(lowest, highest) << table.table << " is flat";
    }
    for (std::size_t t = 1; t < 7; ++t) {
        EXPECT_GT(at<float>(image, 0x802B0 + 4 * t), at<float>(image, 0x802B0 + 4 * t - 4));
    }
    for (std::size_t j = 1; j < 8; ++j) {
        EXPECT_LT(at<float>(image, 0x41720 + 4 * j), at<float>(image, 0x41720 + 4 * j - 4));
    }
    EXPECT_EQ(at<std::uint64_t>(image, 0x800A0 + 3 * 8), 1'700'000'000u)
        << "the history ends with the calibration";
    EXPECT_EQ(at<std::uint16_t>(image, 0x80020 + 4 * 2), 0xFFFF);
}

}  // namespace
}  // namespace hxr::sim
