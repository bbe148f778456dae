// Two-sided jobs in memory: spooled, put into order, and sent.

#include "filter/Cancellation.h"
#include "tests/driver/DriverFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::JobOptions;
using test::printed;
using test::resetRecord;
using test::streamOf;
using test::textOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class TwoSidedJobTest : public test::DriverFixture {};

/// The setting in the header of a job whose sheets are turned.
constexpr std::uint16_t turned = 0x0200;

TEST_F(TwoSidedJobTest, ADuplexUnitGetsItsOrderWhateverTheConfigurationSays) {
    struct Case {
        bool collate;
        std::string pages;
        std::string sending;
    };

    platform.fakeBundle.infoDictionary = {
        {"VeltrinDuplexOrder", "642135"}, {"VeltrinManualDuplex", "true"}, {"VeltrinDuplexBypass", "true"}};
    printer.duplexUnit = true;
    for (const Case &one : {Case{false, "2(12) 1(4) 2(12) 1(4) 4(12) 3(4) 4(12) 3(4)", "(uncollated) 1"},
                            Case{true, "2(12) 1(4) 4(12) 3(4) 2(12) 1(4) 4(12) 3(4)", "(collated) 1"}}) {
        const StreamOptions stream = streamOf(4, 2, one.collate ? CopyOrder::collated : CopyOrder::pairs);
        EXPECT_TRUE(print(
            JobOptions{.copies = 2, .collate = one.collate, .duplexing = 2, .sidesImaged = 8}.argument(),
            makeStream(stream)));
        EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(stream, 0x0200, one.pages)))
            << one.pages;
        EXPECT_THAT(log.messages(), Contains("DriverFilter duplex: Duplexing 214365"));
        EXPECT_THAT(log.messages(),
                    Contains(testing::MatchesRegex("DriverFilter unspoolPages \\(" +
                                                   one.sending.substr(1, one.sending.find(')') - 1) +
                                                   "\\) 1: sending path .*, flags: c")));
        EXPECT_THAT(test::namesIn("/tmp/spool"), IsEmpty());
    }
}

TEST_F(TwoSidedJobTest, TheOrderKeyIsLookedUpEvenForADuplexUnit) {
    printer.duplexUnit = true;
    EXPECT_TRUE(print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(streamOf(2))));
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({"ASSERT: CUPSFilter stringForPPDAttr: failed to get value for "
                                       "PPD attr VeltrinDuplexOrder",
                                       "DriverFilter duplex: Duplexing 214365"}));
}

TEST_F(TwoSidedJobTest, KeysAreLookedUpOnceForEveryTwoSidedJobWhetherTheyMatterOrNot) {
    printer.duplexUnit = true;
    for (const std::uint32_t pages : {2U, 1U}) {
        EXPECT_TRUE(
            print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(streamOf(pages))));
        const std::string missing = "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr ";
        EXPECT_THAT(log.messages(), Contains(missing + "VeltrinDuplexBypass").Times(1));
        // A job of one page has become one-sided.
        EXPECT_THAT(log.messages(), Contains(missing + "VeltrinManualDuplex").Times(pages == 2 ? 1 : 0));
    }
}

TEST_F(TwoSidedJobTest, AOnePageJobForADuplexUnitIsAFirstSide) {
    printer.duplexUnit = true;
    EXPECT_TRUE(
        print(JobOptions{.copies = 3, .duplexing = 2, .sidesImaged = 3}.argument(), makeStream(streamOf(1))));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(streamOf(1), 0, "1(12)")));
}

TEST_F(TwoSidedJobTest, SpoolFilesAreGoneBeforeTheEndOfTheJobIsWaitedFor) {
    std::vector<std::string> waits;
    const auto note = [&waits](const std::string &wait) {
        waits.push_back(wait + ": " + std::to_string(test::namesIn(spoolFolder).size()) + " files");
    };
    center().afterPost = [&, given = center().afterPost](const test::FakeNotificationCenter::Post &post) {
        given(post);
        if (post.data && textOf(*post.data) == "JIDG") {
            note("end mark");
        }
    };
    center().beforeDeliveryWait = [&] { note("delivery"); };
    EXPECT_TRUE(print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(streamOf(2))));
    EXPECT_THAT(waits, ElementsAre("end mark: 2 files", "delivery: 0 files"));
}

TEST_F(TwoSidedJobTest, SpoolFilesAreGoneBeforeTheCancelRecordIsSent) {
    const std::string whole = makeStream(streamOf(2));
    std::vector<std::string> files = {"no cancel record"};
    center().afterPost = [&, given = center().afterPost](const test::FakeNotificationCenter::Post &post) {
        given(post);
        if (post.data && textOf(*post.data) == cancelRecord()) {
            files = test::namesIn(spoolFolder);
        }
    };
    EXPECT_FALSE(
        print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), whole.substr(0, whole.size() - 4)));
    EXPECT_THAT(log.messages(), Contains(testing::HasSubstr("Copied page 2 to file")));
    EXPECT_THAT(files, IsEmpty());
}

TEST_F(TwoSidedJobTest, AnOldSystemsRendererRepeatsPageAfterPage) {
    const StreamOptions stream = streamOf(2, 2, CopyOrder::uncollated);
    for (const bool fails : {false, true}) {
        platform.fakeSystemVersion = fails ? 0x1040 : 0x1039;
        platform.systemVersionError = fails ? -50 : 0;
        EXPECT_TRUE(printToFile(JobOptions{.copies = 2, .duplexing = 2, .sidesImaged = 4}.argument(),
                                makeStream(stream)));
        EXPECT_THAT(log.messages(),
                    testing::IsSupersetOf({"DriverFilter spoolPages: copying path at index 0",
                                           "DriverFilter spoolPages: copying path at index 2"}));
        EXPECT_THAT(log.messages(),
                    Contains("ASSERT: Gestalt(gestaltSystemVersion) failed -50").Times(fails ? 1 : 0));
        EXPECT_THAT(Bytes(output.written()), BytesAre(printed(stream, turned, "1 1 2* 2")));
    }
}

