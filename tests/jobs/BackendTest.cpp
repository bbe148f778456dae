// Whole jobs, from lp through a real scheduler, the filter and the channel to the virtual printer as a
// backend.

#include "driver/stream/StreamMaker.h"
#include "tests/jobs/BackendFixture.h"
#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::document;
using test::forLp;
using test::PrivateScheduler;
using test::readFile;
using test::twoSidedTwoCopies;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using BackendTest = test::BackendFixture;

TEST_F(BackendTest, ATwoSidedJobReachesThePrinter) {
    PrivateScheduler scheduler(uriOf("fast"));
    const std::string stream = makeStream(document());

    const int job = scheduler.submit(stream, forLp(twoSidedTwoCopies));
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);
    scheduler.expectIdleQueue();

    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printedFrom(scheduler, twoSidedTwoCopies, stream)))
        << scheduler.log();
    const nlohmann::json documents = reportedDocuments();
    ASSERT_EQ(documents.size(), 1);
    EXPECT_EQ(documents[0]["outcome"], "whole");
    EXPECT_EQ(documents[0]["copies"], 2);
    EXPECT_EQ(documents[0]["sheets"].size(), 4);
    EXPECT_EQ(documents[0]["pauses"].size(), 1);
    EXPECT_THAT(scheduler.temporaryFiles(), IsEmpty());
}

TEST_F(BackendTest, TheDocumentsOfAJobAreOneBackendsWork) {
    PrivateScheduler scheduler(uriOf("fast"));
    StreamOptions second = document();
    second.seed = 1;
    const std::vector<std::string> streams = {makeStream(document()), makeStream(second)};

    const int job = scheduler.submitAll(streams, forLp(twoSidedTwoCopies));
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);
    scheduler.expectIdleQueue();

    // A second backend would have made the file anew.
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printedFrom(scheduler, twoSidedTwoCopies, streams[0]) +
                                                      printedFrom(scheduler, twoSidedTwoCopies, streams[1])))
        << scheduler.log();
    const nlohmann::json documents = reportedDocuments();
    ASSERT_EQ(documents.size(), 2);
    EXPECT_EQ(documents[0]["outcome"], "whole");
    EXPECT_EQ(documents[1]["outcome"], "whole");
}

TEST_F(BackendTest, ASecondQueueOfThePrinterWaitsAndThenPrints) {
    const std::string uri = uriOf(coverOpen("4"));
    PrivateScheduler scheduler(uri);
    scheduler.addQueue(secondQueue, uri);
    const std::string stream = makeStream(twoLargePages());
    const std::string otherStream = makeStream(twoLargePages(1));

    const int first = scheduler.submit(stream, forLp({"media=A4"}));
    awaitPrinter(scheduler);
    const int second = scheduler.submit(otherStream, forLp({"media=A4"}), secondQueue);
    EXPECT_TRUE(scheduler.waitUntil([&] { return scheduler.queueStatus(secondQueue).message == waiting; }))
        << scheduler.log();
    EXPECT_EQ(scheduler.stateOf(first), IPP_JSTATE_PROCESSING);
    EXPECT_EQ(scheduler.stateOf(second), IPP_JSTATE_PROCESSING);
    // Both have the same files: the second job makes them anew, but not before the printer is its own.
    EXPECT_THAT(readFile(outputFile), StartsWith(test::resetRecord()));

    scheduler.expectState(first, IPP_JSTATE_COMPLETED);
    scheduler.expectState(second, IPP_JSTATE_COMPLETED);
    // It has been printed by its own backend, and once.
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printedFrom(scheduler, {"media=A4"}, otherStream)))
        << scheduler.log();
    ASSERT_EQ(reportedDocuments().size(), 1);
    EXPECT_EQ(reportedDocuments()[0]["outcome"], "whole");
    EXPECT_THAT(scheduler.log(), Not(HasSubstr("Job held")));
    EXPECT_THAT(scheduler.log(), Not(HasSubstr("stopped with status"))) << "each at the first go";
    scheduler.expectIdleQueue();
    scheduler.expectIdleQueue(secondQueue);
}

TEST_F(BackendTest, OfSeveralQueuesThatWaitEachGetsItsTurn) {
    const std::string uri = uriOf(coverOpen("2"));
    PrivateScheduler scheduler(uri);
    scheduler.addQueue(secondQueue, uri);
    scheduler.addQueue(thirdQueue, uri);
    const std::string stream = makeStream(twoLargePages());

    const int first = scheduler.submit(stream, forLp({"media=A4"}));
    awaitPrinter(scheduler);
    const int second = scheduler.submit(stream, forLp({"media=A4"}), secondQueue);
    const int third = scheduler.submit(stream, forLp({"media=A4"}), thirdQueue);
    EXPECT_TRUE(scheduler.waitUntil([&] {
        return scheduler.queueStatus(secondQueue).message == waiting &&
               scheduler.queueStatus(thirdQueue).message == waiting;
    })) << scheduler.log();

    for (const int job : {first, second, third}) {
        scheduler.expectState(job, IPP_JSTATE_COMPLETED);
    }
    EXPECT_THAT(scheduler.log(), Not(HasSubstr("stopped with status"))) << "each at the first go";
}

TEST_F(BackendTest, ACancelledJobEndsWithACancelRecord) {
    PrivateScheduler scheduler(uriOf(coverOpen()));

    const int job = scheduler.submit(makeStream(twoLargePages()), forLp({"media=A4"}));
    awaitPrinter(scheduler);
    scheduler.cancel(job);
    scheduler.expectState(job, IPP_JSTATE_CANCELED);
    scheduler.expectIdleQueue();

    EXPECT_TRUE(scheduler.waitUntil([] { return !readFile(reportFile).empty(); })) << scheduler.log();
    EXPECT_THAT(readFile(outputFile), EndsWith(test::cancelRecord()));
    EXPECT_EQ(reportedDocuments().at(0)["outcome"], "cancelled");
    EXPECT_TRUE(scheduler.waitUntil([&] {
        return scheduler.log().find("backend/veltrin-printer) exited with no errors") != std::string::npos;
    })) << scheduler.log();
}

TEST_F(BackendTest, ABackendThatIsRootsAloneTakesTheJobOfTheSchedulersFilter) {
    PrivateScheduler scheduler(uriOf("fast"), PrivateScheduler::rootsBackend);
    const std::string stream = makeStream(document());

    const int job = scheduler.submit(stream, forLp({"media=A4"}));
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);
    scheduler.expectIdleQueue();

    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printedFrom(scheduler, {"media=A4"}, stream)))
        << scheduler.log();

    struct stat output {};

    ASSERT_EQ(stat(outputFile.c_str(), &output), 0);
    EXPECT_EQ(output.st_uid, geteuid()) << "whoever runs the scheduler runs such a backend";
}

} // namespace
} // namespace veltrin
