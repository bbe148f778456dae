#include "printer/WireEnd.h"

#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"
#include "tests/driver/stream/StreamPieces.h"
#include "tests/printer/WatchedPrinter.h"
#include "tests/support/BytesAre.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::BytesAre;
using test::cancel;
using test::reset;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// As the printer receives it: headers of 272 bytes, each page of 64 + 4 * (32 + 1024), the mark.
std::string streamOf(std::uint32_t pages) {
    return makeStream({.pages = pages, .identifier = std::nullopt});
}

constexpr std::size_t pageSize = 64 + 4 * (32 + 1024);

/// A virtual printer on a wire, in virtual time; the test is its host, and the network in between.
class WireUnderTest : public WatchedPrinter {
  public:
    explicit WireUnderTest(const std::string &members = "") : WatchedPrinter(members) {
        wireEnd.connected("the test", now);
    }

    /// The host sends, and the printer reads as much as it has room for.
    void send(const std::string &bytes) {
        underWay += bytes;
        readWire();
    }

    void endConnection() {
        ended = true;
        readWire();
    }

    void connectAgain() {
        underWay.clear();
        ended = false;
        wireEnd.connected("the test", now);
    }

    /// Lets the time pass, doing what is due when it is due.
    void passUntil(PrinterTime until) {
        const auto due = [this] {
            std::optional<PrinterTime> next = wireEnd.nextDue();
            if (const auto record = wireEnd.nextRecordDue()) {
                next = std::min(next.value_or(*record), *record);
            }
            return next;
        };
        for (auto next = due(); next && *next <= until; next = due()) {
            now = std::max(now, *next);
            wireEnd.advance(now);
            readWire();
        }
        now = until;
        wireEnd.advance(now);
        readWire();
    }

    [[nodiscard]] std::vector<std::string> toldAbout(const std::string &what) const {
        std::vector<std::string> lines;
        std::copy_if(told.begin(), told.end(), std::back_inserter(lines),
                     [&](const std::string &line) { return line.find(what) != std::string::npos; });
        return lines;
    }

    std::vector<std::string> deeds; ///< "1.000 close"
    std::vector<std::string> sent;  ///< times of the records
    std::string lastRecord;
    std::string underWay; ///< sent, but not read
    PrinterTime now{};

    [[nodiscard]] WireEnd &end() { return wireEnd; }

  private:
    void readWire() {
        while (const std::size_t size = std::min(wireEnd.room(), underWay.size())) {
            const std::string bytes = underWay.substr(0, size);
            underWay.erase(0, size);
            wireEnd.received(std::as_bytes(std::span(bytes)), now);
            doDeeds();
        }
        if (ended && underWay.empty()) {
            ended = false;
            wireEnd.hostEnded(now);
        }
        doDeeds();
    }

    void doDeeds() {
        constexpr const char *names[] = {"close", "break off", "stop listening", "listen"};
        while (const auto deed = wireEnd.takeDeed()) {
            deeds.push_back(secondsText(now) + " " + names[static_cast<std::size_t>(*deed)]);
        }
        while (const auto record = wireEnd.takeRecord()) {
            sent.push_back(secondsText(now) + " " + std::to_string(record->size()));
            lastRecord.assign(reinterpret_cast<const char *>(record->data()), record->size());
        }
    }

    bool ended = false;
    WireEnd wireEnd{printer()};
};

// ---- Jobs

TEST(WireEnd, TakesAJobFromTheFirstByteToTheLast) {
    WireUnderTest test(R"("printer": {"pagesPerMinute": 60})");
    test.send(reset + streamOf(2));
    EXPECT_TRUE(test.printer().inJob());
    test.endConnection();
    EXPECT_FALSE(test.printer().inJob());
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::whole);
    EXPECT_EQ(test.jobs[0].pages.size(), 2U);
    EXPECT_EQ(test.jobs[0].totals.bytes, 16 + streamOf(2).size());
    EXPECT_THAT(test.jobs[0].notifications, IsEmpty());
    EXPECT_THAT(test.deeds, ElementsAre("0.000 close"));
    EXPECT_THAT(Bytes(test.output), BytesAre(reset + streamOf(2)));
    test.passUntil(10s);
    EXPECT_THAT(test.told, Contains("2.000 job 1 printed: 2 of 2 pages"));
}

