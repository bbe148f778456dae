#include "printer/Scenario.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <limits>
#include <string_view>

namespace veltrin::printer {

namespace {

using Json = nlohmann::json;

constexpr double longestSeconds = 86'400;
constexpr double fastestPagesPerMinute = 60'000;

/// A name as the file may have it between quotes, in ASCII: it goes to a terminal.
std::string escaped(const std::string &name) {
    const std::string quoted = Json(name).dump(-1, ' ', true);
    return quoted.substr(1, quoted.size() - 2);
}

/// A value and its place in the file, such as "events[2].for". The first problem found is kept; what is read
/// after it counts for nothing.
struct Member {
    const Json *value;
    std::string where;
    std::string &problem;

    void refuse(const std::string &why) const {
        if (problem.empty()) {
            problem = (where.empty() ? "the scenario" : where) + " " + why;
        }
    }

    /// Refuses what is no object, and every member of it that is not among `names`.
    void allowOnly(std::initializer_list<std::string_view> names) const {
        if (!value->is_object()) {
            refuse("must be an object");
            return;
        }
        for (const auto &[name, ignored] : value->items()) {
            if (std::find(names.begin(), names.end(), name) == names.end()) {
                child(escaped(name), *value).refuse("is not a member of a scenario");
            }
        }
    }

    [[nodiscard]] std::optional<Member> find(const std::string &name) const {
        const auto found = value->is_object() ? value->find(name) : value->end();
        return found == value->end() ? std::nullopt : std::optional(child(name, *found));
    }

    [[nodiscard]] std::optional<Member> require(const std::string &name) const {
        std::optional<Member> found = find(name);
        if (!found) {
            child(name, *value).refuse("is missing");
        }
        return found;
    }

    [[nodiscard]] std::vector<Member> elements() const {
        std::vector<Member> members;
        if (!value->is_array()) {
            refuse("must be an array");
            return members;
        }
        for (std::size_t i = 0; i < value->size(); ++i) {
            members.push_back({&(*value)[i], where + "[" + std::to_string(i) + "]", problem});
        }
        return members;
    }

    [[nodiscard]] bool isNull() const { return value->is_null(); }

    [[nodiscard]] bool isText() const { return value->is_string(); }

    [[nodiscard]] std::string text() const {
        if (!value->is_string() || value->get_ref<const std::string &>().empty()) {
            refuse("must be a text");
            return {};
        }
        return *value;
    }

    [[nodiscard]] bool yesOrNo() const {
        if (!value->is_boolean()) {
            refuse("must be true or false");
            return false;
        }
        return *value;
    }

    [[nodiscard]] double number(double above, double largest) const {
        const double number = value->is_number() ? value->get<double>() : std::nan("");
        if (!(number > above && number <= largest)) {
            refuse("must be a number above " + Json(above).dump() + ", at most " + Json(largest).dump());
            return largest;
        }
        return number;
    }

    template <typename Number>
    [[nodiscard]] Number whole(std::uint64_t least = 0,
                               std::uint64_t largest = std::numeric_limits<Number>::max()) const {
        if (!value->is_number_unsigned() || value->get<std::uint64_t>() < least ||
            value->get<std::uint64_t>() > largest) {
            refuse("must be a whole number from " + std::to_string(least) + " to " + std::to_string(largest));
            return static_cast<Number>(least);
        }
        return value->get<Number>();
    }

    [[nodiscard]] PrinterTime seconds() const {
        const double number = value->is_number() ? value->get<double>() : std::nan("");
        if (!(number >= 0 && number <= longestSeconds)) {
            refuse("must be a number of seconds from 0 to 86400");
            return PrinterTime(0);
        }
        return std::chrono::duration_cast<PrinterTime>(std::chrono::duration<double>(number));
    }

    template <typename Value, std::size_t size>
    [[nodiscard]] Value oneOf(const std::pair<const char *, Value> (&names)[size]) const {
        std::string list;
        for (const auto &[name, meant] : names) {
            if (value->is_string() && value->get_ref<const std::string &>() == name) {
                return meant;
            }
            list += (list.empty() ? "" : ", ") + std::string(name);
        }
        refuse("must be one of " + list);
        return names[0].second;
    }

