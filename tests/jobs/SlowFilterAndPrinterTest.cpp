#include "tests/jobs/PrinterFixture.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>

// What takes half a minute and more, because the filter's patience is real here.

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using test::ProcessResult;
using testing::ElementsAre;

class SlowFilterAndPrinter : public test::PrinterFixture {
  protected:
    /// Pages of many blocks: what may be on its way when something happens is a part of one.
    void startTwoPageJob() {
        StreamOptions options;
        options.pages = 2;
        options.bandsPerPage = 40;
        startFilter({.stream = makeStream(options)});
    }

    /// The filter waits for half a minute before it tells of it.
    void awaitCommunicationError() {
        EXPECT_TRUE(filter->waitUntil(
            [this] {
                return filter->errors().find("ERROR: recoverable: Unable to communicate with printer\n") !=
                       std::string::npos;
            },
            60s));
    }
};

TEST_F(SlowFilterAndPrinter, FailWhenTheBackendNeverAnnouncesItself) {
    startPrinter("no-announcement");
    startFilter();
    awaitLog("FrontendIPC sendData: waiting for backend alive...", 3);
    filter->send(SIGTERM); // does not shorten the wait
    const ProcessResult result = filter->finish(60s);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 1);
    EXPECT_THAT(notifications(), ElementsAre("< fronted-alive", "< frontend-byebye", "> backend-byebye"));
    const std::vector<std::string> messages = logMessages();
    EXPECT_EQ(
        std::count(messages.begin(), messages.end(), "FrontendIPC sendData: waiting for backend alive..."),
        100);
    EXPECT_EQ(test::readFile(outputFile), "");
    expectNothingLeft();
}

TEST_F(SlowFilterAndPrinter, FailWhenTheBackendLeavesForGood) {
    startPrinter("leaves-for-good");
    startTwoPageJob();
    awaitCommunicationError();
    filter->send(SIGTERM);
    // The end-of-job mark and the cancel record each wait as long as the page did.
    EXPECT_EQ(filter->finish(100s).exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 1);
    EXPECT_EQ(reportedJob()["outcome"], "broken");
    // Some of the second page may have been on its way when the backend said goodbye.
    const nlohmann::json pages = reportedJob()["pages"];
    EXPECT_EQ(std::count_if(pages.begin(), pages.end(),
                            [](const nlohmann::json &page) { return page["complete"] == true; }),
              1);
    expectNothingLeft();
}

TEST_F(SlowFilterAndPrinter, TellWhenTheBackendVanishes) {
    startPrinter("vanishes");
    startTwoPageJob();
    EXPECT_EQ(finishPrinter().exitStatus, 1);
    EXPECT_EQ(reportedJob()["outcome"], "broken");
    awaitCommunicationError();
    EXPECT_THAT(logMessages(), testing::Contains("FrontendIPC::handleNotification:backend-byebye"));
}

class SlowBackend : public test::PrinterFixture {};

TEST_F(SlowBackend, DoesNotOutliveACancelledJobForLong) {
    test::Command command{test::hostPath(VELTRIN_PRINTER), {uri, "7", "user", "title", "1", ""}};
    command.input = test::Pipe(); // of a filter that hangs
    printer.emplace(command);
    ASSERT_TRUE(
        printer->waitUntil([this] { return printer->errors().find("listening") != std::string::npos; }));
    printer->send(SIGTERM);
    EXPECT_FALSE(printer->waitUntil([this] { return printer->hasEnded(); }, 10s));
    const ProcessResult result = printer->finish(20s);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0);
}

} // namespace
} // namespace veltrin