TEST(WireEnd, MakesTheSameOfAJobHoweverItIsCut) {
    const std::string bytes = reset + streamOf(1) + cancel;
    for (std::size_t piece = 1; piece < 400; piece += 7) {
        WireUnderTest test;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            test.send(bytes.substr(at, piece));
        }
        test.endConnection();
        ASSERT_EQ(test.jobs.size(), 1U) << piece;
        EXPECT_EQ(test.jobs[0].pages.size(), 1U) << piece;
        EXPECT_EQ(test.jobs[0].commands.size(), 2U) << piece;
        EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::cancelled) << piece;
        EXPECT_THAT(test.jobs[0].problems, IsEmpty()) << piece;
        EXPECT_EQ(test.output, bytes) << piece;
    }
}

TEST(WireEnd, TakesJobAfterJobInOneConnection) {
    WireUnderTest test;
    test.send(reset + streamOf(1) + reset + streamOf(2) + streamOf(3));
    test.endConnection();
    ASSERT_EQ(test.jobs.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(test.jobs[i].outcome(), JobOutcome::whole);
        EXPECT_EQ(test.jobs[i].pages.size(), i + 1);
    }
    EXPECT_EQ(test.jobs[1].totals.bytes, 16 + streamOf(2).size());
    EXPECT_EQ(test.jobs[2].totals.bytes, streamOf(3).size());
}

TEST(WireEnd, TakesASecondResetForTheSameJobUntilThatBegins) {
    WireUnderTest test;
    test.send(reset + reset + streamOf(1));
    test.endConnection();
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].commands.size(), 2U);
}

TEST(WireEnd, KnowsNoJobOfAHostThatSaysNothing) {
    WireUnderTest test;
    test.endConnection();
    EXPECT_THAT(test.jobs, IsEmpty());
    EXPECT_THAT(test.deeds, ElementsAre("0.000 close"));
}

TEST(WireEnd, BlamesAJobForWhatStandsBehindItsEnd) {
    WireUnderTest test;
    test.send(streamOf(1) + "more");
    test.send(reset + streamOf(1));
    test.endConnection();
    ASSERT_EQ(test.jobs.size(), 2U);
    EXPECT_EQ(test.jobs[0].problems.at(0).problem, StreamProblem::bytesAfterEnd);
    EXPECT_EQ(test.jobs[1].outcome(), JobOutcome::whole);
}

// ---- Where a stream breaks off

struct Break {
    const char *where;
    std::size_t size; ///< of what comes of the job
};

constexpr std::size_t dataBegin = 272 + 64 + 32;
constexpr Break breaks[] = {{"behind the reset", 0},
                            {"behind the headers", 272},
                            {"before a band's data", dataBegin},
                            {"among them", dataBegin + 500},
                            {"in front of their last bytes", dataBegin + 1020},
                            {"behind them", dataBegin + 1024},
                            {"among the second page's", pageSize + dataBegin + 3}};

TEST(WireEnd, DropsAJobOnTheCancelRecordWhereverItBreaksOff) {
    for (const Break &at : breaks) {
        SCOPED_TRACE(at.where);
        WireUnderTest test;
        test.send(reset + streamOf(2).substr(0, at.size));
        test.send(cancel);
        ASSERT_EQ(test.jobs.size(), 1U) << "at once";
        EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::cancelled);
        EXPECT_EQ(test.jobs[0].totals.bytes, 32 + at.size);
        EXPECT_EQ(test.printer().printer().pagesWaiting(), 0U);
        EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::image), MemorySizes().image);
        EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::header), MemorySizes().header);
        test.send(reset + streamOf(1));
        test.endConnection();
        EXPECT_EQ(test.jobs.at(1).outcome(), JobOutcome::whole) << "the next job is fine";
    }
}

