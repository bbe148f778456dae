#include "printer/ChannelPlug.h"

#include "printer/PrinterRun.h"
#include "tests/support/FakePlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

// The printer at a channel that the test plays. The printer's own time is real, so events lie close together.

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ChannelPlugTest : public testing::Test {
  protected:
    struct Wishes {
        Scenario scenario;
        PrinterListener listener;
        ChannelPlug::Wishes plug;
    };

    Wishes wishes(const std::string &members = "") {
        std::string problemOfScenario;
        auto scenario = parseScenario(
            R"({"description": "test")" + (members.empty() ? "" : ", " + members) + "}", problemOfScenario);
        EXPECT_EQ(problemOfScenario, "");
        Wishes result;
        result.plug.uri = "usb://x";
        result.scenario = scenario.value_or(Scenario());
        result.listener.told = [this](PrinterTime, const std::string &line) { told.push_back(line); };
        result.listener.jobEnded = [this](const JobReport &report) { jobs.push_back(report); };
        return result;
    }

    bool run(const Wishes &wanted) {
        const PrinterClock clock;
        VirtualPrinter printer(wanted.scenario, wanted.listener);
        ChannelPlug plug(platform, printer, clock, wanted.plug);
        return runPrinter(
            printer, plug, clock, [this](const VirtualPrinter &, PrinterTime now) { return goOn(now); },
            problem);
    }

    [[nodiscard]] std::vector<std::string> posts() const {
        std::vector<std::string> objects;
        std::transform(center.posts.begin(), center.posts.end(), std::back_inserter(objects),
                       [](const auto &post) { return post.object; });
        return objects;
    }

    test::FakePlatform platform;
    test::FakeNotificationCenter &center = platform.fakeNotificationCenter;
    std::function<bool(PrinterTime)> goOn = [](PrinterTime) { return false; };
    std::vector<std::string> told;
    std::vector<JobReport> jobs;
    std::string problem;
};

TEST_F(ChannelPlugTest, ListensUnderItsNameAndSaysHelloAndGoodbye) {
    std::vector<std::string> trace;
    center.trace = [&trace](const std::string &line) { trace.push_back(line); };
    EXPECT_TRUE(run(wishes()));
    EXPECT_THAT(trace,
                ElementsAre("claim usb://x.backend", "observe usb://x.backend",
                            "post usb://x.frontend backend-alive", "post usb://x.frontend backend-byebye"));
    EXPECT_EQ(center.peerCommands.announcement, "fronted-alive");
    EXPECT_EQ(center.peerCommands.farewell, "frontend-byebye");
    EXPECT_TRUE(center.peerCommands.presentComesFirst);
}

TEST_F(ChannelPlugTest, LooksAtEverythingElseTenTimesASecondAtLeast) {
    int rounds = 0;
    goOn = [&rounds](PrinterTime) { return ++rounds <= 5; };
    EXPECT_TRUE(run(wishes()));
    EXPECT_EQ(center.turns.size(), 5U);
    EXPECT_THAT(center.turns, testing::Each(testing::Le(100ms)));
}

