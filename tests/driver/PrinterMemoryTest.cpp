#include "driver/PrinterStatus.h"
#include "tests/driver/PrinterStatusFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

using test::linesOf;
using test::mebibyte;
using testing::Contains;
using testing::ElementsAre;

class PrinterMemoryTest : public test::PrinterStatusFixture {
  protected:
    /// What the printer is thought to have free, as the log shows it when a header does not fit.
    std::vector<std::string> estimate() {
        const auto now = platform.fakeClock.now;
        log.clear();
        gSigTerm = 1;
        EXPECT_FALSE(status.checkHeaderSize(0x7FFFFFFF, 0, false));
        gSigTerm = 0;
        platform.fakeClock.now = now;
        platform.fakeClock.sleeps.clear();
        std::vector<std::string> figures;
        for (const std::string &message : log.messages()) {
            if (const auto equals = message.find("Memory = "); equals != std::string::npos) {
                figures.push_back(message.substr(equals + 9));
            }
        }
        return figures;
    }
};

TEST_F(PrinterMemoryTest, TheFirstCheckReadsTheStatusAndLaterOnesWithinThreeSecondsDoNot) {
    printer.headerMemory = 5000;
    printer.imageMemory = 2 * mebibyte;
    log.clear();
    const auto checked = platform.fakeClock.now;
    EXPECT_TRUE(status.checkHeaderSize(32, 1000, false));
    EXPECT_THAT(log.messages(), Contains("DriverFilter checkHeaderSize: refreshing memory values"));
    EXPECT_EQ(readings(), 1);
    EXPECT_THAT(estimate(), ElementsAre("4968", std::to_string(2 * mebibyte - 1000)));

    platform.fakeClock.now = checked + 3s;
    EXPECT_TRUE(status.checkHeaderSize(64, 2000, true));
    EXPECT_EQ(readings(), 1);
    EXPECT_THAT(estimate(), ElementsAre("4904", std::to_string(2 * mebibyte - 3000)));

    platform.fakeClock.now += 1us;
    EXPECT_TRUE(status.checkHeaderSize(64, 2000, false));
    EXPECT_EQ(readings(), 2);
    EXPECT_THAT(estimate(), ElementsAre("4936", std::to_string(2 * mebibyte - 2000)));
}

struct ShortMemoryCase {
    std::string name;
    std::uint32_t headerMemory;
    std::uint32_t imageMemory;
};

class ShortMemory : public PrinterMemoryTest, public testing::WithParamInterface<ShortMemoryCase> {};

TEST_P(ShortMemory, HoldsThePageBackUntilThePrinterHasRoomInBoth) {
    printer.headerMemory = GetParam().headerMemory;
    printer.imageMemory = GetParam().imageMemory;
    platform.fakeClock.afterSleep = [this] {
        if (platform.fakeClock.sleeps.size() == 3) {
            printer = {};
        }
    };
    const auto checked = platform.fakeClock.now;
    EXPECT_TRUE(status.checkHeaderSize(32, 1000, false));
    EXPECT_THAT(platform.fakeClock.sleeps, ElementsAre(2s, 2s, 2s));
    for (const std::string &line :
         {std::string("Printer not ready..."), "headerMemory = " + std::to_string(GetParam().headerMemory),
          "imageMemory = " + std::to_string(GetParam().imageMemory)}) {
        EXPECT_THAT(log.messages(), Contains("DriverFilter checkHeaderSize: " + line).Times(3));
    }
    platform.fakeClock.afterSleep = [] {};
    platform.fakeClock.now = checked; // the wait was longer than the estimate holds
    EXPECT_THAT(estimate(),
                ElementsAre(std::to_string(16 * mebibyte - 32), std::to_string(256 * mebibyte - 1000)));
}

INSTANTIATE_TEST_SUITE_P(Memories, ShortMemory,
                         testing::Values(ShortMemoryCase{"headers", 1024 + 32, 256 * mebibyte},
                                         ShortMemoryCase{"bands", 16 * mebibyte, mebibyte + 1000}),
                         test::nameOfCase<ShortMemoryCase>);

TEST_F(PrinterMemoryTest, MemoryFiguresAreLoggedAsSignedNumbers) {
    printer.headerMemory = 0;
    printer.imageMemory = 0xFFFFFFFE;
    cancelAfterSleeps(1);
    EXPECT_FALSE(status.checkHeaderSize(0, 0, false));
    EXPECT_THAT(log.messages(), Contains("DriverFilter checkHeaderSize: imageMemory = -2"));
}

TEST_F(PrinterMemoryTest, ReadingsWhileWaitingDoNotCountAsTheThreeSecondRefresh) {
    printer.headerMemory = 0;
    platform.fakeClock.afterSleep = [this] { printer.headerMemory = mebibyte; };
    const auto checked = platform.fakeClock.now;
    EXPECT_TRUE(status.checkHeaderSize(0, 0, false));
    EXPECT_EQ(readings(), 2);
    // The wait's reading came 2 s after the refresh; 3 s after the refresh the next one is due.
    platform.fakeClock.now = checked + 3s + 1us;
    EXPECT_TRUE(status.checkHeaderSize(0, 0, false));
    EXPECT_EQ(readings(), 3);
}

TEST_F(PrinterMemoryTest, TheWaitForRoomEndsWhenTheJobIsCancelledOrTheStatusIsAnError) {
    printer.headerMemory = 0;
    cancelAfterSleeps(1);
    EXPECT_FALSE(status.checkHeaderSize(0, 0, false));
    EXPECT_EQ(readings(), 1);

    gSigTerm = 0;
    platform.fakeClock.now += 10s;
    platform.fakeClock.sleeps.clear();
    platform.fakeClock.afterSleep = [this] {
        printer.status = 53;
        gSigTerm = platform.fakeClock.sleeps.size() >= 3 ? 1 : 0;
    };
    errors.clear();
    EXPECT_FALSE(status.checkHeaderSize(0, 0, false));
    EXPECT_THAT(linesOf(errors.written()), Contains("ERROR: recoverable: DIMM memory check error"));
}

TEST_F(PrinterMemoryTest, AFailedRefreshFailsTheCheckAndStillCountsAsMade) {
    ASSERT_TRUE(status.checkHeaderSize(0, 0, false));
    const std::vector<std::string> before = estimate();
    platform.fakeClock.now += 10s;
    printer.status = 54; // an error without a text
    printer.sub1 = 9;
    printer.headerMemory = 7;
    const auto checked = platform.fakeClock.now;
    const long readingsBefore = readings();
    EXPECT_FALSE(status.checkHeaderSize(0, 0, false));
    EXPECT_EQ(readings(), readingsBefore + 1);
    EXPECT_EQ(estimate(), before);
    // Within the three seconds the old estimate is good enough again.
    platform.fakeClock.now = checked + 3s;
    EXPECT_TRUE(status.checkHeaderSize(0, 0, false));
    EXPECT_EQ(readings(), readingsBefore + 1);
    platform.fakeClock.now += 1us;
    EXPECT_FALSE(status.checkHeaderSize(0, 0, false));
}

} // namespace
} // namespace veltrin