TEST(WireEnd, BeginsTheNextJobOnTheResetRecordWhereverTheOneBeforeBreaksOff) {
    for (const Break &at : breaks) {
        if (at.size == 0) {
            continue; // no job has begun
        }
        SCOPED_TRACE(at.where);
        WireUnderTest test;
        test.send(reset + streamOf(2).substr(0, at.size) + reset + streamOf(1));
        test.endConnection();
        ASSERT_EQ(test.jobs.size(), 2U);
        EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::broken);
        EXPECT_EQ(test.jobs[0].totals.bytes, 16 + at.size);
        EXPECT_EQ(test.jobs[1].outcome(), JobOutcome::whole);
        EXPECT_EQ(test.jobs[1].totals.bytes, 16 + streamOf(1).size());
    }
}

TEST(WireEnd, ReadsOnBehindRubbishOnceARecordComes) {
    WireUnderTest test(R"("printer": {"memory": {"header": 2000, "image": 10000}})");
    test.send(reset + "PIDG" + std::string(100'000, 'x'));
    EXPECT_EQ(test.underWay, "") << "what is no stream takes no memory";
    test.send(reset + streamOf(1));
    test.send(cancel);
    ASSERT_EQ(test.jobs.size(), 2U);
    EXPECT_EQ(test.jobs[0].problems.at(0).problem, StreamProblem::unknownTag);
    EXPECT_EQ(test.jobs[1].outcome(), JobOutcome::cancelled);
    EXPECT_EQ(test.jobs[1].pages.size(), 1U);
}

TEST(WireEnd, TellsAJobWhoseConnectionEndsTooSoon) {
    WireUnderTest test;
    test.send(reset + streamOf(1).substr(0, dataBegin + 10));
    test.endConnection();
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].problems.at(0).problem, StreamProblem::truncatedData);
    EXPECT_THAT(test.deeds, ElementsAre("0.000 close"));

    test.connectAgain();
    test.send(reset + streamOf(1).substr(0, 200));
    test.end().hostLost(test.now);
    ASSERT_EQ(test.jobs.size(), 2U);
    EXPECT_EQ(test.jobs[1].problems.at(0).problem, StreamProblem::truncatedHeader);
}

TEST(WireEnd, TakesWhatMayBeginARecordForDataWhenNothingFollows) {
    std::string bytes = reset + streamOf(1).substr(0, dataBegin) + std::string(1020, 'x') + "GDIC";
    WireUnderTest test;
    test.send(bytes);
    EXPECT_EQ(test.printer().stream().dataToCome(), 4U);
    test.passUntil(249ms);
    EXPECT_EQ(test.printer().stream().dataToCome(), 4U);
    test.passUntil(250ms);
    EXPECT_EQ(test.printer().stream().dataToCome(), 0U);
    EXPECT_EQ(test.end().nextDue(), std::nullopt) << "nothing is waited for";
}

// ---- Memory

TEST(WireEnd, HoldsTheLineWhileThereIsNoMemory) {
    WireUnderTest test(R"("printer": {"pagesPerMinute": 60, "memory": {"header": 5000, "image": 6000}})");
    const std::string bytes = reset + streamOf(4);
    test.send(bytes);
    // A page and 1904 bytes of the next one's data, and what stands in front of those.
    const std::size_t taken = 16 + 272 + pageSize + 64 + 32 + 1024 + 32 + (6000 - 4096 - 1024);
    EXPECT_EQ(test.output.size(), taken);
    EXPECT_EQ(test.underWay.size(), bytes.size() - taken - WireEnd::lineBuffer);
    EXPECT_THAT(test.toldAbout("the line"), ElementsAre("0.000 holds the line: no memory"));
    test.passUntil(999ms);
    EXPECT_EQ(test.output.size(), taken);
    test.passUntil(1s);
    EXPECT_EQ(test.output.size(), taken + pageSize) << "a page is printed, and another one's data come";
    test.endConnection();
    test.passUntil(10s);
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::whole);
    EXPECT_THAT(test.jobs[0].overruns, IsEmpty());
    EXPECT_EQ(test.output, bytes);
}

