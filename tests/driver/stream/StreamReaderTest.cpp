#include "driver/stream/StreamReader.h"

#include "driver/stream/StreamMaker.h"
#include "tests/driver/stream/Events.h"
#include "tests/driver/stream/StreamPieces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::band;
using test::cancel;
using test::endOfJob;
using test::identifier;
using test::readPieces;
using test::ReadStream;
using test::reset;
using testing::ElementsAre;
using testing::ElementsAreArray;

StreamOptions smallPages() {
    StreamOptions options;
    options.pages = 9;
    options.bandsPerPage = 2;
    options.planeSizes = {5, 4, 3, 2};
    return options;
}

std::string job() {
    return makeJobHeaders(smallPages()).substr(0, 120);
}

std::string jobEx() {
    return makeJobHeaders(smallPages()).substr(120);
}

std::string headers() {
    return job() + jobEx();
}

/// 64 + 2 * (32 + 14) = 156 bytes.
std::string page(std::uint32_t number) {
    return makePage(smallPages(), number);
}

/// The page without its second, last band: 110 bytes.
std::string cutPage(std::uint32_t number) {
    return page(number).substr(0, 110);
}

std::string pageHeader() {
    return page(1).substr(0, 64);
}

TEST(CommandRecords, StandOnTheWireAsThePrinterKnowsThem) {
    EXPECT_EQ(reset, "GDIC GDIREND    ");
    EXPECT_EQ(cancel, std::string("GDIC CANCEL    ") + '\0');
}

TEST(StreamReader, ReportsTheRenderersStreamPartByPart) {
    const ReadStream read = readPieces({identifier + headers() + page(1) + page(2) + endOfJob});
    EXPECT_THAT(read.events, ElementsAre("identifier " + identifier + " at 0", "file header at 36",
                                         "extended file header at 156", "page 1 at 308 bands 2 data 28",
                                         "page 2 at 464 bands 2 data 28", "end of job at 620"));
    EXPECT_TRUE(read.wellFormed);
    EXPECT_EQ(read.totals.bytes, 624U);
    EXPECT_EQ(read.totals.unread, 0U);
    EXPECT_EQ(read.totals.pages, 2U);
    EXPECT_EQ(read.totals.bands, 4U);
    EXPECT_EQ(read.totals.dataBytes, 56U);
    EXPECT_TRUE(read.totals.endOfJob);
    EXPECT_FALSE(read.totals.cancelled);
    ASSERT_EQ(read.pages.size(), 2U);
    EXPECT_EQ(read.pages[0].announced.black, 10U);
    EXPECT_EQ(read.pages[0].announced.yellow, 8U);
    EXPECT_EQ(read.pages[0].announced.magenta, 6U);
    EXPECT_EQ(read.pages[0].announced.cyan, 4U);
}

TEST(StreamReader, ReportsThePrintersStreamWithItsCommands) {
    const ReadStream read = readPieces({reset + headers() + page(1) + endOfJob + reset + cancel});
    EXPECT_THAT(read.events,
                ElementsAre("command " + reset + " at 0", "file header at 16", "extended file header at 136",
                            "page 1 at 288 bands 2 data 28", "end of job at 444",
                            "command " + reset + " at 448", "command " + cancel + " at 464"));
    EXPECT_TRUE(read.wellFormed);
    EXPECT_TRUE(read.totals.endOfJob);
    EXPECT_TRUE(read.totals.cancelled);
}

TEST(StreamReader, TakesAJobCancelledBeforeItBeganAsWellFormed) {
    EXPECT_TRUE(readPieces({cancel}).wellFormed);
    const ReadStream read = readPieces({reset + cancel});
    EXPECT_TRUE(read.wellFormed);
    EXPECT_TRUE(read.totals.cancelled);
    EXPECT_FALSE(read.totals.endOfJob);
}

TEST(StreamReader, TakesAJobWithoutPagesAsWellFormed) {
    EXPECT_TRUE(readPieces({headers() + endOfJob}).wellFormed);
}

TEST(StreamReader, TakesBandsWithoutDataAsTheyAre) {
    const ReadStream read =
        readPieces({headers() + pageHeader() + band(0, 0, 0, 0, 0) + band(2, 0, 0, 0, 0) + endOfJob});
    EXPECT_TRUE(read.wellFormed);
    ASSERT_EQ(read.pages.size(), 1U);
    EXPECT_EQ(read.pages[0].bands, 2U);
    EXPECT_EQ(read.pages[0].received, 0U);
}

TEST(StreamReader, KnowsTheLastBandByItsBitAlone) {
    const auto complete = [](std::uint32_t setting) {
        const ReadStream read =
            readPieces({headers() + pageHeader() + band(setting, 1, 0, 0, 0, "k") + endOfJob});
        return read.pages.at(0).complete;
    };
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(complete(std::uint32_t{1} << bit), bit == 1) << bit;
    }
    EXPECT_TRUE(complete(0xFFFFFFFFU));
}

struct BrokenStream {
    const char *name;
    std::string stream;
    std::vector<std::string> problems;
    IdentifierRule rule = IdentifierRule::detect;
};

void PrintTo(const BrokenStream &test, std::ostream *out) {
    *out << test.name;
}

class BrokenStreamTest : public testing::TestWithParam<BrokenStream> {};

TEST_P(BrokenStreamTest, IsReportedWithItsOffset) {
    const ReadStream read = readPieces({GetParam().stream}, GetParam().rule);
    EXPECT_THAT(read.problems, ElementsAreArray(GetParam().problems));
    EXPECT_EQ(read.totals.problems, read.problems.size());
    EXPECT_FALSE(read.wellFormed);
    EXPECT_EQ(read.totals.bytes, GetParam().stream.size());
}

