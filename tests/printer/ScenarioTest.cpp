#include "printer/Scenario.h"

#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;

Scenario parsed(const std::string &text) {
    std::string problem;
    auto scenario = parseScenario(text, problem);
    EXPECT_EQ(problem, "");
    return scenario.value_or(Scenario());
}

TEST(Scenario, NeedsNothingButADescription) {
    const Scenario scenario = parsed(R"({"description": "plain"})");
    EXPECT_EQ(scenario.description, "plain");
    EXPECT_EQ(scenario.announcement, 0us);
    EXPECT_TRUE(scenario.events.empty());
    EXPECT_TRUE(scenario.replies.empty());
    EXPECT_EQ(scenario.printer.memory, MemorySizes());
    EXPECT_EQ(scenario.printer.pagesPerMinute, 20);
    EXPECT_FALSE(scenario.printer.duplexUnit);
}

TEST(Scenario, DescribesThePrinter) {
    const PrinterSettings printer = parsed(R"({"description": "all of it", "printer": {
        "model": 2, "market": 7, "port": 4, "duplexUnit": true,
        "memory": {"header": 1000, "image": 2000}, "pagesPerMinute": 0.5, "stackTurnedAfter": 1.5,
        "status": [17, 2, 9], "toner": {"black": 1, "cyan": 2, "magenta": 3, "yellow": 4},
        "trays": {"bypass": {"sheets": 3}, "tray1": {"paperSize": 1, "paperType": 14, "sheets": null},
                  "tray2": {"installed": false}}}})")
                                        .printer;
    EXPECT_EQ(printer.model, 2);
    EXPECT_EQ(printer.market, 7);
    EXPECT_EQ(printer.port, 4);
    EXPECT_TRUE(printer.duplexUnit);
    EXPECT_EQ(printer.memory, (MemorySizes{1000, 2000}));
    EXPECT_EQ(printer.pagesPerMinute, 0.5);
    EXPECT_EQ(printer.stackTurnedAfter, 1500ms);
    EXPECT_EQ(printer.idleStatus, (StatusCodes{17, 2, 9}));
    EXPECT_EQ(printer.toner.black, 1);
    EXPECT_EQ(printer.toner.cyan, 2);
    EXPECT_EQ(printer.toner.magenta, 3);
    EXPECT_EQ(printer.toner.yellow, 4);
    EXPECT_EQ(printer.trays[0].sheets, 3U);
    EXPECT_EQ(printer.trays[1].paperSize, 1);
    EXPECT_EQ(printer.trays[1].paperType, 14);
    EXPECT_EQ(printer.trays[1].sheets, std::nullopt);
    EXPECT_TRUE(printer.trays[1].installed);
    EXPECT_FALSE(printer.trays[2].installed);
}

TEST(Scenario, SaysWhenThePrinterAnnouncesItself) {
    EXPECT_EQ(parsed(R"({"description": "x", "announcement": 2.5})").announcement, 2500ms);
    EXPECT_EQ(parsed(R"({"description": "x", "announcement": "never"})").announcement, std::nullopt);
}

TEST(Scenario, SaysWhatHappensWhen) {
    const Scenario scenario = parsed(R"({"description": "x", "events": [
        {"at": 3, "do": "cover-open", "for": 5},
        {"afterPage": 2, "do": "paper-empty", "tray": "bypass"},
        {"at": 0.25, "do": "refill", "tray": "tray2", "sheets": 9},
        {"at": 0, "do": "refill", "tray": "tray1", "sheets": null},
        {"at": 1, "do": "status", "codes": [49, 6]},
        {"at": 1, "do": "port", "port": 3},
        {"at": 1, "do": "memory", "memory": {"image": 7}},
        {"at": 1, "do": "leave"},
        {"at": 1, "do": "vanish", "for": 0}]})");
    ASSERT_EQ(scenario.events.size(), 9U);
    const auto &events = scenario.events;
    EXPECT_EQ(std::get<PrinterTime>(events[0].when), 3s);
    EXPECT_TRUE(std::holds_alternative<CoverOpen>(events[0].happening));
    EXPECT_EQ(events[0].lasting, 5s);
    EXPECT_EQ(std::get<std::uint32_t>(events[1].when), 2U);
    EXPECT_EQ(std::get<PaperEmpty>(events[1].happening).tray, Tray::bypass);
    EXPECT_EQ(events[1].lasting, std::nullopt);
    EXPECT_EQ(std::get<PrinterTime>(events[2].when), 250ms);
    EXPECT_EQ(std::get<Refill>(events[2].happening).tray, Tray::tray2);
    EXPECT_EQ(std::get<Refill>(events[2].happening).sheets, 9U);
    EXPECT_EQ(std::get<Refill>(events[3].happening).tray, Tray::tray1);
    EXPECT_EQ(std::get<Refill>(events[3].happening).sheets, std::nullopt);
    EXPECT_EQ(std::get<ShowStatus>(events[4].happening).codes, (StatusCodes{49, 6, 0}));
    EXPECT_EQ(std::get<ReportPort>(events[5].happening).port, 3);
    EXPECT_EQ(std::get<ResizeMemory>(events[6].happening).sizes, (MemorySizes{MemorySizes().header, 7}));
    EXPECT_TRUE(std::holds_alternative<Leave>(std::get<PlugHappening>(events[7].happening)));
    EXPECT_TRUE(std::holds_alternative<Vanish>(std::get<PlugHappening>(events[8].happening)));
    EXPECT_EQ(events[8].lasting, 0s);
}

