#include "printer/VirtualPrinter.h"

#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"
#include "printer/ChannelEnd.h"
#include "printer/StatusView.h"
#include "tests/printer/WatchedPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A virtual printer on a channel, in virtual time; the test is its host.
class PrinterUnderTest : public WatchedPrinter {
  public:
    explicit PrinterUnderTest(const std::string &members = "") : WatchedPrinter(members) {}

    void hostSends(const std::string &object, std::optional<std::string> data = std::nullopt) {
        std::optional<std::span<const std::byte>> block;
        if (data) {
            block = std::as_bytes(std::span(*data));
        }
        channelEnd.take({object, block}, now);
        doDeeds();
    }

    void hostSends(const CommandRecord &command) {
        hostSends("writePipe", std::string(command.begin(), command.end()));
    }

    /// Header by header and block by block, as the filter does.
    void hostSendsPage(std::uint32_t page, const StreamOptions &options = {}) {
        const std::string bytes = makePage(options, page);
        const auto bandData = static_cast<std::size_t>(options.planeSizes.total());
        std::size_t at = 0;
        const auto send = [&](std::size_t size) {
            hostSends("writePipe", bytes.substr(at, size));
            at += size;
        };
        send(sizeof(PageHeader));
        while (at < bytes.size()) {
            send(sizeof(BandHeader));
            send(bandData);
        }
    }

    /// Lets the time pass, doing what is due when it is due.
    void passUntil(PrinterTime until) {
        for (auto due = channelEnd.nextDue(); due && *due <= until; due = channelEnd.nextDue()) {
            now = std::max(now, *due);
            channelEnd.advance(now);
            doDeeds();
        }
        now = until;
        channelEnd.advance(now);
        doDeeds();
    }

    /// Deeds, as "0.250 backend-alive", "1.000 readPipe 64", "2.000 disconnect".
    std::vector<std::string> done;
    PrinterTime now{};

    [[nodiscard]] ChannelEnd &end() { return channelEnd; }

  private:
    void doDeeds() {
        while (const auto deed = channelEnd.takeDeed()) {
            std::string text = secondsText(now) + " ";
            if (const auto *post = std::get_if<PostNotification>(&*deed)) {
                text += post->object + (post->data ? " " + std::to_string(post->data->size()) : "");
            } else {
                text += std::holds_alternative<Disconnect>(*deed) ? "disconnect" : "reconnect";
            }
            done.push_back(text);
        }
    }

    ChannelEnd channelEnd{printer()};
};

TEST(VirtualPrinter, AnnouncesItselfAtOnceAndToEveryHost) {
    PrinterUnderTest test;
    test.passUntil(1s);
    test.hostSends("fronted-alive");
    EXPECT_THAT(test.done, ElementsAre("0.000 backend-alive", "1.000 backend-alive"));
    test.hostSends("frontend-byebye");
    test.passUntil(2s);
    test.hostSends("fronted-alive");
    EXPECT_EQ(test.done.back(), "2.000 backend-alive");
}

TEST(VirtualPrinter, AnnouncesItselfLateToEveryHostAndNotBefore) {
    PrinterUnderTest test(R"("announcement": 2)");
    test.passUntil(5s);
    EXPECT_THAT(test.done, IsEmpty());
    test.hostSends("fronted-alive");
    test.passUntil(10s);
    EXPECT_THAT(test.done, ElementsAre("7.000 backend-alive"));
}

TEST(VirtualPrinter, MayNeverAnnounceItself) {
    PrinterUnderTest test(R"("announcement": "never")");
    test.hostSends("fronted-alive");
    test.passUntil(100s);
    EXPECT_THAT(test.done, IsEmpty());
}