std::vector<BrokenStream> brokenStreams() {
    const std::string beforeAnyPage = "missing-extended-file-header at 120";
    return {
        {"Empty", "", {"empty-input at 0"}},
        {"EmptyWhereAnIdentifierBelongs", "", {"empty-input at 0"}, IdentifierRule::present},
        {"InsideTheIdentifier", identifier.substr(0, 35), {"truncated-identifier at 0"}},
        {"InsideTheFirstFourBytesOfAnIdentifier",
         "iii",
         {"truncated-identifier at 0"},
         IdentifierRule::present},
        {"InsideTheFirstTag", "GDI", {"truncated-tag at 0"}},
        {"AfterTheIdentifier",
         identifier,
         {"missing-file-header at 36", "missing-extended-file-header at 36", "missing-end-of-job at 36"}},
        {"InsideATag", headers() + "G", {"truncated-tag at 272"}},
        {"InsideTheTagAfterAPage", headers() + page(1) + "JID", {"truncated-tag at 428"}},
        {"AfterATag", headers() + "GDIP", {"truncated-header at 272"}},
        {"InsideTheFileHeader", identifier + job().substr(0, 119), {"truncated-header at 36"}},
        {"InsideTheExtendedHeader", job() + jobEx().substr(0, 151), {"truncated-header at 120"}},
        {"InsideAPageHeader", headers() + page(1).substr(0, 63), {"truncated-header at 272"}},
        {"InsideABandHeader", headers() + page(1).substr(0, 64 + 31), {"truncated-header at 336"}},
        {"BeforeABandsData", headers() + page(1).substr(0, 64 + 32), {"truncated-data at 336"}},
        {"InsideABandsData", headers() + page(1).substr(0, 155), {"truncated-data at 382"}},
        {"InsideACommand", reset.substr(0, 15), {"truncated-command at 0"}},
        {"InsideACancelRecord", headers() + endOfJob + cancel.substr(0, 15), {"truncated-command at 276"}},

        {"UnknownTag", headers() + page(1) + "PIDG" + page(2) + endOfJob, {"unknown-tag at 428"}},
        {"UnknownTagInsideAPage", headers() + cutPage(1) + "PIDG", {"unknown-tag at 382"}},
        {"UnknownTagAfterTheIdentifier", identifier + "\x01\x02\xFFX", {"unknown-tag at 36"}},
        {"IdentifierWhereNoneBelongs",
         identifier + headers() + endOfJob,
         {"unknown-tag at 0"},
         IdentifierRule::absent},
        {"NoIdentifierWhereOneBelongs", headers() + endOfJob, {"unknown-tag at 36"}, IdentifierRule::present},
        {"TagInTheOtherByteOrder", headers() + "BIDG", {"unknown-tag at 272"}},

        {"NoFileHeader", jobEx() + page(1) + endOfJob, {"missing-file-header at 152"}},
        {"NoExtendedHeader", job() + page(1) + endOfJob, {beforeAnyPage}},
        {"NoHeadersBeforeTheEnd",
         endOfJob,
         {"missing-file-header at 0", "missing-extended-file-header at 0"}},
        {"NoHeadersBeforeABand",
         band(2, 0, 0, 0, 0) + endOfJob,
         {"missing-file-header at 0", "missing-extended-file-header at 0", "band-outside-page at 0"}},
        {"TwoFileHeaders", job() + headers() + endOfJob, {"duplicate-file-header at 120"}},
        {"TwoExtendedHeaders", headers() + jobEx() + endOfJob, {"duplicate-extended-file-header at 272"}},
        {"ExtendedHeaderFirst", jobEx() + job() + page(1) + endOfJob, {"header-out-of-order at 152"}},
        {"FileHeaderAfterAPage",
         jobEx() + page(1) + job() + endOfJob,
         {"missing-file-header at 152", "header-out-of-order at 308"}},
        {"ExtendedHeaderAfterAPage",
         job() + page(1) + jobEx() + endOfJob,
         {beforeAnyPage, "header-out-of-order at 276"}},
        {"StrayFileHeaderInsideAPage",
         headers() + cutPage(1) + job() + page(1).substr(110) + endOfJob,
         {"duplicate-file-header at 382"}},

        {"BandBeforeAnyPage",
         headers() + band(0, 1, 0, 0, 0, "k") + page(1) + endOfJob,
         {"band-outside-page at 272"}},
        {"BandAfterTheLastBand",
         headers() + page(1) + band(2, 0, 1, 0, 0, "y") + endOfJob,
         {"band-outside-page at 428"}},
        {"NextPageBeforeTheLastBand",
         headers() + cutPage(1) + page(2) + endOfJob,
         {"page-without-last-band at 272"}},
        {"EndOfJobBeforeTheLastBand", headers() + cutPage(1) + endOfJob, {"page-without-last-band at 272"}},
        {"PageWithoutBands", headers() + pageHeader() + endOfJob, {"page-without-last-band at 272"}},
        {"EndOfInputBeforeTheLastBand",
         headers() + cutPage(1),
         {"page-without-last-band at 272", "missing-end-of-job at 382"}},
        {"NoEndOfJob", headers() + page(1), {"missing-end-of-job at 428"}},
        {"NoPagesAndNoEndOfJob", headers(), {"missing-end-of-job at 272"}},

        {"NegativeSize",
         headers() + pageHeader() + band(0, 0x80000000U, 0, 0, 0) + page(2) + endOfJob,
         {"negative-band-size at 336"}},
        {"SmallestSumThatIsNegative",
         headers() + pageHeader() + band(2, 0x7FFFFFFFU, 0, 0, 1),
         {"negative-band-size at 336"}},
        {"LargestNegativeSize",
         headers() + pageHeader() + band(2, 0xFFFFFFFFU, 0, 0, 0),
         {"negative-band-size at 336"}},
        {"SumThatWrapsIntoANegativeSize",
         headers() + pageHeader() + band(2, 0xFFFFFFFFU, 0xFFFFFFFFU, 0, 0),
         {"negative-band-size at 336"}},
        {"WrappedSize",
         headers() + pageHeader() + band(2, 0xFFFFFFFFU, 0, 0, 4, "abc") + endOfJob,
         {"wrapped-band-size at 336"}},
        {"SizeThatWrapsToNothing",
         headers() + pageHeader() + band(2, 0x40000000U, 0x40000000U, 0x40000000U, 0x40000000U) + endOfJob,
         {"wrapped-band-size at 336"}},

        {"BytesAfterTheEnd", headers() + endOfJob + "more bytes", {"bytes-after-end at 276"}},
        {"ByteAfterTheEnd", headers() + endOfJob + "\n", {"bytes-after-end at 276"}},
        {"SecondEndOfJob", headers() + endOfJob + endOfJob, {"bytes-after-end at 276"}},
        {"SecondJob", headers() + endOfJob + headers() + endOfJob, {"bytes-after-end at 276"}},
        {"BytesAfterACancelRecord", headers() + endOfJob + cancel + "JIDG", {"bytes-after-end at 292"}},
        {"CommandAfterACancelRecord", headers() + endOfJob + cancel + reset, {"bytes-after-end at 292"}},

        {"UnknownCommand", headers() + endOfJob + "GDIC CANCEL     ", {"unknown-command at 276"}},
        {"ResetInsideAJob", headers() + reset + page(1) + endOfJob, {"command-inside-job at 272"}},
        {"ResetAfterTheIdentifier", identifier + reset + headers() + endOfJob, {"command-inside-job at 36"}},
        {"CancelInsideAPage",
         headers() + cutPage(1) + cancel,
         {"command-inside-job at 382", "page-without-last-band at 272"}},
        {"ResetAlone",
         reset,
         {"missing-file-header at 16", "missing-extended-file-header at 16", "missing-end-of-job at 16"}},
    };
}

