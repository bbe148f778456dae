#include "driver/SpooledPages.h"

#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SpooledPagesTest : public testing::Test {
  protected:
    static constexpr const char *folder = "/tmp/spool";

    SpooledPagesTest() {
        std::filesystem::create_directories(folder);
        setenv("TMPDIR", folder, 1);
    }

    ~SpooledPagesTest() override { std::filesystem::remove_all(folder); }

    static std::vector<std::string> files() { return test::namesIn(folder); }

    /// Spools so many pages, each a file that holds its number.
    static std::vector<std::string> spool(SpooledPages &pages, int count) {
        std::vector<std::string> paths;
        for (int number = 0; number < count; ++number) {
            SpoolFile file;
            EXPECT_TRUE(file.isOpen());
            const std::string contents = std::to_string(number);
            EXPECT_EQ(write(file.descriptor(), contents.data(), contents.size()), 1);
            paths.push_back(file.path());
            pages.add(file.path());
            file.keep();
        }
        return paths;
    }

    static std::vector<std::string> copyOf(const SpooledPages &pages) {
        std::vector<std::string> paths;
        for (std::uint32_t i = 0; i < pages.pathCount(); ++i) {
            paths.push_back(pages.path(i));
        }
        return paths;
    }
};

TEST_F(SpooledPagesTest, AKeptFileIsTheOwnersAloneAndClosedButNotRemovedAtTheEnd) {
    const std::size_t open = test::namesIn("/proc/self/fd").size();
    std::string path;
    {
        SpoolFile file;
        file.keep();
        path = file.path();

        struct stat status {};

        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        EXPECT_TRUE(path.starts_with(std::string(folder) + "/"));
    }
    EXPECT_EQ(test::namesIn("/proc/self/fd").size(), open);
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(SpooledPagesTest, AFileThatNobodyKeepsIsRemoved) {
    {
        const SpoolFile file;
        EXPECT_THAT(files(), SizeIs(1));
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(SpooledPagesTest, AFileThatCannotBeMadeIsNotOpen) {
    std::filesystem::remove_all(folder);
    EXPECT_FALSE(SpoolFile().isOpen());
}

TEST_F(SpooledPagesTest, ACopyIsChosenReorderedAndEndedWithTheBlankPage) {
    SpooledPages pages;
    const std::vector<std::string> paths = spool(pages, 5);
    EXPECT_EQ(pages.pageCount(), 5U);
    EXPECT_EQ(pages.origPath(3), paths[3]);
    EXPECT_EQ(pages.pathCount(), 0U);
    pages.select({3, 1, 1});
    pages.appendBlankPage();
    EXPECT_THAT(copyOf(pages), ElementsAre(paths[3], paths[1], paths[1], paths[4]));
    pages.reorder({3, 0, 1, 2});
    EXPECT_THAT(copyOf(pages), ElementsAre(paths[4], paths[3], paths[1], paths[1]));
    pages.select({0});
    EXPECT_THAT(copyOf(pages), ElementsAre(paths[0]));
    EXPECT_EQ(pages.pageCount(), 5U);
}

TEST_F(SpooledPagesTest, EveryFileIsRemovedChosenOrNot) {
    SpooledPages pages;
    spool(pages, 3);
    pages.select({1});
    EXPECT_THAT(files(), SizeIs(3));
    pages.cleanupSpoolFiles();
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(pages.pageCount(), 0U);
    EXPECT_EQ(pages.pathCount(), 0U);
}

TEST_F(SpooledPagesTest, NothingIsLeftOfPagesThatAreGivenUp) {
    {
        SpooledPages pages;
        spool(pages, 3);
    }
    EXPECT_THAT(files(), IsEmpty());
}

} // namespace
} // namespace veltrin
