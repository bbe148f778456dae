#include "driver/stream/PageStream.h"
#include "tests/jobs/Documents.h"
#include "tests/jobs/PrinterFixture.h"
#include "tests/raster/DrawnPage.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <regex>

// The filter as CUPS runs it, at the other end of the channel from the virtual printer, on whatever platform.

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::document;
using test::printed;
using test::ProcessResult;
using test::readFile;
using test::resetRecord;
using test::twoSided;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class FilterAndPrinter : public test::PrinterFixture {};

json sheet(const json &front, const json &back) {
    return {{"front", front}, {"back", back}};
}

// ---- Jobs with nothing the matter

TEST_F(FilterAndPrinter, PrintAOneSidedJob) {
    StreamOptions options = document(2);
    options.bandsPerPage = 1;
    startPrinter("one-sided");
    startFilter({.stream = makeStream(options)});
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);

    EXPECT_EQ(test::linesOf(result.errors).at(0), "socket");
    EXPECT_THAT(statusLines(result), ElementsAre("INFO: Ready"));
    EXPECT_THAT(notifications(),
                ElementsAre("> backend-alive", "< fronted-alive", "> backend-alive", "< writePipe",
                            "< readPipe", "> readPipe, 64 bytes", "< readPipe", "> readPipe, 64 bytes",
                            "< writePipe", "< frontend-byebye", "> backend-byebye"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + printed(options, 0, "1 2")));
    json job = reportedJob();
    EXPECT_EQ(job["outcome"], "whole");
    EXPECT_EQ(job["sheets"], json({sheet(0, nullptr), sheet(1, nullptr)}));
    EXPECT_EQ(job["commands"], json({{{"text", "GDIC GDIREND    "}, {"offset", 0}}}));
    EXPECT_THAT(job["overruns"], IsEmpty());
    // One notification for each header and each block of data, none cut or put together.
    EXPECT_EQ(job["notifications"], json({{"fronted-alive", 1},
                                          {"readPipe", 2},
                                          {"writePipe", 1 + 2 + 2 * 3 + 1},
                                          {"frontend-byebye", 1}}));
    EXPECT_THAT(logMessages(), Contains("FrontendIPC initWithPortName: port name is: " + uri));
    EXPECT_THAT(logMessages(), Contains("DriverFilter run: exiting with result 1"));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, LeaveStandardOutputAloneWhereThereIsAChannel) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    const int before = fcntl(ends[1], F_GETPIPE_SZ);
    startPrinter("one-sided");
    startFilter({.output = test::Descriptor{ends[1]}});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(fcntl(ends[1], F_GETPIPE_SZ), before);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), -1) << "nothing is written there";
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FilterAndPrinter, PrintCopiesOnADuplexUnit) {
    StreamOptions options = document(4);
    options.copies = 2;
    startPrinter("duplex-unit");
    startFilter({.stream = makeStream(options), .options = twoSided(2, true, 8)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)),
                BytesAre(resetRecord() +
                         printed(options, jobSettingDuplex, "2(12) 1(4) 4(12) 3(4) 2(12) 1(4) 4(12) 3(4)")));
    json job = reportedJob();
    EXPECT_EQ(job["outcome"], "whole");
    EXPECT_EQ(job["sheets"], json({sheet(1, 0), sheet(3, 2), sheet(5, 4), sheet(7, 6)}));
    EXPECT_EQ(job["copies"], 2);
    EXPECT_THAT(job["pauses"], IsEmpty());
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, PrintUncollatedCopiesOnADuplexUnit) {
    StreamOptions options = document(4);
    options.copies = 2;
    options.order = CopyOrder::pairs;
    startPrinter("duplex-unit");
    startFilter({.stream = makeStream(options), .options = twoSided(2, false, 8)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)),
                BytesAre(resetRecord() +
                         printed(options, jobSettingDuplex, "2(12) 1(4) 2(12) 1(4) 4(12) 3(4) 4(12) 3(4)")));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, PauseForTheStackToBeTurnedByHand) {
    const StreamOptions options = document(4);
    startPrinter("one-sided");
    startFilter({.stream = makeStream(options), .options = twoSided(1, true, 4)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)),
                BytesAre(resetRecord() + printed(options, jobSettingManualDuplex, "4 2 1* 3")));
    json job = reportedJob();
    EXPECT_EQ(job["pauses"], json({2}));
    EXPECT_EQ(job["sheets"], json({sheet(3, 0), sheet(2, 1)}));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, PutTheTurnedStackIntoTheBypassTray) {
    // A filter that is configured otherwise, with its information dictionary beside it.
    const std::filesystem::path built = filterProgram;
    const std::filesystem::path bundle = bundleFolder;
    filterProgram = bundle / "veltrin";
    std::filesystem::create_directory(bundle);
    std::filesystem::copy_file(built, filterProgram);
    std::string dictionary = readFile(built.parent_path() / "Info.plist");
    const std::regex bypass("(<key>VeltrinDuplexBypass</key>\\s*)<false/>");
    ASSERT_TRUE(std::regex_search(dictionary, bypass));
    test::writeFile(bundle / "Info.plist", std::regex_replace(dictionary, bypass, "$1<true/>"));

    StreamOptions options = document(4);
    options.paperTray = 2;
    startPrinter("one-sided");
    startFilter({.stream = makeStream(options), .options = twoSided(1, false, 4)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)),
                BytesAre(resetRecord() + printed(options, jobSettingManualDuplex, "4 2 1*b 3b")));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, TakeTheTrayFromTheJobsName) {
    StreamOptions options = document(1);
    startPrinter("trays");
    startFilter(
        {.stream = makeStream(options), .options = R"|(com.apple.print.JobInfo.PMJobName="@letters (2)")|"});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    json page = reportedJob()["pages"].at(0);
    EXPECT_EQ(page["tray"], 3);
    EXPECT_EQ(page["media"], 7); // the labels in tray 2
    EXPECT_THAT(logMessages(), Contains("DriverFilter copyPageFrom: overriding tray (3) and media type (7)"));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, MarkAUSBJobForAsLongAsItLasts) {
    uri = "usb://Morvex/LX%20410N?serial=1";
    startPrinter("one-sided");
    startFilter();
    awaitPrinter("< fronted-alive");

    struct stat marker {};

    ASSERT_EQ(stat("/tmp/Sem_File00001", &marker), 0);
    EXPECT_EQ(marker.st_mode & 07777U, 0666U);
    EXPECT_EQ(marker.st_size, 0);
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(test::linesOf(result.errors).at(0), "usb");
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    expectNothingLeft();
}

