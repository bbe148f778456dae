// What happens to single pages on their way, seen from whole jobs in memory.

#include "filter/Cancellation.h"
#include "tests/driver/DriverFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::JobOptions;
using test::mebibyte;
using test::printed;
using test::resetRecord;
using test::streamOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class PageCopyTest : public test::DriverFixture {
  protected:
    static std::string band(std::uint32_t size, bool last, const std::string &data) {
        BandHeader header{};
        header.MagicNumber = bandHeaderTag;
        header.dwBandSetting = last ? 2 : 0;
        header.dwMSize = size;
        StreamHeader bytes;
        bytes.store(header);
        return test::textOf({bytes.data(), bytes.data() + sizeof header}) + data;
    }

    /// A stream with these pages, as they stand, and its end mark.
    static std::string streamWith(const std::string &pages) {
        const std::string empty = makeStream(streamOf(0));
        return empty.substr(0, empty.size() - 4) + pages + "JIDG";
    }

    static inline const std::string twoSided = JobOptions{.duplexing = 2, .sidesImaged = 2}.argument();
};

TEST_F(PageCopyTest, CountsEveryHeaderOfAPageThatTheEndMarkCutsShort) {
    std::string part = makePage(streamOf(1), 1).substr(0, 64);
    for (int i = 0; i < 1000; ++i) {
        part += band(10, false, std::string(10, 'd'));
    }
    EXPECT_TRUE(printToFile("", streamWith(part)));
    EXPECT_THAT(log.messages(), Contains("DriverFilter copyPageFrom: eoj at tag: 1001"));
    EXPECT_THAT(log.messages(), Not(Contains("DriverFilter copyPageFrom: done with page")));
}

TEST_F(PageCopyTest, AnEndMarkAloneIsNoPage) {
    EXPECT_TRUE(printToFile("", streamWith("")));
    EXPECT_THAT(Bytes(output.written()), BytesAre(printed(streamOf(0), 0, "")));
    EXPECT_THAT(log.messages(), Contains("DriverFilter copyPageFrom: eoj at tag: 0"));
}

TEST_F(PageCopyTest, WhatFollowsTheEndMarkDoesNotGetIntoTheSpooledPages) {
    const StreamOptions stream = streamOf(2);
    EXPECT_TRUE(printToFile(twoSided, makeStream(stream) + makePage(stream, 3)));
    EXPECT_THAT(Bytes(output.written()), BytesAre(printed(stream, 0x0200, "1 2*")));
}

TEST_F(PageCopyTest, KeepsTheBandNumberAsItIsStored) {
    std::string page = makePage(streamOf(1), 1);
    page[54] = 0x01;
    page[55] = 0x02;
    EXPECT_TRUE(printToFile("", streamWith(page)));
    EXPECT_EQ(pageBandNumber, 0x0201U);
}

class FailedWrite : public PageCopyTest, public testing::WithParamInterface<bool> {};

TEST_P(FailedWrite, IsThatOfAHeaderOrOfData) {
    const bool ofHeader = GetParam();
    center().afterPost = [this, ofHeader,
                          given = center().afterPost](const test::FakeNotificationCenter::Post &post) {
        given(post);
        const std::size_t size = post.data ? post.data->size() : 0;
        if (size == (ofHeader ? 64 : 32)) { // what follows the page's header, or the first band's
            center().failsPosts = true;
            platform.fakeClock.afterSleep = [this] {
                center().failsPosts = false;
                gSigTerm = 1;
            };
        }
    };
    EXPECT_FALSE(print("", makeStream(streamOf(1))));
    EXPECT_THAT(log.messages(), Contains(std::string("ASSERT: DriverFilter copyPageFrom: failed to write ") +
                                         (ofHeader ? "header" : "data")));
}

INSTANTIATE_TEST_SUITE_P(OfHeader, FailedWrite, testing::Bool());

TEST_F(PageCopyTest, PagesForThePrinterAreCheckedAgainstItsMemoryAndSpooledOnesAreNot) {
    // Two pages of a header and two bands each: just as much room as they and the margins need, and less.
    constexpr std::uint32_t headers = 2 * (64 + 2 * 32);
    constexpr std::uint32_t data = 2 * 2 * 1024;
    const std::string notReady = "DriverFilter checkHeaderSize: Printer not ready...";
    const auto notReadyWith = [&](std::uint32_t headerMemory, std::uint32_t imageMemory) {
        printer.headerMemory = headerMemory;
        printer.imageMemory = imageMemory;
        platform.fakeClock.sleeps.clear();
        platform.fakeClock.afterSleep = [this] {
            if (platform.fakeClock.sleeps.size() > 1) { // the first is that of the wait for the port
                printer = {};
            }
        };
        EXPECT_TRUE(print(twoSided, makeStream(streamOf(2))));
        return testing::Value(log.messages(), Contains(notReady));
    };
    EXPECT_FALSE(notReadyWith(1024 + headers + 1, mebibyte + data + 1));
    EXPECT_TRUE(notReadyWith(1024 + headers, mebibyte + data + 1));
    EXPECT_TRUE(notReadyWith(1024 + headers + 1, mebibyte + data));
}