TEST(VirtualPrinter, ReportsAWholeJob) {
    StreamOptions options;
    options.pages = 2;
    PrinterUnderTest test(R"("printer": {"pagesPerMinute": 60})");
    test.passUntil(1s);
    test.hostSends("fronted-alive");
    test.hostSends(reverseDataReset);
    test.hostSends("readPipe");
    test.hostSends("writePipe", makeJobHeaders(options));
    test.hostSendsPage(1, options);
    test.hostSendsPage(2, options);
    test.hostSends("writePipe", "JIDG");
    EXPECT_THAT(test.jobs, IsEmpty());
    test.hostSends("frontend-byebye");

    ASSERT_EQ(test.jobs.size(), 1U);
    const JobReport &job = test.jobs[0];
    EXPECT_EQ(job.number, 1U);
    EXPECT_EQ(job.outcome(), JobOutcome::whole);
    EXPECT_EQ(job.pages.size(), 2U);
    EXPECT_EQ(job.statusRequests, 1U);
    EXPECT_EQ(job.replies, 1U);
    EXPECT_EQ(job.notifications, (std::map<std::string, std::uint64_t>{{"fronted-alive", 1},
                                                                       {"readPipe", 1},
                                                                       {"writePipe", 1 + 1 + 2 * 9 + 1},
                                                                       {"frontend-byebye", 1}}));
    EXPECT_THAT(job.overruns, IsEmpty());
    EXPECT_EQ(job.totals.bytes, test.output.size());
    EXPECT_TRUE(test.output.ends_with("JIDG"));
    EXPECT_FALSE(test.printer().inJob());
    EXPECT_THAT(test.told, Contains("1.000 job 1 whole: 2 pages for 2 sheets, 1 copy, 8868 bytes"));

    // The printing goes on after the host has gone.
    test.passUntil(10s);
    EXPECT_THAT(test.told, Contains("2.000 printed page 1, 1 waiting"));
    EXPECT_THAT(test.told, Contains("3.000 printed page 2, 0 waiting"));
    EXPECT_THAT(test.told, Contains("3.000 status 0/0/0 Ready"));
}

TEST(VirtualPrinter, CountsHeadersAndDataApart) {
    PrinterUnderTest test(R"("printer": {"memory": {"header": 100000, "image": 50000}})");
    test.hostSends("fronted-alive");
    test.hostSends(reverseDataReset);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 100'000U);
    test.hostSends("writePipe", makeJobHeaders({}));
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 100'000U - 272);
    test.hostSendsPage(1);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 100'000U - 272 - 64 - 4 * 32);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::image), 50'000U - 4096);
    test.hostSends("writePipe", "JIDG");
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 100'000U - 272 - 64 - 4 * 32);
    test.passUntil(3s);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 100'000U);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::image), 50'000U);
}

TEST(VirtualPrinter, ReportsTheOverrunsOfTheirJob) {
    PrinterUnderTest test(R"("printer": {"memory": {"header": 500, "image": 5000}})");
    for (int job = 0; job < 2; ++job) {
        test.hostSends("fronted-alive");
        test.hostSends("writePipe", makeJobHeaders({}));
        test.hostSendsPage(1);
        test.hostSends("writePipe", "JIDG");
        test.hostSends("frontend-byebye");
    }
    ASSERT_EQ(test.jobs.size(), 2U);
    EXPECT_THAT(test.jobs[0].overruns, IsEmpty());
    // The second job's page came before the first one's was printed.
    ASSERT_FALSE(test.jobs[1].overruns.empty());
    EXPECT_EQ(test.jobs[1].overruns[0].pool, MemoryPool::header);
    EXPECT_EQ(test.jobs[1].overruns[0].bytes, 120U - (500 - 464));
    EXPECT_EQ(test.jobs[1].outcome(), JobOutcome::whole);
    test.passUntil(60s);
    test.hostSends("fronted-alive");
    test.hostSends("frontend-byebye");
    EXPECT_THAT(test.jobs.at(2).overruns, IsEmpty());
}

