#include "printer/VirtualPrinter.h"

#include "printer/StatusView.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

std::string describe(const PageRead &page, std::size_t place) {
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(),
                  "page %zu arrived: number %u, type 0x%02x, tray %u, media %u, %llu bytes%s", place,
                  unsigned{page.header.wPageNumber.value()}, unsigned{page.header.bType},
                  unsigned{page.header.bPaperTray}, unsigned{page.header.bMediaType},
                  static_cast<unsigned long long>(page.received), page.complete ? "" : ", cut off");
    return text.data();
}

} // namespace

VirtualPrinter::VirtualPrinter(Scenario theScenario, PrinterListener theListener)
    : scenario(std::move(theScenario)), listener(std::move(theListener)), model(scenario.printer),
      timeline(scenario.events), toldStatus(model.status()) {}

std::string shownText(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
    return text;
}

void VirtualPrinter::tell(PrinterTime when, std::string line) const {
    listener.told(when, shownText(std::move(line)));
}

// ---- What comes in

void VirtualPrinter::takeData(std::span<const std::byte> bytes, PrinterTime now) {
    advance(now);
    needJob();
    listener.dataArrived(bytes);
    job->feed(bytes);
    settleMemory(job->report.pages.size());
    tellChanges();
}

void VirtualPrinter::breakStream() {
    if (job) {
        job->breakOff();
    }
}

// ---- A job

void VirtualPrinter::needJob() {
    if (job) {
        return;
    }
    job = std::make_unique<JobRecorder>(++jobs, [this](const StreamEvent &event) { streamEvent(event); });
    settledHeader = 0;
    settledData = 0;
    model.jobBegan();
    timeline.jobBegan(time);
}

void VirtualPrinter::endJob() {
    if (!job) {
        return;
    }
    job->finish();
    model.jobEnded();
    JobReport &report = job->report;
    lastSummary = summaryOf(report);
    tell(lastSummary);
    listener.jobEnded(report);
    if (model.pagesPrintedOf(report.number) + model.pagesWaitingOf(report.number) > 0) {
        unprinted.push_back({report.number, report.pages.size()});
    }
    job.reset();
    tellPrintedJobs();
}

void VirtualPrinter::tellPrintedJobs() {
    std::erase_if(unprinted, [this](const Unprinted &one) {
        if (model.pagesWaitingOf(one.job) != 0) {
            return false;
        }
        tell("job " + std::to_string(one.job) + " printed: " + std::to_string(model.pagesPrintedOf(one.job)) +
             " of " + std::to_string(one.pages) + " pages");
        return true;
    });
}

void VirtualPrinter::tellUnprinted() const {
    for (const Unprinted &one : unprinted) {
        tell("job " + std::to_string(one.job) +
             " not printed to its end: " + std::to_string(model.pagesPrintedOf(one.job)) + " of " +
             std::to_string(one.pages) + " pages, status " + printer::describe(model.status()));
    }
}

std::string VirtualPrinter::jobText() const {
    if (!job) {
        return lastSummary.empty() ? "no job yet" : lastSummary;
    }
    return "job " + std::to_string(job->report.number) +
           " comes in: " + std::to_string(job->report.pages.size()) + " pages, " +
           std::to_string(job->totals().bytes) + " bytes";
}

bool VirtualPrinter::isAtRest() const {
    return model.pagesWaiting() == 0 || (!model.nextChange() && !timeline.nextDue());
}

bool VirtualPrinter::mayGetRoom() const {
    return model.pagesWaiting() != 0 || timeline.nextDue().has_value();
}

void VirtualPrinter::streamEvent(const StreamEvent &event) {
    const auto *page = std::get_if<PageRead>(&event);
    settleMemory(job->report.pages.size() - (page != nullptr ? 1 : 0)); // the page that ends is among them
    if (page != nullptr) {
        tell(describe(*page, job->report.pages.size()));
        if (page->complete) {
            model.pageArrived(page->header);
            timeline.pageArrived(time);
        }
    } else if (std::holds_alternative<EndOfJobRead>(event)) {
        tell("end of job");
        model.jobEnded();
    } else if (const auto *command = std::get_if<CommandRead>(&event)) {
        tell("command " + std::string(command->record.begin(), command->record.end()));
        if (command->record == cancelCommand) {
            model.jobCancelled();
        }
    } else if (const auto *found = std::get_if<ProblemFound>(&event)) {
        tell("problem at " + std::to_string(found->offset) + ": " + found->text);
    }
}

