#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"
#include "driver/stream/StreamReader.h"
#include "tests/support/Files.h"
#include "tools/dump/JsonReport.h"
#include "tools/dump/TextReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <span>
#include <sstream>
#include <string>
#include <vector>

// What the inspector writes of what it has read.

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr ReaderOptions locating = {.afterFault = AfterFault::locate, .bands = false};
constexpr ReaderOptions resuming = {.afterFault = AfterFault::resume, .bands = false};

const std::string reset(reverseDataReset.begin(), reverseDataReset.end());
const std::string cancel(cancelCommand.begin(), cancelCommand.end());

template <typename Report>
void showStream(const std::string &stream, ReaderOptions options, Report &report) {
    StreamReader reader([&report](const StreamEvent &event) { report.show(event); }, IdentifierRule::detect,
                        options);
    reader.feed(std::as_bytes(std::span(stream)));
    reader.finish();
    report.showTotals(reader.totals());
}

std::string textOf(const std::string &stream, ReaderOptions options = locating) {
    std::ostringstream out;
    TextReport report(out);
    showStream(stream, options, report);
    return out.str();
}

nlohmann::json jsonOf(const std::string &stream, ReaderOptions options = locating) {
    std::ostringstream out;
    JsonReport report(out, "-");
    showStream(stream, options, report);
    return nlohmann::json::parse(out.str());
}

/// The records of this kind.
std::vector<nlohmann::json> recordsOf(const nlohmann::json &document, const std::string &kind) {
    std::vector<nlohmann::json> records;
    for (const nlohmann::json &record : document["records"]) {
        if (record["kind"] == kind) {
            records.push_back(record);
        }
    }
    return records;
}

StreamOptions smallPage() {
    StreamOptions options;
    options.bandsPerPage = 1;
    options.planeSizes = {5, 4, 3, 2};
    options.paperSize = 9;
    options.paperTray = 2;
    return options;
}

std::string headers() {
    return makeJobHeaders(smallPage());
}

/// 64 + 32 + 14 = 110 bytes.
std::string page(const StreamOptions &options = smallPage()) {
    return makePage(options, 1);
}

/// A band header with nothing but these settings; the width and height are those of A4.
std::string emptyBand(std::uint32_t setting) {
    StreamOptions options = smallPage();
    options.planeSizes = {};
    std::string band = page(options).substr(sizeof(PageHeader));
    const BigEndian32 number(setting);
    std::memcpy(band.data() + tagSize, &number, sizeof number);
    return band;
}

TEST(TextReport, TellsWhichPaperThePagesAreForWhereItChanges) {
    StreamOptions other = smallPage();
    other.paperTray = 1;
    other.mediaType = 12;
    other.paperSize = 200;
    const std::string text =
        textOf(headers() + page() + page() + page(other) + page(other) + page() + "JIDG");
    const std::size_t table = text.find("      byte   page");
    EXPECT_EQ(text.substr(table, text.find("\n\n", table) - table),
              R"(      byte   page  bands        data  type
            tray 2 (Tray 1), media 1 (Plain), paper 9 (A4)
       272      1      1          14  0x00  plain
       382      1      1          14  0x00  plain
            tray 1 (Bypass Tray), media 12 (Thick (105-160g/m2)), paper 200 (unknown)
       492      1      1          14  0x00  plain
       602      1      1          14  0x00  plain
            tray 2 (Tray 1), media 1 (Plain), paper 9 (A4)
       712      1      1          14  0x00  plain)");
}

TEST(TextReport, NamesWhatTheTraysHold) {
    std::string job = headers();
    const std::string trays = {9, 1,  11, 8, 70,
                               1, 12, 16, 0, 99}; // sizes, the bypass tray's last, then types
    job.replace(sizeof(FileHeader) + 136, trays.size(), trays);
    const std::string text = textOf(job + "JIDG");
    EXPECT_THAT(text,
                HasSubstr("              tray 1         size 9 (A4), type 1 (Plain)\n"
                          "              tray 2         size 1 (Letter), type 12 (Thick (105-160g/m2))\n"
                          "              tray 3         size 11 (A5), type 16 (Plain (90-105g/m2))\n"
                          "              tray 4         size 8 (A3), type 0 (Plain Recycled)\n"
                          "              bypass tray    size 70 (A6), type 99 (unknown)\n"));
}