TEST(VirtualPrinter, TellsForWhichPageTheMemoryWasTooSmall) {
    PrinterUnderTest test(R"("printer": {"memory": {"header": 500, "image": 5000}})");
    StreamOptions options;
    options.pages = 2;
    test.passUntil(2s);
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", makeJobHeaders({}));
    test.hostSendsPage(1, options);
    test.hostSendsPage(2, options);
    test.hostSends("frontend-byebye");
    ASSERT_EQ(test.jobs.size(), 1U);
    const JobReport &job = test.jobs.front();
    ASSERT_EQ(job.pages.size(), 2U);
    std::map<MemoryPool, std::uint64_t> tooMany;
    for (const MemoryOverrun &overrun : job.overruns) {
        EXPECT_EQ(overrun.page, 1U);
        EXPECT_EQ(overrun.when, 2s);
        tooMany[overrun.pool] += overrun.bytes;
    }
    EXPECT_EQ(tooMany[MemoryPool::header], 272U + 2 * (64 + 4 * 32) - 500);
    EXPECT_EQ(tooMany[MemoryPool::image], 2 * 4096U - 5000);
}

TEST(VirtualPrinter, NeedsNoMemoryForWhatIsNoStream) {
    PrinterUnderTest test(R"("printer": {"memory": {"header": 1000, "image": 1000}})");
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", "PIDG" + std::string(5000, 'x'));
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), 1000U - 4); // its tag was read
    test.hostSends("frontend-byebye");
    EXPECT_THAT(test.jobs.at(0).overruns, IsEmpty());
}

TEST(VirtualPrinter, ReportsACancelledJob) {
    StreamOptions options;
    PrinterUnderTest test;
    test.hostSends("fronted-alive");
    test.hostSends(reverseDataReset);
    test.hostSends("writePipe", makeJobHeaders(options));
    test.hostSendsPage(1, options);
    test.hostSends("writePipe", "JIDG");
    test.hostSends(cancelCommand);
    test.hostSends("frontend-byebye");
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::cancelled);
    EXPECT_EQ(test.jobs[0].commands.size(), 2U);
    EXPECT_EQ(test.printer().printer().pagesWaiting(), 0U);
    EXPECT_THAT(test.told, Contains("0.000 command GDIC CANCEL    ."));
}

TEST(VirtualPrinter, ReportsABrokenJob) {
    PrinterUnderTest test;
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", makeJobHeaders({}));
    test.hostSends("frontend-byebye");
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", "PIDG and more");
    test.hostSends("fronted-alive"); // another host, and nothing has been heard of the first
    test.hostSends("frontend-byebye");
    ASSERT_EQ(test.jobs.size(), 3U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::broken);
    EXPECT_EQ(test.jobs[0].problems.at(0).problem, StreamProblem::missingEndOfJob);
    EXPECT_EQ(test.jobs[1].outcome(), JobOutcome::broken);
    EXPECT_EQ(test.jobs[1].problems.at(0).problem, StreamProblem::unknownTag);
    EXPECT_EQ(test.jobs[2].outcome(), JobOutcome::broken);
    EXPECT_EQ(test.jobs[2].problems.at(0).problem, StreamProblem::emptyInput);
    EXPECT_THAT(test.told, Contains(HasSubstr(
                               "job 2 broken: 0 pages for 0 sheets, 0 copies, 13 bytes; at 0: unknown tag")));
}

TEST(VirtualPrinter, TakesDataOfAHostThatCameBeforeIt) {
    PrinterUnderTest test;
    test.hostSends("writePipe", makeStream(StreamOptions{.identifier = std::nullopt}));
    EXPECT_TRUE(test.printer().inJob());
    test.hostSends("frontend-byebye");
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::whole);
}

TEST(VirtualPrinter, KnowsNoJobByAGoodbyeAlone) {
    PrinterUnderTest test;
    test.hostSends("frontend-byebye");
    test.printer().endJob();
    EXPECT_THAT(test.jobs, IsEmpty());
}

TEST(VirtualPrinter, ShowsNothingThatATerminalWouldObey) {
    PrinterUnderTest test;
    test.hostSends("\x1b[2J\x80\n");
    EXPECT_THAT(test.told, Contains("0.000 < .[2J.."));
}