    [[nodiscard]] Member child(const std::string &name, const Json &json) const {
        return {&json, where.empty() ? name : where + "." + name, problem};
    }
};

constexpr std::pair<const char *, Tray> trayNames[] = {
    {"bypass", Tray::bypass}, {"tray1", Tray::tray1}, {"tray2", Tray::tray2}};

constexpr std::pair<const char *, ReplyFault> faultNames[] = {
    {"missing", ReplyFault::missing},    {"late", ReplyFault::late},
    {"empty", ReplyFault::empty},        {"no-data", ReplyFault::noData},
    {"short", ReplyFault::tooShort},     {"long", ReplyFault::tooLong},
    {"wrong-tag", ReplyFault::wrongTag}, {"wrong-object", ReplyFault::wrongObject}};

constexpr std::pair<const char *, RecordFault> recordFaultNames[] = {{"missing", RecordFault::missing},
                                                                     {"half", RecordFault::half},
                                                                     {"garbage", RecordFault::garbage},
                                                                     {"wrong-tag", RecordFault::wrongTag}};

/// The optional member `name`, read by one of Member's methods into `target`.
template <typename Target, typename Read>
void readInto(Target &target, const Member &parent, const char *name, Read read) {
    if (const auto member = parent.find(name)) {
        target = read(*member);
    }
}

std::uint8_t byte(const Member &member) {
    return member.whole<std::uint8_t>();
}

/// Sheets of paper; null for a tray that never runs out.
std::optional<std::uint32_t> sheets(const Member &member) {
    return member.isNull() ? std::nullopt : std::optional(member.whole<std::uint32_t>());
}

StatusCodes statusCodes(const Member &member) {
    const std::vector<Member> codes = member.elements();
    if (codes.empty() || codes.size() > 3) {
        member.refuse("must hold a status code and at most two sub-status codes");
        return {};
    }
    const auto code = [&codes](std::size_t i) { return i < codes.size() ? byte(codes[i]) : std::uint8_t{0}; };
    return {code(0), code(1), code(2)};
}

MemorySizes memorySizes(const Member &member) {
    MemorySizes sizes;
    member.allowOnly({"header", "image"});
    readInto(sizes.header, member, "header", [](const Member &m) { return m.whole<std::uint32_t>(); });
    readInto(sizes.image, member, "image", [](const Member &m) { return m.whole<std::uint32_t>(); });
    return sizes;
}

TrayState trayState(const Member &member) {
    TrayState tray;
    member.allowOnly({"installed", "paperSize", "paperType", "sheets"});
    readInto(tray.installed, member, "installed", std::mem_fn(&Member::yesOrNo));
    readInto(tray.paperSize, member, "paperSize", byte);
    readInto(tray.paperType, member, "paperType", byte);
    readInto(tray.sheets, member, "sheets", sheets);
    return tray;
}

TonerLevels tonerLevels(const Member &member) {
    TonerLevels toner;
    member.allowOnly({"black", "cyan", "magenta", "yellow"});
    readInto(toner.black, member, "black", byte);
    readInto(toner.cyan, member, "cyan", byte);
    readInto(toner.magenta, member, "magenta", byte);
    readInto(toner.yellow, member, "yellow", byte);
    return toner;
}

PrinterSettings printerSettings(const Member &member, PrinterSettings printer) {
    member.allowOnly({"model", "market", "port", "duplexUnit", "memory", "pagesPerMinute", "stackTurnedAfter",
                      "status", "trays", "toner"});
    readInto(printer.model, member, "model", [](const Member &m) { return m.whole<std::uint8_t>(0, 3); });
    readInto(printer.market, member, "market", [](const Member &m) { return m.whole<std::uint8_t>(0, 7); });
    readInto(printer.port, member, "port", byte);
    readInto(printer.duplexUnit, member, "duplexUnit", std::mem_fn(&Member::yesOrNo));
    readInto(printer.memory, member, "memory", memorySizes);
    readInto(printer.pagesPerMinute, member, "pagesPerMinute",
             [](const Member &m) { return m.number(0, fastestPagesPerMinute); });
    readInto(printer.stackTurnedAfter, member, "stackTurnedAfter", std::mem_fn(&Member::seconds));
    readInto(printer.idleStatus, member, "status", statusCodes);
    readInto(printer.toner, member, "toner", tonerLevels);
    if (const auto trays = member.find("trays")) {
        trays->allowOnly({"bypass", "tray1", "tray2"});
        for (const auto &[name, tray] : trayNames) {
            readInto(printer.trays[static_cast<std::size_t>(tray) - 1], *trays, name, trayState);
        }
    }
    return printer;
}

// What an event's "do" can be, which decides on the event's other members.

template <typename Value, typename Read>
Value required(const Member &event, const char *name, Read read) {
    const auto member = event.require(name);
    return member ? read(*member) : Value{};
}

Tray tray(const Member &member) {
    return member.oneOf(trayNames);
}

template <typename Plain>
Happening plain(const Member & /*event*/) {
    return Plain{};
}

template <typename Plain>
Happening plainOfPlug(const Member & /*event*/) {
    return PlugHappening(Plain{});
}

Happening paperEmpty(const Member &event) {
    return PaperEmpty{required<Tray>(event, "tray", tray)};
}

Happening refill(const Member &event) {
    return Refill{required<Tray>(event, "tray", tray),
                  required<std::optional<std::uint32_t>>(event, "sheets", sheets)};
}

Happening showStatus(const Member &event) {
    return ShowStatus{required<StatusCodes>(event, "codes", statusCodes)};
}

Happening reportPort(const Member &event) {
    return ReportPort{required<std::uint8_t>(event, "port", byte)};
}

Happening resizeMemory(const Member &event) {
    return ResizeMemory{required<MemorySizes>(event, "memory", memorySizes)};
}

Happening slowLine(const Member &event) {
    return PlugHappening(SlowLine{required<std::uint32_t>(
        event, "bytesPerSecond", [](const Member &member) { return member.whole<std::uint32_t>(1); })});
}

struct HappeningKind {
    Happening (*read)(const Member &event);
    const char *member = "do"; ///< that it has besides those of every event
    const char *otherMember = "do";
};

constexpr std::pair<const char *, HappeningKind> happeningKinds[] = {
    {"cover-open", {plain<CoverOpen>}},
    {"paper-empty", {paperEmpty, "tray"}},
    {"refill", {refill, "tray", "sheets"}},
    {"status", {showStatus, "codes"}},
    {"port", {reportPort, "port"}},
    {"memory", {resizeMemory, "memory"}},
    {"leave", {plainOfPlug<Leave>}},
    {"vanish", {plainOfPlug<Vanish>}},
    {"cut", {plainOfPlug<Cut>}},
    {"slow-line", {slowLine, "bytesPerSecond"}},
};

bool isCut(const Happening &happening) {
    const auto *ofPlug = std::get_if<PlugHappening>(&happening);
    return ofPlug != nullptr && std::holds_alternative<Cut>(*ofPlug);
}

ScenarioEvent scenarioEvent(const Member &event) {
    ScenarioEvent result{PrinterTime(0), {}, {}};
    const auto what = event.require("do");
    if (!what) {
        return result;
    }
    const HappeningKind kind = what->oneOf(happeningKinds);
    event.allowOnly({"at", "afterPage", "do", "for", kind.member, kind.otherMember});
    result.happening = kind.read(event);

    const auto at = event.find("at");
    const auto afterPage = event.find("afterPage");
    if (at.has_value() == afterPage.has_value()) {
        event.refuse("must have one of at and afterPage");
    } else if (at) {
        result.when = at->seconds();
    } else {
        result.when = afterPage->whole<std::uint32_t>(1);
    }
    readInto(result.lasting, event, "for", std::mem_fn(&Member::seconds));
    if (result.lasting && std::holds_alternative<Refill>(result.happening)) {
        event.refuse("must not have a for: a refill is not over after a time");
    }
    if (result.lasting && isCut(result.happening)) {
        event.refuse("must not have a for: the next connection is whole again");
    }
    return result;
}

/// What rules about replies and about records have in common.
template <typename Rule, typename Names>
Rule ruleWithFault(const Member &member, const Names &names) {
    Rule rule{};
    rule.first = 1;
    rule.last = std::numeric_limits<std::uint64_t>::max();
    readInto(rule.first, member, "first", [](const Member &m) { return m.whole<std::uint64_t>(1); });
    readInto(rule.last, member, "last",
             [&rule](const Member &m) { return m.whole<std::uint64_t>(rule.first); });
    if (const auto fault = member.require("fault")) {
        rule.fault = fault->oneOf(names);
    }
    return rule;
}

ReplyRule replyRule(const Member &member) {
    member.allowOnly({"first", "last", "fault", "by"});
    auto rule = ruleWithFault<ReplyRule>(member, faultNames);
    const auto by = member.find("by");
    if (by.has_value() != (rule.fault == ReplyFault::late)) {
        member.refuse("must have a by when, and only when, its fault is late");
    } else if (by) {
        rule.by = by->seconds();
    }
    return rule;
}

RecordRule recordRule(const Member &member) {
    member.allowOnly({"first", "last", "fault"});
    return ruleWithFault<RecordRule>(member, recordFaultNames);
}

/// Seconds after being switched on, or "never".
std::optional<PrinterTime> announcement(const Member &member) {
    if (member.isText()) {
        constexpr std::pair<const char *, bool> never[] = {{"never", true}};
        static_cast<void>(member.oneOf(never));
        return std::nullopt;
    }
    return member.seconds();
}

} // namespace

std::optional<Scenario> parseScenario(const std::string &text, std::string &problem,
                                      const PrinterSettings &ordinary) {
    problem.clear();
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::parse_error &error) {
        problem = std::string("the scenario is not JSON: ") + error.what();
        return std::nullopt;
    }
    const Member root{&json, "", problem};
    root.allowOnly(
        {"description", "printer", "announcement", "events", "replies", "records", "recordInterval"});

    Scenario scenario;
    if (const auto description = root.require("description")) {
        scenario.description = description->text();
    }
    scenario.printer = ordinary;
    readInto(scenario.printer, root, "printer",
             [&ordinary](const Member &member) { return printerSettings(member, ordinary); });
    readInto(scenario.announcement, root, "announcement", announcement);
    if (const auto events = root.find("events")) {
        for (const Member &event : events->elements()) {
            scenario.events.push_back(scenarioEvent(event));
        }
    }
    if (const auto replies = root.find("replies")) {
        for (const Member &reply : replies->elements()) {
            scenario.replies.push_back(replyRule(reply));
        }
    }
    if (const auto records = root.find("records")) {
        for (const Member &record : records->elements()) {
            scenario.records.push_back(recordRule(record));
        }
    }
    readInto(scenario.recordInterval, root, "recordInterval", std::mem_fn(&Member::seconds));
    return problem.empty() ? std::optional(std::move(scenario)) : std::nullopt;
}

} // namespace veltrin::printer
