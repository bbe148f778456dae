// Everything between lp and the engine: a real scheduler, the filter, the channel, the backend for devices,
// CUPS's own backend for the network, and the virtual printer at the end of the wire.

#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/jobs/WireSchedulerFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::document;
using test::forFilter;
using test::forLp;
using test::PrivateScheduler;
using test::readFile;
using test::resetRecord;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

class PrinterAtTheEndOfAWire : public test::WireSchedulerFixture {
  protected:
    static constexpr const char *secondQueue = "Second_Queue";

    void setErrorPolicy(const std::string &policy) {
        scheduler->administer({"-o", "printer-error-policy=" + policy});
    }

    /// How often the device's backend has not reached the printer.
    [[nodiscard]] std::size_t attempts() const {
        const std::string failure = "Connection error: ";
        const std::string log = scheduler->log();
        std::size_t count = 0;
        for (std::size_t at = log.find(failure); at != std::string::npos; at = log.find(failure, at + 1)) {
            ++count;
        }
        return count;
    }

    /// More than such a printer's memory takes in one go.
    static StreamOptions largePages() {
        StreamOptions stream;
        stream.pages = 3;
        stream.planeSizes = {100'000, 0, 0, 0};
        return stream;
    }

    /// A printer that has room for one of `largePages`, and whose cover is opened after it has come.
    static std::string coverOpened(const std::string &length) {
        return R"("printer": {"pagesPerMinute": 6000, "memory": {"image": 1500000}},
                  "events": [{"afterPage": 1, "do": "cover-open")" +
               length + "}]";
    }

    /// More than the wire's own buffers take.
    static StreamOptions longDocument() {
        StreamOptions stream;
        stream.pages = 20;
        stream.planeSizes = {300'000, 0, 0, 0};
        return stream;
    }

    /// A printer that is switched off when it has a page of its first job, and on again, or not.
    static std::string switchedOff(const std::string &length) {
        return std::string(ready) + R"(, "events": [{"afterPage": 1, "do": "vanish")" + length + "}]";
    }
};

TEST_F(PrinterAtTheEndOfAWire, GetsByteForByteWhatTheFilterSent) {
    switchOn();
    startScheduler();
    scheduler->expectState(submit(), IPP_JSTATE_COMPLETED);
    scheduler->expectState(submit(document(), test::twoSidedTwoCopies), IPP_JSTATE_COMPLETED);
    scheduler->expectIdleQueue();
    const test::ProcessResult twoSided =
        test::run(scheduler->filterByHand(forFilter(test::twoSidedTwoCopies), makeStream(document())));
    EXPECT_THAT(switchOff(), ElementsAre("whole", "whole")) << scheduler->log();
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + makeStream(document()).substr(36) +
                                                      resetRecord() + twoSided.output));
}

TEST_F(PrinterAtTheEndOfAWire, TellsTheQueueOfItsOpenCoverUntilItIsClosed) {
    switchOn(coverOpened(R"(, "for": 6)"));
    startScheduler();
    const int job = submit(largePages());
    EXPECT_TRUE(scheduler->waitUntil([&] { return hasReason("cover-open-error"); })) << scheduler->log();
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none"));
    EXPECT_THAT(scheduler->queueStatus().markers,
                ElementsAre("Black toner", "Cyan toner", "Magenta toner", "Yellow toner"));
    EXPECT_THAT(switchOff(), ElementsAre("whole"));
}

TEST_F(PrinterAtTheEndOfAWire, TellsTheQueueThatItHasNoPaperUntilItIsRefilled) {
    switchOn(R"("printer": {"pagesPerMinute": 6000, "memory": {"image": 1500000},
                            "toner": {"black": 71, "cyan": 42, "magenta": 7, "yellow": 255}},
                "events": [{"afterPage": 1, "do": "paper-empty", "tray": "bypass", "for": 4}])");
    startScheduler();
    const int job = submit(largePages());
    EXPECT_TRUE(scheduler->waitUntil([&] { return hasReason("media-empty-error"); })) << scheduler->log();
    EXPECT_EQ(scheduler->stateOf(job), IPP_JSTATE_PROCESSING);
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none"));
    EXPECT_THAT(scheduler->queueStatus().markerLevels, ElementsAre(71, 42, 7, -1)) << "255 is no level";
    EXPECT_THAT(switchOff(), ElementsAre("whole"));
}

TEST_F(PrinterAtTheEndOfAWire, GetsAllOfAJobThoughItHoldsTheLineForAWhile) {
    // What the filter thinks free is gone at once, and nothing is printed.
    switchOn(R"("printer": {"pagesPerMinute": 6000}, "events": [
                {"afterPage": 1, "do": "memory", "memory": {"image": 2000000}, "for": 4},
                {"afterPage": 1, "do": "cover-open", "for": 4}])");
    startScheduler();
    scheduler->expectState(submit(longDocument()), IPP_JSTATE_COMPLETED);
    EXPECT_THAT(switchOff(), ElementsAre("whole")) << scheduler->log();
    EXPECT_THAT(printer->output(), HasSubstr("holds the line: no memory"));
    EXPECT_EQ(jobsIn(reportFile).at(0)["overruns"].size(), 0U);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + makeStream(longDocument()).substr(36)));
}

