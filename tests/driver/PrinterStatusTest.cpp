#include "driver/PrinterStatus.h"

#include "tests/driver/PrinterStatusFixture.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

using test::bytesOf;
using test::linesOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using PrinterStatusTest = test::PrinterStatusFixture;

// Status lines

TEST_F(PrinterStatusTest, StatusLinesHaveThePrefixOfTheirSeverity) {
    struct Case {
        std::int32_t severity;
        std::string line;
    };

    const std::vector<Case> cases = {
        {0, "INFO: Cover open"}, {1, "WARNING: recoverable: Cover open"},
        {3, "Cover open"},       {5, "Cover open"},
        {-1, "Cover open"},
    };
    for (const Case &one : cases) {
        log.clear();
        errors.clear();
        status.postCUPSStatus(one.severity, "Cover open");
        EXPECT_EQ(errors.written(), one.line + "\n");
        EXPECT_THAT(log.messages(), ElementsAre(one.line));
    }
    EXPECT_THAT(platform.fakeClock.sleeps, IsEmpty());
}

TEST_F(PrinterStatusTest, AnErrorIsRepeatedEveryTenthOfASecondUntilTheJobIsCancelled) {
    log.clear();
    errors.clear();
    cancelAfterSleeps(3);
    status.postCUPSStatus(2, "Power off");
    const std::string line = "ERROR: recoverable: Power off";
    EXPECT_EQ(errors.written(), line + "\n" + line + "\n" + line + "\n");
    EXPECT_THAT(platform.fakeClock.sleeps, ElementsAre(100ms, 100ms, 100ms));
    EXPECT_THAT(log.messages(), ElementsAre(line, line, line));
}

TEST_F(PrinterStatusTest, AnErrorOfACancelledJobIsWrittenOnce) {
    errors.clear();
    gSigTerm = 1;
    status.postCUPSStatus(2, "Power off");
    EXPECT_EQ(errors.written(), "ERROR: recoverable: Power off\n");
}