TEST(VirtualPrinter, TakesNoHarmFromWhatIsNoNotificationOfTheChannel) {
    PrinterUnderTest test;
    test.end().take({std::nullopt, std::nullopt}, 0s);
    test.hostSends("writePipe");
    test.hostSends("hello", "data");
    EXPECT_EQ(test.output, "");
    EXPECT_THAT(test.told, Contains("0.000 < something without a name"));
}

TEST(VirtualPrinter, AnswersAsTheRulesSay) {
    PrinterUnderTest test(R"("replies": [{"first": 2, "last": 2, "fault": "missing"},
                                         {"first": 3, "last": 3, "fault": "late", "by": 4}])");
    test.hostSends("fronted-alive");
    test.done.clear();
    for (int i = 0; i < 4; ++i) {
        test.hostSends("readPipe");
    }
    test.passUntil(10s);
    EXPECT_THAT(test.done, ElementsAre("0.000 readPipe 64", "0.000 readPipe 64", "4.000 readPipe 64"));
    test.hostSends("frontend-byebye");
    EXPECT_EQ(test.jobs.at(0).statusRequests, 4U);
    EXPECT_EQ(test.jobs.at(0).replies, 3U);
}

TEST(VirtualPrinter, CountsEveryJobsRequestsFromOne) {
    PrinterUnderTest test(R"("replies": [{"first": 1, "last": 1, "fault": "missing"}])");
    for (int job = 0; job < 2; ++job) {
        test.hostSends("fronted-alive");
        test.done.clear();
        test.hostSends("readPipe");
        EXPECT_THAT(test.done, IsEmpty());
        test.hostSends("readPipe");
        EXPECT_THAT(test.done, ElementsAre("0.000 readPipe 64"));
        test.hostSends("frontend-byebye");
    }
}

TEST(VirtualPrinter, LetsEventsHappenInTheFirstJobOnly) {
    PrinterUnderTest test(R"("events": [{"at": 2, "do": "cover-open", "for": 3}])");
    test.passUntil(10s);
    test.hostSends("fronted-alive");
    test.passUntil(20s);
    test.hostSends("fronted-alive");
    test.passUntil(40s);
    std::vector<std::string> statuses;
    for (const std::string &line : test.told) {
        if (line.find(" status ") != std::string::npos) {
            statuses.push_back(line);
        }
    }
    EXPECT_THAT(statuses, ElementsAre("12.000 status 33/0/0 Cover open", "15.000 status 0/0/0 Ready"));
}

TEST(VirtualPrinter, LetsEventsHappenAfterPages) {
    PrinterUnderTest test(R"("events": [{"afterPage": 2, "do": "status", "codes": [49, 6, 3]}])");
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", makeJobHeaders({}));
    test.hostSendsPage(1);
    test.passUntil(1s);
    EXPECT_EQ(test.printer().printer().status(), (StatusCodes{4, 0, 0}));
    test.hostSendsPage(1);
    test.passUntil(1s);
    EXPECT_EQ(test.printer().printer().status(), (StatusCodes{49, 6, 3}));
    EXPECT_EQ(test.told.back(), "1.000 status 49/6/3 Service call - Laser Error - LD1 Error");
}

TEST(VirtualPrinter, CountsThePagesOfTheFirstJobOnly) {
    PrinterUnderTest test(R"("events": [{"afterPage": 2, "do": "status", "codes": [49, 6, 3]}])");
    for (int job = 0; job < 3; ++job) {
        test.hostSends("fronted-alive");
        test.hostSends("writePipe", makeJobHeaders({}));
        test.hostSendsPage(1);
        test.hostSends("frontend-byebye");
    }
    EXPECT_EQ(test.printer().printer().status(), (StatusCodes{4, 0, 0}));
}