INSTANTIATE_TEST_SUITE_P(Streams, BrokenStreamTest, testing::ValuesIn(brokenStreams()),
                         [](const auto &test) { return std::string(test.param.name); });

struct ProblemText {
    std::string problem;
    std::string stream;
    std::string text;
    ReaderOptions options = {};
};

constexpr ReaderOptions locating = {.afterFault = AfterFault::locate, .bands = false};
constexpr ReaderOptions resuming = {.afterFault = AfterFault::resume, .bands = false};

TEST(StreamReader, TellsWhatIsWrongInWords) {
    const std::string longBand = band(0, 0xFFFFFFFEU, 0, 0, 0);
    const ProblemText tests[] = {
        {"empty-input at 0", "", "the input is empty"},
        {"empty-input at 0", "", "the input is empty: nothing was written to it", locating},
        {"truncated-identifier at 0", identifier.substr(0, 35),
         "the input ends at byte 35, inside the identifier (35 of 36 bytes)"},
        {"truncated-tag at 272", headers() + "GD", "the input ends at byte 274, inside a tag (2 of 4 bytes)"},
        {"truncated-header at 0", job().substr(0, 7),
         "the input ends at byte 7, inside a job file header (7 of 120 bytes)"},
        {"truncated-header at 120", job() + jobEx().substr(0, 30),
         "the input ends at byte 150, inside an extended job file header (30 of 152 bytes)"},
        {"truncated-header at 272", headers() + page(1).substr(0, 10),
         "the input ends at byte 282, inside a page header (10 of 64 bytes)"},
        {"truncated-header at 336", headers() + page(1).substr(0, 70),
         "the input ends at byte 342, inside a band header (6 of 32 bytes)"},
        {"truncated-data at 336", headers() + page(1).substr(0, 100),
         "the input ends at byte 372, inside a band's data (4 of 14 bytes)"},
        {"truncated-command at 276", headers() + endOfJob + cancel.substr(0, 9),
         "the input ends at byte 285, inside a command record (9 of 16 bytes)"},
        {"unknown-tag at 272", headers() + "PI\x07\xFE",
         "unknown tag hex 50 49 07 fe (PI..); the rest is not read"},
        {"unknown-tag at 272", headers() + "~\x7F \x1F",
         "unknown tag hex 7e 7f 20 1f (~. .); the rest is not read", locating},
        {"unknown-tag at 272", headers() + "PIDG", "unknown tag hex 50 49 44 47 (PIDG)", resuming},
        {"missing-file-header at 0", endOfJob, "the job file header is missing"},
        {"missing-extended-file-header at 0", endOfJob, "the extended job file header is missing"},
        {"duplicate-file-header at 120", job() + job(), "a second job file header"},
        {"duplicate-extended-file-header at 272", headers() + jobEx(), "a second extended job file header"},
        {"header-out-of-order at 152", jobEx() + job(), "the job file header does not come first"},
        {"header-out-of-order at 276", job() + page(1) + jobEx(),
         "the extended job file header does not come before the pages"},
        {"band-outside-page at 272", headers() + band(0, 0, 0, 0, 0), "a band outside a page"},
        {"page-without-last-band at 272", headers() + pageHeader() + endOfJob,
         "a page without its last band"},
        {"negative-band-size at 336", headers() + pageHeader() + longBand,
         "a band's plane sizes make the negative size -2 in the format's 32 bits; the rest is not read"},
        {"negative-band-size at 336", headers() + pageHeader() + longBand,
         "a band's plane sizes make the negative size -2 in the format's 32 bits", resuming},
        {"wrapped-band-size at 336", headers() + pageHeader() + band(0, 0xFFFFFFFFU, 2, 0, 0, "k"),
         "a band's plane sizes, 4294967297 bytes, make the size 1 in the format's 32 bits; read as such"},
        {"unknown-command at 0", "GDIC REBOOT     ",
         "unknown command record hex 47 44 49 43 20 52 45 42 4f 4f 54 20 20 20 20 20 (GDIC REBOOT     )"},
        {"command-inside-job at 272", headers() + reset, "a command record before the end-of-job mark"},
        {"missing-end-of-job at 272", headers(), "the input ends without an end-of-job mark"},
        {"bytes-after-end at 276", headers() + endOfJob + "more", "there are bytes after the end of the job"},
        {"bytes-after-end at 276", headers() + endOfJob + "+", "there are bytes after the end of the job"},
        {"second-stream at 276", headers() + endOfJob + headers() + endOfJob,
         "a second stream begins at byte 276; a job prints the first one only", locating},
        {"second-stream at 276", headers() + endOfJob + headers() + endOfJob,
         "a second stream begins at byte 276; a job prints the first one only", resuming},
        {"second-stream at 552", headers() + endOfJob + headers() + endOfJob + headers(),
         "another stream begins at byte 552; a job prints the first one only", resuming},
        {"foreign-format at 0", "%!PS\n",
         "this is a PostScript document, not a page stream: it has to be rendered first", locating},
    };
    std::set<std::string> told;
    for (const ProblemText &test : tests) {
        SCOPED_TRACE(test.problem);
        EXPECT_THAT(readPieces({test.stream}, IdentifierRule::detect, test.options).events,
                    testing::Contains(test.problem + ": " + test.text));
        told.insert(test.problem.substr(0, test.problem.find(' ')));
    }
    for (int problem = 0; problem <= static_cast<int>(StreamProblem::foreignFormat); ++problem) {
        const std::string name = nameOf(static_cast<StreamProblem>(problem));
        EXPECT_NE(name, "");
        EXPECT_EQ(told.count(name), 1U) << name;
    }
}

