#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mount.h>

#include <filesystem>
#include <string>

namespace veltrin::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Isolation, HidesAFolderFromThisProcessAndThoseItStarts) {
    writeFile("/tmp/folder/file", "");
    std::string problem;
    EXPECT_TRUE(hideFolder("/tmp/folder", problem)) << problem;
    EXPECT_THAT(namesIn("/tmp/folder"), IsEmpty());
    EXPECT_EQ(run({"/bin/ls", {"ls", "/tmp/folder"}}).output, "");
    EXPECT_EQ(umount("/tmp/folder"), 0);
    EXPECT_THAT(namesIn("/tmp/folder"), ElementsAre("file"));
    std::filesystem::remove_all("/tmp/folder");
}

TEST(Isolation, SaysWhyAFolderCannotBeHidden) {
    std::string problem;
    EXPECT_TRUE(hideFolder("/tmp/no folder", problem)) << "there is nothing to hide";
    writeFile("/tmp/file", "");
    EXPECT_FALSE(hideFolder("/tmp/file", problem));
    EXPECT_EQ(problem, "hide /tmp/file: Not a directory");
    std::filesystem::remove("/tmp/file");
}

TEST(Isolation, KnowsNoScheduler) {
    EXPECT_EQ(run({"/bin/sh", {"sh", "-c", "echo $CUPS_SERVER"}}).output, std::string(noScheduler) + "\n");
    EXPECT_FALSE(std::filesystem::exists(noScheduler));
}

} // namespace
} // namespace veltrin::test
