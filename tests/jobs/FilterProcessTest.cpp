// The real executable, run as the scheduler runs it, for jobs to standard output.

#include "log/DebugLog.h"
#include "tests/jobs/FilterFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/PPD.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::Command;
using test::JobOptions;
using test::linesOf;
using test::printed;
using test::ProcessResult;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Not;

using FilterProcessTest = test::FilterFixture;

/// A job that is printed on one side and, in another test, on both.
class OneAndTwoSidedJobs : public test::FilterFixture, public testing::WithParamInterface<int> {
  protected:
    const int duplexing = GetParam(); // 0 one-sided, 2 long edge
};

INSTANTIATE_TEST_SUITE_P(Sides, OneAndTwoSidedJobs, testing::Values(0, 2),
                         [](const auto &test) { return test.param == 0 ? "OneSided" : "TwoSided"; });

constexpr std::uint16_t unmarked = 0;
constexpr std::uint16_t duplex = 0x0200;
constexpr std::uint16_t manualDuplex = 0x0400;

const std::string commError = "ERROR: recoverable: Unable to communicate with printer";

/// A stream of `pages` pages as the renderer writes it for the options of `job`.
StreamOptions streamOf(std::uint32_t pages, std::uint32_t copies = 1, CopyOrder order = CopyOrder::collated,
                       bool blankPage = false) {
    StreamOptions stream;
    stream.pages = pages;
    stream.copies = copies;
    stream.order = order;
    stream.blankPage = blankPage;
    stream.bandsPerPage = 2;
    stream.planeSizes = {300, 20, 1, 0};
    stream.paperTray = 2; // not the bypass tray, which some pages are sent to
    return stream;
}

/// Two collated copies or more of an odd document, with a single blank page behind all of them.
std::string streamWithABlankPageAtItsVeryEnd(std::uint32_t pages, std::uint32_t copies) {
    const StreamOptions stream = streamOf(pages, 1, CopyOrder::collated, true);
    std::string bytes = *stream.identifier + makeJobHeaders(stream);
    for (std::uint32_t copy = 0; copy < copies; ++copy) {
        for (std::uint32_t page = 1; page <= pages; ++page) {
            bytes += makePage(stream, page);
        }
    }
    return bytes + makePage(stream, pages + 1) + "JIDG";
}

/// Every page of the stream in its order, as `printed` describes pages.
std::string inStreamOrder(const StreamOptions &stream) {
    std::string pages;
    for (const std::uint32_t page : pageOrder(stream)) {
        pages += std::to_string(page) + " ";
    }
    return pages;
}

long countOf(const std::string &text, const std::string &line) {
    const std::vector<std::string> lines = linesOf(text);
    return std::count(lines.begin(), lines.end(), line);
}

// One-sided jobs

TEST_F(FilterProcessTest, OneSidedJobsPassThroughWithoutTheirIdentifier) {
    const std::vector<StreamOptions> streams = {
        streamOf(0),
        streamOf(1),
        streamOf(5),
        streamOf(3, 2, CopyOrder::collated),
        streamOf(3, 2, CopyOrder::uncollated),
    };
    for (const StreamOptions &stream : streams) {
        const ProcessResult result = print(JobOptions{.copies = 2}.argument(), makeStream(stream));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, unmarked, inStreamOrder(stream))))
            << inStreamOrder(stream);
        EXPECT_EQ(result.errors, "file\n");
    }
}

TEST_F(FilterProcessTest, WidensThePipesThatItReadsAndWrites) {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    ASSERT_EQ(pipe2(in.data(), O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
    const std::string stream = makeStream(streamOf(1));
    ASSERT_EQ(write(in[1], stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
    close(in[1]);
    Command command = this->command("", "");
    command.input = test::Descriptor{in[0]};
    command.output = test::Descriptor{out[1]};
    EXPECT_EQ(run(command).exitStatus, 0);
    EXPECT_EQ(fcntl(in[0], F_GETPIPE_SZ), 256 * 1024);
    EXPECT_EQ(fcntl(out[1], F_GETPIPE_SZ), 256 * 1024);
    for (const int end : {in[0], out[0], out[1]}) {
        close(end);
    }
}

TEST_F(FilterProcessTest, AOneSidedJobIsLoggedStepByStep) {
    print("media=A4", makeStream(streamOf(2)));
    EXPECT_THAT(
        logMessages(),
        ElementsAre(
            "veltrin starting", "CUPSFilter initWithArgc:argv", "AppleLanguages = \"en.UTF-8\"",
            "CUPSFilter init exiting with result: 1",
            "DriverFilter init: skipping IPC because URI scheme is file://", "ASSERT: Unable to get ppd file",
            "ASSERT: Unable to open ppd file", "Option media = A4",
            "CUPSFilter initWithArgc:argv exiting with result: 1",
            "DriverFilter run: ", "CUPSFIlter run: ", "copies: 0", "sidesImaged: 0",
            "CUPSFIlter run: exiting with result 1", "expectedUUID: 11111111-2222-3333-4444-555555555555",
            "uuid: 00000000-0000-4000-8000-000000000000", "DriverFilter spoolPages Reading file headers",
            "DriverFilter sendPages: Sending file headers", "DriverFilter copyPageFrom: done with page",
            "DriverFilter copyPageFrom: done with page", "DriverFilter copyPageFrom: eoj at tag: 0",
            "DriverFilter sendPages: Sending EOJ", "DriverFilter run: exiting with result 1",
            "DriverFilter dealloc: ", "veltrin ending with result 0"));
}

class InformationDictionary : public test::FilterFixture, public testing::WithParamInterface<bool> {};

TEST_P(InformationDictionary, IsNotNeededButMissedOnce) {
    const bool isBroken = GetParam();
    const std::string dictionary = std::string(bundleFolder) + "/Info.plist";
    if (isBroken) {
        test::writeFile(dictionary, "no property list");
    } else {
        std::filesystem::remove(dictionary);
    }
    const ProcessResult result =
        print(JobOptions{.duplexing = 2, .sidesImaged = 4}.argument(), makeStream(streamOf(4)));
    EXPECT_EQ(result.exitStatus, 0);
    // Two-sided without an order: the pages keep theirs.
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(streamOf(4), duplex, "1 2 3* 4")));
    const std::vector<std::string> log = logMessages();
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [](const std::string &line) {
                                return line.starts_with("ASSERT: CUPSFilter: no information dictionary: ");
                            }),
              1);
    EXPECT_THAT(log, Contains("expectedUUID: (null)"));
}

INSTANTIATE_TEST_SUITE_P(Faults, InformationDictionary, testing::Bool(),
                         [](const auto &test) { return test.param ? "Broken" : "Missing"; });

struct TrayCase {
    std::string name;
    std::string jobName;
    std::uint8_t tray;
    bool mapped;
};

void PrintTo(const TrayCase &one, std::ostream *out) {
    *out << one.jobName;
}

