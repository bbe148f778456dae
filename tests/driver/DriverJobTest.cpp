// Whole jobs over the channel, step by step.

#include "filter/Cancellation.h"
#include "tests/driver/DriverFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::JobOptions;
using test::printed;
using test::printerUri;
using test::resetRecord;
using test::streamOf;
using test::textOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class DriverJobTest : public test::DriverFixture {};

TEST_F(DriverJobTest, AJobOverTheChannelGoesStepByStep) {
    const StreamOptions stream = streamOf(1);
    platform.fakeBundle.infoDictionary["CUPSFileHeader"] = "expected";
    EXPECT_TRUE(print("", makeStream(stream)));
    driver.reset();

    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(stream, 0, "1")));
    EXPECT_EQ(output.written(), "");
    EXPECT_EQ(errors.written(), "INFO: Ready\nINFO: Ready\n");
    EXPECT_THAT(platform.fakeClock.sleeps, ElementsAre(2s));
    EXPECT_EQ(center().deliveryWaits, 1);
    // Announcement; reset; the port wait's and the memory check's readings; two file headers; the page header
    // and two bands with their data; the end mark; goodbye.
    EXPECT_THAT(postedObjects(), ElementsAre("fronted-alive", "writePipe", "readPipe", "readPipe",
                                             "writePipe", "writePipe", "writePipe", "writePipe", "writePipe",
                                             "writePipe", "writePipe", "writePipe", "frontend-byebye"));
    for (const auto &post : center().posts) {
        EXPECT_EQ(post.name, printerUri + ".backend");
    }

    std::vector<std::string> steps;
    for (const std::string &message : log.messages()) {
        if (message.starts_with("DriverFilter") || message.starts_with("ASSERT") ||
            message.starts_with("expected")) {
            steps.push_back(message);
        }
    }
    EXPECT_THAT(steps,
                ElementsAre("DriverFilter run: ", "DriverFilter run: setting reverse mode",
                            "DriverFilter run: Waiting for port", "DriverFilter run: Waiting for port (0)",
                            "DriverFilter checkHeaderSize: refreshing memory values",
                            "expectedUUID: expected", "DriverFilter spoolPages Reading file headers",
                            "DriverFilter sendPages: Sending file headers",
                            "DriverFilter copyPageFrom: done with page",
                            "DriverFilter copyPageFrom: eoj at tag: 0", "DriverFilter sendPages: Sending EOJ",
                            "DriverFilter run: exiting with result 1", "DriverFilter dealloc: "));
}

TEST_F(DriverJobTest, WaitsForThePortAsLongAsThePrinterTakes) {
    printer.port = 4;
    platform.fakeClock.afterSleep = [this] { printer.port = platform.fakeClock.sleeps.size() >= 3 ? 0 : 4; };
    EXPECT_TRUE(print("", makeStream(streamOf(1))));
    // The port is read once more after the sleep, from the record of the pass.
    EXPECT_THAT(log.messages(), Contains("DriverFilter run: Waiting for port").Times(4));
    EXPECT_THAT(log.messages(), Contains("DriverFilter run: Waiting for port (4)").Times(3));
    EXPECT_THAT(log.messages(), Contains("DriverFilter run: Waiting for port (0)").Times(1));
    EXPECT_THAT(platform.fakeClock.sleeps, ElementsAre(2s, 2s, 2s, 2s));
}

class PortWait : public DriverJobTest, public testing::WithParamInterface<bool> {};

TEST_P(PortWait, IsDecidedByItsLastPass) {
    const bool lastPassFails = GetParam();
    const auto setPass = [&](bool last) {
        printer.port = last ? 0 : 4;
        // An error without a text: the reading fails at once.
        printer.status = last == lastPassFails ? 54 : 0;
        printer.sub1 = 9;
    };
    setPass(false);
    platform.fakeClock.afterSleep = [&] { setPass(true); };
    EXPECT_EQ(print("", makeStream(streamOf(1))), !lastPassFails);
    EXPECT_THAT(log.messages(), Contains("DriverFilter run: Waiting for port").Times(2));
    EXPECT_THAT(log.messages(), Contains("ASSERT: checkStatus error").Times(1));
    EXPECT_THAT(Bytes(received),
                BytesAre(resetRecord() + (lastPassFails ? cancelRecord() : printed(streamOf(1), 0, "1"))));
}

INSTANTIATE_TEST_SUITE_P(LastPassFails, PortWait, testing::Bool());