TEST(Scenario, SaysWhatHappensToTheWire) {
    const Scenario scenario = parsed(R"({"description": "x", "recordInterval": 0.5, "events": [
        {"afterPage": 1, "do": "cut"},
        {"at": 1, "do": "slow-line", "bytesPerSecond": 1, "for": 2}],
        "records": [{"fault": "missing"}, {"first": 2, "fault": "half"},
                    {"first": 3, "last": 4, "fault": "garbage"}, {"last": 9, "fault": "wrong-tag"}]})");
    EXPECT_EQ(scenario.recordInterval, 500ms);
    EXPECT_EQ(parsed(R"({"description": "x"})").recordInterval, 1s);
    ASSERT_EQ(scenario.events.size(), 2U);
    EXPECT_TRUE(std::holds_alternative<Cut>(std::get<PlugHappening>(scenario.events[0].happening)));
    const auto &slow = std::get<PlugHappening>(scenario.events[1].happening);
    EXPECT_EQ(std::get<SlowLine>(slow).bytesPerSecond, 1U);
    EXPECT_EQ(scenario.events[1].lasting, 2s);
    ASSERT_EQ(scenario.records.size(), 4U);
    const RecordFault faults[] = {RecordFault::missing, RecordFault::half, RecordFault::garbage,
                                  RecordFault::wrongTag};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(scenario.records[i].fault, faults[i]) << i;
    }
    EXPECT_EQ(scenario.records[0].first, 1U);
    EXPECT_EQ(scenario.records[0].last, UINT64_MAX);
    EXPECT_EQ(scenario.records[2].first, 3U);
    EXPECT_EQ(scenario.records[2].last, 4U);
}

TEST(Scenario, SaysWhatIsWrongWithTheReplies) {
    const Scenario scenario = parsed(R"({"description": "x", "replies": [
        {"fault": "missing"}, {"first": 2, "fault": "empty"}, {"first": 3, "last": 4, "fault": "no-data"},
        {"fault": "late", "by": 1.5}, {"fault": "short"}, {"fault": "long"}, {"fault": "wrong-tag"},
        {"last": 1, "fault": "wrong-object"}]})");
    ASSERT_EQ(scenario.replies.size(), 8U);
    const auto &rules = scenario.replies;
    const ReplyFault faults[] = {ReplyFault::missing,  ReplyFault::empty,      ReplyFault::noData,
                                 ReplyFault::late,     ReplyFault::tooShort,   ReplyFault::tooLong,
                                 ReplyFault::wrongTag, ReplyFault::wrongObject};
    for (std::size_t i = 0; i < rules.size(); ++i) {
        EXPECT_EQ(rules[i].fault, faults[i]) << i;
    }
    EXPECT_EQ(rules[0].first, 1U);
    EXPECT_EQ(rules[0].last, UINT64_MAX);
    EXPECT_EQ(rules[1].first, 2U);
    EXPECT_EQ(rules[2].first, 3U);
    EXPECT_EQ(rules[2].last, 4U);
    EXPECT_EQ(rules[3].by, 1500ms);
    EXPECT_EQ(rules[7].last, 1U);
}

struct BadScenario {
    const char *text;
    const char *problem;
};

