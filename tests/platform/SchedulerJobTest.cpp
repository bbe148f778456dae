#include "platform/SchedulerJob.h"

#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <optional>
#include <string_view>
#include <vector>

namespace veltrin::platform {
namespace {

using Arguments = std::vector<std::string_view>;

std::optional<unsigned> jobOf(const Arguments &arguments) {
    return schedulerJob(arguments);
}

TEST(SchedulerJob, IsKnownByTheArguments) {
    EXPECT_EQ(jobOf({"Queue", "12", "user", "title", "1", ""}), 12U);
    EXPECT_EQ(jobOf({"usb://x", "7", "user", "title", "1", "media=A4", "/tmp/file"}), 7U);
}

TEST(SchedulerJob, IsNotKnownByOthers) {
    EXPECT_EQ(jobOf({}), std::nullopt);
    EXPECT_EQ(jobOf({"veltrin-printer", "7", "user", "title", "1"}), std::nullopt);
    EXPECT_EQ(jobOf({"Queue", "7", "user", "title", "1", "", "/tmp/file", "more"}), std::nullopt);
    EXPECT_EQ(jobOf({"printer", "7a", "user", "title", "1", ""}), std::nullopt);
    EXPECT_EQ(jobOf({"printer", "", "user", "title", "1", ""}), std::nullopt);
    EXPECT_EQ(jobOf({"printer", "--jobs=1", "--stay", "--output=x", "--report=y", "uri"}), std::nullopt);
}

TEST(SchedulerJob, IsKnownOfARunningProcess) {
    test::Process process({"/bin/sleep", {"sleep", "60", "0", "0", "0", "0"}});
    EXPECT_TRUE(process.waitUntil([&] { return schedulerJob(process.id()) == 60U; }));
    const test::Process other({"/bin/sleep", {"sleep", "60"}});
    EXPECT_EQ(schedulerJob(other.id()), std::nullopt);
    EXPECT_EQ(schedulerJob(pid_t{-1}), std::nullopt);
}

TEST(SchedulerJob, IsNothingAgainstAProcessOfNoJob) {
    test::Process process({"/bin/sleep", {"sleep", "60", "0", "0", "0", "0"}});
    ASSERT_TRUE(process.waitUntil([&] { return schedulerJob(process.id()).has_value(); }));
    EXPECT_EQ(objectionToPeer(process.id()), "") << "this process has none";
}

TEST(SchedulerJob, IsNotEndedByAProcessOfNoJob) {
    test::Process process({"/bin/sleep", {"sleep", "60", "0", "0", "0", "0"}});
    ASSERT_TRUE(process.waitUntil([&] { return schedulerJob(process.id()).has_value(); }));
    EXPECT_FALSE(askPeerToEnd(process.id())) << "this process has none";
    process.send(SIGKILL);
    EXPECT_EQ(process.finish().signal, SIGKILL);
}

} // namespace
} // namespace veltrin::platform
