// What takes half a minute and more: the second of two queues at one printer gives up, and tries again; a
// device's backend takes nothing and will not end, or is not started at all.

#include "tests/jobs/BackendFixture.h"
#include "tests/jobs/DeviceFixture.h"
#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <string>

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::BytesAre;
using test::document;
using test::forLp;
using test::PrivateScheduler;
using test::ProcessResult;
using test::readFile;
using testing::HasSubstr;

using SlowBackendTest = test::BackendFixture;

/// Longer than a filter waits for a backend.
constexpr auto patience = 60s;

TEST_F(SlowBackendTest, AJobThatHasWaitedInVainIsTriedAgainUntilThePrinterIsFree) {
    const std::string uri = uriOf(coverOpen());
    PrivateScheduler scheduler(uri);
    scheduler.addQueue(secondQueue, uri);
    const std::string stream = makeStream(document());

    const int first = scheduler.submit(makeStream(twoLargePages()), forLp({"media=A4"}));
    awaitPrinter(scheduler);
    const int second = scheduler.submit(stream, forLp({"media=A4"}), secondQueue);
    // Twice in vain is more than this scheduler would try again after a pause.
    for (std::size_t start = 1; start <= 3; ++start) {
        ASSERT_TRUE(scheduler.waitUntil([&] { return scheduler.startsOfBackend(second) == start; }, patience))
            << scheduler.log();
        EXPECT_TRUE(scheduler.waitUntil([&] {
            return scheduler.queueStatus(secondQueue).message == waiting;
        })) << scheduler.log();
    }
    EXPECT_EQ(scheduler.stateOf(first), IPP_JSTATE_PROCESSING);

    scheduler.cancel(first);
    scheduler.expectState(second, IPP_JSTATE_COMPLETED);
    EXPECT_EQ(scheduler.startsOfBackend(second), 3U);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printedFrom(scheduler, {"media=A4"}, stream)))
        << scheduler.log();
    scheduler.expectIdleQueue(secondQueue);
}

// ---- A device that is stuck

using SlowDeviceBackendTest = test::DeviceFixture;

TEST_F(SlowDeviceBackendTest, ACancelledJobIsNotKeptByADeviceThatTakesNothing) {
    startBackend("stuck"); // and ignores SIGTERM
    startFilter({.stream = makeStream({.pages = 1, .planeSizes = {1'000'000, 0, 0, 0}})});
    ASSERT_TRUE(says(*printer, "ATTR: marker-levels=")) << printer->errors();
    awaitLog("FrontendIPC readData Completed");
    printer->send(SIGTERM);
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 1);
    const ProcessResult result = finishBackend();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, testing::Not(HasSubstr("ERROR: ")));
    EXPECT_EQ(printedByDevice(), "");
}

// ---- A device's backend that root may not start

TEST_F(SlowDeviceBackendTest, AJobIsKeptWhereRootWouldStartWhatOthersCanChange) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root has anything to fear";
    }
    PrivateScheduler scheduler("veltrin:test:", PrivateScheduler::rootsBackend);
    scheduler.installBackend("test", test::hostPath(DEVICE_BACKEND), 0777);
    const int job = scheduler.submit(makeStream(document()), forLp({"media=A4"}));
    scheduler.expectState(job, IPP_JSTATE_HELD, patience); // when its filter has given up
    scheduler.expectIdleQueue();
    EXPECT_THAT(scheduler.log(), HasSubstr("has insecure permissions, so that root starts nothing there."));
    EXPECT_EQ(printedByDevice(), "");
}

} // namespace
} // namespace veltrin
