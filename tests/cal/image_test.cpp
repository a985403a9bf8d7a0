#include "cal/image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <vector>

#include "platform/aligned_memory.h"
#include "sim/synthetic_image.h"
#include "support/temporary_folder.h"

namespace hxr {
namespace {

using Image = platform::AlignedPointer<HXRCalData>;

Image imageOf(const std::vector<std::uint8_t>& bytes) {
    Image image = platform::makeAligned<HXRCalData>();
    std::memcpy(image.get(), bytes.data(), sizeof *image);
    return image;
}

Image dummyImage() {
    Image image = platform::makeAligned<HXRCalData>();
    std::memset(image.get(), 0, sizeof *image);
    hxrCalBuildDummyCorrections(image.get());
    return image;
}

std::ptrdiff_t offsetIn(const HXRCalData& image, const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&image);
}

TEST(CalImage, LaysItsTablesOutAsTheFlashDoes) {
    const Image image = dummyImage();
    EXPECT_EQ(offsetIn(*image, &image->gainTable[1][2][3][4]), 0x09744C);
    EXPECT_EQ(offsetIn(*image, &image->fullGridRatio[1][2][3][4]), 0x13171C);
    EXPECT_EQ(offsetIn(*image, &image->lowGridPhase[1][2][3][4]), 0x5ACE5C);
    EXPECT_EQ(sizeof image->gainTable[0], 57568U);
    EXPECT_EQ(sizeof image->fullGridLevel[0], 0x34340U);
    EXPECT_EQ(sizeof image->lowGridLevel[0], 0xF3C0U);
    EXPECT_EQ(sizeof image->phasePairTable, 0x4040U);
}

TEST(CalImage, ChecksumCoversTheChamberSectionButNotItsHistory) {
    const auto good = sim::makeSyntheticImage({});
    ASSERT_TRUE(cal::checksumPasses(*imageOf(good)));
    for (const std::size_t ignored :
         {0x0U, 0x3FFFFU, 0x40000U, 0x7FFFFU, 0x80020U, 0x8009FU, 0x800A0U, 0x8029FU}) {
        auto changed = good;
        changed[ignored] ^= 0x10;
        EXPECT_TRUE(cal::checksumPasses(*imageOf(changed))) << ignored;
    }
    for (const std::size_t covered : {0x80000U, 0x80008U, 0x80010U, 0x8001BU, 0x8001CU, 0x8001FU, 0x802A0U,
                                      0x80AD4U, 0x66F433U, 0x66F434U, 0x7FFFFFU}) {
        auto changed = good;
        changed[covered] ^= 0x10;
        EXPECT_FALSE(cal::checksumPasses(*imageOf(changed))) << covered;
    }
}

TEST(CalImage, DummyCorrectsNothing) {
    const Image image = dummyImage();
    EXPECT_FALSE(hxrCalDoesFlashHeaderExist(image.get()));
    EXPECT_FALSE(hxrCalHasPretestCorrections(image.get()));
    EXPECT_FALSE(hxrCalDoesCorrectionsExist(reinterpret_cast<const std::uint8_t*>(image.get())));
    EXPECT_FALSE(hxrCalDoesCBBDataExist(&image->cbb));
    EXPECT_EQ(hxrCalGetCorrectionCalDate(image.get()), ~std::uint64_t{0});

    const auto bytes = reinterpret_cast<const std::uint8_t*>(image.get());
    struct Region {
        std::size_t first, end;
        float value;  // NaN: erased
    };
    constexpr float erased = std::numeric_limits<float>::quiet_NaN();
    for (const Region& region :
         {Region{0, 0x41720, erased}, Region{0x45760, 0x45F68, 1}, Region{0x45F68, 0x47780, 0},
          Region{0x47780, 0x802A0, erased}, Region{0x802B0, 0x802CC, erased}, Region{0x80AD4, 0xE30F4, 0},
          Region{0xE30F4, 0x2507B4, 1}, Region{0x2507B4, 0x52B534, 0}, Region{0x52B534, 0x595F74, 1},
          Region{0x595F74, 0x66F434, 0}, Region{0x66F434, 0x800000, erased}}) {
        std::size_t wrong = 0;
        for (std::size_t offset = region.first; offset < region.end; offset += 4) {
            float value;
            std::memcpy(&value, bytes + offset, 4);
            const bool asErased = bytes[offset] == 0xFF && bytes[offset + 3] == 0xFF;
            if (std::isnan(region.value) ? !asErased : value != region.value) ++wrong;
        }
        EXPECT_EQ(wrong, 0U) << std::hex << region.first;
    }
    for (const auto& levels : image->vsgLevel) {
        for (int step = 0; step < 7; ++step) ASSERT_EQ(levels[step], 1000.0F);
        ASSERT_TRUE(std::isnan(levels[7]));
    }
    EXPECT_EQ(image->coarseTuneByTemp[0], 0);
    EXPECT_EQ(image->coarseTuneByTemp[6], 0);
    EXPECT_EQ(image->reserved3[0], 0xFF);
    EXPECT_EQ(image->channelGainCode[0][0], 8);
    EXPECT_EQ(image->channelGainCode[3][513], 8);
    hxrCalBuildDummyCorrections(nullptr);
}

TEST(CalImage, TellsWhichSectionsAreThere) {
    const Image whole = imageOf(sim::makeSyntheticImage({.calDate = 0x1'2345'6789}));
    EXPECT_TRUE(hxrCalDoesFlashHeaderExist(whole.get()));
    EXPECT_TRUE(hxrCalHasPretestCorrections(whole.get()));
    EXPECT_TRUE(hxrCalDoesCorrectionsExist(reinterpret_cast<const std::uint8_t*>(whole.get())));
    EXPECT_TRUE(hxrCalDoesCBBDataExist(&whole->cbb));
    EXPECT_EQ(hxrCalGetCorrectionCalDate(whole.get()), 0x1'2345'6789U);
    EXPECT_FALSE(hxrCalHasPretestCorrections(imageOf(sim::makeSyntheticImage({.pretest = false})).get()));
    EXPECT_FALSE(hxrCalDoesCBBDataExist(&imageOf(sim::makeSyntheticImage({.cbb = false}))->cbb));

    Image erased = imageOf(sim::makeBlankImage());
    erased->checksum = 0;  // behind the header
    EXPECT_FALSE(hxrCalDoesFlashHeaderExist(erased.get()));
    erased->reserved2 = 0;
    EXPECT_TRUE(hxrCalDoesFlashHeaderExist(erased.get()));
    erased->cbb.unused[sizeof erased->cbb.unused - 1] = 0;
    EXPECT_TRUE(hxrCalDoesCBBDataExist(&erased->cbb));

    EXPECT_FALSE(hxrCalDoesFlashHeaderExist(nullptr));
    EXPECT_FALSE(hxrCalHasPretestCorrections(nullptr));
    EXPECT_FALSE(hxrCalDoesCorrectionsExist(nullptr));
    EXPECT_FALSE(hxrCalDoesCBBDataExist(nullptr));
    EXPECT_EQ(hxrCalGetCorrectionCalDate(nullptr), ~std::uint64_t{0});
}

TEST(CalImage, LooksForDataAsFarAsItIsTold) {
    std::vector<std::uint8_t> bytes(16, 0xFF);
    bytes[9] = 0xFE;
    EXPECT_FALSE(hxrCalFlashDataPresent(nullptr, 16));
    EXPECT_FALSE(hxrCalFlashDataPresent(bytes.data(), 0));
    EXPECT_FALSE(hxrCalFlashDataPresent(bytes.data(), -1));
    EXPECT_FALSE(hxrCalFlashDataPresent(bytes.data(), 9));
    EXPECT_TRUE(hxrCalFlashDataPresent(bytes.data(), 10));
}

TEST(CalImage, NamesTheNominalTemperatures) {
    const std::vector<std::pair<int, double>> cases{
        {std::numeric_limits<int>::min(), -30}, {0, -30}, {1, -15}, {3, 15}, {6, 60}, {7, 60}};
    for (const auto& [index, degrees] : cases) EXPECT_EQ(hxrCalGetTempFromIndex(index), degrees);
}

TEST(CalImage, PropagatesOneTemperature) {
    const auto original = sim::makeSyntheticImage({});
    const Image before = imageOf(original);
    const Image image = imageOf(original);
    hxrCalPropagateSingleTempCal(*image, 2, 5);
    EXPECT_EQ(image->coarseTuneByTemp[5], before->coarseTuneByTemp[2]);
    EXPECT_EQ(image->tempAtIndex[5], before->tempAtIndex[2] + 45.0F);
    EXPECT_EQ(std::memcmp(image->gainTable[5], before->gainTable[2], sizeof image->gainTable[5]), 0);
    EXPECT_EQ(std::memcmp(image->fullGridRatio[5], before->fullGridRatio[2], sizeof image->fullGridRatio[5]),
              0);
    EXPECT_EQ(std::memcmp(image->fullGridPhase[5], before->fullGridPhase[2], sizeof image->fullGridPhase[5]),
              0);
    EXPECT_EQ(std::memcmp(image->fullGridLevel[5], before->fullGridLevel[2], sizeof image->fullGridLevel[5]),
              0);
    EXPECT_EQ(std::memcmp(image->lowGridRatio[5], before->lowGridRatio[2], sizeof image->lowGridRatio[5]), 0);
    EXPECT_EQ(std::memcmp(image->lowGridPhase[5], before->lowGridPhase[2], sizeof image->lowGridPhase[5]), 0);
    EXPECT_EQ(std::memcmp(image->lowGridLevel[5], before->lowGridLevel[2], sizeof image->lowGridLevel[5]), 0);
    EXPECT_NE(std::memcmp(before->gainTable[5], before->gainTable[2], sizeof image->gainTable[5]), 0);

    // All else is as it was: the slices before the destination, and what has no temperature.
    EXPECT_EQ(std::memcmp(image->gainTable[6], before->gainTable[6], sizeof image->gainTable[6]), 0);
    EXPECT_EQ(std::memcmp(image->gainTable, before->gainTable, 5 * sizeof image->gainTable[0]), 0);
    EXPECT_EQ(std::memcmp(image->channelGainCode, before->channelGainCode, sizeof image->channelGainCode), 0);
    EXPECT_EQ(std::memcmp(image->phasePairTable, before->phasePairTable, sizeof image->phasePairTable), 0);
    EXPECT_EQ(image->checksum, before->checksum);

    for (const auto& [source, destination] : {std::pair{3, 3}, {-1, 2}, {2, 7}}) {
        const Image untouched = imageOf(original);
        hxrCalPropagateSingleTempCal(*untouched, source, destination);
        EXPECT_EQ(std::memcmp(untouched.get(), original.data(), original.size()), 0);
    }
}

TEST(CalImage, LoadsFromWholeFilesOnly) {
    const test::TemporaryFolder folder;
    const std::string file = (folder.path() / "image").string();
    const auto content = sim::makeSyntheticImage({.goodChecksum = false});
    const auto writeBytes = [&](std::size_t count) {
        std::vector<char> bytes(content.begin(), content.end());
        bytes.resize(count);
        std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(count));
    };
    const Image image = dummyImage();
    EXPECT_FALSE(hxrCalLoadFromFile(nullptr, image.get()));
    EXPECT_FALSE(hxrCalLoadFromFile(file.c_str(), image.get()));
    EXPECT_FALSE(hxrCalLoadFromFile(folder.path().c_str(), image.get()));
    writeBytes(content.size() - 1);
    EXPECT_FALSE(hxrCalLoadFromFile(file.c_str(), image.get()));
    EXPECT_FALSE(hxrCalLoadFromFile(file.c_str(), nullptr));
    for (const std::size_t surplus : {0U, 5U}) {
        writeBytes(content.size() + surplus);
        EXPECT_TRUE(hxrCalLoadFromFile(file.c_str(), image.get()));
        EXPECT_EQ(std::memcmp(image.get(), content.data(), content.size()), 0);
    }
}

}  // namespace
}  // namespace hxr