TEST(StreamReader, HasANameForEveryPart) {
    EXPECT_EQ(partName(fileHeaderTag), "a job file header");
    EXPECT_EQ(partName(fileHeaderExTag), "an extended job file header");
    EXPECT_EQ(partName(pageHeaderTag), "a page header");
    EXPECT_EQ(partName(bandHeaderTag), "a band header");
    EXPECT_EQ(partName(endOfJobTag), "an end-of-job mark");
    EXPECT_EQ(partName(commandTag), "a command record");
    EXPECT_EQ(partName(Tag{}), "an unknown part");
}

struct LostStream {
    const char *name;
    std::string stream;
    std::vector<std::string> located;      ///< problems and what the search came to, the rest being left
    std::vector<std::string> resumed;      ///< the same where reading goes on
    std::vector<std::string> pagesResumed; ///< "number bands", and "incomplete"
    IdentifierRule rule = IdentifierRule::detect;
};

void PrintTo(const LostStream &test, std::ostream *out) {
    *out << test.name;
}

class LostStreamTest : public testing::TestWithParam<LostStream> {};

/// What was wrong, and what the searches came to; not the texts of the problems.
std::vector<std::string> faultsIn(const ReadStream &read) {
    std::vector<std::string> faults;
    for (const std::string &event : read.events) {
        const std::string problem = event.substr(0, event.find(": "));
        if (event.starts_with("nothing read") ||
            std::find(read.problems.begin(), read.problems.end(), problem) != read.problems.end()) {
            faults.push_back(problem);
        }
    }
    return faults;
}

std::vector<std::string> pagesIn(const ReadStream &read) {
    std::vector<std::string> texts;
    for (const PageRead &page : read.pages) {
        texts.push_back(std::to_string(page.header.wPageNumber.value()) + " " + std::to_string(page.bands) +
                        (page.complete ? "" : " incomplete"));
    }
    return texts;
}

TEST_P(LostStreamTest, IsSearchedForTheNextHeader) {
    const ReadStream read = readPieces({GetParam().stream}, GetParam().rule, locating);
    EXPECT_THAT(faultsIn(read), ElementsAreArray(GetParam().located));
    EXPECT_FALSE(read.wellFormed);
    EXPECT_EQ(read.totals.bytes, GetParam().stream.size());
    EXPECT_EQ(read.totals.skipped, 0U);
}

TEST_P(LostStreamTest, IsReadOnFromTheNextHeader) {
    const ReadStream read = readPieces({GetParam().stream}, GetParam().rule, resuming);
    EXPECT_THAT(faultsIn(read), ElementsAreArray(GetParam().resumed));
    EXPECT_THAT(pagesIn(read), ElementsAreArray(GetParam().pagesResumed));
    EXPECT_FALSE(read.wellFormed);
    EXPECT_EQ(read.totals.bytes, GetParam().stream.size());
}

TEST_P(LostStreamTest, IsSeenTheSameHoweverItIsCut) {
    const std::string &stream = GetParam().stream;
    for (const ReaderOptions &options : {locating, resuming}) {
        const std::vector<std::string> whole = readPieces({stream}, GetParam().rule, options).events;
        for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
            ASSERT_EQ(
                readPieces({stream.substr(0, cut), stream.substr(cut)}, GetParam().rule, options).events,
                whole)
                << cut;
        }
    }
}