TEST(VirtualPrinter, GoesBackToWhatWasWhenAnEventIsOver) {
    PrinterUnderTest test(R"("printer": {"port": 1, "memory": {"header": 10, "image": 20},
                                         "trays": {"tray1": {"sheets": 7}}},
        "events": [{"at": 1, "do": "port", "port": 4, "for": 1},
                   {"at": 1, "do": "memory", "memory": {"header": 3, "image": 4}, "for": 1},
                   {"at": 1, "do": "paper-empty", "tray": "tray1", "for": 1},
                   {"at": 1, "do": "status", "codes": [5], "for": 1},
                   {"at": 3, "do": "refill", "tray": "tray1", "sheets": 99}])");
    const PrinterModel &printer = test.printer().printer();
    test.hostSends("fronted-alive");
    test.passUntil(1500ms);
    EXPECT_EQ(printer.current().port, 4);
    EXPECT_EQ(printer.current().memory, (MemorySizes{3, 4}));
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 0U);
    EXPECT_EQ(printer.status(), (StatusCodes{5, 0, 0}));
    test.passUntil(2s);
    EXPECT_EQ(printer.current().port, 1);
    EXPECT_EQ(printer.current().memory, (MemorySizes{10, 20}));
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 7U);
    EXPECT_EQ(printer.status(), (StatusCodes{0, 0, 0}));
    test.passUntil(3s);
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 99U);
}

TEST(VirtualPrinter, CanLeaveAndComeBack) {
    PrinterUnderTest test(R"("events": [{"at": 1, "do": "leave", "for": 5}])");
    test.passUntil(0s);
    test.hostSends("fronted-alive");
    test.passUntil(2s);
    test.done.clear();
    test.hostSends("readPipe");
    test.hostSends("writePipe", makeJobHeaders({}));
    EXPECT_EQ(test.output.size(), 272U); // what was on its way is not lost
    EXPECT_THAT(test.done, IsEmpty());
    test.passUntil(10s);
    EXPECT_THAT(test.done, ElementsAre("6.000 backend-alive"));
    test.hostSends("readPipe");
    EXPECT_EQ(test.done.back(), "10.000 readPipe 64");
    EXPECT_FALSE(test.end().isGone());
}

TEST(VirtualPrinter, CanVanishAndComeBackAsSomebodyNew) {
    PrinterUnderTest test(R"("events": [{"at": 1, "do": "vanish", "for": 2}])");
    test.hostSends("fronted-alive");
    test.passUntil(0s);
    test.hostSends("writePipe", makeJobHeaders({}));
    test.done.clear();
    test.passUntil(10s);
    EXPECT_THAT(test.done, ElementsAre("1.000 disconnect", "3.000 reconnect", "3.000 backend-alive"));
    EXPECT_FALSE(test.end().isGone());
    EXPECT_TRUE(test.printer().inJob());
}

TEST(VirtualPrinter, CanVanishForGood) {
    PrinterUnderTest test(R"("replies": [{"fault": "late", "by": 3}],
                             "events": [{"at": 1, "do": "vanish"}])");
    test.hostSends("fronted-alive");
    test.hostSends("readPipe");
    test.done.clear();
    test.passUntil(10s);
    // The reply that was still to come is not.
    EXPECT_THAT(test.done, ElementsAre("1.000 disconnect"));
    EXPECT_TRUE(test.end().isGone());
}

TEST(VirtualPrinter, SaysNothingWhileItHasVanished) {
    struct Case {
        const char *leaves;
        std::vector<std::string> deeds;
    };

    for (const Case &test : std::vector<Case>{
             // goodbye and return both fall into the time without a channel
             {R"({"at": 2, "do": "leave", "for": 1})",
              {"1.000 disconnect", "5.000 reconnect", "5.000 backend-alive"}},
             // the return does
             {R"({"at": 0.5, "do": "leave", "for": 2})",
              {"0.500 backend-byebye", "1.000 disconnect", "5.000 reconnect", "5.000 backend-alive"}},
             // it comes back before it returns
             {R"({"at": 2, "do": "leave", "for": 6})",
              {"1.000 disconnect", "5.000 reconnect", "8.000 backend-alive"}},
             {R"({"at": 2, "do": "leave"})", {"1.000 disconnect", "5.000 reconnect"}}}) {
        SCOPED_TRACE(test.leaves);
        PrinterUnderTest printer(std::string(R"("replies": [{"fault": "late", "by": 1}], "events": [)") +
                                 test.leaves + R"(, {"at": 1, "do": "vanish", "for": 4}])");
        printer.hostSends("fronted-alive");
        printer.passUntil(0s);
        printer.hostSends("readPipe");
        printer.done.clear();
        printer.passUntil(500ms);
        printer.hostSends("readPipe"); // to be answered when nobody can be
        printer.passUntil(10s);
        EXPECT_THAT(printer.done, testing::ElementsAreArray(test.deeds));
    }
}