// No status record comes without a channel, so the media of every tray is 0.
const std::vector<TrayCase> trayCases = {
    {"Tray1", "@(1)", 2, true},          {"Tray2", "@letters (2)", 3, true}, {"Bypass", "@(3)", 1, true},
    {"LastDigit", "@(12)", 3, true},     {"Tray0", "@(0)", 0, false},        {"Tray4", "@(4)", 0, false},
    {"WithoutANumber", "@()", 0, false},
};

StreamOptions streamFromTrayNine() {
    StreamOptions stream = streamOf(2);
    stream.paperTray = 9;
    stream.mediaType = 8;
    return stream;
}

class TrayNamedByTheJob : public test::FilterFixture, public testing::WithParamInterface<TrayCase> {};

TEST_P(TrayNamedByTheJob, OverridesTrayAndMedia) {
    StreamOptions expected = streamFromTrayNine();
    expected.paperTray = GetParam().tray;
    expected.mediaType = 0;
    const ProcessResult result =
        print(JobOptions{.jobName = GetParam().jobName}.argument(), makeStream(streamFromTrayNine()));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(expected, unmarked, "1 2")));
    EXPECT_THAT(logMessages(), Contains("DriverFilter copyPageFrom: overriding tray (" +
                                        std::to_string(GetParam().tray) + ") and media type (0)"));
    const std::string refusal =
        "VeltrinReverseData priorityTrayForTargetTray: failed to properly map the tray selection!";
    EXPECT_THAT(logMessages(), Contains(testing::EndsWith(refusal)).Times(GetParam().mapped ? 0 : 2));
}

INSTANTIATE_TEST_SUITE_P(Names, TrayNamedByTheJob, testing::ValuesIn(trayCases), test::nameOfCase<TrayCase>);

TEST_F(FilterProcessTest, AnOrdinaryJobNameLeavesTrayAndMedia) {
    const StreamOptions stream = streamFromTrayNine();
    for (const char *ordinary : {"letters (2)", "@(2) copy", "(2)"}) {
        const ProcessResult result = print(JobOptions{.jobName = ordinary}.argument(), makeStream(stream));
        EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, unmarked, "1 2"))) << ordinary;
    }
}

// Two-sided jobs

struct DuplexCase {
    std::string name;
    std::map<std::string, std::string> keys;
    JobOptions job;
    StreamOptions stream;
    std::uint16_t jobSetting;
    std::string pages;
};

const std::map<std::string, std::string> order642135 = {{"VeltrinDuplexOrder", "642135"}};
const std::map<std::string, std::string> order246135 = {{"VeltrinDuplexOrder", "246135"}};
const std::map<std::string, std::string> byHand = {{"VeltrinDuplexOrder", "642135"},
                                                   {"VeltrinManualDuplex", "true"}};
const std::map<std::string, std::string> bypass = {{"VeltrinDuplexOrder", "642135"},
                                                   {"VeltrinDuplexBypass", "yes"}};

void PrintTo(const DuplexCase &one, std::ostream *out) {
    *out << one.pages;
}

const std::vector<DuplexCase> &duplexCases() {
    using enum CopyOrder;
    // A case in two lines: name, configuration and what is asked for; the stream and what becomes of it.
    // clang-format off
    static const std::vector<DuplexCase> cases = {
        {"no pages", order642135, {.duplexing = 2},
         streamOf(0), duplex, ""},
        {"no pages and endless copies", order642135, {.copies = -1, .collate = true, .duplexing = 2},
         streamOf(0), duplex, ""},
        {"one page, five copies", order642135, {.copies = 5, .collate = true, .duplexing = 2, .sidesImaged = 5},
         streamOf(1), unmarked, "1"},
        {"two pages", order642135, {.duplexing = 2, .sidesImaged = 2},
         streamOf(2), duplex, "2 1*"},
        {"four pages", order642135, {.duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, "4 2 1* 3"},
        {"six pages", order642135, {.duplexing = 2, .sidesImaged = 6},
         streamOf(6), duplex, "6 4 2 1* 3 5"},
        {"six pages in the other order", order246135, {.duplexing = 2, .sidesImaged = 6},
         streamOf(6), duplex, "2 4 6 1* 3 5"},
        {"six pages for a duplex unit's order", {{"VeltrinDuplexOrder", "214365"}}, {.duplexing = 2, .sidesImaged = 6},
         streamOf(6), duplex, "2 1 4 3* 6 5"},
        {"no order", {}, {.duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, "1 2 3* 4"},
        {"unknown order", {{"VeltrinDuplexOrder", "123456"}}, {.duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, "1 2 3* 4"},
        {"empty order", {{"VeltrinDuplexOrder", ""}}, {.duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, "1 2 3* 4"},
        {"short edge", order642135, {.duplexing = 3, .sidesImaged = 4},
         streamOf(4), duplex, "4 2 1* 3"},
        {"sides not told, long edge", order642135, {.duplexing = 2},
         streamOf(4), duplex, "4 2 1* 3"},
        {"sides not told, short edge: one page less, and the last one again", order642135, {.duplexing = 3},
         streamOf(4), duplex, "4 2 1* 3"},
        {"sides not told, short edge, odd: one page less", order642135, {.duplexing = 3},
         streamOf(5), duplex, "4 2 1* 3"},
        {"more sides than pages", order642135, {.duplexing = 2, .sidesImaged = 40},
         streamOf(4), duplex, "4 2 1* 3"},
        {"fewer sides than pages", order642135, {.duplexing = 2, .sidesImaged = 2},
         streamOf(4), duplex, "2 1*"},
        {"odd with the renderer's blank page", order642135, {.duplexing = 2, .sidesImaged = 3},
         streamOf(3, 1, collated, true), duplex, "4 2 1* 3"},
        {"odd with the blank page, two collated copies", order642135, {.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 8},
         streamOf(3, 2, collated, true), duplex, "4 2 4 2 1* 3 1 3"},
        {"odd with the blank page, two collated copies, its sides not counted", order642135,
         {.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 6},
         streamOf(3, 2, collated, true), duplex, "4 2 4 2 1* 3 1 3"},
        {"odd with the blank page, two uncollated copies in pairs", order642135, {.copies = 2, .duplexing = 2, .sidesImaged = 8},
         streamOf(3, 2, pairs, true), duplex, "4 4 2 2 1* 1 3 3"},
        {"odd with the blank page, two uncollated copies in pairs, sides not told", order642135, {.copies = 2, .duplexing = 3},
         streamOf(3, 2, pairs, true), duplex, "4 4 2 2 1* 1 3 3"},
        {"by hand", byHand, {.duplexing = 2, .sidesImaged = 4},
         streamOf(4), manualDuplex, "4 2 1* 3"},
        {"two uncollated copies in pairs", order642135, {.copies = 2, .duplexing = 2, .sidesImaged = 8},
         streamOf(4, 2, pairs), duplex, "4 4 2 2 1* 1 3 3"},
        {"two collated copies", order642135, {.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 8},
         streamOf(4, 2, collated), duplex, "4 2 4 2 1* 3 1 3"},
        {"three uncollated copies", order642135, {.copies = 3, .duplexing = 2, .sidesImaged = 12},
         streamOf(4, 3, pairs), duplex, "4 4 4 2 2 2 1* 1 1 3 3 3"},
        {"four uncollated copies", order642135, {.copies = 4, .duplexing = 2, .sidesImaged = 16},
         streamOf(4, 4, pairs), duplex, "4 4 4 4 2 2 2 2 1 1* 1 1 3 3 3 3"},
        {"bypass, uncollated", bypass, {.copies = 4, .duplexing = 2, .sidesImaged = 16},
         streamOf(4, 4, pairs), duplex, "4 4 4 4 2 2 2 2 1 1*b 1b 1b 3b 3b 3b 3b"},
        {"bypass, collated", bypass, {.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 8},
         streamOf(4, 2, collated), duplex, "4 2 4 2 1*b 3b 1b 3b"},
        {"more copies than pages", order642135, {.copies = 9, .duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, ""},
        {"endless copies", order642135, {.copies = -1, .duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, ""},
        {"endless collated copies", order642135, {.copies = -1, .collate = true, .duplexing = 2, .sidesImaged = 4},
         streamOf(4), duplex, ""},
        {"paper that cannot be turned", order642135, {.duplexing = 2, .sidesImaged = 4, .others = "media=A5"},
         streamOf(4), unmarked, "1 2 3 4"},
        {"paper type that cannot be turned", order642135, {.duplexing = 3, .sidesImaged = 4, .others = "PaperType=Labels"},
         streamOf(4), unmarked, "1 2 3 4"},
    };
    // clang-format on
    return cases;
}

class TwoSidedJobs : public test::FilterFixture, public testing::WithParamInterface<DuplexCase> {};

TEST_P(TwoSidedJobs, AreReorderedMarkedAndRepeated) {
    configure(GetParam().keys);
    const ProcessResult result = print(GetParam().job.argument(), makeStream(GetParam().stream));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output),
                BytesAre(printed(GetParam().stream, GetParam().jobSetting, GetParam().pages)));
    EXPECT_EQ(result.errors, "file\n");
}

INSTANTIATE_TEST_SUITE_P(Cases, TwoSidedJobs, testing::ValuesIn(duplexCases()), test::nameOfCase<DuplexCase>);

TEST_F(FilterProcessTest, BitsThatTheRendererHasSetInTheJobFileHeaderStay) {
    configure(byHand);
    StreamOptions stream = streamOf(2);
    stream.jobSetting = 0x9A5B;
    ASSERT_EQ(makeJobHeaders(stream).substr(16, 2), "\x9A\x5B");
    const std::string input = makeStream(stream);
    EXPECT_EQ(print("", input).output.substr(16, 2), "\x9A\x5B");
    EXPECT_EQ(print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), input).output.substr(16, 2),
              "\x9E\x5B");
}

TEST_F(FilterProcessTest, NeedsNoMoreDescriptorsForManyPagesAndCopies) {
    configure(order642135);
    const StreamOptions stream = streamOf(60);
    Command command =
        this->command(JobOptions{.copies = 3, .collate = true, .duplexing = 2, .sidesImaged = 180}.argument(),
                      makeStream(streamOf(60, 3)));
    command.arguments.insert(command.arguments.begin(), {"prlimit", "--nofile=20", filterProgram});
    command.arguments.erase(command.arguments.begin() + 3);
    command.program = "/usr/bin/prlimit";
    const ProcessResult result = runToEnd(command);
    EXPECT_EQ(result.exitStatus, 0);
    std::string firstPass;
    std::string secondPass;
    for (int page = 60; page > 0; page -= 2) {
        firstPass += std::to_string(page) + " ";
        secondPass = std::to_string(page - 1) + " " + secondPass;
    }
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, duplex,
                                                       firstPass + firstPass + firstPass + "1* " +
                                                           secondPass.substr(2) + secondPass + secondPass)));
}