// ---- The printer's state

TEST_F(FilterAndPrinter, ShowAnInformationOnceForEachReading) {
    startPrinter("toner-near-end");
    startFilter();
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    std::vector<std::string> lines = test::linesOf(result.errors);
    lines.erase(lines.begin());
    EXPECT_THAT(lines, Each(std::string("INFO: M toner cartridge near end of life")));
    EXPECT_EQ(lines.size(), reportedJob()["replies"]);
}

TEST_F(FilterAndPrinter, WaitUntilThePrinterHasRoom) {
    startPrinter("memory-short");
    startFilter();
    awaitLog("DriverFilter checkHeaderSize: Printer not ready...");
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(logMessages(), Contains("DriverFilter checkHeaderSize: imageMemory = 1048576"));
    EXPECT_EQ(reportedJob()["outcome"], "whole");
    EXPECT_THAT(reportedJob()["overruns"], IsEmpty());
}

TEST_F(FilterAndPrinter, AreHeldUpByAnOpenCoverAndGoOn) {
    const StreamOptions options = document(4);
    startPrinter("cover-open");
    startFilter({.stream = makeStream(options)});
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(statusLines(result), Contains("INFO: Cover open"));
    EXPECT_THAT(logMessages(), Contains("DriverFilter checkHeaderSize: Printer not ready..."));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + printed(options, 0, "1 2 3 4")));
    EXPECT_THAT(reportedJob()["overruns"], IsEmpty());
}

TEST_F(FilterAndPrinter, SpeakTheLanguageOfLang) {
    environment["LANG"] = "de_DE.UTF-8";
    startPrinter("cover-open");
    startFilter({.stream = makeStream(document(4))});
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(statusLines(result), Contains("INFO: Abdeckung offen"));
    EXPECT_THAT(logMessages(), Contains("AppleLanguages = \"de_DE.UTF-8\""));
}

