#include "netconfig/boot_image.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "netconfig/little_endian.h"
#include "usb_installation.h"

namespace hxr {
namespace {

using test::Bytes;
using Image = std::vector<std::byte>;

Image bytesOf(const Bytes& bytes) {
    const auto all = std::as_bytes(std::span(bytes));
    return {all.begin(), all.end()};
}

/// Whether an image verifies, and whether it is told that it doesn't.
std::pair<bool, bool> verified(const Image& image) {
    testing::internal::CaptureStdout();
    const bool right = verifyChecksum(image);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(said.empty() || said == "Fail to boot due to checksum error\n");
    return {right, !said.empty()};
}

// One record of two words: 0x00000001 and 0xFFFFFFFF, whose sum wraps to nothing.
const Bytes worked{'C',  'Y',  0x1C, 0xB0, 2, 0, 0, 0, 0x00, 0x30, 0x00, 0x40, 1, 0, 0, 0,
                   0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0x04, 0x30, 0x00, 0x40, 0, 0, 0, 0};

TEST(BootImage, ChecksumIsTheSumOfAllDataWords) {
    EXPECT_EQ(verified(bytesOf(worked)), std::pair(true, false));
    EXPECT_EQ(verified(bytesOf(test::firmware())), std::pair(true, false));
    Image image = bytesOf(worked);
    image[12] = std::byte{7};
    EXPECT_EQ(verified(image), std::pair(false, true));
    storeChecksum(image);
    EXPECT_EQ(wordAt(image, 28), 6U);
    EXPECT_EQ(verified(image), std::pair(true, false));
}

TEST(BootImage, WalkStaysWithinTheImage) {
    struct Case {
        const char* what;
        std::function<void(Image&)> spoil;
        bool told;
    };
    const Case cases[] = {
        {"no letters", [](Image& image) { image[1] = std::byte{'Z'}; }, false},
        {"nothing at all", [](Image& image) { image.clear(); }, false},
        {"no checksum", [](Image& image) { image.resize(28); }, true},
        {"half a checksum", [](Image& image) { image.resize(30); }, true},
        {"no end", [](Image& image) { image.resize(20); }, true},
        {"data cut", [](Image& image) { image.resize(18); }, true},
        {"half a head", [](Image& image) { image.resize(7); }, true},
        {"a record past the end", [](Image& image) { putWord(image, 4, 7); }, true},
        {"a huge record", [](Image& image) { putWord(image, 4, 0xFFFFFFFF); }, true},
        {"a record whose length wraps", [](Image& image) { putWord(image, 4, 0x40000002); }, true},
    };
    for (const Case& c : cases) {
        Image image = bytesOf(worked);
        c.spoil(image);
        image.shrink_to_fit();
        EXPECT_EQ(verified(image), std::pair(false, c.told)) << c.what;
        const Image before = image;
        storeChecksum(image);
        EXPECT_EQ(image, before) << c.what;
    }
}

TEST(BootImage, SerialNumberTakesThePlaceholdersPlace) {
    for (const std::int32_t serial : {20000001, 99999999, 1234567, 123456789, -1234567, 0}) {
        Image image = bytesOf(test::firmware());
        putSerialNumber(image, serial);
        const bool fits = std::to_string(serial).size() == 8;
        const std::string text = fits ? std::to_string(serial) : "11111111";
        const Bytes expected = test::firmware(0x0203, std::u16string(text.begin(), text.end()));
        EXPECT_EQ(image, bytesOf(expected)) << serial;
    }
    // The digits are there, but not at every second byte.
    Image plain = bytesOf(worked);
    plain.insert(plain.begin() + 12, 8, std::byte{'1'});
    putWord(plain, 4, 4);
    const Image before = plain;
    putSerialNumber(plain, 20000001);
    EXPECT_EQ(plain, before);
}

TEST(BootImage, VersionStandsBehindItsMark) {
    const Image image = bytesOf(test::firmware(0x1234));
    const auto version = firmwareVersion(image);
    ASSERT_TRUE(version);
    EXPECT_EQ((*version)[0], std::byte{0x12});
    EXPECT_EQ((*version)[1], std::byte{0x34});
    EXPECT_FALSE(firmwareVersion(bytesOf(worked)));
    // The mark may begin anywhere but at the very end.
    for (const std::size_t behind : {2, 3}) {
        Image late(100);
        std::memcpy(late.data() + late.size() - 6 - behind, "FW Ver", 6);
        EXPECT_EQ(firmwareVersion(late).has_value(), behind == 3) << behind;
    }
}

}  // namespace
}  // namespace hxr