TEST_F(FilterProcessTest, ATwoSidedJobWithoutPagesCountsFromMinusOne) {
    print(JobOptions{.duplexing = 2}.argument(), makeStream(streamOf(0)));
    EXPECT_THAT(logMessages(), Contains("DriverFilter spoolPages: EOJ detected after page -1"));
}

TEST_F(FilterProcessTest, ATwoSidedJobIsLoggedStepByStep) {
    configure(
        {{"VeltrinDuplexOrder", "642135"}, {"VeltrinManualDuplex", "true"}, {"VeltrinDuplexBypass", "true"}});
    print(JobOptions{.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 6}.argument(),
          streamWithABlankPageAtItsVeryEnd(3, 2));
    const std::vector<std::string> log = logMessages();
    const auto from = std::find(log.begin(), log.end(), "DriverFilter spoolPages Reading file headers");
    const auto page = [](int number) {
        return std::vector<std::string>{"DriverFilter copyPageFrom: done with page",
                                        "DriverFilter spoolPages: Copied page " + std::to_string(number) +
                                            " to file: <file " + std::to_string(number) + ">"};
    };
    const auto sent = [](int pass, int file, const std::string &flags) {
        return std::vector<std::string>{"DriverFilter unspoolPages (collated duplex) " +
                                            std::to_string(pass) + ": sending path <file " +
                                            std::to_string(file) + ">, flags: " + flags,
                                        "DriverFilter copyPageFrom: done with page"};
    };
    std::vector<std::string> expected = {"DriverFilter spoolPages Reading file headers"};
    const auto add = [&expected](const std::vector<std::string> &lines) {
        expected.insert(expected.end(), lines.begin(), lines.end());
    };
    for (int i = 0; i < 7; ++i) {
        add(page(i));
    }
    add({"DriverFilter copyPageFrom: eoj at tag: 0", "DriverFilter spoolPages: EOJ detected after page 6",
         "DriverFilter spoolPages: copies: 2, sidesImaged: 6, origPaths: 7, pathCount: 3, collate: YES, "
         "hasGDIBlankPage: YES",
         "DriverFilter spoolPages: copying path at index 0",
         "DriverFilter spoolPages: copying path at index 1",
         "DriverFilter spoolPages: copying path at index 2",
         "DriverFilter spoolPages: appending blank page"});
    for (int i = 0; i < 7; ++i) {
        add({"DriverFilter spoolPages: origPath " + std::to_string(i) + " = <file " + std::to_string(i) +
             ">"});
    }
    add({"DriverFilter spoolPages: path 0 = <file 0>", "DriverFilter spoolPages: path 1 = <file 1>",
         "DriverFilter spoolPages: path 2 = <file 2>", "DriverFilter spoolPages: path 3 = <file 6>",
         "DriverFilter spoolPages: copied 4 pages, eoj: 1, result 1", "DriverFilter duplex: Duplexing 642135",
         "DriverFilter duplex: path 0 = <file 6>", "DriverFilter duplex: path 1 = <file 1>",
         "DriverFilter duplex: path 2 = <file 0>", "DriverFilter duplex: path 3 = <file 2>",
         "DriverFilter unspoolPages: Sending file headers",
         "DriverFilter unspoolPages: collate: 1, copies: 2, pathCount: 4"});
    add(sent(1, 6, "0"));
    add(sent(1, 1, "0"));
    add(sent(1, 6, "0"));
    add(sent(1, 1, "0"));
    add(sent(2, 0, "10"));
    add(sent(2, 2, "0"));
    add(sent(2, 0, "0"));
    add(sent(2, 2, "0"));
    add({"DriverFilter unspoolPages: Sending EOJ", "DriverFilter run: exiting with result 1",
         "DriverFilter dealloc: ", "veltrin ending with result 0"});
    EXPECT_THAT(std::vector<std::string>(from, log.end()), ElementsAreArray(expected));
}