TEST_F(PageCopyTest, APageThatThePrinterHasNoRoomForIsNotSent) {
    printer.headerMemory = 1024 + 1; // enough to begin with, and not for a page's header
    cancelAfterSleeps(2);            // the wait for the port, and that for room
    EXPECT_FALSE(print("", makeStream(streamOf(1))));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(streamOf(1), 0, "") + cancelRecord()));
    EXPECT_THAT(log.messages(), Each(Not(HasSubstr("copyPageFrom"))));
}

TEST_F(PageCopyTest, TheDataOfABandAreReadBeforeThePrintersMemoryIsLookedAt) {
    printer.headerMemory = 1024 + 1; // which would be waited for
    const std::string stream = streamWith(band(100, true, "too little"));
    EXPECT_FALSE(print("", stream.substr(0, stream.size() - 4)));
    EXPECT_THAT(log.messages(), testing::IsSupersetOf(
                                    {"ASSERT: DriverFilter readFromFD: Wanted 90 bytes, got 0 bytes. EOF hit",
                                     "ASSERT: DriverFilter copyPageFrom: failed to read header and data"}));
    EXPECT_THAT(log.messages(), Each(Not(HasSubstr("Printer not ready"))));
}

TEST_F(PageCopyTest, TheJobsTrayTakesItsMediaFromTheTrayThatIsNamed) {
    struct Case {
        std::string name;
        std::uint8_t tray;
        std::uint8_t media;
    };

    constexpr std::size_t page = 16 + 120 + 152; // behind the reset record and the job's headers
    for (const Case &one :
         {Case{"@(1)", 2, 11}, Case{"@(2)", 3, 22}, Case{"@(3)", 1, 33}, Case{"@(4)", 0, 0}}) {
        EXPECT_TRUE(print(JobOptions{.jobName = one.name}.argument(), makeStream(streamOf(1))));
        ASSERT_GT(received.size(), page + 10);
        EXPECT_EQ(received[page + 9], static_cast<char>(one.tray)) << one.name;
        EXPECT_EQ(received[page + 10], static_cast<char>(one.media)) << one.name;
        EXPECT_THAT(
            log.messages(),
            testing::IsSupersetOf({"DriverFilter: isSDCJob - priorityTray = " + one.name.substr(2, 1),
                                   "DriverFilter copyPageFrom: overriding tray (" + std::to_string(one.tray) +
                                       ") and media type (" + std::to_string(one.media) + ")"}));
    }
}

TEST_F(PageCopyTest, BeforeThePrinterHasSaidAnythingEveryTraysMediaIs0) {
    EXPECT_TRUE(printToFile(JobOptions{.jobName = "@(2)"}.argument(), makeStream(streamOf(1))));
    EXPECT_THAT(log.messages(),
                Contains("DriverFilter copyPageFrom: overriding tray (3) and media type (0)"));
}

TEST_F(PageCopyTest, AnOrdinaryNameLeavesTheTrayAlone) {
    EXPECT_TRUE(print(JobOptions{.jobName = "letters"}.argument(), makeStream(streamOf(1))));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(streamOf(1), 0, "1")));
    EXPECT_THAT(log.messages(), Each(Not(HasSubstr("priorityTray"))));
}

TEST_F(PageCopyTest, TheJobsTrayIsWrittenIntoSpooledPagesToo) {
    std::vector<std::string> pages;
    platform.beforeSystemVersion = [&] { pages = spooledPages(); };
    EXPECT_TRUE(print(JobOptions{.duplexing = 2, .sidesImaged = 2, .jobName = "@letters(2)"}.argument(),
                      makeStream(streamOf(2))));
    ASSERT_EQ(pages.size(), 2U);
    for (const std::string &page : pages) {
        EXPECT_EQ(page.substr(9, 2), "\x03\x16") << "tray 3, and the media in tray 2";
    }
}

} // namespace
} // namespace veltrin