TEST_F(TwoSidedJobTest, ADiscardedBlankPageIsLogged) {
    // Three sides a copy, but in pairs: four pages are taken, the blank one among them.
    EXPECT_TRUE(printToFile(JobOptions{.copies = 2, .duplexing = 2, .sidesImaged = 6}.argument(),
                            makeStream(streamOf(4, 2, CopyOrder::pairs))));
    EXPECT_THAT(log.messages(),
                Contains("DriverFilter spoolPages: filter supplied a blank page, but we are discarding it"));
    EXPECT_THAT(log.messages(), Contains("DriverFilter spoolPages: copied 4 pages, eoj: 1, result 1"));
}

TEST_F(TwoSidedJobTest, OnlyAJobOfOnePageIsASpecialCase) {
    for (const std::uint32_t pages : {0U, 1U, 2U}) {
        EXPECT_TRUE(printToFile(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(),
                                makeStream(streamOf(pages))));
        EXPECT_THAT(
            log.messages(),
            Contains("DriverFilter spoolPages: Spacial casing one page job").Times(pages == 1 ? 1 : 0));
    }
}

TEST_F(TwoSidedJobTest, FailedPagesAreLoggedUnderTheNameOfTheirBranch) {
    struct Case {
        bool collate;
        bool unit;
        std::string message;
    };

    const std::vector<Case> cases = {
        {false, false, "(not-collated)"},
        {false, true, "(uncollated)"},
        {true, false, "(collated duplex)"},
        {true, true, "(collated)"},
    };
    platform.beforeSystemVersion = loseSpooledPages;
    for (const Case &one : cases) {
        printer = {};
        printer.duplexUnit = one.unit;
        EXPECT_FALSE(print(JobOptions{.collate = one.collate, .duplexing = 2, .sidesImaged = 2}.argument(),
                           makeStream(streamOf(2))));
        for (const char *index : {"0", "1"}) {
            EXPECT_THAT(log.messages(), Contains("ASSERT: DriverFilter unspoolPages " + one.message +
                                                 ": copyPageFromPath failed on index " + index));
        }
        EXPECT_TRUE(received.ends_with("JIDG" + cancelRecord()));
    }
}

struct FailedPageCase {
    std::string name;
    bool overChannel;
    bool cancelled;
    std::ptrdiff_t failures; // of three copies of four pages
};

class FailedPage : public TwoSidedJobTest, public testing::WithParamInterface<FailedPageCase> {};

TEST_P(FailedPage, EndsTheSendingOnlyOfACancelledJobOverTheChannel) {
    const FailedPageCase &one = GetParam();
    platform.beforeSystemVersion = [&one] {
        loseSpooledPages();
        gSigTerm = one.cancelled ? 1 : 0;
    };
    const std::string options =
        JobOptions{.copies = 3, .collate = true, .duplexing = 2, .sidesImaged = 12}.argument();
    const std::string input = makeStream(streamOf(4, 3));
    EXPECT_FALSE(one.overChannel ? print(options, input) : printToFile(options, input));
    const std::vector<std::string> messages = log.messages();
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string &message) {
                                return message.starts_with(
                                    "ASSERT: DriverFilter unspoolPages (collated duplex): "
                                    "copyPageFromPath failed on index ");
                            }),
              one.failures);
    EXPECT_THAT(messages, Contains("DriverFilter unspoolPages: Sending EOJ"));
    EXPECT_TRUE((one.overChannel ? received : output.written()).ends_with("JIDG" + cancelRecord()));
}

INSTANTIATE_TEST_SUITE_P(Jobs, FailedPage,
                         testing::Values(FailedPageCase{"over the channel", true, false, 12},
                                         FailedPageCase{"over the channel, cancelled", true, true, 1},
                                         FailedPageCase{"to a file", false, false, 12},
                                         FailedPageCase{"to a file, cancelled", false, true, 12}),
                         test::nameOfCase<FailedPageCase>);

TEST_F(TwoSidedJobTest, ACancelledJobGoesOnWithPagesThatDoNotFail) {
    const StreamOptions stream = streamOf(4);
    platform.beforeSystemVersion = [] { gSigTerm = 1; };
    EXPECT_TRUE(print(JobOptions{.duplexing = 2, .sidesImaged = 4}.argument(), makeStream(stream)));
    EXPECT_THAT(log.messages(), Not(Contains(testing::HasSubstr("copyPageFromPath failed"))));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(stream, turned, "1 2 3* 4")));
}

class FailedHeaders : public TwoSidedJobTest, public testing::WithParamInterface<bool> {};

TEST_P(FailedHeaders, DoNotKeepThePagesBackAndCountOnlyWithoutPages) {
    const bool withPages = GetParam();
    const StreamOptions stream = streamOf(withPages ? 2 : 0);
    platform.beforeSystemVersion = [this] {
        center().failsPosts = true;
        platform.fakeClock.afterSleep = [this] {
            center().failsPosts = false;
            gSigTerm = 1;
        };
    };
    EXPECT_EQ(print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(stream)), withPages);
    const std::string pages =
        printed(stream, 0, withPages ? "1 2*" : "").substr(makeJobHeaders(stream).size());
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + pages + (withPages ? "" : cancelRecord())));
}

INSTANTIATE_TEST_SUITE_P(WithPages, FailedHeaders, testing::Bool());

} // namespace
} // namespace veltrin