TEST_F(ChannelPlugTest, GoesOnWithoutAChannelWhileItHasVanished) {
    center.deliver("fronted-alive");
    goOn = [](PrinterTime now) { return now < 200ms; };
    EXPECT_TRUE(run(wishes(R"("events": [{"at": 0.02, "do": "vanish", "for": 0.1},
                                         {"at": 0.04, "do": "leave", "for": 0.02}])")));
    EXPECT_THAT(posts(), ElementsAre("backend-alive", "backend-alive", "backend-alive", "backend-byebye"));
    EXPECT_THAT(told, Contains("gone without a word"));
    EXPECT_THAT(platform.fakeClock.sleeps, Not(IsEmpty()));
    EXPECT_THAT(platform.fakeClock.sleeps, testing::Each(testing::Le(100ms)));
}

TEST_F(ChannelPlugTest, ABusThatIsLostEndsTheJobAndThePrinter) {
    center.deliver("fronted-alive");
    int rounds = 0;
    goOn = [&](PrinterTime) {
        center.isConnected = ++rounds < 3;
        return true;
    };
    EXPECT_FALSE(run(wishes()));
    EXPECT_EQ(problem, "the message bus is lost");
    ASSERT_EQ(jobs.size(), 1U);
    EXPECT_EQ(jobs[0].outcome(), JobOutcome::broken);
    EXPECT_THAT(posts(), Not(Contains("backend-byebye")));
}

TEST_F(ChannelPlugTest, ABusThatIsLostIsWaitedForByAPrinterThatStays) {
    // An answer that is due when there is nobody to send it to.
    Wishes staying = wishes(R"("replies": [{"fault": "late", "by": 0.05}])");
    staying.plug.stays = true;
    center.deliver("fronted-alive");
    center.deliver("readPipe", std::nullopt, 1ms);
    std::optional<PrinterTime> lost;
    goOn = [&](PrinterTime now) {
        if (center.turns.size() == 3 && !lost) {
            lost = now;
            center.isConnected = false;
            center.connectProblem = "no bus";
        }
        if (lost && now - *lost > 150ms) {
            center.isConnected = true;
            center.connectProblem.clear();
        }
        return !lost || now - *lost < 200ms;
    };
    EXPECT_TRUE(run(staying));
    EXPECT_THAT(told, testing::IsSupersetOf({"! the message bus is lost: waiting for it",
                                             "! not delivered: there is no channel"}));
    EXPECT_EQ(std::count(told.begin(), told.end(), "listening"), 2);
    EXPECT_EQ(jobs.size(), 1U);
    EXPECT_THAT(posts(), ElementsAre("backend-alive", "backend-alive", "backend-alive", "backend-byebye"));
}

TEST_F(ChannelPlugTest, AnotherBackendIsInTheWay) {
    center.isClaimed = true;
    EXPECT_FALSE(run(wishes()));
    EXPECT_EQ(problem, "another printer or backend serves \"usb://x\"");
    EXPECT_THAT(center.posts, IsEmpty());
}

TEST_F(ChannelPlugTest, AnotherBackendIsWaitedForAsLongAsThatIsWanted) {
    center.isClaimed = true;
    int questions = 0;
    Wishes waiting = wishes();
    waiting.plug.waitsForOther = [&] {
        center.isClaimed = ++questions < 5;
        return true;
    };
    EXPECT_TRUE(run(waiting));
    EXPECT_EQ(questions, 5);
    EXPECT_EQ(platform.fakeClock.sleeps, std::vector<std::chrono::microseconds>(5, 100ms));
    EXPECT_THAT(posts(), ElementsAre("backend-alive", "backend-byebye"));

    center.isClaimed = true;
    center.posts.clear();
    waiting.plug.waitsForOther = [&] { return ++questions < 8; };
    EXPECT_FALSE(run(waiting));
    EXPECT_EQ(questions, 8);
    EXPECT_THAT(center.posts, IsEmpty());
}

TEST_F(ChannelPlugTest, HintsOnceAtEachOfAFewStrangeHosts) {
    goOn = [this](PrinterTime) {
        for (int i = 0; i < 20; ++i) {
            center.client.overheard("usb://" + std::to_string(i) + ".backend");
            center.client.overheard("usb://" + std::to_string(i) + ".backend");
            center.client.overheard("usb://" + std::to_string(i) + ".frontend");
        }
        return false;
    };
    EXPECT_TRUE(run(wishes()));
    EXPECT_THAT(told, Contains("hint: a filter looks for the printer \"usb://7\"; this one is \"usb://x\""));
    EXPECT_EQ(std::count_if(told.begin(), told.end(),
                            [](const std::string &line) { return line.starts_with("hint: "); }),
              8);
}

TEST_F(ChannelPlugTest, SaysNothingInTheWordsOfOthersThatAReaderWouldObey) {
    goOn = [this](PrinterTime) {
        center.client.overheard("usb://\x1b[2J\nERROR: x.backend");
        center.client.report("refused by \"\nATTR: marker-levels=0\"");
        return false;
    };
    EXPECT_TRUE(run(wishes()));
    EXPECT_THAT(told,
                testing::IsSupersetOf(
                    {"hint: a filter looks for the printer \"usb://.[2J.ERROR: x\"; this one is \"usb://x\"",
                     "! refused by \".ATTR: marker-levels=0\""}));
}

TEST_F(ChannelPlugTest, ABusThatIsLostWhileThePrinterHasVanishedIsWaitedFor) {
    for (const bool stays : {true, false}) {
        SCOPED_TRACE(stays);
        center.posts.clear();
        told.clear();
        Wishes wanted = wishes(R"("events": [{"at": 0.02, "do": "vanish", "for": 0.05}])");
        wanted.plug.stays = stays;
        wanted.listener.told = [this](PrinterTime, const std::string &line) {
            told.push_back(line);
            if (line == "gone without a word") {
                center.connectProblem = "no bus";
            }
        };
        center.deliver("fronted-alive");
        int rounds = 0;
        goOn = [&](PrinterTime) {
            if (told.back() == "! not delivered: there is no channel") {
                center.connectProblem.clear();
            }
            return std::count(told.begin(), told.end(), "listening") < 2 || ++rounds < 3;
        };
        EXPECT_EQ(run(wanted), stays) << problem;
        if (stays) {
            EXPECT_THAT(told, Contains("! no bus: waiting"));
            EXPECT_THAT(posts(),
                        ElementsAre("backend-alive", "backend-alive", "backend-alive", "backend-byebye"));
        } else {
            EXPECT_EQ(problem, "no bus");
        }
        center.connectProblem.clear();
    }
}

TEST_F(ChannelPlugTest, GivesNoHintWhereItHearsItselfOrAHost) {
    for (const bool host : {false, true}) {
        told.clear();
        goOn = [&](PrinterTime now) {
            if (host) {
                center.deliver("fronted-alive");
            } else {
                center.client.overheard("usb://x.frontend");
            }
            return now < 2100ms;
        };
        EXPECT_TRUE(run(wishes()));
        EXPECT_THAT(told, Not(Contains(HasSubstr("hint: "))));
    }
}

} // namespace
} // namespace veltrin::printer