std::vector<LostStream> lostStreams() {
    const std::string jobOf2 = headers() + page(1) + page(2) + endOfJob; // pages at 272 and 428, end at 584
    const std::string noTag = "XXXX";                                    // where a header's tag should stand
    const std::string noise(3000, 'n');
    const auto broken = [&jobOf2](std::size_t at, const std::string &bytes) {
        return std::string(jobOf2).replace(at, bytes.size(), bytes);
    };
    return {
        {"PageHeader",
         broken(272, "PIDG"),
         {"unknown-tag at 272", "nothing read at 272, next a page header at 428"},
         {"unknown-tag at 272", "nothing read at 272, next a page header at 428, goes on"},
         {"2 2"}},
        {"LastPageHeader",
         broken(428, noTag),
         {"unknown-tag at 428", "nothing read at 428, next an end-of-job mark at 584"},
         {"unknown-tag at 428", "nothing read at 428, next an end-of-job mark at 584, goes on"},
         {"1 2"}},
        {"BandHeader",
         broken(336, noTag),
         {"unknown-tag at 336", "nothing read at 336, next a band header at 382"},
         {"unknown-tag at 336", "nothing read at 336, next a band header at 382, goes on"},
         {"1 1 incomplete", "2 2"}},
        {"LastBandHeader",
         broken(382, noTag),
         {"unknown-tag at 382", "nothing read at 382, next a page header at 428"},
         {"unknown-tag at 382", "nothing read at 382, next a page header at 428, goes on"},
         {"1 1 incomplete", "2 2"}},
        {"EndOfJobMark",
         broken(584, noTag),
         {"unknown-tag at 584", "nothing read at 584, nothing next"},
         {"unknown-tag at 584", "nothing read at 584, nothing next"},
         {"1 2", "2 2"}},
        {"TwoFaults",
         broken(272, noTag).replace(584, 4, noTag),
         {"unknown-tag at 272", "nothing read at 272, next a page header at 428"},
         {"unknown-tag at 272", "nothing read at 272, next a page header at 428, goes on",
          "unknown-tag at 584", "nothing read at 584, nothing next"},
         {"2 2"}},
        {"FileHeader",
         noTag + jobOf2.substr(4),
         {"unknown-tag at 36", "nothing read at 36, next an extended job file header at 120"},
         {"unknown-tag at 36", "nothing read at 36, next an extended job file header at 120, goes on",
          "missing-file-header at 272"},
         {"1 2", "2 2"}},
        {"NegativeSize",
         headers() + pageHeader() + band(0, 0x80000000U, 0, 0, 0) + "data" + page(2) + endOfJob,
         {"negative-band-size at 336", "nothing read at 368, next a page header at 372"},
         {"negative-band-size at 336", "nothing read at 368, next a page header at 372, goes on"},
         {"1 1 incomplete", "2 2"}},
        {"NegativeSizeThatIsNothing",
         headers() + pageHeader() + band(0, 0x80000000U, 0, 0, 0) + band(2, 0, 0, 0, 0) + endOfJob,
         {"negative-band-size at 336", "nothing read at 368, next a band header at 368"},
         {"negative-band-size at 336", "nothing read at 368, next a band header at 368, goes on"},
         {"1 2 incomplete"}},
        {"ByteTooMany",
         headers() + "+" + page(1) + endOfJob,
         {"unknown-tag at 272", "nothing read at 272, next a page header at 273"},
         {"unknown-tag at 272", "nothing read at 272, next a page header at 273, goes on"},
         {"1 2"}},
        {"ByteTooFew",
         headers() + cutPage(1) + page(2).substr(1) + page(3) + endOfJob,
         {"unknown-tag at 382", "nothing read at 382, next a band header at 445"},
         {"unknown-tag at 382", "nothing read at 382, next a band header at 445, goes on"},
         {"1 3 incomplete", "3 2"}},
        {"TagsInsideTheNoise",
         headers() + noise + "GDIPGDIBGDIJGJETJIDGGDIC" + noise + page(2) + endOfJob,
         {"unknown-tag at 272", "nothing read at 272, next a page header at 6296"},
         {"unknown-tag at 272", "nothing read at 272, next a page header at 6296, goes on"},
         {"2 2"}},
        {"NoiseToTheEnd",
         headers() + page(1) + noise,
         {"unknown-tag at 428", "nothing read at 428, nothing next"},
         {"unknown-tag at 428", "nothing read at 428, nothing next"},
         {"1 2"}},
        {"CancelRecordBehindNoise",
         headers() + cutPage(1) + noise + cancel,
         {"unknown-tag at 382", "nothing read at 382, next a command record at 3382"},
         {"unknown-tag at 382", "nothing read at 382, next a command record at 3382, goes on",
          "command-inside-job at 3382"},
         {"1 1 incomplete"}},
        {"RubbishBeforeThePrintersStream",
         "\x01\x02" + jobOf2,
         {"unknown-tag at 0", "nothing read at 0, next a job file header at 2"},
         {"unknown-tag at 0", "nothing read at 0, next a job file header at 2, goes on"},
         {"1 2", "2 2"}},
        {"RubbishBeforeTheRenderersStream",
         "\x01\x02" + identifier + jobOf2,
         {"unknown-tag at 36", "nothing read at 36, next a job file header at 38"},
         {"unknown-tag at 36", "nothing read at 36, next a job file header at 38, goes on"},
         {"1 2", "2 2"}},
        {"IdentifierWhereNoneBelongs",
         identifier + jobOf2,
         {"unknown-tag at 0", "nothing read at 0, next a job file header at 36"},
         {"unknown-tag at 0", "nothing read at 0, next a job file header at 36, goes on"},
         {"1 2", "2 2"},
         IdentifierRule::absent},
        {"FewBytesOfNoise",
         identifier + "abcd",
         {"unknown-tag at 36", "nothing read at 36, nothing next"},
         {"unknown-tag at 36", "nothing read at 36, nothing next"},
         {}},

        {"Text", "some words\n", {"foreign-format at 0"}, {"foreign-format at 0"}, {}},
        {"TextAsLongAsAnIdentifier",
         std::string(35, 't') + " ",
         {"foreign-format at 0"},
         {"foreign-format at 0"},
         {}},
        {"TextALittleLonger",
         std::string(35, 't') + "  ",
         {"foreign-format at 0"},
         {"foreign-format at 0"},
         {}},
        {"LongText",
         std::string(1000, 't') + "\n" + noise,
         {"unknown-tag at 36", "nothing read at 36, nothing next"},
         {"unknown-tag at 36", "nothing read at 36, nothing next"},
         {}},
        {"TextWhereNoIdentifierBelongs",
         "some words\n",
         {"foreign-format at 0"},
         {"foreign-format at 0"},
         {},
         IdentifierRule::absent},
        {"TextWhereAnIdentifierBelongs",
         "no\n",
         {"foreign-format at 0"},
         {"foreign-format at 0"},
         {},
         IdentifierRule::present},
        {"PdfDocument", "%PDF-1.7\n" + noise, {"foreign-format at 0"}, {"foreign-format at 0"}, {}},
        {"PjlJob",
         "\x1B%-12345X@PJL\r\n" + jobOf2,
         {"foreign-format at 0", "nothing read at 0, next a job file header at 15"},
         {"foreign-format at 0", "nothing read at 0, next a job file header at 15, goes on"},
         {"1 2", "2 2"}},

        {"SecondStreamOfARenderer",
         identifier + headers() + page(1) + endOfJob + identifier + headers() + page(2) + endOfJob,
         {"second-stream at 468"},
         {"second-stream at 468"},
         {"1 2", "2 2"}},
        {"SecondStreamOfAPrinter",
         headers() + page(1) + endOfJob + headers() + page(2) + endOfJob,
         {"second-stream at 432"},
         {"second-stream at 432"},
         {"1 2", "2 2"}},
        {"SecondStreamWithItsExtendedHeaderAlone",
         headers() + endOfJob + jobEx() + page(2) + endOfJob,
         {"second-stream at 276"},
         {"second-stream at 276", "missing-file-header at 428"},
         {"2 2"}},
        {"SecondStreamWithAnIdentifierAndItsExtendedHeaderAlone",
         headers() + endOfJob + identifier + jobEx() + page(2) + endOfJob,
         {"second-stream at 276"},
         {"second-stream at 276", "missing-file-header at 464"},
         {"2 2"}},
        {"SecondStreamBehindACommand",
         headers() + endOfJob + reset + headers() + page(2) + endOfJob,
         {"second-stream at 292"},
         {"second-stream at 292"},
         {"2 2"}},
        {"SecondStreamBehindACancelRecord",
         headers() + cancel + identifier + headers() + page(2) + endOfJob,
         {"command-inside-job at 272", "second-stream at 288"},
         {"command-inside-job at 272", "second-stream at 288"},
         {"2 2"}},
        {"SecondStreamBehindRubbish",
         headers() + endOfJob + "\n" + headers() + page(2) + endOfJob,
         {"bytes-after-end at 276", "nothing read at 276, next a job file header at 277",
          "second-stream at 277"},
         {"bytes-after-end at 276", "nothing read at 276, next a job file header at 277, goes on",
          "second-stream at 277"},
         {"2 2"}},
        {"SecondStreamInPlaceOfTheFirstOnesEnd",
         headers() + page(1) + identifier + headers() + page(2) + endOfJob,
         {"unknown-tag at 428", "nothing read at 428, next a job file header at 464", "second-stream at 464"},
         {"unknown-tag at 428", "nothing read at 428, next a job file header at 464, goes on",
          "second-stream at 464"},
         {"1 2", "2 2"}},
        {"SecondStreamThatIsCut",
         headers() + endOfJob + identifier + headers() + page(2),
         {"second-stream at 276"},
         {"second-stream at 276", "missing-end-of-job at 740"},
         {"2 2"}},
        {"SecondStreamWithoutItsOwnHeaders",
         headers() + endOfJob + job() + page(2) + endOfJob,
         {"second-stream at 276"},
         {"second-stream at 276", "missing-extended-file-header at 396"},
         {"2 2"}},
        {"ThirdStream",
         headers() + endOfJob + headers() + endOfJob + headers() + endOfJob,
         {"second-stream at 276"},
         {"second-stream at 276", "second-stream at 552"},
         {}},
        {"LineFeedAfterTheEnd",
         headers() + endOfJob + "\n",
         {"bytes-after-end at 276"},
         {"bytes-after-end at 276"},
         {}},
        {"LinesAfterTheEnd",
         headers() + endOfJob + noise,
         {"bytes-after-end at 276"},
         {"bytes-after-end at 276"},
         {}},
        {"PageAfterTheEnd",
         headers() + endOfJob + page(1),
         {"bytes-after-end at 276"},
         {"bytes-after-end at 276"},
         {}},
        {"CommandAfterTheEndAndRubbish",
         headers() + endOfJob + "\n" + cancel,
         {"bytes-after-end at 276", "nothing read at 276, next a command record at 277"},
         {"bytes-after-end at 276", "nothing read at 276, next a command record at 277, goes on"},
         {}},
        {"CommandAfterACancelRecord",
         headers() + endOfJob + cancel + reset,
         {"bytes-after-end at 292"},
         {"bytes-after-end at 292"},
         {}},
        {"CommandAfterACancelRecordAndRubbish",
         headers() + endOfJob + cancel + "\n" + reset,
         {"bytes-after-end at 292"},
         {"bytes-after-end at 292"},
         {}},
    };
}