TEST(TextReport, SaysWhatEachRecordIs) {
    const std::string unknown = "GDIC REBOOT     ";
    const std::string text = textOf(reset + headers() + "JIDG" + unknown + cancel);
    EXPECT_THAT(text, HasSubstr("         0  reverse data reset record\n"));
    EXPECT_THAT(text, HasSubstr("       288  end-of-job mark\n"
                                "       292  unknown command record\n"));
    EXPECT_THAT(text, HasSubstr("       308  cancel record: the job was cancelled\n"));
    EXPECT_THAT(text, HasSubstr("\nThe job was cancelled.\n1 problem\n"));
}

TEST(TextReport, BreaksALongTextAtABlankAndKeepsTheOthers) {
    const std::string text = textOf(headers() + "JIDG" + "GDIC REBOOT     ");
    EXPECT_THAT(text,
                HasSubstr("       276  PROBLEM (at 0x114): unknown command record hex 47 44 49 43 20 52 45\n"
                          "              42 4f 4f 54 20 20 20 20 20 (GDIC REBOOT     )\n"));
}

TEST(TextReport, BreaksALineExactlyWhereItIsFull) {
    std::ostringstream out;
    TextReport report(out);
    const std::string prefix = "         0  PROBLEM (at 0x0): ";
    const std::string full(80 - prefix.size(), 'x');
    report.show(ProblemFound{0, StreamProblem::unknownTag, full});
    report.show(ProblemFound{0, StreamProblem::unknownTag, full + " y"});
    report.show(ProblemFound{0, StreamProblem::unknownTag, full + "x"});
    report.show(ProblemFound{0, StreamProblem::unknownTag, std::string(200, 'x')});
    const std::string indent = "\n" + std::string(14, ' ');
    EXPECT_EQ(out.str(), prefix + full + "\n" +                                            //
                             prefix + full + indent + "y\n" +                              //
                             prefix.substr(0, prefix.size() - 1) + indent + full + "x\n" + //
                             prefix.substr(0, prefix.size() - 1) + indent + std::string(200, 'x') + "\n");
}

TEST(TextReport, SaysWhereItMakesSenseAgain) {
    const std::string stream = headers() + "12345678" + page() + "JIDG";
    EXPECT_THAT(textOf(stream),
                HasSubstr("       272  PROBLEM (at 0x110): unknown tag hex 31 32 33 34 (1234); the "
                          "rest is\n              not read\n"
                          "       280  next header that makes sense (at 0x118): a page header, 8 "
                          "bytes on;\n              --resync goes on there\n"
                          "\n0 pages, 0 bands, 0 bytes of data; 394 bytes in all\n"
                          "The last 122 bytes were not read.\n1 problem\n"));
    EXPECT_THAT(textOf(stream, resuming),
                HasSubstr("       272  PROBLEM (at 0x110): unknown tag hex 31 32 33 34 (1234)\n"
                          "       280  goes on (at 0x118) with a page header; 8 bytes skipped\n"));
    EXPECT_THAT(textOf(stream, resuming), HasSubstr("1 page, 1 band, 14 bytes of data; 394 bytes in all\n"
                                                    "8 bytes were skipped.\n1 problem\n"));
    EXPECT_THAT(textOf(headers() + "12345678"),
                HasSubstr("       272  no header that makes sense follows\n"));
    EXPECT_THAT(textOf(headers() + "+" + page() + "JIDG+", resuming),
                HasSubstr("1 byte was skipped.\nThe last byte was not read.\n2 problems\n"));
}

TEST(TextReport, StaysWithinALine) {
    StreamOptions all = smallPage();
    all.pageType = pageTypeSecondOfSheet;
    const std::string cut = page(all).substr(0, 64);
    for (const std::string &stream :
         {headers() + cut + headers() + "JIDG", headers() + cut,
          "GDIC REBOOT     " + headers() + page() + "12345", headers() + "JIDG" + headers(),
          std::string("%PDF-1.7"), std::string("PK\x03\x04"), std::string("<html>"),
          std::string("\x1B%-12345X"), std::string("RaS2")}) {
        for (const bool bands : {false, true}) {
            std::istringstream lines(textOf(stream, {.afterFault = AfterFault::locate, .bands = bands}));
            for (std::string line; std::getline(lines, line);) {
                EXPECT_LE(line.size(), 80U) << line;
            }
        }
    }
}