TEST_F(FilterProcessTest, AnUncollatedTwoSidedJobLogsItsPairsAndItsMissingKeys) {
    configure({});
    print(JobOptions{.copies = 2, .duplexing = 2, .sidesImaged = 4}.argument(),
          makeStream(streamOf(2, 2, CopyOrder::pairs)));
    const std::vector<std::string> log = logMessages();
    const auto from = std::find(log.begin(), log.end(), "DriverFilter spoolPages: EOJ detected after page 3");
    EXPECT_THAT(
        std::vector<std::string>(from, log.end()),
        ElementsAre(
            "DriverFilter spoolPages: EOJ detected after page 3",
            "DriverFilter spoolPages: copies: 2, sidesImaged: 4, origPaths: 4, pathCount: 2, collate: NO, "
            "hasGDIBlankPage: NO",
            "DriverFilter spoolPages: copying path at index 0 (10.4 special)",
            "DriverFilter spoolPages: copying path at index 1 (10.4 special)",
            "DriverFilter spoolPages: origPath 0 = <file 0>",
            "DriverFilter spoolPages: origPath 1 = <file 1>",
            "DriverFilter spoolPages: origPath 2 = <file 2>",
            "DriverFilter spoolPages: origPath 3 = <file 3>", "DriverFilter spoolPages: path 0 = <file 0>",
            "DriverFilter spoolPages: path 1 = <file 1>",
            "DriverFilter spoolPages: copied 2 pages, eoj: 1, result 1",
            "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr VeltrinDuplexOrder",
            "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr VeltrinManualDuplex",
            "DriverFilter unspoolPages: Sending file headers",
            "DriverFilter unspoolPages: collate: 0, copies: 2, pathCount: 2",
            "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr VeltrinDuplexBypass",
            "DriverFilter unspoolPages (not-collated): sending path <file 0>, flags: 0",
            "DriverFilter copyPageFrom: done with page",
            "DriverFilter unspoolPages (not-collated): sending path <file 0>, flags: 0",
            "DriverFilter copyPageFrom: done with page",
            "DriverFilter unspoolPages (not-collated): sending path <file 1>, flags: 10",
            "DriverFilter copyPageFrom: done with page",
            "DriverFilter unspoolPages (not-collated): sending path <file 1>, flags: 0",
            "DriverFilter copyPageFrom: done with page", "DriverFilter unspoolPages: Sending EOJ",
            "DriverFilter run: exiting with result 1",
            "DriverFilter dealloc: ", "veltrin ending with result 0"));
}

TEST_F(FilterProcessTest, OddOnePageAndUnknownOrdersSaySoInTheLog) {
    configure(order642135);
    print(JobOptions{.duplexing = 2, .sidesImaged = 1}.argument(), makeStream(streamOf(1)));
    EXPECT_THAT(logMessages(), testing::IsSupersetOf({"DriverFilter spoolPages: Spacial casing one page job",
                                                      "DriverFilter duplex: odd number of pages submitted: 1",
                                                      "DriverFilter duplex: path 0 = <file 0>"}));
    configure({{"VeltrinDuplexOrder", "none"}});
    print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(streamOf(2)));
    EXPECT_THAT(logMessages(), Contains("DriverFilter duplex: duplexing order not specified"));
}

// Arguments and input

TEST_F(FilterProcessTest, TheNumberOfArgumentsDecidesWhereTheStreamComesFrom) {
    const StreamOptions fromFile = streamOf(2);
    const StreamOptions fromInput = streamOf(3);
    test::writeFile("/tmp/input.str", makeStream(fromFile));

    Command command = this->command("", makeStream(fromInput));
    EXPECT_THAT(Bytes(runToEnd(command).output), BytesAre(printed(fromInput, unmarked, "1 2 3"))) << "six";
    command.arguments.emplace_back("/tmp/input.str");
    EXPECT_THAT(Bytes(runToEnd(command).output), BytesAre(printed(fromFile, unmarked, "1 2"))) << "seven";
    command.arguments.emplace_back("more");
    EXPECT_THAT(Bytes(runToEnd(command).output), BytesAre(printed(fromInput, unmarked, "1 2 3"))) << "eight";

    command.arguments.resize(5);
    const ProcessResult five = runToEnd(command);
    EXPECT_EQ(five.exitStatus, 1);
    EXPECT_EQ(five.output, "");
    EXPECT_THAT(logMessages(), Contains("ASSERT: Not enough arguments"));
}

TEST_F(FilterProcessTest, AnUnreadableFileEndsBeforeAnythingIsWritten) {
    Command command = this->command("", "");
    command.arguments.emplace_back("/tmp/no such file");
    const ProcessResult result = runToEnd(command);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "file\n");
    EXPECT_THAT(logMessages(), Contains("ASSERT: Unable to open argv[6]"));
    EXPECT_THAT(logMessages(), Not(Contains("DriverFilter run: ")));
    EXPECT_EQ(logMessages().back(), "veltrin ending with result 1");
    EXPECT_THAT(logMessages(), Contains("DriverFilter dealloc: "));
}

TEST_F(FilterProcessTest, ReadsTheQueuesPPDAndLeavesNoCopyBehind) {
    test::writeFile("/tmp/cups/ppd/queue.ppd",
                    test::ppdWith("*NickName: \"Test\"\n*DefaultPaperType: Plain\n"));
    EXPECT_EQ(print("", makeStream(streamOf(1))).exitStatus, 0);
    EXPECT_THAT(logMessages(), Contains("DefaultPaperType: Plain"));
    EXPECT_THAT(logMessages(), Not(Contains("ASSERT: Unable to open ppd file")));
}

TEST_F(FilterProcessTest, WorksWithACUPSLibraryThatHasLostThePPDAttributeLookUp) {
    test::writeFile("/tmp/cups/ppd/queue.ppd",
                    test::ppdWith("*NickName: \"Test\"\n*DefaultPaperType: Plain\n"));
    std::filesystem::create_directories("/tmp/bundle/lib");
    std::filesystem::copy_file(test::hostPath(CUPS_WITHOUT_PPD_FIND_ATTR), "/tmp/bundle/lib/libcups.so.2");
    environment["LD_LIBRARY_PATH"] = "/tmp/bundle/lib";
    const StreamOptions stream = streamOf(2);
    const ProcessResult result =
        print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(stream));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, duplex, "1 2*")));
    // The PPD was opened, but its attributes were not walked.
    EXPECT_THAT(logMessages(), Not(Contains("ASSERT: Unable to open ppd file")));
    EXPECT_THAT(logMessages(), Not(Contains(testing::StartsWith("ppd attr"))));
}