TEST(VirtualPrinter, AnnouncesItselfWhenTheChannelIsThereAgain) {
    PrinterUnderTest test;
    test.passUntil(1s);
    test.done.clear();
    test.end().reconnected(1s);
    test.passUntil(2s);
    EXPECT_EQ(test.done.size(), 1U);

    PrinterUnderTest silent(R"("announcement": "never")");
    silent.end().reconnected(1s);
    silent.passUntil(2s);
    EXPECT_THAT(silent.done, IsEmpty());
}

TEST(VirtualPrinter, TellsWhichJobsArePrinted) {
    PrinterUnderTest test(R"("printer": {"pagesPerMinute": 60, "trays": {"tray1": {"sheets": 3}}})");
    EXPECT_EQ(test.printer().jobText(), "no job yet");
    for (int job = 0; job < 2; ++job) {
        test.hostSends("fronted-alive");
        test.hostSends("writePipe", makeJobHeaders({.paperTray = 2}));
        test.hostSendsPage(1, {.paperTray = 2});
        test.hostSendsPage(2, {.paperTray = 2});
        EXPECT_THAT(test.printer().jobText(), testing::MatchesRegex("job . comes in: 2 pages, 4752 bytes"));
        test.hostSends("writePipe", "JIDG");
        test.hostSends("frontend-byebye");
    }
    EXPECT_THAT(test.printer().jobText(), testing::StartsWith("job 2 "));
    EXPECT_FALSE(test.printer().isAtRest());
    test.passUntil(1s);
    EXPECT_THAT(test.told, testing::Not(Contains(HasSubstr(" printed: "))));
    test.passUntil(2s);
    EXPECT_EQ(test.told.back(), "2.000 job 1 printed: 2 of 2 pages");
    EXPECT_FALSE(test.printer().isAtRest());
    test.passUntil(60s);
    EXPECT_TRUE(test.printer().isAtRest()) << "the tray is empty, and nobody will fill it";
    test.printer().tellUnprinted();
    EXPECT_EQ(test.told.back(),
              "60.000 job 2 not printed to its end: 1 of 2 pages, status 35/1/0 Tray 1 empty");
    EXPECT_EQ(test.printer().printer().pagesPrintedOf(1), 2U);
    EXPECT_EQ(test.printer().printer().pagesPrintedOf(2), 1U);
    EXPECT_EQ(test.printer().printer().pagesWaitingOf(2), 1U);
}

TEST(VirtualPrinter, IsNotAtRestWhileSomebodyIsToCome) {
    PrinterUnderTest test(R"("printer": {"trays": {"tray1": {"sheets": 0}}},
                             "events": [{"at": 10, "do": "refill", "tray": "tray1", "sheets": 1}])");
    EXPECT_TRUE(test.printer().isAtRest());
    test.hostSends("fronted-alive");
    test.hostSends("writePipe", makeJobHeaders({.paperTray = 2}));
    test.hostSendsPage(1, {.paperTray = 2});
    test.hostSends("frontend-byebye");
    EXPECT_FALSE(test.printer().isAtRest());
    test.passUntil(20s);
    EXPECT_TRUE(test.printer().isAtRest());
    EXPECT_THAT(test.told, Contains("13.000 job 1 printed: 1 of 1 pages"));
}

TEST(VirtualPrinter, HasNothingToDoWhileNothingHappens) {
    PrinterUnderTest test;
    test.passUntil(1s);
    EXPECT_EQ(test.end().nextDue(), std::nullopt);
}

} // namespace
} // namespace veltrin::printer