INSTANTIATE_TEST_SUITE_P(Streams, LostStreamTest, testing::ValuesIn(lostStreams()),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(StreamReader, ReadsAWellFormedStreamAlikeWhateverItDoesAfterFaults) {
    for (const std::string &stream :
         {identifier + headers() + page(1) + page(2) + endOfJob,
          headers() + page(1) + endOfJob + reset + cancel, reset + headers() + endOfJob,
          "%PDF-" + identifier.substr(5) + headers() + page(1) + endOfJob}) {
        const ReadStream plain = readPieces({stream});
        EXPECT_TRUE(plain.wellFormed);
        for (const ReaderOptions &options : {locating, resuming}) {
            const ReadStream read = readPieces({stream}, IdentifierRule::detect, options);
            EXPECT_EQ(read.events, plain.events);
            EXPECT_TRUE(read.wellFormed);
        }
    }
}

TEST(StreamReader, CountsWhatItSkips) {
    const std::string stream = headers() + "12345" + page(1) + "123" + page(2) + endOfJob + "1234567";
    const StreamTotals resumed = readPieces({stream}, IdentifierRule::detect, resuming).totals;
    EXPECT_EQ(resumed.skipped, 8U);
    EXPECT_EQ(resumed.unread, 7U);
    EXPECT_EQ(resumed.pages, 2U);
    EXPECT_EQ(resumed.problems, 3U);
    EXPECT_TRUE(resumed.endOfJob);
    const StreamTotals located = readPieces({stream}, IdentifierRule::detect, locating).totals;
    EXPECT_EQ(located.skipped, 0U);
    EXPECT_EQ(located.unread, stream.size() - headers().size());
    EXPECT_EQ(located.problems, 1U);
    EXPECT_EQ(readPieces({"%!PS"}, IdentifierRule::detect, locating).totals.unread, 4U);
    EXPECT_EQ(readPieces({headers() + endOfJob + headers()}, IdentifierRule::detect, locating).totals.unread,
              272U);
}

TEST(StreamReader, TellsOfTheLastStreamWhetherItEnded) {
    const std::string cancelled = headers() + endOfJob + cancel;
    const StreamTotals totals =
        readPieces({cancelled + headers() + endOfJob}, IdentifierRule::detect, resuming).totals;
    EXPECT_TRUE(totals.endOfJob);
    EXPECT_FALSE(totals.cancelled);
    EXPECT_FALSE(readPieces({cancelled + headers()}, IdentifierRule::detect, resuming).totals.endOfJob);
}

TEST(StreamReader, ReportsBandsWhenAskedTo) {
    const std::string stream = headers() + band(0, 1, 0, 0, 0, "k") + page(7) + endOfJob;
    EXPECT_THAT(
        readPieces({stream}, IdentifierRule::detect, {.afterFault = AfterFault::stop, .bands = true}).events,
        ElementsAre("file header at 0", "extended file header at 120", "band 0 of page 0 size 1 at 272",
                    "band-outside-page at 272: a band outside a page", "page begun 7 at 305",
                    "band 1 of page 7 at 305 size 14 at 369", "band 2 of page 7 at 305 size 14 at 415",
                    "page 7 at 305 bands 2 data 28", "end of job at 461"));
}

TEST(StreamReader, ReportsDataWhenAskedTo) {
    const std::string stream =
        headers() + pageHeader() + band(0, 2, 1, 0, 0, "kky") + band(2, 0, 0, 1, 1, "mc") + endOfJob;
    const ReaderOptions options = {.afterFault = AfterFault::stop, .bands = true, .data = true};
    const std::vector<std::string> cases[] = {{stream}, {stream.substr(0, 370), stream.substr(370)}};
    for (const std::vector<std::string> &pieces : cases) {
        const ReadStream read = readPieces(pieces, IdentifierRule::detect, options);
        EXPECT_EQ(read.data, "kkymc");
        EXPECT_THAT(read.events, testing::Contains("data 2 at 403"));
    }
    EXPECT_THAT(readPieces(cases[0], IdentifierRule::detect, options).events,
                testing::Contains("data 3 at 368"));
    EXPECT_THAT(readPieces(cases[1], IdentifierRule::detect, options).events,
                testing::IsSupersetOf({"data 2 at 368", "data 1 at 370"}));
    EXPECT_EQ(readPieces({stream}).data, "");
}

/// A stream that breaks off, while the input goes on with a record.
class StreamThatBreaksOff {
  public:
    explicit StreamThatBreaksOff(const std::string &bytes) {
        feed(bytes);
        toCome = reader.dataToCome();
        isLost = reader.isLost();
        reader.breakOff();
        feed(cancel);
        reader.finish();
    }

    std::uint64_t toCome = 0;
    bool isLost = false;
    std::vector<StreamProblem> problems;
    std::vector<bool> pages; ///< whether they are complete
    std::uint64_t commands = 0;

    [[nodiscard]] const StreamTotals &totals() const { return reader.totals(); }

  private:
    void feed(const std::string &bytes) { reader.feed(std::as_bytes(std::span(bytes))); }

    StreamReader reader{[this](const StreamEvent &event) {
                            if (const auto *found = std::get_if<ProblemFound>(&event)) {
                                problems.push_back(found->problem);
                            } else if (const auto *page = std::get_if<PageRead>(&event)) {
                                pages.push_back(page->complete);
                            } else if (std::holds_alternative<CommandRead>(event)) {
                                ++commands;
                            }
                        },
                        IdentifierRule::absent};
};

TEST(StreamReader, ReadsARecordBehindAStreamThatBreaksOff) {
    const StreamThatBreaksOff inData(headers() + page(1) + page(2).substr(0, 64 + 32 + 5));
    EXPECT_EQ(inData.toCome, 14U - 5U);
    EXPECT_FALSE(inData.isLost);
    EXPECT_THAT(inData.problems, ElementsAre(StreamProblem::truncatedData, StreamProblem::commandInsideJob));
    EXPECT_THAT(inData.pages, ElementsAre(true, false));
    EXPECT_EQ(inData.commands, 1U);
    EXPECT_TRUE(inData.totals().cancelled);
    EXPECT_EQ(inData.totals().unread, 0U);

    const StreamThatBreaksOff inHeader(headers() + page(1).substr(0, 63));
    EXPECT_EQ(inHeader.toCome, 0U);
    EXPECT_THAT(inHeader.problems,
                ElementsAre(StreamProblem::truncatedHeader, StreamProblem::commandInsideJob));
    EXPECT_EQ(inHeader.commands, 1U);

    const StreamThatBreaksOff lost("PIDGeons");
    EXPECT_TRUE(lost.isLost);
    EXPECT_THAT(lost.problems, ElementsAre(StreamProblem::unknownTag));
    EXPECT_EQ(lost.commands, 1U);
    EXPECT_EQ(lost.totals().unread, 8U);

    const StreamThatBreaksOff between(headers() + page(1));
    EXPECT_THAT(between.problems, ElementsAre(StreamProblem::commandInsideJob));
    EXPECT_THAT(between.pages, ElementsAre(true));
}

TEST(StreamReader, CountsWhatItCannotRead) {
    EXPECT_EQ(readPieces({headers() + "PIDG" + "1234567"}).totals.unread, 11U);
    EXPECT_EQ(readPieces({headers() + endOfJob + "1234567"}).totals.unread, 7U);
    EXPECT_EQ(readPieces({headers() + endOfJob + "123"}).totals.unread, 3U);
    EXPECT_EQ(readPieces({headers() + pageHeader() + band(2, 0x80000000U, 0, 0, 0) + "12345"}).totals.unread,
              5U);
}

TEST(StreamReader, ReportsAnIncompletePageBeforeItGivesUp) {
    for (const std::string &rest : {std::string("PIDG"), band(0, 0x80000000U, 0, 0, 0), std::string(),
                                    std::string("GDI"), band(0, 9, 0, 0, 0, "12")}) {
        const ReadStream read = readPieces({headers() + cutPage(1) + rest});
        ASSERT_EQ(read.pages.size(), 1U);
        EXPECT_FALSE(read.pages[0].complete);
        EXPECT_EQ(read.totals.pages, 1U);
    }
}

TEST(StreamReader, SeesTheSameInAStreamCutAnywhere) {
    const std::vector<std::string> streams = {
        identifier + headers() + page(1) + page(2) + endOfJob,
        reset + headers() + page(1) + endOfJob + reset + cancel,
        jobEx() + job() + cutPage(1) + page(2) + band(0, 1, 0, 0, 0, "k") + endOfJob + "rest",
        headers() + pageHeader() + band(2, 0xFFFFFFFFU, 0, 0, 4, "abc") + "PIDG and more",
    };
    for (const std::string &stream : streams) {
        const std::vector<std::string> whole = readPieces({stream}).events;
        for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
            ASSERT_EQ(readPieces({stream.substr(0, cut), stream.substr(cut)}).events, whole) << cut;
        }
        std::vector<std::string> bytes;
        for (const char byte : stream) {
            bytes.emplace_back(1, byte);
        }
        ASSERT_EQ(readPieces(bytes).events, whole);
    }
}

