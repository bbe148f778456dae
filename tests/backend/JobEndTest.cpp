#include "backend/JobEnd.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

using namespace std::chrono_literals;

TEST(JobEndTest, AJobIsOverWhenNoFilterWillSendAnythingMore) {
    struct Case {
        std::string name;
        JobView job;
        bool isOver;
    };

    const std::vector<Case> table = {
        {"no filter yet", {}, false},
        {"a filter", {.isFilterThere = true}, false},
        {"between two documents", {.hasServed = true}, false},
        {"however long that takes", {.hasServed = true, .silence = 10min}, false},
        {"the second document", {.isFilterThere = true, .hasServed = true}, false},
        {"the last has gone", {.isInputOpen = false, .hasServed = true}, true},
        {"its goodbye is on the way", {.isInputOpen = false, .isFilterThere = true, .silence = 2s}, false},
        {"and does not come", {.isInputOpen = false, .isFilterThere = true, .silence = 2001ms}, true},
        {"none has come in time", {.isInputOpen = false, .silence = 2001ms}, true},
        {"none has come yet", {.isInputOpen = false, .silence = 2s}, false},
        {"cancelled", {.isFilterThere = true, .isCancelled = true}, false},
        {"cancelled in the second document",
         {.isFilterThere = true, .hasServed = true, .isCancelled = true},
         false},
        {"cancelled, and the filter has gone", {.hasServed = true, .isCancelled = true}, true},
        {"cancelled before a filter came", {.isCancelled = true, .silence = 10s}, false},
    };
    for (const Case &one : table) {
        EXPECT_EQ(isJobOver(one.job), one.isOver) << one.name;
    }
}

TEST(JobEndTest, ADevicesBackendThatKeepsAJobTooLongIsAskedToEndAndThenKilled) {
    struct Case {
        std::string name;
        DeviceView device;
        std::optional<int> signal;
    };

    const DeviceView unreachable = {.isOver = true, .isConnecting = true};
    const auto askedAt = [](DeviceView device, std::chrono::milliseconds since) {
        device.sinceEndAsked = since;
        return device;
    };
    const std::vector<Case> table = {
        {"a job under way", {}, {}},
        {"it prints the rest", {.isOver = true, .hasSpoken = true}, {}},
        {"it prints the rest silently", {.isOver = true}, {}},
        {"just cancelled", {.sinceCancelled = 0ms}, {}},
        {"cancelled, with time left", {.hasSpoken = true, .sinceCancelled = 20s}, {}},
        {"cancelled too long ago", {.hasSpoken = true, .sinceCancelled = 20'001ms}, SIGTERM},
        {"whether connected or not", {.isConnecting = true, .sinceCancelled = 20'001ms}, SIGTERM},
        {"and was asked just now", {.sinceCancelled = 20'001ms, .sinceEndAsked = 0ms}, {}},
        {"and may take its time", {.sinceCancelled = 22s, .sinceEndAsked = 2s}, {}},
        {"but not for ever", {.sinceCancelled = 23s, .sinceEndAsked = 2001ms}, SIGKILL},
        {"connecting for a job", {.isConnecting = true}, {}},
        {"connecting for a cancelled job that is not over", {.isConnecting = true, .sinceCancelled = 1s}, {}},
        {"connecting for nothing", unreachable, SIGTERM},
        {"connecting anew, after a record", {.isOver = true, .isConnecting = true, .hasSpoken = true}, {}},
        {"connecting for nothing, asked", askedAt(unreachable, 2s), {}},
        {"connecting for nothing, asked in vain", askedAt(unreachable, 2001ms), SIGKILL},
        {"connected after all", {.isOver = true, .sinceEndAsked = 2001ms}, {}},
    };
    for (const Case &one : table) {
        EXPECT_EQ(endSignalFor(one.device), one.signal) << one.name;
    }
}

TEST(JobEndTest, TheSchedulerGetsTheDevicesExitStatusOrOneThatSaysWhy) {
    struct Case {
        std::string name;
        JobEnding ending;
        int status;
    };

    const std::vector<Case> table = {
        {"printed", {.exitStatus = 0, .hasServed = true}, 0},
        {"failed", {.exitStatus = 1, .hasServed = true}, 1},
        {"wants a password", {.exitStatus = 2, .isCutOff = true, .hasServed = true}, 2},
        {"wants the job held", {.exitStatus = 3, .isCutOff = true}, 3},
        {"wants the queue stopped", {.exitStatus = 4, .isCutOff = true}, 4},
        {"wants another try", {.exitStatus = 6, .isCutOff = true, .hasWaited = true}, 6},
        {"crashed", {.exitStatus = {}, .isCutOff = true, .hasServed = true}, 1},
        {"ended too early", {.exitStatus = 0, .isCutOff = true, .hasServed = true}, 1},
        {"nothing came", {.exitStatus = 0}, 1},
        {"nothing came any more", {.exitStatus = 0, .hasWaited = true}, 7},
        {"printed after a wait", {.exitStatus = 0, .hasServed = true, .hasWaited = true}, 0},
        {"cancelled", {.exitStatus = 0, .isCutOff = true, .isCancelled = true}, 0},
        {"cancelled, and failed", {.exitStatus = 1, .isCancelled = true}, 1},
        {"cancelled, and ended by a signal", {.exitStatus = {}, .isCutOff = true, .isCancelled = true}, 0},
    };
    for (const Case &one : table) {
        EXPECT_EQ(exitStatusOf(one.ending), one.status) << one.name;
    }
}

} // namespace
} // namespace veltrin::backend