TEST_F(PrinterStatusTest, AnEmptyStatusWritesNothingAtAnySeverity) {
    log.clear();
    errors.clear();
    for (const std::int32_t severity : {0, 1, 2, 5}) {
        status.postCUPSStatus(severity, "");
    }
    EXPECT_EQ(errors.written(), "");
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(PrinterStatusTest, AStatusTextIsNoFormat) {
    log.clear();
    errors.clear();
    status.postCUPSStatus(0, "100% of %s %n");
    EXPECT_EQ(errors.written(), "INFO: 100% of %s %n\n");
    EXPECT_THAT(log.messages(), ElementsAre("INFO: 100% of %s %n"));
}

// Status readings

TEST_F(PrinterStatusTest, WithoutAChannelEveryCheckSucceedsAtOnce) {
    PrinterStatus withoutChannel(reverseData, nullptr, platform, isCancelled);
    center().posts.clear();
    gSigTerm = 1;
    EXPECT_TRUE(withoutChannel.checkStatus());
    EXPECT_TRUE(withoutChannel.waitForPort());
    EXPECT_TRUE(withoutChannel.checkHeaderSize(4294967295, 4294967295, true));
    EXPECT_THAT(center().posts, IsEmpty());
    EXPECT_THAT(platform.fakeClock.sleeps, IsEmpty());
}

TEST_F(PrinterStatusTest, AStatusReadingIsShownEveryTime) {
    errors.clear();
    printer.status = 33;
    EXPECT_TRUE(status.checkStatus());
    EXPECT_TRUE(status.checkStatus());
    EXPECT_EQ(errors.written(), "INFO: Cover open\nINFO: Cover open\n");
    EXPECT_EQ(readings(), 2);
}

TEST_F(PrinterStatusTest, AStatusWithoutATextIsNotShown) {
    errors.clear();
    printer.status = 8;
    EXPECT_TRUE(status.checkStatus());
    EXPECT_EQ(errors.written(), "");
}

TEST_F(PrinterStatusTest, AnErrorStatusHoldsTheFilterUntilTheJobIsCancelled) {
    errors.clear();
    printer.status = 255;
    cancelAfterSleeps(2);
    EXPECT_FALSE(status.checkStatus());
    EXPECT_EQ(errors.written(), "ERROR: recoverable: Power off or cable problem\n"
                                "ERROR: recoverable: Power off or cable problem\n");
}

TEST_F(PrinterStatusTest, AnErrorStatusWithoutATextFailsAtOnce) {
    errors.clear();
    printer.status = 54;
    printer.sub1 = 3;
    EXPECT_FALSE(status.checkStatus());
    EXPECT_EQ(errors.written(), "");
    EXPECT_THAT(platform.fakeClock.sleeps, IsEmpty());
}

TEST_F(PrinterStatusTest, ACancelledJobReadsNoStatus) {
    gSigTerm = 1;
    EXPECT_FALSE(status.checkStatus());
    EXPECT_EQ(readings(), 0);
}

TEST_F(PrinterStatusTest, RepliesThatAreNoStatusRecordAreDroppedAndAskedForAgain) {
    const std::vector<std::string> strange = {"JOBS",
                                              "GDI",
                                              "RIDG" + std::string(60, '\0'),
                                              "GDIR",
                                              "GDIR" + std::string(59, '\0'),
                                              "GDIR" + std::string(61, '\0')};
    errors.clear();
    log.clear();
    std::size_t asked = 0;
    answer = [&] {
        center().deliver("readPipe", asked < strange.size() ? bytesOf(strange[asked]) : printer.record());
        ++asked;
    };
    EXPECT_TRUE(status.checkStatus());
    EXPECT_EQ(readings(), 7);
    EXPECT_EQ(errors.written(), "INFO: Ready\n");
    EXPECT_THAT(log.messages(), Not(Contains(testing::HasSubstr("unexpected reverse data"))));
    EXPECT_THAT(platform.fakeClock.sleeps, IsEmpty());
}

TEST_F(PrinterStatusTest, ARecordOfTheWrongLengthShowsTheStatusBefore) {
    printer.status = 3;
    ASSERT_TRUE(status.checkStatus());
    errors.clear();
    log.clear();
    answer = [&] { center().deliver("readPipe", bytesOf("GDIR" + std::string(59, '\0'))); };
    EXPECT_TRUE(status.checkStatus());
    EXPECT_THAT(linesOf(errors.written()), Contains("INFO: Processing"));
    EXPECT_THAT(log.messages(),
                Contains("ReverseData dataArrived: received 63 bytes of unexpected reverse data"));
}

TEST_F(PrinterStatusTest, AReplyInHandWhenTheJobIsCancelledIsStillReported) {
    ASSERT_TRUE(status.checkStatus());
    errors.clear();
    log.clear();
    answer = [&] {
        center().deliver("readPipe", bytesOf("JOBS"));
        gSigTerm = 1;
    };
    EXPECT_TRUE(status.checkStatus());
    EXPECT_THAT(log.messages(),
                Contains("ReverseData dataArrived: received 4 bytes of unexpected reverse data"));
    EXPECT_THAT(linesOf(errors.written()), Contains("INFO: Ready"));
    EXPECT_EQ(readings(), 2);
}

TEST_F(PrinterStatusTest, AReplyInHandOfACancelledJobWithoutARecordShowsNoStatus) {
    errors.clear();
    log.clear();
    answer = [&] {
        center().deliver("readPipe", bytesOf("JOBS"));
        gSigTerm = 1;
    };
    EXPECT_TRUE(status.checkStatus());
    EXPECT_THAT(log.messages(),
                Contains("ReverseData dataArrived: received 4 bytes of unexpected reverse data"));
    EXPECT_THAT(linesOf(errors.written()), Each(Not(testing::HasSubstr("INFO"))));
}

TEST_F(PrinterStatusTest, AFailedReadingShowsTheCommunicationErrorUntilTheJobIsCancelled) {
    platform.fakeBundle.strings["DriverCommError"] = "Unable to communicate with printer";
    errors.clear();
    log.clear();
    answer = [] {};
    cancelAfterSleeps(2);
    EXPECT_FALSE(status.checkStatus());
    const std::string line = "ERROR: recoverable: Unable to communicate with printer";
    EXPECT_EQ(errors.written(), line + "\n" + line + "\n");
    EXPECT_THAT(log.messages(), Contains("ASSERT: DriverFilter checkStatus: readData failed"));
}

TEST_F(PrinterStatusTest, AFailedReadingShowsTheKeyWhereNoTableHasAText) {
    errors.clear();
    answer = [] {};
    cancelAfterSleeps(1);
    EXPECT_FALSE(status.checkStatus());
    EXPECT_EQ(errors.written(), "ERROR: recoverable: DriverCommError\n");
}

// The port

TEST_F(PrinterStatusTest, ThePortIsLoggedBeforeTheSleepAndLookedAtAgainAfterIt) {
    printer.port = 4;
    bool isLogged = false;
    platform.fakeClock.afterSleep = [&] {
        isLogged = testing::Value(log.messages(), Contains("DriverFilter run: Waiting for port (4)"));
        printer.port = 0;
        EXPECT_TRUE(reverseData.setData(printer.record()));
    };
    log.clear();
    EXPECT_TRUE(status.waitForPort());
    EXPECT_TRUE(isLogged);
    EXPECT_THAT(log.messages(), Contains("DriverFilter run: Waiting for port").Times(1));
}

TEST_F(PrinterStatusTest, NeitherAnErrorNorSigtermEndsTheWaitForThePort) {
    printer.port = 4;
    printer.status = 53;
    int passes = 0;
    platform.fakeClock.afterSleep = [&] {
        gSigTerm = 1;
        if (platform.fakeClock.sleeps.back() == 2s && ++passes == 5) {
            // Only a record can say so; nothing is read for a cancelled job, so it is put in place.
            printer.port = 0;
            ASSERT_TRUE(reverseData.setData(printer.record()));
        }
    };
    log.clear();
    EXPECT_FALSE(status.waitForPort());
    EXPECT_EQ(passes, 5);
    EXPECT_THAT(log.messages(), Contains("ASSERT: checkStatus error").Times(5));
}

} // namespace
} // namespace veltrin