TEST(StreamReader, FindsEveryTruncationOfAStream) {
    const std::string stream = identifier + headers() + page(1) + page(2) + endOfJob;
    for (std::size_t length = 0; length < stream.size(); ++length) {
        const ReadStream read = readPieces({stream.substr(0, length)});
        EXPECT_FALSE(read.wellFormed) << length;
        EXPECT_EQ(read.totals.bytes, length);
    }
}

/// A stream with a few bytes changed, cut or doubled, the same in every run.
std::string damaged(const std::string &stream, std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    std::string result = stream;
    for (std::size_t changes = 1 + below(4); changes != 0; --changes) {
        const std::size_t at = below(result.size());
        switch (below(3)) {
        case 0:
            result[at] = static_cast<char>(below(256));
            break;
        case 1:
            result.erase(at, 1 + below(40));
            break;
        default:
            result.insert(at, result.substr(below(result.size()), below(200)));
            break;
        }
        if (result.empty()) {
            return result;
        }
    }
    return result;
}

TEST(StreamReader, AccountsForEveryByteOfADamagedStream) {
    const std::string stream = identifier + headers() + page(1) + page(2) + endOfJob + reset + cancel;
    for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        const std::string bytes = damaged(stream, seed);
        const ReadStream whole = readPieces({bytes});
        EXPECT_EQ(whole.totals.bytes, bytes.size());
        EXPECT_LE(whole.totals.dataBytes + whole.totals.unread, bytes.size());
        EXPECT_EQ(whole.wellFormed, whole.problems.empty());
        ASSERT_EQ(readPieces({bytes.substr(0, bytes.size() / 2), bytes.substr(bytes.size() / 2)}).events,
                  whole.events);
    }
}

