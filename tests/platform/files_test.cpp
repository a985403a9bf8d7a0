#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include <string>
#include <vector>

#include "platform/clock.h"
#include "support/temporary_folder.h"

namespace hxr::platform {
namespace {

std::vector<std::byte> bytes(std::size_t count, int value) { return std::vector(count, std::byte(value)); }

std::size_t entriesOf(const std::filesystem::path& folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Files, AreReplacedWholeOrNotAtAll) {
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "file";
    ASSERT_TRUE(replaceFile(file, bytes(10000, 1)));
    ASSERT_TRUE(replaceFile(file, bytes(5000, 2)));
    auto content = bytes(5000, 0);
    EXPECT_TRUE(readFile(file, content));
    EXPECT_EQ(content, bytes(5000, 2));
    EXPECT_EQ(std::filesystem::file_size(file), 5000U);
    EXPECT_EQ(entriesOf(folder.path()), 1U);

    // What can't be replaced stays, and nothing is left beside it.
    std::filesystem::create_directory(folder.path() / "taken");
    EXPECT_FALSE(replaceFile(folder.path() / "taken", bytes(10, 3)));
    EXPECT_FALSE(replaceFile(folder.path() / "missing" / "file", bytes(10, 3)));
    EXPECT_EQ(entriesOf(folder.path()), 2U);
}

TEST(Files, ThatTheDiskHasNoRoomForStayAsTheyWere) {
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "file";
    ASSERT_TRUE(replaceFile(file, bytes(3000, 1)));
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{4096, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &small);
    const bool replaced = replaceFile(file, bytes(10000, 2));
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(replaced);
    auto content = bytes(3000, 0);
    EXPECT_TRUE(readFile(file, content));
    EXPECT_EQ(content, bytes(3000, 1));
    EXPECT_EQ(entriesOf(folder.path()), 1U);
}

TEST(Files, ShortOnesAreNotRead) {
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "file";
    ASSERT_TRUE(replaceFile(file, bytes(99, 1)));
    auto content = bytes(100, 7);
    EXPECT_FALSE(readFile(file, content));
    EXPECT_EQ(content, bytes(100, 7));
    EXPECT_FALSE(readFile(folder.path(), content));
}

TEST(Folders, AreMadeWithAllThatLiesAbove) {
    const test::TemporaryFolder folder;
    EXPECT_TRUE(makeUsableFolder(folder.path() / "a" / "b" / "c"));
    EXPECT_TRUE(makeUsableFolder(folder.path() / "a" / "b" / "c"));
    ASSERT_TRUE(replaceFile(folder.path() / "file", bytes(1, 1)));
    EXPECT_FALSE(makeUsableFolder(folder.path() / "file"));
    EXPECT_FALSE(makeUsableFolder(folder.path() / "file" / "below"));
}

TEST(Calendar, CountsSecondsSince1970) {
    struct Case {
        UtcTime time;
        std::int64_t seconds, day;
    };
    for (const Case& c :
         {Case{{1970, 1, 1, 0, 0, 0}, 0, 0}, Case{{2000, 2, 29, 23, 59, 59}, 951868799, 951782400},
          Case{{2024, 5, 17, 13, 42, 7}, 1715953327, 1715904000},
          Case{{2038, 1, 19, 3, 14, 8}, 2147483648, 2147472000},
          Case{{2106, 2, 7, 6, 28, 15}, 4294967295, 4294944000},
          // A leap second, and fields that no calendar has, carry over.
          Case{{2016, 12, 31, 23, 59, 60}, 1483228800, 1483228800},
          Case{{2023, 0, 1, 0, 0, 0}, 1669852800, 1669852800},
          Case{{2023, 14, 1, 0, 0, 0}, 1706745600, 1706745600}}) {
        EXPECT_EQ(secondsSince1970(c.time), c.seconds);
        EXPECT_EQ(startOfDay(c.seconds), c.day);
    }
    EXPECT_EQ(startOfDay(-1), -86400);
}

}  // namespace
}  // namespace hxr::platform