TEST_F(FilterProcessTest, SpeaksTheLanguageOfTheJob) {
    std::filesystem::create_directories("/tmp/bundle/de.lproj");
    test::writeFile("/tmp/bundle/de.lproj/Localizable.strings",
                    "<plist version=\"1.0\"><dict><key>DriverCommError</key><string>Drucker antwortet "
                    "nicht</string></dict></plist>");
    environment["LANG"] = "de_DE.UTF-8";
    Command command = this->command("", makeStream(streamOf(1)));
    command.output = test::File{"/dev/full"};
    test::Process process(command);
    EXPECT_TRUE(process.waitUntil(
        [&] { return countOf(process.errors(), "ERROR: recoverable: Drucker antwortet nicht") >= 1; }));
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().exitStatus, 1);
}

TEST_F(FilterProcessTest, LogsOnceWhyATableOfTextsCannotBeUsed) {
    std::filesystem::create_directories("/tmp/bundle/de.lproj");
    test::writeFile("/tmp/bundle/de.lproj/Localizable.strings",
                    "\"DriverCommError\" = \"Antwortet nicht\";\n");
    environment["LANG"] = "de_DE.UTF-8";
    Command command = this->command("", makeStream(streamOf(1)));
    command.output = test::File{"/dev/full"};
    test::Process process(command);
    EXPECT_TRUE(process.waitUntil([&] {
        return countOf(process.errors(), "ERROR: recoverable: Unable to communicate with printer") >= 3;
    }));
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().exitStatus, 1);
    const std::vector<std::string> log = logMessages();
    EXPECT_EQ(
        std::count(log.begin(), log.end(),
                   "ASSERT: CUPSFilter: no string table: /tmp/bundle/de.lproj/Localizable.strings is not an "
                   "XML property list with a dictionary"),
        1);
}

// Broken streams

struct BrokenCase {
    std::string name;
    std::string input;
    std::string output;
    std::vector<std::string> log; // what the log must hold, among other lines
};

void PrintTo(const BrokenCase &one, std::ostream *out) {
    *out << one.input.size() << " bytes";
}

std::vector<BrokenCase> brokenOneSidedStreams() {
    const StreamOptions stream = streamOf(2);
    const std::string whole = makeStream(stream);
    const std::string identifier = whole.substr(0, 36);
    const std::string headers = makeJobHeaders(stream);
    const std::string first = makePage(stream, 1);
    const std::string second = makePage(stream, 2);
    const std::string band = second.substr(64, 32);
    const std::string end = "JIDG" + cancelRecord();
    const auto bandOf = [&band](const std::string &sizes) {
        return band.substr(0, 8) + sizes + band.substr(24);
    };
    const std::string negative("\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
    const std::string huge("\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);

    return {
        {"empty",
         "",
         cancelRecord(),
         {"ASSERT: DriverFilter readFromFD: Wanted 36 bytes, got 0 bytes. EOF hit",
          "ASSERT: read uuid error"}},
        {"inside the identifier",
         identifier.substr(0, 35),
         cancelRecord(),
         {"ASSERT: DriverFilter readFromFD: Wanted 1 bytes, got 0 bytes. EOF hit",
          "ASSERT: read uuid error"}},
        {"identifier alone",
         identifier,
         end,
         {"ASSERT: DriverFilter readHeader: Unable to read header tag", "ASSERT: sendPages error"}},
        {"inside the first header",
         identifier + headers.substr(0, 50),
         end,
         {"ASSERT: DriverFilter readFromFD: Wanted 70 bytes, got 0 bytes. EOF hit",
          "ASSERT: DriverFilter readHeader: Unable to read rest of header"}},
        {"headers in the wrong order",
         identifier + headers.substr(120) + headers.substr(0, 120) + first + "JIDG",
         end,
         {"ASSERT: DriverFilter readFileHeaders: The stream does not begin with the headers of a job",
          "ASSERT: sendPages error"}},
        {"two job file headers",
         identifier + headers.substr(0, 120) + headers.substr(0, 120) + first + "JIDG",
         end,
         {"DriverFilter sendPages: Sending file headers", "DriverFilter sendPages: Sending EOJ",
          "ASSERT: sendPages error"}},
        {"page in place of the headers", identifier + first + "JIDG", end, {"ASSERT: sendPages error"}},
        {"end mark in place of the headers", identifier + "JIDG", end, {"ASSERT: sendPages error"}},
        {"unknown tag in place of the headers",
         identifier + "PIDG" + headers,
         end,
         {"ASSERT: DriverFilter readHeader: Unknown header tag (PIDG)"}},
        {"no end mark",
         identifier + headers + first,
         headers + first + end,
         {"ASSERT: DriverFilter readHeader: Unable to read header tag",
          "DriverFilter copyPageFrom: encountered unexpected file header", "ASSERT: sendPages error"}},
        {"inside a tag",
         identifier + headers + first + second.substr(0, 2),
         headers + first + end,
         {"ASSERT: DriverFilter readFromFD: Wanted 2 bytes, got 0 bytes. EOF hit",
          "ASSERT: DriverFilter readHeader: Unable to read header tag"}},
        {"inside a page header",
         identifier + headers + second.substr(0, 30),
         headers + end,
         {"ASSERT: DriverFilter readFromFD: Wanted 34 bytes, got 0 bytes. EOF hit",
          "ASSERT: DriverFilter readHeader: Unable to read rest of header"}},
        {"inside a band's data",
         identifier + headers + second.substr(0, 64 + 32 + 100),
         headers + second.substr(0, 64) + end,
         {"ASSERT: DriverFilter readFromFD: Wanted 221 bytes, got 0 bytes. EOF hit",
          "ASSERT: DriverFilter copyPageFrom: failed to read header and data"}},
        {"unknown tag between pages",
         identifier + headers + first + "BIDGxxxx",
         headers + first + end,
         {"ASSERT: DriverFilter readHeader: Unknown header tag (BIDG)"}},
        {"negative data size",
         identifier + headers + second.substr(0, 64) + bandOf(negative) + std::string(1000, 'x'),
         headers + second.substr(0, 64) + end,
         {"ASSERT: DriverFilter readHeaderData: Impossible data size -2147483648",
          "ASSERT: DriverFilter copyPageFrom: failed to read header and data"}},
        {"negative data size before a whole page",
         identifier + headers + second.substr(0, 64) + bandOf(negative) + first + "JIDG",
         headers + second.substr(0, 64) + end,
         {"ASSERT: DriverFilter copyPageFrom: failed to read header and data", "ASSERT: sendPages error"}},
        {"data that never comes",
         identifier + headers + first + second.substr(0, 64) + bandOf(huge) + std::string(1000, 'x'),
         headers + first + second.substr(0, 64) + end,
         {"ASSERT: DriverFilter copyPageFrom: failed to read header and data"}},
    };
}

class BrokenOneSidedStreams : public test::FilterFixture, public testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenOneSidedStreams, EndWithMarkAndCancelRecord) {
    const ProcessResult result = print("", GetParam().input);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output), BytesAre(GetParam().output));
    EXPECT_EQ(result.errors, "file\n");
    EXPECT_THAT(logMessages(), testing::IsSupersetOf(GetParam().log));
    EXPECT_EQ(logMessages().back(), "veltrin ending with result 1");
}