/// Puts what has come since the last time into the printer's memory, as a part of the page at this place.
/// Command records take none, and neither does what cannot be read as a stream.
void VirtualPrinter::settleMemory(std::size_t page) {
    const StreamTotals &totals = job->totals();
    const std::uint64_t commands = job->report.commands.size() * sizeof(CommandRecord);
    const std::uint64_t header =
        totals.bytes - totals.dataBytes - std::min(totals.unread + commands, totals.bytes - totals.dataBytes);
    settle(MemoryPool::header, header, settledHeader, page);
    settle(MemoryPool::image, totals.dataBytes, settledData, page);
}

void VirtualPrinter::settle(MemoryPool pool, std::uint64_t bytes, std::uint64_t &settled, std::size_t page) {
    if (bytes <= settled) {
        return;
    }
    if (const std::uint64_t tooMany = model.received(pool, bytes - settled); tooMany != 0) {
        job->report.overruns.push_back({time, pool, tooMany, page});
    }
    settled = bytes;
}

// ---- What goes on by itself

void VirtualPrinter::advance(PrinterTime now) {
    for (auto due = timeline.nextDue(); due && *due <= now; due = timeline.nextDue()) {
        advanceModel(std::max(*due, time));
        happen(timeline.takeNext());
        tellChanges();
    }
    advanceModel(now);
}

void VirtualPrinter::advanceModel(PrinterTime now) {
    for (auto change = model.nextChange(); change && *change <= now; change = model.nextChange()) {
        time = *change;
        model.advance(time);
        tellChanges();
    }
    time = now;
    model.advance(time);
}

void VirtualPrinter::tellChanges() {
    if (model.pagesPrinted() != std::exchange(toldPrinted, model.pagesPrinted())) {
        tell("printed page " + std::to_string(toldPrinted) + ", " + std::to_string(model.pagesWaiting()) +
             " waiting");
        tellPrintedJobs();
    }
    if (const StatusCodes status = model.status(); status != std::exchange(toldStatus, status)) {
        tell("status " + printer::describe(status));
    }
}

std::optional<PrinterTime> VirtualPrinter::nextDue() const {
    const std::optional<PrinterTime> event = timeline.nextDue();
    const std::optional<PrinterTime> change = model.nextChange();
    return event && change ? std::min(event, change) : (event ? event : change);
}

void VirtualPrinter::happen(const Timeline::Entry &entry) {
    std::visit([this, &entry](const auto &happening) { happen(happening, entry); },
               timeline.event(entry).happening);
}

void VirtualPrinter::happen(const CoverOpen & /*cover*/, const Timeline::Entry &entry) {
    model.openCover(entry.begins);
}

void VirtualPrinter::happen(const PaperEmpty &paper, const Timeline::Entry &entry) {
    const TrayState &initial = scenario.printer.trays[static_cast<std::size_t>(paper.tray) - 1];
    model.load(paper.tray, entry.begins ? std::optional(0U) : initial.sheets);
}

void VirtualPrinter::happen(const Refill &refill, const Timeline::Entry & /*entry*/) {
    model.load(refill.tray, refill.sheets);
}

void VirtualPrinter::happen(const ShowStatus &shown, const Timeline::Entry &entry) {
    model.showStatus(entry.begins ? std::optional(shown.codes) : std::nullopt);
}

void VirtualPrinter::happen(const ReportPort &reported, const Timeline::Entry &entry) {
    model.reportPort(entry.begins ? reported.port : scenario.printer.port);
}

void VirtualPrinter::happen(const ResizeMemory &memory, const Timeline::Entry &entry) {
    model.resizeMemory(entry.begins ? memory.sizes : scenario.printer.memory);
}

void VirtualPrinter::happen(const PlugHappening & /*happening*/, const Timeline::Entry &entry) {
    plugEvents(timeline.event(entry), entry.begins);
}

} // namespace veltrin::printer