/// Members to put beside the description, and what is said of them.
const BadScenario badScenarios[] = {
    {R"("surprise": 1)", "surprise is not a member of a scenario"},
    {R"("printer": 1)", "printer must be an object"},
    {R"("printer": {"colour": true})", "printer.colour is not a member of a scenario"},
    {R"("printer": {"model": 4})", "printer.model must be a whole number from 0 to 3"},
    {R"("printer": {"model": -1})", "printer.model must be a whole number from 0 to 3"},
    {R"("printer": {"model": 1.5})", "printer.model must be a whole number from 0 to 3"},
    {R"("printer": {"market": 8})", "printer.market must be a whole number from 0 to 7"},
    {R"("printer": {"port": 256})", "printer.port must be a whole number from 0 to 255"},
    {R"("printer": {"duplexUnit": 1})", "printer.duplexUnit must be true or false"},
    {R"("printer": {"memory": {"header": 4294967296}})",
     "printer.memory.header must be a whole number from 0 to 4294967295"},
    {R"("printer": {"memory": {"image": "big"}})",
     "printer.memory.image must be a whole number from 0 to 4294967295"},
    {R"("printer": {"memory": {"toner": 1}})", "printer.memory.toner is not a member of a scenario"},
    {R"("printer": {"pagesPerMinute": 0})",
     "printer.pagesPerMinute must be a number above 0.0, at most 60000.0"},
    {R"("printer": {"pagesPerMinute": 60001})",
     "printer.pagesPerMinute must be a number above 0.0, at most 60000.0"},
    {R"("printer": {"stackTurnedAfter": -1})",
     "printer.stackTurnedAfter must be a number of seconds from 0 to 86400"},
    {R"("printer": {"status": 3})", "printer.status must be an array"},
    {R"("printer": {"status": []})",
     "printer.status must hold a status code and at most two sub-status codes"},
    {R"("printer": {"status": [1, 2, 3, 4]})",
     "printer.status must hold a status code and at most two sub-status codes"},
    {R"("printer": {"status": [1, 300]})", "printer.status[1] must be a whole number from 0 to 255"},
    {R"("printer": {"toner": {"red": 1}})", "printer.toner.red is not a member of a scenario"},
    {R"("printer": {"toner": {"cyan": 256}})", "printer.toner.cyan must be a whole number from 0 to 255"},
    {R"("printer": {"trays": {"tray4": {}}})", "printer.trays.tray4 is not a member of a scenario"},
    {R"("printer": {"trays": {"tray1": []}})", "printer.trays.tray1 must be an object"},
    {R"("printer": {"trays": {"tray1": {"full": true}}})",
     "printer.trays.tray1.full is not a member of a scenario"},
    {R"("printer": {"trays": {"tray1": {"installed": null}}})",
     "printer.trays.tray1.installed must be true or false"},
    {R"("printer": {"trays": {"tray1": {"sheets": "many"}}})",
     "printer.trays.tray1.sheets must be a whole number from 0 to 4294967295"},
    {R"("printer": {"trays": {"tray1": {"paperSize": 256}}})",
     "printer.trays.tray1.paperSize must be a whole number from 0 to 255"},
    {R"("printer": {"trays": {"tray1": {"paperType": 256}}})",
     "printer.trays.tray1.paperType must be a whole number from 0 to 255"},
    {R"("announcement": "soon")", "announcement must be one of never"},
    {R"("announcement": -1)", "announcement must be a number of seconds from 0 to 86400"},
    {R"("announcement": 86401)", "announcement must be a number of seconds from 0 to 86400"},
    {R"("events": {})", "events must be an array"},
    {R"("events": [3])", "events[0].do is missing"},
    {R"("events": [{"at": 1}])", "events[0].do is missing"},
    {R"("events": [{"at": 1, "do": "explode"}])",
     "events[0].do must be one of cover-open, paper-empty, refill, status, port, memory, leave, vanish, "
     "cut, slow-line"},
    {R"("events": [{"do": "leave"}])", "events[0] must have one of at and afterPage"},
    {R"("events": [{"at": 1, "afterPage": 1, "do": "leave"}])",
     "events[0] must have one of at and afterPage"},
    {R"("events": [{"at": 1, "do": "leave"}, {"at": "noon", "do": "leave"}])",
     "events[1].at must be a number of seconds from 0 to 86400"},
    {R"("events": [{"afterPage": 0, "do": "leave"}])",
     "events[0].afterPage must be a whole number from 1 to 4294967295"},
    {R"("events": [{"at": 1, "do": "leave", "for": "ever"}])",
     "events[0].for must be a number of seconds from 0 to 86400"},
    {R"("events": [{"at": 1, "do": "leave", "tray": "tray1"}])",
     "events[0].tray is not a member of a scenario"},
    {R"("events": [{"at": 1, "do": "paper-empty"}])", "events[0].tray is missing"},
    {R"("events": [{"at": 1, "do": "paper-empty", "tray": "attic"}])",
     "events[0].tray must be one of bypass, tray1, tray2"},
    {R"("events": [{"at": 1, "do": "refill", "tray": "tray1"}])", "events[0].sheets is missing"},
    {R"("events": [{"at": 1, "do": "refill", "tray": "tray1", "sheets": 1, "for": 1}])",
     "events[0] must not have a for: a refill is not over after a time"},
    {R"("events": [{"at": 1, "do": "status"}])", "events[0].codes is missing"},
    {R"("events": [{"at": 1, "do": "port"}])", "events[0].port is missing"},
    {R"("events": [{"at": 1, "do": "memory"}])", "events[0].memory is missing"},
    {R"("events": [{"at": 1, "do": "memory", "memory": {"image": -1}}])",
     "events[0].memory.image must be a whole number from 0 to 4294967295"},
    {R"("replies": 1)", "replies must be an array"},
    {R"("replies": [[]])", "replies[0] must be an object"},
    {R"("replies": [{}])", "replies[0].fault is missing"},
    {R"("replies": [{"fault": "rude"}])",
     "replies[0].fault must be one of missing, late, empty, no-data, short, long, wrong-tag, wrong-object"},
    {R"("replies": [{"first": 0, "fault": "empty"}])",
     "replies[0].first must be a whole number from 1 to 18446744073709551615"},
    {R"("replies": [{"first": 3, "last": 2, "fault": "empty"}])",
     "replies[0].last must be a whole number from 3 to 18446744073709551615"},
    {R"("replies": [{"fault": "late"}])", "replies[0] must have a by when, and only when, its fault is late"},
    {R"("replies": [{"fault": "empty", "by": 1}])",
     "replies[0] must have a by when, and only when, its fault is late"},
    {R"("replies": [{"fault": "late", "by": true}])",
     "replies[0].by must be a number of seconds from 0 to 86400"},
    {R"("replies": [{"fault": "empty", "how": 1}])", "replies[0].how is not a member of a scenario"},
    {R"("events": [{"at": 1, "do": "cut", "for": 1}])",
     "events[0] must not have a for: the next connection is whole again"},
    {R"("events": [{"at": 1, "do": "slow-line"}])", "events[0].bytesPerSecond is missing"},
    {R"("events": [{"at": 1, "do": "slow-line", "bytesPerSecond": 0}])",
     "events[0].bytesPerSecond must be a whole number from 1 to 4294967295"},
    {R"("records": [{"fault": "late"}])",
     "records[0].fault must be one of missing, half, garbage, wrong-tag"},
    {R"("records": [{"first": 3, "last": 2, "fault": "half"}])",
     "records[0].last must be a whole number from 3 to 18446744073709551615"},
    {R"("records": [{"fault": "half", "by": 1}])", "records[0].by is not a member of a scenario"},
    {R"("recordInterval": -1)", "recordInterval must be a number of seconds from 0 to 86400"},
};