TEST_F(DriverJobTest, AFailedStatusReadingInThePortWaitCancelsTheJobWithoutARecord) {
    answer = [] {};
    cancelAfterSleeps(1);
    EXPECT_FALSE(print("", makeStream(streamOf(1))));
    EXPECT_THAT(log.messages(), testing::IsSupersetOf({"ASSERT: DriverFilter checkStatus: readData failed",
                                                       "ASSERT: checkStatus error",
                                                       "DriverFilter run: Waiting for port (0)"}));
    EXPECT_THAT(log.messages(), Not(Contains("ASSERT: checkHeaderSize error")));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + cancelRecord()));
}

TEST_F(DriverJobTest, AFailedMemoryCheckCancelsTheJob) {
    printer.headerMemory = 1024;
    cancelAfterSleeps(2); // the port wait's sleep, then the memory wait's
    EXPECT_FALSE(print("", makeStream(streamOf(1))));
    EXPECT_THAT(log.messages(), Contains("ASSERT: checkHeaderSize error"));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + cancelRecord()));
}

TEST_F(DriverJobTest, AResetThatCannotBeSentCancelsTheJob) {
    ASSERT_TRUE(start(printerUri, "", makeStream(streamOf(1))));
    center().failsPosts = true;
    cancelAfterSleeps(1);
    EXPECT_FALSE(driver->run());
    EXPECT_THAT(log.messages(), Contains("ASSERT: send REVERSE_DATA_RESET command error"));
    EXPECT_EQ(received, "");
}

TEST_F(DriverJobTest, ABrokenStreamCancelsTheJobOverTheChannel) {
    const std::string whole = makeStream(streamOf(2));
    EXPECT_FALSE(print("", whole.substr(0, whole.size() - 4)));
    EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + printed(streamOf(2), 0, "1 2") + cancelRecord()));
    EXPECT_EQ(output.written(), "");
}

/// The printer gets what ends a job, and nothing of a stream that does not begin as one.
TEST_F(DriverJobTest, AStreamWithoutItsTwoHeadersInTheirOrderIsNotPrinted) {
    const std::string identifier(36, 'i');
    const std::string first = makeJobHeaders(streamOf(1)).substr(0, 120);
    const std::string second = makeJobHeaders(streamOf(1)).substr(120);
    const std::string page = makePage(streamOf(1), 1);
    for (const std::string &headers : {first + first, second + second, second + first, first, second}) {
        EXPECT_FALSE(print("", identifier + headers + page + "JIDG"));
        EXPECT_THAT(Bytes(received), BytesAre(resetRecord() + "JIDG" + cancelRecord()));
        EXPECT_THAT(log.messages(), Contains("ASSERT: sendPages error"));
    }
    EXPECT_TRUE(print("", identifier + first + second + page + "JIDG"));
}

TEST_F(DriverJobTest, AJobIsNotPrintedWhileItsBlocksAreUndelivered) {
    center().isDelivered = false;
    EXPECT_FALSE(print("", makeStream(streamOf(1))));
    EXPECT_EQ(center().deliveryWaits, 1);
    EXPECT_TRUE(received.ends_with("JIDG" + cancelRecord()));
}

struct EndMarkCase {
    std::string name;
    std::string options;
};

class EndMark : public DriverJobTest, public testing::WithParamInterface<EndMarkCase> {};

TEST_P(EndMark, ThatCannotBeSentFailsTheJob) {
    std::size_t pages = 0;
    center().afterPost = [this, &pages, given = center().afterPost](const auto &post) {
        given(post);
        const bool isLastBand = post.data && post.data->size() == 32 && (*post.data)[7] == std::byte{2};
        pages += isLastBand ? 1 : 0;
        center().failsPosts = pages == 2 && post.data && !isLastBand;
    };
    platform.fakeClock.afterSleep = [this] {
        if (center().failsPosts) {
            center().failsPosts = false;
            gSigTerm = 1;
        }
    };
    EXPECT_FALSE(print(GetParam().options, makeStream(streamOf(2))));
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({"ASSERT: DriverFilter " + GetParam().name + ": failed to send EOJ",
                                       "ASSERT: " + GetParam().name + " error"}));
    EXPECT_TRUE(received.ends_with(cancelRecord()));
    EXPECT_EQ(received.find("JIDG"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, EndMark,
    testing::Values(EndMarkCase{"sendPages", ""},
                    EndMarkCase{"unspoolPages", JobOptions{.duplexing = 2, .sidesImaged = 2}.argument()}),
    test::nameOfCase<EndMarkCase>);

TEST_F(DriverJobTest, SigtermAtTheEndOfAJobLeavesItPrinted) {
    center().afterPost = [given = center().afterPost](const test::FakeNotificationCenter::Post &post) {
        given(post);
        if (post.data && textOf(*post.data) == "JIDG") {
            gSigTerm = 1;
        }
    };
    EXPECT_TRUE(print("", makeStream(streamOf(1))));
    EXPECT_TRUE(received.ends_with("JIDG"));
}

} // namespace
} // namespace veltrin
