// Whole jobs, from lp through a real scheduler and the filter to a file device.

#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/BytesAre.h"
#include "tests/support/ExpectedOutput.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::document;
using test::forFilter;
using test::forLp;
using test::PrivateScheduler;
using test::ProcessResult;
using test::readFile;
using test::twoSidedTwoCopies;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A document with more data than a pipe takes.
StreamOptions largeDocument() {
    StreamOptions stream = document();
    stream.planeSizes = {100000, 0, 0, 0};
    return stream;
}

std::size_t timesIn(const std::string &text, const std::string &part) {
    std::size_t times = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++times;
    }
    return times;
}

/// A device that takes nothing before somebody reads it.
class StuckPrinter {
  public:
    StuckPrinter() {
        std::filesystem::remove(PrivateScheduler::fileDevice);
        EXPECT_EQ(mkfifo(PrivateScheduler::fileDevice, 0600), 0);
        fd = open(PrivateScheduler::fileDevice, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_NE(fd, -1);
    }

    StuckPrinter(const StuckPrinter &) = delete;
    StuckPrinter &operator=(const StuckPrinter &) = delete;

    ~StuckPrinter() {
        breakDown();
        unlink(PrivateScheduler::fileDevice);
    }

    [[nodiscard]] bool hasGotSomething() const {
        int waiting = 0;
        return ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0;
    }

    /// Takes what there is, without waiting.
    void print() {
        std::array<char, 65536> block{};
        ssize_t got = 0;
        while ((got = read(fd, block.data(), block.size())) > 0) {
            printed.append(block.data(), static_cast<std::size_t>(got));
        }
    }

    /// From now on writing fails.
    void breakDown() {
        if (fd != -1) {
            close(fd);
        }
        fd = -1;
    }

    std::string printed;

  private:
    int fd = -1;
};

TEST(SchedulerTest, ATwoSidedJobOfTwoCopiesReachesTheDevice) {
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const std::string stream = makeStream(document());

    const int job = scheduler.submit(stream, forLp(twoSidedTwoCopies));
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);

    const std::string printed = readFile(PrivateScheduler::fileDevice);
    EXPECT_THAT(scheduler.temporaryFiles(), IsEmpty());
    scheduler.expectIdleQueue();

    const ProcessResult byHand = test::run(scheduler.filterByHand(forFilter(twoSidedTwoCopies), stream));
    EXPECT_EQ(byHand.exitStatus, 0);
    EXPECT_THAT(byHand.output, Not(IsEmpty()));
    EXPECT_THAT(Bytes(printed), BytesAre(byHand.output)) << scheduler.log();
    // Both ways reordered the pages: neither is the stream without its identifier.
    EXPECT_NE(printed, stream.substr(36));
    EXPECT_EQ(printed.size(), stream.size() - 36);
}

TEST(SchedulerTest, AOneSidedJobIsRecognisedByItsContents) {
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const std::string stream = makeStream(document());

    const int job = scheduler.submit(stream, {"-o", "media=A4"});
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);

    EXPECT_THAT(Bytes(readFile(PrivateScheduler::fileDevice)), BytesAre(stream.substr(36)))
        << scheduler.log();
}

TEST(SchedulerTest, ATruncatedStreamStopsTheJobAndLeavesTheQueue) {
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const std::string stream = makeStream(document());

    const int job = scheduler.submit(stream.substr(0, stream.size() / 2), forLp(twoSidedTwoCopies));
    ASSERT_TRUE(scheduler.waitUntil([&] {
        return scheduler.log().find("stopped with status 1") != std::string::npos;
    })) << scheduler.log();
    scheduler.expectState(job, IPP_JSTATE_STOPPED);

    EXPECT_THAT(Bytes(readFile(PrivateScheduler::fileDevice)), BytesAre(test::cancelRecord()));
    EXPECT_THAT(scheduler.temporaryFiles(), IsEmpty());
    scheduler.expectIdleQueue();
    const int next = scheduler.submit(stream, forLp({"media=A4"}));
    scheduler.expectState(next, IPP_JSTATE_COMPLETED);
    EXPECT_THAT(Bytes(readFile(PrivateScheduler::fileDevice)), BytesAre(stream.substr(36)));
}

TEST(SchedulerTest, ACancelledJobStillEndsInOrder) {
    StuckPrinter printer;
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const std::string stream = makeStream(largeDocument());

    const int job = scheduler.submit(stream, forLp(twoSidedTwoCopies));
    ASSERT_TRUE(scheduler.waitUntil([&] { return printer.hasGotSomething(); })) << scheduler.log();
    EXPECT_THAT(scheduler.temporaryFiles(), Not(IsEmpty()));
    scheduler.cancel(job);
    ASSERT_TRUE(scheduler.waitUntil([&] {
        printer.print();
        return scheduler.stateOf(job) == IPP_JSTATE_CANCELED && scheduler.temporaryFiles().empty();
    })) << scheduler.log();

    // The printer got the whole job, which is what it takes to be ready for the next one.
    printer.print();
    EXPECT_EQ(printer.printed.size(), stream.size() - 36);
    EXPECT_THAT(printer.printed, EndsWith("JIDG"));
    scheduler.expectIdleQueue();
}

TEST(SchedulerTest, ABrokenDeviceIsShownUntilTheJobIsCancelled) {
    StuckPrinter printer;
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);

    const int job = scheduler.submit(makeStream(largeDocument()), forLp(twoSidedTwoCopies));
    ASSERT_TRUE(scheduler.waitUntil([&] { return printer.hasGotSomething(); })) << scheduler.log();
    printer.breakDown();
    EXPECT_TRUE(scheduler.waitUntil([&] {
        return scheduler.queueStatus().message == "Unable to communicate with printer";
    })) << scheduler.log();
    // Without repeating it, the filter would have one such line for each of the eight pages and a few parts
    // more.
    EXPECT_TRUE(scheduler.waitUntil([&] {
        return timesIn(scheduler.log(), "Unable to communicate with printer") > 15;
    })) << scheduler.log();
    EXPECT_EQ(scheduler.stateOf(job), IPP_JSTATE_PROCESSING);

    scheduler.cancel(job);
    scheduler.expectState(job, IPP_JSTATE_CANCELED);
    EXPECT_TRUE(scheduler.waitUntil([&] { return scheduler.temporaryFiles().empty(); }));
}

TEST(SchedulerTest, ClientsWithoutThePpdAreToldWhatItOffers) {
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"printer-device-id", "MFG:Morvex;MDL:LX 520N;CLS:PRINTER;"},
        {"media-default", "iso_a4_210x297mm"},
        {"media-source-supported", "tray-1,tray-2,bypass"},
        {"media-left-margin-supported", "423"},
        {"sides-supported", "one-sided,two-sided-long-edge,two-sided-short-edge"},
        {"sides-default", "one-sided"},
        {"print-color-mode-supported", "monochrome,color"},
        {"print-color-mode-default", "color"},
        {"printer-resolution-supported", "600dpi"},
        {"pwg-raster-document-sheet-back", "normal"},
        {"pages-per-minute", "20"}};
    for (const auto &[name, value] : expected) {
        EXPECT_EQ(scheduler.queueAttribute(name), value) << name;
    }
    for (const char *size : {"iso_a5_148x210mm", "na_govt-legal_8x13in", "na_foolscap_8.5x13in",
                             "na_invoice_5.5x8.5in", "na_monarch_3.875x7.5in", "jpn_oufuku_148x200mm"}) {
        EXPECT_THAT(scheduler.queueAttribute("media-supported"), HasSubstr(size));
    }
}

} // namespace
} // namespace veltrin