INSTANTIATE_TEST_SUITE_P(Cases, BrokenOneSidedStreams, testing::ValuesIn(brokenOneSidedStreams()),
                         test::nameOfCase<BrokenCase>);

TEST_F(FilterProcessTest, StrayHeadersAreCopiedAndStreamsNeedNotBeginWithAPageHeader) {
    const StreamOptions stream = streamOf(1);
    const std::string identifier = makeStream(stream).substr(0, 36);
    const std::string headers = makeJobHeaders(stream);
    const std::string page = makePage(stream, 1);
    const std::string pageWithStrays = page.substr(0, 64) + headers + page.substr(64);
    const ProcessResult strays = print("", identifier + headers + pageWithStrays + "JIDG");
    EXPECT_EQ(strays.exitStatus, 0);
    EXPECT_THAT(Bytes(strays.output), BytesAre(headers + pageWithStrays + "JIDG"));
    EXPECT_THAT(logMessages(),
                Contains("DriverFilter copyPageFrom: encountered unexpected file header").Times(2));

    const ProcessResult headless = print("", identifier + headers + page.substr(64) + "JIDG");
    EXPECT_EQ(headless.exitStatus, 0);
    EXPECT_THAT(Bytes(headless.output), BytesAre(headers + page.substr(64) + "JIDG"));
}

TEST_F(FilterProcessTest, WhatFollowsTheEndMarkIsTakenAndNotPrinted) {
    const StreamOptions stream = streamOf(1);
    const std::string input = makeStream(stream) + makeStream(stream);
    test::writeFile("/tmp/job", input);
    const int fd = open("/tmp/job", O_RDONLY | O_CLOEXEC);
    Command command = this->command("", "");
    command.input = test::Descriptor{fd};
    const ProcessResult result = runToEnd(command);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, unmarked, "1")));
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), static_cast<off_t>(input.size())) << "read along with the mark";
    close(fd);
    std::filesystem::remove("/tmp/job");
}

TEST_F(FilterProcessTest, PlaneSizesThatWrapAreTakenAsTheirSum) {
    const StreamOptions stream = streamOf(1);
    const std::string page = makePage(stream, 1);
    const std::string sizes("\x80\0\0\0\x80\0\0\0\0\0\0\x05\0\0\0\0", 16);
    const std::string last =
        page.substr(64 + 32 + 321, 8) + sizes + page.substr(64 + 32 + 321 + 24, 8) + "12345";
    const std::string wrapped = page.substr(0, 64 + 32 + 321) + last;
    const ProcessResult result =
        print("", makeStream(stream).substr(0, 36) + makeJobHeaders(stream) + wrapped + "JIDG");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(makeJobHeaders(stream) + wrapped + "JIDG"));
}

TEST_F(FilterProcessTest, BandsWithoutDataAndBandsBeyondTheBufferPass) {
    StreamOptions stream = streamOf(3);
    stream.planeSizes = {};
    EXPECT_THAT(Bytes(print("", makeStream(stream)).output), BytesAre(printed(stream, unmarked, "1 2 3")));
    stream.planeSizes = dealtOut(3 * 1024 * 1024 + 1);
    EXPECT_THAT(Bytes(print("", makeStream(stream)).output), BytesAre(printed(stream, unmarked, "1 2 3")));
}

TEST_F(FilterProcessTest, AnAllocationThatFailsEndsTheJobInOrder) {
    const StreamOptions stream = streamOf(1);
    const std::string page = makePage(stream, 1);
    const std::string sizes("\x70\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
    const std::string hugeBand = page.substr(64, 8) + sizes + page.substr(64 + 24, 8);
    Command command = this->command("", makeStream(stream).substr(0, 36) + makeJobHeaders(stream) + page +
                                            page.substr(0, 64) + hugeBand + std::string(100, 'x'));
#ifndef __SANITIZE_ADDRESS__ // which needs the address space, and refuses the allocation by itself
    command.arguments.insert(command.arguments.begin(), {"prlimit", "--as=1073741824", filterProgram});
    command.arguments.erase(command.arguments.begin() + 3);
    command.program = "/usr/bin/prlimit";
#endif
    const ProcessResult result = runToEnd(command);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output),
                BytesAre(makeJobHeaders(stream) + page + page.substr(0, 64) + "JIDG" + cancelRecord()));
    EXPECT_THAT(logMessages(),
                Contains("ASSERT: DriverFilter readHeaderData: Unable to allocate larger buffer"));
}

std::vector<BrokenCase> brokenTwoSidedStreams() {
    const std::string whole = makeStream(streamOf(4));
    const std::string identifier = whole.substr(0, 36);
    const std::string firstHeader = whole.substr(36, 120);
    return {
        {"inside the last page",
         whole.substr(0, whole.size() - 200),
         cancelRecord(),
         {"ASSERT: DriverFilter spoolPages: copyPageFrom:to:additionalType: failed",
          "DriverFilter spoolPages: Copied page 3 to file: <file 3>",
          "DriverFilter spoolPages: path 3 = <file 3>",
          "DriverFilter spoolPages: copied 4 pages, eoj: 0, result 0", "ASSERT: spoolPages error",
          "DriverFilter run: exiting with result 0"}},
        {"two job file headers",
         identifier + firstHeader + firstHeader + whole.substr(36 + 272),
         cancelRecord(),
         {}},
        {"without the first header",
         identifier + whole.substr(36 + 120),
         cancelRecord(),
         {"DriverFilter spoolPages: copies: 1, sidesImaged: 0, origPaths: 0, pathCount: 0, collate: NO, "
          "hasGDIBlankPage: NO",
          "DriverFilter spoolPages: copied 0 pages, eoj: 0, result 0", "ASSERT: spoolPages error"}},
    };
}

class BrokenTwoSidedStreams : public test::FilterFixture, public testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenTwoSidedStreams, SendTheCancelRecordAlone) {
    configure(order642135);
    const ProcessResult result =
        print(JobOptions{.duplexing = 2, .sidesImaged = 4}.argument(), GetParam().input);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output), BytesAre(GetParam().output));
    EXPECT_THAT(logMessages(), testing::IsSupersetOf(GetParam().log));
}

INSTANTIATE_TEST_SUITE_P(Cases, BrokenTwoSidedStreams, testing::ValuesIn(brokenTwoSidedStreams()),
                         test::nameOfCase<BrokenCase>);

