#include "printer/JobReport.h"

#include "platform/Counted.h"
#include "printer/SheetReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

namespace veltrin::printer {

namespace {

using OrderedJson = nlohmann::ordered_json;

OrderedJson jsonSeconds(PrinterTime time) {
    return std::chrono::duration<double>(time).count();
}

OrderedJson placeOf(const std::optional<std::size_t> &page) {
    return page ? OrderedJson(*page) : OrderedJson(nullptr);
}

} // namespace

const char *nameOf(JobOutcome outcome) {
    switch (outcome) {
    case JobOutcome::whole:
        return "whole";
    case JobOutcome::cancelled:
        return "cancelled";
    case JobOutcome::broken:
        break;
    }
    return "broken";
}

JobOutcome JobReport::outcome() const {
    if (totals.cancelled) {
        return JobOutcome::cancelled; // what was cut off by it is no fault
    }
    return problems.empty() ? JobOutcome::whole : JobOutcome::broken;
}

nlohmann::ordered_json toJson(const JobReport &job) {
    OrderedJson json = {{"job", job.number},
                        {"outcome", nameOf(job.outcome())},
                        {"bytes", job.totals.bytes},
                        {"jobSetting", job.jobSetting},
                        {"copies", copiesOf(job.pages)},
                        {"printed", job.pagesPrinted},
                        {"pauses", pausesOf(job.pages)}};

    OrderedJson &sheets = json["sheets"] = OrderedJson::array();
    for (const Sheet &sheet : sheetsOf(job.pages)) {
        sheets.push_back({{"front", placeOf(sheet.front)}, {"back", placeOf(sheet.back)}});
    }
    OrderedJson &pages = json["pages"] = OrderedJson::array();
    for (const PageRead &page : job.pages) {
        pages.push_back({{"number", page.header.wPageNumber.value()},
                         {"type", page.header.bType},
                         {"tray", page.header.bPaperTray},
                         {"media", page.header.bMediaType},
                         {"paperSize", page.header.bPaperSize},
                         {"bands", page.bands},
                         {"dataBytes", page.received},
                         {"complete", page.complete},
                         {"offset", page.offset}});
    }
    OrderedJson &problems = json["problems"] = OrderedJson::array();
    for (const ProblemFound &found : job.problems) {
        problems.push_back(
            {{"problem", nameOf(found.problem)}, {"offset", found.offset}, {"text", found.text}});
    }
    OrderedJson &commands = json["commands"] = OrderedJson::array();
    for (const CommandRead &command : job.commands) {
        commands.push_back({{"text", std::string(command.record.begin(), command.record.end())},
                            {"offset", command.offset}});
    }
    OrderedJson &overruns = json["overruns"] = OrderedJson::array();
    for (const MemoryOverrun &overrun : job.overruns) {
        overruns.push_back({{"at", jsonSeconds(overrun.when)},
                            {"memory", overrun.pool == MemoryPool::header ? "header" : "image"},
                            {"bytes", overrun.bytes},
                            {"page", overrun.page}});
    }
    json["notifications"] = job.notifications;
    json["statusRequests"] = job.statusRequests;
    json["replies"] = job.replies;
    return json;
}

std::string reportDocument(const std::string &uri, const std::vector<JobReport> &jobs) {
    OrderedJson document = {{"uri", uri}, {"jobs", OrderedJson::array()}};
    for (const JobReport &job : jobs) {
        document["jobs"].push_back(toJson(job));
    }
    // Bytes that are no UTF-8 become replacement characters.
    return document.dump(2, ' ', true, OrderedJson::error_handler_t::replace) + "\n";
}

std::string summaryOf(const JobReport &job) {
    std::string text = "job " + std::to_string(job.number) + " " + nameOf(job.outcome()) + ": " +
                       counted(job.pages.size(), "page", "pages") + " for " +
                       counted(sheetsOf(job.pages).size(), "sheet", "sheets") + ", " +
                       counted(copiesOf(job.pages), "copy", "copies") + ", " +
                       counted(job.totals.bytes, "byte", "bytes");
    if (!job.overruns.empty()) {
        text += ", " + counted(job.overruns.size(), "memory overrun", "memory overruns");
    }
    for (const ProblemFound &found : job.problems) {
        text += "; at " + std::to_string(found.offset) + ": " + found.text;
    }
    return text;
}

JobRecorder::JobRecorder(std::uint64_t number, StreamReader::Sink theSink)
    : sink(std::move(theSink)),
      reader([this](const StreamEvent &event) { note(event); }, IdentifierRule::absent) {
    report.number = number;
}

void JobRecorder::finish() {
    reader.finish();
    report.totals = reader.totals();
}

void JobRecorder::note(const StreamEvent &event) {
    if (const auto *header = std::get_if<FileHeaderRead>(&event)) {
        report.jobSetting = header->header.wJobSetting;
    } else if (const auto *page = std::get_if<PageRead>(&event)) {
        report.pages.push_back(*page);
    } else if (const auto *command = std::get_if<CommandRead>(&event)) {
        report.commands.push_back(*command);
    } else if (const auto *problem = std::get_if<ProblemFound>(&event)) {
        report.problems.push_back(*problem);
    }
    sink(event);
}

} // namespace veltrin::printer