TEST(TextReport, ListsBandsUnderTheirPage) {
    const std::string text = textOf(headers() + emptyBand(0) + page().substr(0, 64) + emptyBand(0) +
                                        emptyBand(0x80000005) + emptyBand(0x3) + page() + "JIDG",
                                    {.afterFault = AfterFault::locate, .bands = true});
    EXPECT_EQ(text.substr(text.find("bypass tray")),
              R"(bypass tray    size 0 (unknown), type 0 (Plain Recycled)

      byte   band     black    yellow   magenta      cyan  width  lines
       272      -         0         0         0         0   4960   7016
       272  PROBLEM (at 0x110): a band outside a page

       304  page 1
              type           0x00  plain
              paper          tray 2 (Tray 1), media 1 (Plain), paper 9 (A4)

      byte   band     black    yellow   magenta      cyan  width  lines
       368      1         0         0         0         0   4960   7016
       400      2         0         0         0         0   4960   7016  bits 0x80000005
       432      3         0         0         0         0   4960   7016  last  bits 0x00000001
            3 bands, 0 bytes of data

       464  page 1
              type           0x00  plain
              paper          tray 2 (Tray 1), media 1 (Plain), paper 9 (A4)

      byte   band     black    yellow   magenta      cyan  width  lines
       528      1         5         4         3         2   4960   7016  last
            1 band, 14 bytes of data

       574  end-of-job mark

2 pages, 5 bands, 14 bytes of data; 578 bytes in all
1 problem
)");
}

TEST(TextReport, MarksAPageThatIsNotWhole) {
    EXPECT_THAT(textOf(headers() + page().substr(0, 100)),
                HasSubstr("       272      1      1           4  0x00  plain, INCOMPLETE\n"));
    EXPECT_THAT(textOf(headers() + page().substr(0, 100), {.afterFault = AfterFault::locate, .bands = true}),
                HasSubstr("            1 band, 4 bytes of data, INCOMPLETE\n"));
}

TEST(JsonReport, NamesCodes) {
    StreamOptions options = smallPage();
    options.paperTray = 1;
    options.mediaType = 14;
    options.paperSize = 28;
    options.jobSetting = 0x0601;
    const nlohmann::json document = jsonOf(makeJobHeaders(options) + page(options) + "JIDG");
    const auto page = recordsOf(document, "page").at(0);
    EXPECT_EQ(page["bPaperTray"], 1);
    EXPECT_EQ(page["names"], nlohmann::json({{"bPaperTray", "Bypass Tray"},
                                             {"bMediaType", "Envelope"},
                                             {"bPaperSize", "Envelope C5"}}));
    EXPECT_EQ(recordsOf(document, "file-header").at(0)["meaning"],
              nlohmann::json({"duplex", "manual duplex", "other bits 0x0001"}));
}

TEST(JsonReport, HasNoNameForAnUnknownCode) {
    StreamOptions options = smallPage();
    options.paperTray = 4;
    options.mediaType = 99;
    options.paperSize = 200;
    const auto page = recordsOf(jsonOf(headers() + makePage(options, 1) + "JIDG"), "page").at(0);
    EXPECT_EQ(page["names"],
              nlohmann::json({{"bPaperTray", nullptr}, {"bMediaType", nullptr}, {"bPaperSize", nullptr}}));
}

TEST(JsonReport, NamesWhatTheTraysHold) {
    std::string job = headers();
    const std::string trays = {9, 1, 11, 8, 70, 1, 12, 16, 0, 99};
    job.replace(sizeof(FileHeader) + 136, trays.size(), trays);
    EXPECT_EQ(recordsOf(jsonOf(job + "JIDG"), "extended-file-header").at(0)["names"],
              nlohmann::json({{"bTray1Size", "A4"},
                              {"bTray2Size", "Letter"},
                              {"bTray3Size", "A5"},
                              {"bTray4Size", "A3"},
                              {"bBypassSize", "A6"},
                              {"bTray1Type", "Plain"},
                              {"bTray2Type", "Thick (105-160g/m2)"},
                              {"bTray3Type", "Plain (90-105g/m2)"},
                              {"bTray4Type", "Plain Recycled"},
                              {"bBypassType", nullptr}}));
}

TEST(JsonReport, SaysWhatEachCommandIs) {
    const auto commands =
        recordsOf(jsonOf(reset + headers() + "JIDG" + "GDIC REBOOT     " + cancel), "command");
    ASSERT_EQ(commands.size(), 3U);
    EXPECT_EQ(commands[0]["command"], "reset");
    EXPECT_EQ(commands[1]["command"], "unknown");
    EXPECT_EQ(commands[2]["command"], "cancel");
}

