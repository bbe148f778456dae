#include "printer/JobReport.h"

#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <span>
#include <string>

namespace veltrin::printer {
namespace {

using Json = nlohmann::ordered_json;

JobReport reportOf(const std::string &stream) {
    JobRecorder recorder(1, [](const StreamEvent &) {});
    recorder.feed(std::as_bytes(std::span(stream)));
    recorder.finish();
    return recorder.report;
}

std::string text(const CommandRecord &record) {
    return {record.begin(), record.end()};
}

StreamOptions forPrinter() {
    StreamOptions options;
    options.identifier.reset();
    return options;
}

TEST(JobReport, ToldOutcomes) {
    const std::string whole = makeStream(forPrinter());
    const std::string cut = whole.substr(0, whole.size() - 10);
    EXPECT_EQ(reportOf(whole).outcome(), JobOutcome::whole);
    EXPECT_EQ(reportOf(text(reverseDataReset) + whole).outcome(), JobOutcome::whole);
    EXPECT_EQ(reportOf(whole + text(cancelCommand)).outcome(), JobOutcome::cancelled);
    EXPECT_EQ(reportOf(text(reverseDataReset) + text(cancelCommand)).outcome(), JobOutcome::cancelled);
    EXPECT_EQ(reportOf(makeJobHeaders({}) + makePage({}, 1).substr(0, 96) + text(cancelCommand)).outcome(),
              JobOutcome::broken); // the record is taken for the band's data
    EXPECT_EQ(reportOf(cut).outcome(), JobOutcome::broken);
    EXPECT_EQ(reportOf(whole + "x").outcome(), JobOutcome::broken);
    EXPECT_EQ(reportOf(text(reverseDataReset)).outcome(), JobOutcome::broken);
    EXPECT_EQ(reportOf("").outcome(), JobOutcome::broken);
    // The identifier is the filter's to take off.
    EXPECT_EQ(reportOf(makeStream(StreamOptions())).outcome(), JobOutcome::broken);
}

TEST(JobReport, HasEveryFieldInJson) {
    StreamOptions options = forPrinter();
    options.jobSetting = jobSettingManualDuplex;
    options.pageType = pageTypePause;
    options.paperTray = 3;
    options.mediaType = 14;
    options.paperSize = 9;
    JobReport report = reportOf(text(reverseDataReset) + makeStream(options) + "x");
    report.number = 4;
    report.overruns = {{std::chrono::milliseconds(1500), MemoryPool::header, 12, 0},
                       {std::chrono::seconds(2), MemoryPool::image, 34, 1}};
    report.notifications = {{"writePipe", 3}};
    report.statusRequests = 7;
    report.replies = 6;
    report.pagesPrinted = 5;
    const Json json = toJson(report);
    const std::size_t end = 16 + 272 + 64 + 4 * (32 + 1024) + 4;
    const Json expected = {{"job", 4},
                           {"outcome", "broken"},
                           {"bytes", end + 1},
                           {"jobSetting", 0x0400},
                           {"copies", 1},
                           {"printed", 5},
                           {"pauses", {0}},
                           {"sheets", {{{"front", 0}, {"back", nullptr}}}},
                           {"pages",
                            {{{"number", 1},
                              {"type", 16},
                              {"tray", 3},
                              {"media", 14},
                              {"paperSize", 9},
                              {"bands", 4},
                              {"dataBytes", 4096},
                              {"complete", true},
                              {"offset", 16 + 272}}}},
                           {"problems",
                            {{{"problem", "bytes-after-end"},
                              {"offset", end},
                              {"text", "there are bytes after the end of the job"}}}},
                           {"commands", {{{"text", "GDIC GDIREND    "}, {"offset", 0}}}},
                           {"overruns",
                            {{{"at", 1.5}, {"memory", "header"}, {"bytes", 12}, {"page", 0}},
                             {{"at", 2.0}, {"memory", "image"}, {"bytes", 34}, {"page", 1}}}},
                           {"notifications", {{"writePipe", 3}}},
                           {"statusRequests", 7},
                           {"replies", 6}};
    EXPECT_EQ(json, expected) << json.dump(2);
}

TEST(JobReport, IsADocumentWhateverBytesCame) {
    const JobReport report = reportOf("GDIC \xFF\x01         ");
    ASSERT_EQ(report.commands.size(), 1U);
    const std::string document = reportDocument("usb://x", {report, report});
    const Json json = Json::parse(document);
    EXPECT_EQ(json["uri"], "usb://x");
    EXPECT_EQ(json["jobs"].size(), 2U);
    EXPECT_EQ(json["jobs"][1]["commands"][0]["text"], "GDIC \uFFFD\u0001         ");
    EXPECT_TRUE(document.ends_with("}\n"));
}

TEST(JobReport, SaysInOneLineWhatCameOut) {
    JobReport report = reportOf(makeStream(forPrinter()) + "x");
    report.overruns = {{{}, MemoryPool::header, 12, 0}};
    EXPECT_EQ(summaryOf(report), "job 1 broken: 1 page for 1 sheet, 1 copy, 4565 bytes, 1 memory overrun; at "
                                 "4564: there are bytes after the end of the job");
}

TEST(JobReport, PassesEveryEventOn) {
    int events = 0;
    JobRecorder recorder(1, [&events](const StreamEvent &) { ++events; });
    const std::string stream = makeStream(forPrinter());
    recorder.feed(std::as_bytes(std::span(stream)));
    EXPECT_EQ(events, 4); // two job headers, a page, the end
}

} // namespace
} // namespace veltrin::printer