TEST_F(FilterAndPrinter, WaitForThePort) {
    startPrinter("port-busy");
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    const std::vector<std::string> messages = logMessages();
    const auto busy = std::find(messages.begin(), messages.end(), "DriverFilter run: Waiting for port (4)");
    ASSERT_NE(busy, messages.end());
    EXPECT_NE(std::find(busy, messages.end(), "DriverFilter run: Waiting for port (0)"), messages.end());
    EXPECT_EQ(reportedJob()["outcome"], "whole");
}

TEST_F(FilterAndPrinter, RepeatAFaultUntilTheJobIsCancelled) {
    const std::string line = "ERROR: recoverable: Service call - Laser Error - LD1 Error";
    startPrinter("service-call");
    startFilter();
    awaitStatusLine(line, 3);
    filter->send(SIGTERM);
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(statusLines(result), ElementsAre(line));
    EXPECT_THAT(logMessages(), Contains("ASSERT: checkStatus error"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + cancelRecord()));
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
    expectNothingLeft();
}

// ---- Cancelled jobs

TEST_F(FilterAndPrinter, EndAWaitForMemoryWhenTheJobIsCancelled) {
    startPrinter("memory-short-for-good");
    startFilter();
    awaitLog("DriverFilter checkHeaderSize: headerMemory = 1024");
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(logMessages(), Contains("ASSERT: checkHeaderSize error"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + cancelRecord()));
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
}

// ---- A backend that is not what it should be

TEST_F(FilterAndPrinter, WaitForABackendThatAnswersLate) {
    startPrinter("late-announcement");
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(logMessages(), Contains("FrontendIPC sendData: waiting for backend alive..."));
    EXPECT_EQ(notifications().at(0), "< fronted-alive");
    EXPECT_EQ(notifications().at(1), "> backend-alive");
    EXPECT_EQ(reportedJob()["outcome"], "whole");
}

TEST_F(FilterAndPrinter, FindEachOtherWhenTheBackendStartsLast) {
    startFilter();
    awaitLog("FrontendIPC sendData: waiting for backend alive...");
    startPrinter("one-sided");
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(reportedJob()["outcome"], "whole");
}

TEST_F(FilterAndPrinter, GoOnWhenTheBackendComesBack) {
    StreamOptions options = document(3);
    options.bandsPerPage = 40; // far more than may be on its way when the backend leaves
    startPrinter("leaves-and-returns");
    startFilter({.stream = makeStream(options)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    const std::vector<std::string> messages = logMessages();
    const auto left =
        std::find(messages.begin(), messages.end(), "FrontendIPC::handleNotification:backend-byebye");
    ASSERT_NE(left, messages.end());
    EXPECT_NE(std::find(left, messages.end(), "FrontendIPC sendData: waiting for backend alive..."),
              messages.end());
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + printed(options, 0, "1 2 3")));
    EXPECT_EQ(reportedJob()["outcome"], "whole");
}

TEST_F(FilterAndPrinter, AskAgainForWhatIsNoRecord) {
    startPrinter("malformed-replies");
    startFilter();
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(reportedJob()["outcome"], "whole");
    EXPECT_THAT(notifications(), testing::IsSupersetOf({"> readPipe, 63 bytes", "> readPipe, 65 bytes"}));
    // A record came in the fourth answer; the bad one after it changes nothing but is told of.
    EXPECT_THAT(logMessages(),
                Contains("ReverseData dataArrived: received 63 bytes of unexpected reverse data"));
    EXPECT_THAT(statusLines(result), Contains("INFO: Ready"));
}

TEST_F(FilterAndPrinter, TakeALateRecord) {
    startPrinter("late-reply");
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(logMessages(), Contains("FrontendIPC waiting data..."));
    EXPECT_EQ(reportedJob()["outcome"], "whole");
}

void expectCommunicationError(const std::vector<std::string> &log,
                              const std::vector<std::string> &statusLines) {
    EXPECT_THAT(log, Contains("FrontendIPC readData failed!"));
    EXPECT_THAT(log, Contains("ASSERT: DriverFilter checkStatus: readData failed"));
    EXPECT_THAT(statusLines, Contains("ERROR: recoverable: Unable to communicate with printer"));
}

TEST_F(FilterAndPrinter, FailWithoutAnyReply) {
    startPrinter("no-replies");
    startFilter();
    awaitStatusLine("ERROR: recoverable: Unable to communicate with printer", 2);
    filter->send(SIGTERM);
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    expectCommunicationError(logMessages(), statusLines(result));
    const std::vector<std::string> messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "FrontendIPC waiting data..."), 20);
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
}