TEST(Scenario, NamesTheMemberAtFault) {
    for (const BadScenario &bad : badScenarios) {
        std::string problem;
        EXPECT_FALSE(parseScenario(std::string(R"({"description": "x", )") + bad.text + "}", problem))
            << bad.text;
        EXPECT_EQ(problem, bad.problem) << bad.text;
    }
}

TEST(Scenario, NamesAMemberInWhatATerminalShows) {
    std::string problem;
    EXPECT_FALSE(parseScenario(R"({"description": "x", "a\n\u001b[2J\u007f": 1})", problem));
    EXPECT_EQ(problem, R"(a\n\u001b[2J\u007f is not a member of a scenario)");
}

TEST(Scenario, RefusesWhatIsNoScenarioAtAll) {
    std::string problem;
    EXPECT_FALSE(parseScenario("[]", problem));
    EXPECT_EQ(problem, "the scenario must be an object");
    EXPECT_FALSE(parseScenario("{}", problem));
    EXPECT_EQ(problem, "description is missing");
    EXPECT_FALSE(parseScenario(R"({"description": ""})", problem));
    EXPECT_EQ(problem, "description must be a text");
    EXPECT_FALSE(parseScenario("", problem));
    EXPECT_THAT(problem, testing::StartsWith("the scenario is not JSON: "));
    EXPECT_FALSE(parseScenario(R"({"description": "x")", problem));
    EXPECT_THAT(problem, testing::HasSubstr("line 1, column 20"));
    EXPECT_FALSE(parseScenario("{\"description\": \"\xFF\"}", problem));
    EXPECT_THAT(problem, testing::StartsWith("the scenario is not JSON: "));
}

TEST(Scenario, ForgetsAnEarlierProblem) {
    std::string problem = "an old one";
    EXPECT_TRUE(parseScenario(R"({"description": "x"})", problem));
    EXPECT_EQ(problem, "");
}

TEST(Scenario, IsWhatEveryFileInTheScenariosFolderHolds) {
    const std::string folder = test::hostPath(VELTRIN_SCENARIOS);
    const std::vector<std::string> names = test::namesIn(folder);
    EXPECT_FALSE(names.empty());
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        static_cast<void>(parsed(test::readFile(folder + "/" + name)));
    }
}

} // namespace
} // namespace veltrin::printer
