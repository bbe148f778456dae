#include "ipc/BackendEnd.h"

#include "tests/support/FakePlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class BackendEndTest : public testing::Test {
  protected:
    test::FakePlatform platform;
    test::FakeNotificationCenter &center = platform.fakeNotificationCenter;
    std::vector<std::string> reports;
    std::vector<std::string> heard;
    std::string problem;
    BackendEnd end{{.platform = platform,
                    .uri = "usb://x",
                    .client = {.isCancelled = [] { return false; },
                               .report = [this](const std::string &line) { reports.push_back(line); }},
                    .observer = [this](const platform::Notification &notification) {
                        heard.push_back(notification.object.value_or(""));
                    }}};
};

TEST_F(BackendEndTest, ClaimsItsUriAndListens) {
    EXPECT_FALSE(end.isOpen());
    EXPECT_FALSE(end.isConnected());
    std::vector<std::string> trace;
    center.trace = [&trace](const std::string &line) { trace.push_back(line); };
    EXPECT_EQ(end.open(problem), BackendEnd::Opening::done);
    EXPECT_TRUE(end.isOpen());
    EXPECT_TRUE(end.isConnected());
    EXPECT_THAT(trace, ElementsAre("claim usb://x.backend", "observe usb://x.backend"));
    EXPECT_TRUE(center.peerCommands.presentComesFirst);
    center.deliver("fronted-alive");
    end.turn(1s);
    EXPECT_THAT(heard, ElementsAre("fronted-alive"));
    EXPECT_TRUE(end.post("backend-alive"));
    end.sayGoodbye();
    EXPECT_FALSE(end.isOpen());
    EXPECT_THAT(center.posts,
                ElementsAre(testing::FieldsAre("usb://x.frontend", "backend-alive", std::nullopt),
                            testing::FieldsAre("usb://x.frontend", "backend-byebye", std::nullopt)));
    end.sayGoodbye();
    EXPECT_EQ(center.posts.size(), 2U) << "there is nobody any more";
}

TEST_F(BackendEndTest, SaysWhyItIsNotThere) {
    center.connectProblem = "no bus";
    EXPECT_EQ(end.open(problem), BackendEnd::Opening::impossible);
    EXPECT_EQ(problem, "no bus");
    center.connectProblem.clear();
    center.observeProblem = "no such name";
    EXPECT_EQ(end.open(problem), BackendEnd::Opening::impossible);
    EXPECT_EQ(problem, "no such name");
    center.isClaimed = true;
    EXPECT_EQ(end.open(problem), BackendEnd::Opening::occupied);
    EXPECT_EQ(problem, "another printer or backend serves \"usb://x\"");
    EXPECT_FALSE(end.isOpen());
}

TEST_F(BackendEndTest, WaitsForItsTurnAsLongAsItIsToldTo) {
    center.isClaimed = true;
    EXPECT_EQ(end.openInTurn(nullptr, problem), BackendEnd::Opening::occupied);
    EXPECT_THAT(platform.fakeClock.sleeps, IsEmpty());
    int times = 0;
    EXPECT_EQ(end.openInTurn([&times] { return ++times < 4; }, problem), BackendEnd::Opening::occupied);
    EXPECT_THAT(platform.fakeClock.sleeps, ElementsAre(100ms, 100ms, 100ms));
    const auto untilFree = [this] {
        center.isClaimed = false;
        return true;
    };
    EXPECT_EQ(end.openInTurn(untilFree, problem), BackendEnd::Opening::done);
}

TEST_F(BackendEndTest, ReportsWhatItCannotDeliverAndLivesOn) {
    EXPECT_FALSE(end.post("readPipe"));
    EXPECT_EQ(end.open(problem), BackendEnd::Opening::done);
    center.holdsPosts = true;
    EXPECT_FALSE(end.post("readPipe"));
    center.holdsPosts = false;
    center.failsPosts = true;
    EXPECT_FALSE(end.post("readPipe"));
    center.failsTurns = true;
    end.turn(1ms);
    end.turnWatching(1ms, {});
    EXPECT_THAT(reports, ElementsAre("not delivered: there is no channel", "not delivered: the host has gone",
                                     "not delivered: the test lets posts fail", "the test lets turns fail",
                                     "the test lets turns fail"));
    end.sayGoodbye();
}

} // namespace
} // namespace veltrin