TEST_F(FilterAndPrinter, FailOnAnEmptyReply) {
    startPrinter("empty-replies");
    startFilter();
    awaitStatusLine("ERROR: recoverable: Unable to communicate with printer", 2);
    filter->send(SIGTERM);
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    expectCommunicationError(logMessages(), statusLines(result));
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
}

// ---- A service that dies

class FilterWhoseBusDies : public FilterAndPrinter {
  protected:
    /// Runs a job during which the bus is killed, while the filter waits for the end mark behind two pages.
    void printUntilCancelled(const std::string &options) {
        const std::string stream = makeStream(document(2));
        startPrinter("one-sided");
        startFilter({.options = options, .input = test::Pipe()});
        filter->write(stream.substr(0, stream.size() - 4));
        awaitLog("DriverFilter copyPageFrom: done with page", 2);
        bus.kill();
        filter->write("JIDG");
        filter->closeInput();
        awaitStatusLine("ERROR: recoverable: Unable to communicate with printer", 2);
        EXPECT_FALSE(filter->hasEnded());
        filter->send(SIGTERM);
        const ProcessResult result = finishFilter();
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_THAT(statusLines(result),
                    ElementsAre("INFO: Ready", "ERROR: recoverable: Unable to communicate with printer"));
        EXPECT_THAT(logMessages(), Contains("FrontendIPC postNotificationSendData: Catch Exception!"));
        expectNothingLeft();
    }
};

TEST_F(FilterWhoseBusDies, TellsOfItUntilTheJobIsCancelled) {
    uri = "usb://Morvex/LX%20410N?serial=1";
    printUntilCancelled("");
    EXPECT_THAT(logMessages(), Contains("ASSERT: DriverFilter sendPages: failed to send EOJ"));
}

TEST_F(FilterWhoseBusDies, RemovesWhatItHasSpooled) {
    printUntilCancelled(twoSided(1, true, 2));
    EXPECT_THAT(logMessages(), Contains("ASSERT: DriverFilter unspoolPages: failed to send EOJ"));
}

TEST_F(FilterAndPrinter, FailAtOnceWithoutABus) {
    bus.kill();
    const auto begin = std::chrono::steady_clock::now();
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_THAT(logMessages(), Contains("DriverFilter init: failed to allocate IPC"));
    expectNothingLeft();
}

TEST_F(FilterAndPrinter, CancelAJobWhoseStandardInputIsClosed) {
    startPrinter("one-sided");
    startFilter({.input = test::Closed()});
    awaitPrinter("< fronted-alive");
    // Neither the log nor the connection to the bus has taken its place, to be read as a page stream.
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(filter->id()) + "/fd/0"), "/dev/null");
    EXPECT_EQ(finishFilter().exitStatus, 1);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + cancelRecord()));
    EXPECT_EQ(reportedJob()["outcome"], "cancelled");
}

TEST_F(FilterAndPrinter, ShowTheSheetsThatAreAskedFor) {
    startPrinter("duplex-unit", {"--jobs=1", "--sheets=/tmp/sheets", "--dpi=300"});
    const test::DrawnPage drawn = test::markedPage(80, 40);
    std::string stream = std::string(36, 'i') + test::jobHeaders(raster::CompressMode::zstd);
    for (std::uint16_t number = 1; number <= 4; ++number) {
        stream += drawn.page(raster::CompressMode::zstd, 16, number);
    }
    startFilter({.stream = stream + "JIDG", .options = twoSided(1, true, 4)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(test::namesIn("/tmp/sheets"),
                ElementsAre("index.html", "sheet-0001-back.png", "sheet-0001-front.png",
                            "sheet-0002-back.png", "sheet-0002-front.png"));
    const std::string page = readFile("/tmp/sheets/index.html");
    EXPECT_THAT(page, testing::HasSubstr("4 sides on 2 sheets, 1 copy, 4 printed"));
    EXPECT_THAT(page, testing::HasSubstr("<li>2</li>\n<li>1</li>\n<li>4</li>\n<li>3</li>\n</ol>"));
    EXPECT_THAT(page, testing::HasSubstr("sides printed: 4</text>"));
}

} // namespace
} // namespace veltrin