TEST(JsonReport, TellsWhatASearchCameTo) {
    const std::string stream = headers() + "12345678" + page() + "JIDG";
    nlohmann::json document = jsonOf(stream);
    EXPECT_THAT(
        recordsOf(document, "search"),
        ElementsAre(nlohmann::json(
            {{"kind", "search"}, {"offset", 272}, {"next", 280}, {"nextKind", "page"}, {"skipped", 0}})));
    EXPECT_EQ(document["totals"]["unread"], 122);
    EXPECT_EQ(document["totals"]["skipped"], 0);

    document = jsonOf(stream, resuming);
    EXPECT_EQ(recordsOf(document, "search").at(0)["skipped"], 8);
    EXPECT_EQ(document["totals"]["unread"], 0);
    EXPECT_EQ(document["totals"]["skipped"], 8);
    EXPECT_EQ(document["totals"]["problems"], 1);

    EXPECT_THAT(recordsOf(jsonOf(headers() + "12345678"), "search"),
                ElementsAre(nlohmann::json({{"kind", "search"},
                                            {"offset", 272},
                                            {"next", nullptr},
                                            {"nextKind", nullptr},
                                            {"skipped", 0}})));
}

TEST(JsonReport, HasAKindForEveryPartThatASearchFinds) {
    const std::string noTag = "????"; // where a header's tag should stand
    const std::pair<std::string, const char *> parts[] = {
        {headers() + "JIDG", "file-header"},
        {headers().substr(sizeof(FileHeader)) + page() + "JIDG", "extended-file-header"},
        {page() + "JIDG", "page"},
        {"JIDG", "end-of-job"},
        {cancel, "command"},
    };
    for (const auto &[part, kind] : parts) {
        EXPECT_EQ(recordsOf(jsonOf(headers() + noTag + part), "search").at(0)["nextKind"], kind);
    }
    const std::string insideAPage = headers() + page().substr(0, 64) + noTag + emptyBand(2) + "JIDG";
    EXPECT_EQ(recordsOf(jsonOf(insideAPage), "search").at(0)["nextKind"], "band");
}

TEST(JsonReport, ListsBandsBeforeTheirPage) {
    const std::string stream = headers() + emptyBand(0) + page() + "JIDG";
    EXPECT_THAT(recordsOf(jsonOf(stream), "band"), testing::IsEmpty());
    const nlohmann::json document = jsonOf(stream, {.afterFault = AfterFault::locate, .bands = true});
    EXPECT_THAT(recordsOf(document, "band"), ElementsAre(nlohmann::json({{"kind", "band"},
                                                                         {"offset", 272},
                                                                         {"dwBandSetting", 0},
                                                                         {"dwKSize", 0},
                                                                         {"dwYSize", 0},
                                                                         {"dwMSize", 0},
                                                                         {"dwCSize", 0},
                                                                         {"wBandWidth", 4960},
                                                                         {"wBandHeight", 7016},
                                                                         {"wBandExtend", 0},
                                                                         {"bPageSet", 0},
                                                                         {"wPageNumber", nullptr},
                                                                         {"pageOffset", nullptr},
                                                                         {"number", nullptr},
                                                                         {"size", 0},
                                                                         {"last", false}}),
                                                         nlohmann::json({{"kind", "band"},
                                                                         {"offset", 368},
                                                                         {"dwBandSetting", 2},
                                                                         {"dwKSize", 5},
                                                                         {"dwYSize", 4},
                                                                         {"dwMSize", 3},
                                                                         {"dwCSize", 2},
                                                                         {"wBandWidth", 4960},
                                                                         {"wBandHeight", 7016},
                                                                         {"wBandExtend", 0},
                                                                         {"bPageSet", 0},
                                                                         {"wPageNumber", 1},
                                                                         {"pageOffset", 304},
                                                                         {"number", 1},
                                                                         {"size", 14},
                                                                         {"last", true}})));
    std::vector<std::string> kinds;
    for (const nlohmann::json &record : document["records"]) {
        kinds.push_back(record["kind"]);
    }
    EXPECT_THAT(kinds, ElementsAre("file-header", "extended-file-header", "band", "problem", "band", "page",
                                   "end-of-job"));
}

} // namespace
} // namespace veltrin