TEST_F(FilterProcessTest, ABandThatCannotBeReadFailsATwoSidedJobWhateverFollows) {
    configure(order642135);
    const StreamOptions stream = streamOf(2);
    const std::string first = makePage(stream, 1);
    std::string impossible = makePage(stream, 2).substr(0, 64 + 32);
    impossible[64 + 8] = '\x80'; // the size of the first plane
    const std::string input =
        makeStream(stream).substr(0, 36) + makeJobHeaders(stream) + first + impossible + first + "JIDG";
    const ProcessResult result = print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), input);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output), BytesAre(cancelRecord()));
    EXPECT_THAT(logMessages(), Contains("ASSERT: spoolPages error"));
}

TEST_P(OneAndTwoSidedJobs, TheSecondHeaderIsNotReadOnceTheFirstHasFailed) {
    const ProcessResult result = print(JobOptions{.duplexing = duplexing}.argument(),
                                       makeStream(streamOf(1)).substr(0, 36) + "PIDGBIDG");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(logMessages(), Contains("ASSERT: DriverFilter readHeader: Unknown header tag (PIDG)"));
    EXPECT_THAT(logMessages(), Not(Contains("ASSERT: DriverFilter readHeader: Unknown header tag (BIDG)")));
}

TEST_F(FilterProcessTest, ThePartOfAPageBeforeTheEndMarkIsDropped) {
    configure(order642135);
    const StreamOptions stream = streamOf(3);
    const std::string whole = makeStream(stream);
    const std::string third = makePage(stream, 3);
    const std::string input =
        whole.substr(0, whole.size() - 4 - third.size()) + third.substr(0, 64 + 32 + 321) + "JIDG";
    const ProcessResult result = print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), input);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(printed(stream, duplex, "2 1*")));
    EXPECT_THAT(logMessages(), Contains("DriverFilter copyPageFrom: eoj at tag: 2"));
}

TEST_F(FilterProcessTest, ASpoolFileThatCannotBeMadeFailsTheJob) {
    // A file system with room for its own directory alone.
    ASSERT_EQ(mount("tmpfs", spoolFolder, "tmpfs", 0, "nr_inodes=1"), 0);
    const ProcessResult result =
        print(JobOptions{.duplexing = 2, .sidesImaged = 2}.argument(), makeStream(streamOf(2)));
    EXPECT_EQ(umount(spoolFolder), 0);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output), BytesAre(cancelRecord()));
    EXPECT_THAT(logMessages(),
                testing::IsSupersetOf({"ASSERT: DriverFilter spoolPages: cupsTempFd failed",
                                       "DriverFilter spoolPages: copied 0 pages, eoj: 0, result 0",
                                       "ASSERT: spoolPages error"}));
}

// Outputs that fail, and signals

/// Runs a job whose output fails: the error line is repeated until SIGTERM, then the job ends with status 1.
void expectErrorUntilSigterm(const Command &command) {
    test::Process process(command);
    EXPECT_TRUE(process.waitUntil([&] { return countOf(process.errors(), commError) >= 3; }))
        << process.errors();
    EXPECT_FALSE(process.hasEnded());
    process.send(SIGTERM);
    const ProcessResult result = process.finish();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(linesOf(result.errors).front(), "file");
    EXPECT_EQ(countOf(result.errors, commError), static_cast<long>(linesOf(result.errors).size()) - 1);
}

TEST_P(OneAndTwoSidedJobs, AClosedStandardOutputRepeatsTheErrorUntilSigterm) {
    Command command = this->command(JobOptions{.duplexing = duplexing}.argument(), makeStream(streamOf(2)));
    command.output = test::Closed{};
    expectErrorUntilSigterm(command);
    expectNothingLeft();
    // Neither the log nor a spool file has taken the place of standard output.
    EXPECT_THAT(logMessages(),
                Contains("ASSERT: DriverFilter writeToFD: Unable to write all of data. Wanted 120 "
                         "bytes, got -1 bytes"));
    EXPECT_EQ(test::readFile(debugLogPath).find("GDIJ"), std::string::npos);
}

TEST_F(FilterProcessTest, AFullStandardOutputRepeatsTheErrorUntilSigterm) {
    Command command = this->command("", makeStream(streamOf(2)));
    command.output = test::File{"/dev/full"};
    expectErrorUntilSigterm(command);
    EXPECT_THAT(logMessages(), testing::IsSupersetOf({"DriverFilter sendPages: Sending EOJ",
                                                      "ASSERT: DriverFilter sendPages: failed to send EOJ",
                                                      "ASSERT: sendPages error"}));
}

TEST_P(OneAndTwoSidedJobs, AClosedStandardInputIsAStreamThatCannotBeRead) {
    Command command = this->command(JobOptions{.duplexing = duplexing}.argument(), "");
    command.input = test::Closed{};
    const ProcessResult result = runToEnd(command);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(Bytes(result.output), BytesAre(cancelRecord()));
    EXPECT_EQ(result.errors, "file\n");
    EXPECT_THAT(logMessages(), testing::IsSupersetOf({"ASSERT: DriverFilter readFromFD: Wanted 36 bytes, "
                                                      "got -1 bytes. Error: Bad file descriptor",
                                                      "ASSERT: read uuid error"}));
}

/// Whether the process has yet to take this signal.
bool isPending(int signal, const test::Process &process) {
    const std::string field = "ShdPnd:";
    for (const std::string &line :
         linesOf(test::readFile("/proc/" + std::to_string(process.id()) + "/status"))) {
        if (line.starts_with(field)) {
            return (std::stoull(line.substr(field.size()), nullptr, 16) >> (signal - 1) & 1U) != 0;
        }
    }
    ADD_FAILURE() << "the system does not tell the pending signals";
    return false;
}

TEST_F(FilterProcessTest, AWriteThatIsCutShortIsGoneOnWith) {
    StreamOptions stream = streamOf(1);
    stream.planeSizes = dealtOut(1000000);
    test::writeFile("/tmp/input.str", makeStream(stream));
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    Command command = this->command("", "");
    command.input = test::File{"/tmp/input.str"};
    command.output = test::Descriptor{ends[1]};
    test::Process process(command);
    close(ends[1]);
    EXPECT_TRUE(process.waitUntil([&ends] {
        int waiting = 0;
        EXPECT_EQ(ioctl(ends[0], FIONREAD, &waiting), 0);
        return waiting > 100000; // a part of the first band
    }));
    // A write that waits for room in the pipe returns with what it has written so far when a signal comes.
    process.send(SIGTERM);
    EXPECT_TRUE(process.waitUntil([&process] { return !isPending(SIGTERM, process); }));
    std::string output;
    std::array<char, 65536> block{};
    for (ssize_t got = 1; got > 0;) {
        got = read(ends[0], block.data(), block.size());
        output.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    close(ends[0]);
    EXPECT_EQ(process.finish().exitStatus, 0);
    EXPECT_THAT(Bytes(output), BytesAre(printed(stream, unmarked, "1")));
}

TEST_F(FilterProcessTest, ABrokenPipeIsLoggedAndDoesNotEndTheJob) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    Command command = this->command("", makeStream(streamOf(2)));
    command.output = test::Descriptor{ends[1]};
    expectErrorUntilSigterm(command);
    close(ends[1]);
    EXPECT_THAT(logMessages(), Contains("Detected SIGPIPE"));
    EXPECT_THAT(logMessages(), Contains("Detected SIGTERM"));
}