TEST_F(PrinterAtTheEndOfAWire, TakesAJobFromABackendOfRootsAndAFilterThatIsNot) {
    switchOn();
    startScheduler(PrivateScheduler::rootsBackend);
    const int job = submit();
    std::map<std::string, uid_t> running;
    EXPECT_TRUE(scheduler->waitUntil([&] {
        running = scheduler->runningPrograms();
        return running.size() == 3;
    })) << scheduler->log();
    const uid_t filterUser = geteuid() == 0 ? getpwnam("lp")->pw_uid : geteuid();
    EXPECT_THAT(running, ElementsAre(Pair("backend/socket", geteuid()), Pair("backend/veltrin", geteuid()),
                                     Pair("filter/veltrin", filterUser)));
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(switchOff(), ElementsAre("whole"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + makeStream(document()).substr(36)));
}

TEST_F(PrinterAtTheEndOfAWire, IsReadyForTheNextJobWhenOneIsCancelled) {
    switchOn(coverOpened(R"(, "for": 10)"));
    startScheduler();
    const int job = submit(largePages());
    EXPECT_TRUE(scheduler->waitUntil([&] { return hasReason("cover-open-error"); })) << scheduler->log();
    scheduler->cancel(job);
    scheduler->expectState(job, IPP_JSTATE_CANCELED);
    scheduler->expectIdleQueue();
    ASSERT_TRUE(printer->waitUntil([&] { return printer->output().find("cancelled") != std::string::npos; }))
        << printer->output();
    scheduler->expectState(submit(), IPP_JSTATE_COMPLETED);
    EXPECT_THAT(switchOff(), ElementsAre("cancelled", "whole"));
    EXPECT_TRUE(readFile(outputFile)
                    .ends_with(test::cancelRecord() + resetRecord() + makeStream(document()).substr(36)));
}

TEST_F(PrinterAtTheEndOfAWire, IsWaitedForWhereItIsSwitchedOnLater) {
    switchOn(); // for a port
    EXPECT_THAT(switchOff(), ElementsAre());
    startScheduler();
    const int job = submit();
    // By the third time the filter would have given up if nobody kept it patient.
    EXPECT_TRUE(scheduler->waitUntil([&] { return attempts() == 2; })) << scheduler->log();
    switchOn();
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none"));
    EXPECT_THAT(switchOff(), ElementsAre("whole"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + makeStream(document()).substr(36)));
}

// ---- Switched off in mid-job

TEST_F(PrinterAtTheEndOfAWire, GetsAJobAnewWhenItWasSwitchedOffInItsMidst) {
    switchOn(switchedOff(R"(, "for": 0.2)"));
    startScheduler();
    setErrorPolicy("retry-current-job");
    scheduler->expectState(submit(longDocument()), IPP_JSTATE_COMPLETED);
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none"));
    EXPECT_THAT(scheduler->temporaryFiles(), ElementsAre());
    EXPECT_THAT(switchOff(), ElementsAre("broken", "whole")) << scheduler->log();
    const std::string printed = readFile(outputFile);
    const std::string whole = resetRecord() + makeStream(longDocument()).substr(36);
    EXPECT_GT(printed.size(), whole.size());
    EXPECT_TRUE(printed.ends_with(whole));
}

struct PolicyCase {
    const char *name;
    const char *policy;
    ipp_jstate_t job;
    ipp_pstate_t queue;
};

class PrinterThatIsSwitchedOff : public PrinterAtTheEndOfAWire,
                                 public testing::WithParamInterface<PolicyCase> {};

TEST_P(PrinterThatIsSwitchedOff, LeavesTheJobToTheErrorPolicy) {
    switchOn(switchedOff(""));
    startScheduler();
    setErrorPolicy(GetParam().policy);
    const int job = submit(longDocument());
    const auto isOver = [&] {
        const ipp_jstate_t state = scheduler->stateOf(job).value_or(IPP_JSTATE_PENDING);
        return scheduler->log().find("stopped with status 1") != std::string::npos &&
               state == GetParam().job && scheduler->queueStatus().state == GetParam().queue;
    };
    EXPECT_TRUE(scheduler->waitUntil(isOver)) << scheduler->log();
    EXPECT_THAT(scheduler->runningPrograms(), ElementsAre());
    EXPECT_THAT(switchOff(), ElementsAre("broken"));
}

INSTANTIATE_TEST_SUITE_P(
    Policies, PrinterThatIsSwitchedOff,
    testing::Values(PolicyCase{"Abort", "abort-job", IPP_JSTATE_ABORTED, IPP_PSTATE_IDLE},
                    PolicyCase{"Retry", "retry-job", IPP_JSTATE_HELD, IPP_PSTATE_IDLE},
                    PolicyCase{"Stop", "stop-printer", IPP_JSTATE_PENDING, IPP_PSTATE_STOPPED}),
    test::nameOfCase<PolicyCase>);

TEST_F(PrinterAtTheEndOfAWire, TakesTheJobsOfTwoQueuesInTurn) {
    switchOn();
    startScheduler();
    scheduler->addQueue(secondQueue, deviceUri());
    const int first = submit();
    const int second = scheduler->submit(makeStream(document()), forLp({"media=A4"}), secondQueue);
    scheduler->expectState(first, IPP_JSTATE_COMPLETED);
    scheduler->expectState(second, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(switchOff(), ElementsAre("whole", "whole"));
    const std::string printed = resetRecord() + makeStream(document()).substr(36);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printed + printed));
}

} // namespace
} // namespace veltrin
