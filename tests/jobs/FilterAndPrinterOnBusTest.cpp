#include "tests/jobs/Documents.h"
#include "tests/jobs/PrinterFixture.h"
#include "tests/support/BusClient.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>

// What the message bus gives the filter and the printer, and other services do not: who sends, who has left,
// what has been taken.

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::document;
using test::printed;
using test::readFile;
using test::resetRecord;
using test::twoSided;
using testing::Contains;

class FilterAndPrinterOnBus : public test::PrinterFixture {};

TEST_F(FilterAndPrinterOnBus, TakeNoStrangersWordThatTheOtherHasLeft) {
    const std::string frontend = uri + ".frontend";
    const std::string backend = uri + ".backend";
    test::BusClient hearsPrinter(frontend);
    test::BusClient hearsFilter(backend);
    startPrinter("one-sided");
    startFilter({.input = test::Pipe()});
    ASSERT_TRUE(hearsPrinter.awaitReceived(1));
    ASSERT_TRUE(hearsFilter.awaitReceived(1));
    const std::string printerName = sd_bus_message_get_sender(hearsPrinter.received.front().get());
    const std::string filterName = sd_bus_message_get_sender(hearsFilter.received.front().get());
    awaitLog("FrontendIPC readData Completed", 2);
    test::BusClient stranger("somebody else");
    stranger.forgeDeparture(filterName, printerName);
    stranger.forgeDeparture(printerName, filterName);
    stranger.waitForBus();
    filter->write(makeStream(document(3)));
    filter->closeInput();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(reportedJob()["outcome"], "whole");
    // The printer's own goodbye may come in while the filter says its own.
    std::vector<std::string> messages = logMessages();
    messages.erase(std::find(messages.begin(), messages.end(), "DriverFilter run: exiting with result 1"),
                   messages.end());
    EXPECT_THAT(messages, testing::Not(Contains("FrontendIPC::handleNotification:backend-byebye")));
}

TEST_F(FilterAndPrinterOnBus, WaitForThePortEvenWhenTheJobIsCancelled) {
    startPrinter("port-busy-for-good");
    startFilter();
    awaitLog("DriverFilter run: Waiting for port (2)");
    filter->send(SIGTERM);
    // Two passes later it still waits for the port; nothing but SIGKILL ends that.
    awaitLog("DriverFilter run: Waiting for port (2)", 3);
    EXPECT_THAT(logMessages(), Contains("ASSERT: checkStatus error"));
    EXPECT_FALSE(filter->hasEnded());
    filter->send(SIGKILL);
    EXPECT_EQ(finishFilter().signal, SIGKILL);
    // The printer notices: a peer that leaves the bus has said goodbye.
    EXPECT_EQ(finishPrinter().exitStatus, 1);
    EXPECT_EQ(reportedJob()["outcome"], "broken");
}

// ---- Blocks that may be on their way

TEST_F(FilterAndPrinterOnBus, EndTheWaitForDeliveryWhenTheJobIsCancelled) {
    StreamOptions options;
    options.bandsPerPage = 1;
    startPrinter("one-sided");
    startFilter({.input = test::Pipe()});
    awaitLog("FrontendIPC readData Completed", 2);
    // From now on the printer takes nothing; the whole job fits into what may be on its way.
    printer->send(SIGSTOP);
    filter->write(makeStream(options));
    filter->closeInput();
    awaitLog("FrontendIPC sendData: sending 4 bytes to backend");
    EXPECT_FALSE(filter->waitUntil([&] { return filter->hasEnded(); }, 500ms));
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->send(SIGCONT);
    // It gets all that was on its way.
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + printed(options, 0, "1")));
}

class FilterAndStuckPrinter : public FilterAndPrinterOnBus, public testing::WithParamInterface<bool> {};

TEST_P(FilterAndStuckPrinter, SendTheCancelRecordToAPrinterThatTakesNothing) {
    const StreamOptions options = document(20);
    const bool isTwoSided = GetParam();
    startPrinter("one-sided");
    startFilter({.options = isTwoSided ? twoSided(1, true, 20) : "", .input = test::Pipe()});
    awaitLog("FrontendIPC readData Completed", 2);
    printer->send(SIGSTOP);
    filter->write(makeStream(options));
    filter->closeInput();
    // The reset command, and as many blocks as may be on their way.
    ASSERT_TRUE(filter->waitUntil([] {
        const std::vector<std::string> messages = logMessages();
        return std::count_if(messages.begin(), messages.end(), [](const std::string &message) {
                   return message.starts_with("FrontendIPC sendData: sending ");
               }) == 1 + 16;
    }));
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 1);
    printer->send(SIGCONT);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(readFile(outputFile), testing::EndsWith("JIDG" + cancelRecord()));
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
    EXPECT_EQ(reportedJob()["notifications"]["writePipe"], 1 + 16 + 2);
    expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Sides, FilterAndStuckPrinter, testing::Bool(),
                         [](const auto &test) { return test.param ? "TwoSided" : "OneSided"; });

} // namespace
} // namespace veltrin