TEST(WireEnd, HoldsTheLineForHeadersToo) {
    WireUnderTest test(R"("printer": {"pagesPerMinute": 60, "memory": {"header": 500, "image": 100000}})");
    test.send(reset + streamOf(2));
    EXPECT_EQ(test.output.size(), 16 + 272 + pageSize) << "464 bytes of headers, and 64 more";
    test.endConnection();
    test.passUntil(10s);
    EXPECT_THAT(test.jobs.at(0).overruns, IsEmpty());
    EXPECT_EQ(test.jobs.at(0).outcome(), JobOutcome::whole);
}

TEST(WireEnd, TakesTheCancelRecordWhileThereIsNoMemory) {
    WireUnderTest test(R"("printer": {"memory": {"image": 5120}},
                          "events": [{"at": 0, "do": "cover-open"}])");
    test.send(reset + streamOf(2).substr(0, 272 + pageSize + 64 + 32 + 1024 + 32));
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::image), 0U);
    test.send(cancel);
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::cancelled);
    EXPECT_EQ(test.printer().printer().freeMemory(MemoryPool::image), 5120U);
}

TEST(WireEnd, TakesAPageThatNeverFitsAndCallsItAnOverrun) {
    WireUnderTest test(R"("printer": {"memory": {"image": 3000}})");
    test.send(reset + streamOf(1));
    test.endConnection();
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::whole);
    EXPECT_FALSE(test.jobs[0].overruns.empty());
}

TEST(WireEnd, WaitsForMemoryThatItsScenarioGivesBack) {
    WireUnderTest test(
        R"("events": [{"at": 0, "do": "memory", "memory": {"header": 10000, "image": 0}, "for": 5}])");
    test.send(reset + streamOf(1));
    test.passUntil(4999ms);
    EXPECT_EQ(test.output.size(), 16 + dataBegin);
    test.passUntil(5s);
    EXPECT_EQ(test.output.size(), 16 + streamOf(1).size());
    test.endConnection();
    EXPECT_THAT(test.jobs.at(0).overruns, IsEmpty());
}

// ---- Records

TEST(WireEnd, SendsNoRecordBeforeTheResetRecord) {
    WireUnderTest test;
    test.send(streamOf(1));
    test.passUntil(10s);
    EXPECT_THAT(test.sent, IsEmpty());
    test.send(reset);
    EXPECT_THAT(test.sent, ElementsAre("10.000 64"));
    EXPECT_TRUE(test.lastRecord.starts_with("GDIR"));
}

TEST(WireEnd, SendsRecordsAtARateAndWhenSomethingChanges) {
    WireUnderTest test(R"("recordInterval": 2, "events": [{"at": 5, "do": "cover-open"}])");
    test.send(reset);
    test.passUntil(8s);
    EXPECT_THAT(test.sent, ElementsAre("0.000 64", "2.000 64", "4.000 64", "5.000 64", "7.000 64"));
    EXPECT_EQ(test.lastRecord[36], 33);
    EXPECT_EQ(test.printer().report().replies, 5U);
    test.sent.clear();
    test.send(reset);
    EXPECT_THAT(test.sent, ElementsAre("8.000 64")) << "afresh";
}

TEST(WireEnd, SendsNoMoreThanTenRecordsASecond) {
    WireUnderTest test;
    test.send(reset);
    const std::string stream = streamOf(1);
    for (std::size_t at = 0; at < stream.size(); at += 100) {
        test.passUntil(test.now + 10ms);
        test.send(stream.substr(at, 100));
    }
    ASSERT_EQ(test.now, 460ms);
    EXPECT_THAT(test.sent, ElementsAre("0.000 64", "0.100 64", "0.200 64", "0.300 64", "0.400 64"));
}

TEST(WireEnd, WantsTheResetRecordOfEveryConnection) {
    WireUnderTest test;
    test.send(reset);
    test.endConnection();
    test.sent.clear();
    test.connectAgain();
    test.passUntil(10s);
    EXPECT_THAT(test.sent, IsEmpty());
}