TEST_F(FilterProcessTest, AFullTemporaryDirectoryRepeatsTheErrorUntilSigterm) {
    ASSERT_EQ(mount("tmpfs", spoolFolder, "tmpfs", 0, "size=64k"), 0);
    StreamOptions stream = streamOf(40);
    stream.planeSizes = dealtOut(8192);
    Command command =
        this->command(JobOptions{.duplexing = 2, .sidesImaged = 40}.argument(), makeStream(stream));
    expectErrorUntilSigterm(command);
    expectNothingLeft();
    EXPECT_THAT(logMessages(), Contains("ASSERT: spoolPages error"));
    EXPECT_THAT(logMessages(), Contains(AnyOf("ASSERT: DriverFilter copyPageFrom: failed to write header",
                                              "ASSERT: DriverFilter copyPageFrom: failed to write data")));
    EXPECT_EQ(umount(spoolFolder), 0);
}

TEST_P(OneAndTwoSidedJobs, SigtermDoesNotEndAJobThatIsReading) {
    configure(order642135);
    const StreamOptions stream = streamOf(4);
    const std::string input = makeStream(stream);
    Command command = this->command(JobOptions{.duplexing = duplexing, .sidesImaged = 4}.argument(), "");
    command.input = test::Pipe{};
    test::Process process(command);
    process.write(input.substr(0, input.size() / 2));
    EXPECT_TRUE(process.waitUntil([] { return hasLogged("DriverFilter copyPageFrom: done with page"); }));
    process.send(SIGTERM);
    process.write(input.substr(input.size() / 2));
    process.closeInput();
    const ProcessResult result = process.finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre((duplexing == 0 ? printed(stream, unmarked, "1 2 3 4")
                                                               : printed(stream, duplex, "4 2 1* 3"))));
    expectNothingLeft();
}

class LostPages : public test::FilterFixture, public testing::WithParamInterface<int> {};

TEST_P(LostPages, FailATwoSidedJobOnlyIfTheyAreTheLast) {
    // A page that fails while others follow: its spool file is gone by the time it is to be sent.
    configure(order642135);
    const StreamOptions stream = streamOf(4);
    const std::string input = makeStream(stream);
    const int lost = GetParam(); // sent in the order 4 2 1 3
    Command command = this->command(JobOptions{.duplexing = 2, .sidesImaged = 4}.argument(), "");
    command.input = test::Pipe{};
    test::Process process(command);
    process.write(input.substr(0, input.size() - 4));
    std::vector<std::string> files;
    EXPECT_TRUE(process.waitUntil([&] {
        if (!std::filesystem::exists(debugLogPath)) {
            return false;
        }
        files.clear();
        for (const std::string &line : linesOf(test::readFile(debugLogPath))) {
            if (const auto at = line.find("to file: "); at != std::string::npos) {
                files.push_back(line.substr(at + 9));
            }
        }
        return files.size() == 4;
    }));
    ASSERT_EQ(files.size(), 4U);
    std::filesystem::remove(files[static_cast<std::size_t>(lost)]);
    process.write("JIDG");
    process.closeInput();
    const ProcessResult result = process.finish();
    const bool lastPageLost = lost == 2;
    EXPECT_EQ(result.exitStatus, lastPageLost ? 1 : 0);
    EXPECT_THAT(Bytes(result.output),
                BytesAre((lastPageLost ? printed(stream, duplex, "4 2 1*") + cancelRecord()
                                       : printed(stream, duplex, "4 1* 3"))));
    EXPECT_THAT(logMessages(), Contains("ASSERT: DriverFilter unspoolPages (not-collated): copyPageFromPath "
                                        "failed on index " +
                                        std::string(lastPageLost ? "3" : "1")));
    EXPECT_THAT(logMessages(), Contains("ASSERT: DriverFilter copyPageFromPath: unable to open file: <file " +
                                        std::to_string(lost) + ">"));
    expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Pages, LostPages, testing::Values(1, 2),
                         [](const auto &test) { return test.param == 2 ? "Last" : "NotLast"; });

TEST_F(FilterProcessTest, TheLogMayComeOnInMidJob) {
    std::filesystem::remove(debugMarkerPath);
    const StreamOptions stream = streamOf(2);
    const std::string input = makeStream(stream);
    const std::size_t lastBand = 32 + 321;
    Command command = this->command("", "");
    command.input = test::Pipe{};
    test::Process process(command);
    // All but the end of the last band: the filter waits for it, with everything before that band written.
    process.write(input.substr(0, input.size() - 10));
    EXPECT_TRUE(
        process.waitUntil([&] { return process.output().size() == input.size() - 36 - 4 - lastBand; }));
    EXPECT_FALSE(std::filesystem::exists(debugLogPath));
    test::writeFile(debugMarkerPath, "");
    process.write(input.substr(input.size() - 10));
    process.closeInput();
    EXPECT_EQ(process.finish().exitStatus, 0);
    EXPECT_EQ(logMessages().front(), "DriverFilter copyPageFrom: done with page");
}

TEST_F(FilterProcessTest, TheLogGoesToStandardErrorWhereItsFileCannotBeOpened) {
    std::filesystem::create_directory(debugLogPath);
    const ProcessResult result = print("", makeStream(streamOf(1)));
    EXPECT_EQ(result.exitStatus, 0);
    const std::vector<std::string> lines = linesOf(result.errors);
    EXPECT_EQ(lines.front(),
              "DEBUG: Unable to open debug log for writing, switching to stderr: Is a directory");
    EXPECT_THAT(lines, Contains("file"));
    EXPECT_THAT(lines.back(), testing::EndsWith("veltrin ending with result 0"));
}

TEST_F(FilterProcessTest, WithoutADeviceURIThereIsNobodyToPrintTo) {
    environment.erase("DEVICE_URI");
    const ProcessResult result = print("", makeStream(streamOf(1)));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "(null)\n");
    EXPECT_THAT(
        logMessages(),
        ElementsAre("veltrin starting", "CUPSFilter initWithArgc:argv", "AppleLanguages = \"en.UTF-8\"",
                    "CUPSFilter init exiting with result: 1",
                    "DriverFilter init: allocating IPC for URI: (null)",
                    "DriverFilter init: failed to allocate IPC", "DriverFilter dealloc: ", "ASSERT: Bad self",
                    "CUPSFilter initWithArgc:argv exiting with result: 0", "veltrin ending with result 1"));
}

} // namespace
} // namespace veltrin