/// The bytes of everything that the events tell of, but for band data.
std::uint64_t bytesOf(const ReadStream &read) {
    const std::pair<const char *, std::uint64_t> sizes[] = {
        {"identifier ", identifierSize},         {"file header", sizeof(FileHeader)},
        {"extended file", sizeof(FileHeaderEx)}, {"page begun", sizeof(PageHeader)},
        {"band ", sizeof(BandHeader)},           {"end of job", tagSize},
        {"command G", sizeof(CommandRecord)}};
    std::uint64_t sum = 0;
    for (const std::string &event : read.events) {
        for (const auto &[beginning, size] : sizes) {
            sum += event.starts_with(beginning) ? size : 0;
        }
    }
    return sum;
}

TEST(StreamReader, AccountsForEveryByteOfADamagedStreamThatItReadsOn) {
    const ReaderOptions options = {.afterFault = AfterFault::resume, .bands = true};
    const std::string stream = identifier + headers() + page(1) + page(2) + endOfJob + reset + cancel;
    std::uint64_t resumed = 0;
    std::uint64_t whole = 0;
    for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        const std::string bytes = damaged(stream, seed);
        const ReadStream read = readPieces({bytes}, IdentifierRule::detect, options);
        ASSERT_EQ(readPieces({bytes.substr(0, bytes.size() / 3), bytes.substr(bytes.size() / 3)},
                             IdentifierRule::detect, options)
                      .events,
                  read.events);
        EXPECT_EQ(read.totals.bytes, bytes.size());
        EXPECT_EQ(read.wellFormed, readPieces({bytes}).wellFormed);
        const bool isCut =
            testing::Matches(testing::Contains(testing::StartsWith("truncated-")))(read.problems);
        if (!isCut) {
            EXPECT_EQ(bytesOf(read) + read.totals.dataBytes + read.totals.skipped + read.totals.unread,
                      bytes.size())
                << testing::PrintToString(read.events);
            ++whole;
        }
        resumed += read.totals.skipped != 0 ? 1 : 0;
    }
    EXPECT_GT(resumed, 500U);
    EXPECT_GT(whole, 1500U);
}

TEST(StreamReader, ReadsBackWhatTheMakerWrote) {
    std::mt19937 random(7);
    const auto upTo = [&random](std::uint32_t limit) {
        return static_cast<std::uint32_t>(random() % (limit + 1));
    };
    for (int round = 0; round < 300; ++round) {
        StreamOptions options;
        options.pages = upTo(7);
        options.copies = 1 + upTo(4);
        options.order = static_cast<CopyOrder>(upTo(2));
        options.blankPage = upTo(1) != 0;
        options.bandsPerPage = 1 + upTo(5);
        options.planeSizes = {upTo(99), upTo(99), upTo(1) * 50, upTo(3)};
        options.paperSize = static_cast<std::uint8_t>(upTo(255));
        options.paperTray = static_cast<std::uint8_t>(upTo(255));
        options.mediaType = static_cast<std::uint8_t>(upTo(255));
        options.pageType = static_cast<std::uint8_t>(upTo(255));
        options.seed = random();
        if (upTo(1) != 0) {
            options.identifier.reset();
        }

        const std::string stream = makeStream(options);
        const ReadStream read = readPieces({stream});
        ASSERT_THAT(read.problems, testing::IsEmpty());
        EXPECT_EQ(read.totals.bytes, stream.size());
        const std::vector<std::uint32_t> order = pageOrder(options);
        ASSERT_EQ(read.pages.size(), order.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            const PageRead &page = read.pages[i];
            EXPECT_EQ(page.header.wPageNumber, order[i]);
            EXPECT_EQ(page.header.bPaperSize, options.paperSize);
            EXPECT_EQ(page.header.bPaperTray, options.paperTray);
            EXPECT_EQ(page.header.bMediaType, options.mediaType);
            EXPECT_EQ(page.header.bType, options.pageType);
            EXPECT_EQ(page.bands, options.bandsPerPage);
            EXPECT_TRUE(page.complete);
            const bool blank = order[i] > options.pages;
            EXPECT_EQ(page.received, blank ? 0 : options.planeSizes.total() * options.bandsPerPage);
            EXPECT_EQ(page.announced.cyan, blank ? 0 : options.planeSizes.cyan * options.bandsPerPage);
        }
    }
}

} // namespace
} // namespace veltrin