TEST(WireEnd, SendsWhatTheRulesSay) {
    WireUnderTest test(R"("records": [{"first": 2, "last": 2, "fault": "missing"},
                                      {"first": 3, "last": 3, "fault": "half"}])");
    test.send(reset);
    test.passUntil(3s);
    EXPECT_THAT(test.sent, ElementsAre("0.000 64", "1.000 0", "2.000 32", "3.000 64"));
    EXPECT_EQ(test.printer().report().replies, 3U);
    test.endConnection();
    test.sent.clear();
    test.connectAgain();
    test.send(reset);
    test.passUntil(4s);
    EXPECT_THAT(test.sent, ElementsAre("3.000 64", "4.000 0")) << "counted in each connection";
}

// ---- What happens to the wire

TEST(WireEnd, IsCutInTheMidstOfABand) {
    WireUnderTest test(R"("events": [{"afterPage": 1, "do": "cut"}])");
    test.send(reset + streamOf(3));
    EXPECT_THAT(test.deeds, ElementsAre("0.000 break off"));
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].totals.bytes, 16 + 272 + pageSize + 64 + 32 + 512);
    EXPECT_EQ(test.jobs[0].problems.at(0).problem, StreamProblem::truncatedData);
    EXPECT_EQ(test.end().room(), 0U);

    test.connectAgain();
    test.send(reset + streamOf(1));
    test.endConnection();
    EXPECT_EQ(test.jobs.at(1).outcome(), JobOutcome::whole);
}

TEST(WireEnd, CanBeSwitchedOffAndOnAgain) {
    WireUnderTest test(R"("events": [{"afterPage": 1, "do": "vanish", "for": 3}])");
    test.send(reset + streamOf(3));
    EXPECT_THAT(test.deeds, ElementsAre("0.000 break off", "0.000 stop listening"));
    ASSERT_EQ(test.jobs.size(), 1U);
    EXPECT_EQ(test.jobs[0].outcome(), JobOutcome::broken);
    EXPECT_EQ(test.jobs[0].totals.bytes, 16 + 272 + pageSize);
    EXPECT_FALSE(test.printer().inJob()) << "nothing behind the page is taken";
    EXPECT_EQ(test.output.size(), 16 + 272 + pageSize);
    EXPECT_FALSE(test.end().isGone());
    test.deeds.clear();
    test.passUntil(5s);
    EXPECT_THAT(test.deeds, ElementsAre("3.000 listen"));
}

TEST(WireEnd, CanBeSwitchedOffForGood) {
    WireUnderTest test(R"("events": [{"at": 1, "do": "vanish"}])");
    test.send(reset);
    test.passUntil(1s);
    EXPECT_TRUE(test.end().isGone());
}

TEST(WireEnd, CanCloseTheConnectionAndTakeOthersAgain) {
    WireUnderTest test(R"("events": [{"at": 1, "do": "leave", "for": 2}])");
    test.send(reset);
    test.passUntil(5s);
    EXPECT_THAT(test.deeds, ElementsAre("1.000 close", "1.000 stop listening", "3.000 listen"));
    EXPECT_FALSE(test.end().isGone());
}

TEST(WireEnd, MayBeSlow) {
    WireUnderTest test(
        R"("printer": {"pagesPerMinute": 60}, "events": [{"at": 0, "do": "slow-line", "bytesPerSecond": 1000, "for": 2}])");
    test.send(reset);
    test.passUntil(1ms);
    test.send(streamOf(1));
    const std::size_t before = test.underWay.size();
    test.passUntil(1001ms);
    EXPECT_NEAR(static_cast<double>(before - test.underWay.size()), 1000, 100);
    test.passUntil(2s);
    EXPECT_EQ(test.underWay, "") << "the line is as it was";
    EXPECT_EQ(test.output, reset + streamOf(1));
}

TEST(WireEnd, ShowsNothingThatATerminalWouldObey) {
    WireUnderTest test;
    test.send("GDIC\x1b[2J      \n\n");
    EXPECT_THAT(test.told, Contains(HasSubstr("command GDIC.[2J      ..")));
}

} // namespace
} // namespace veltrin::printer
