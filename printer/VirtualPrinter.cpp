#include "printer/VirtualPrinter.h"

#include "ipc/ChannelVocabulary.h"
#include "printer/StatusReply.h"
#include "printer/StatusView.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

std::string describe(const std::string &object, const std::optional<std::size_t> &bytes) {
    return object + (bytes ? ", " + std::to_string(*bytes) + " bytes" : "");
}

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
      timeline(scenario.events), toldStatus(model.status()) {
    // Whoever waits for the printer already has missed nothing by it. A late announcement waits for a job.
    if (scenario.announcement == 0us) {
        announce();
    }
}

std::string shownText(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
    return text;
}

void VirtualPrinter::tell(std::string line) const {
    listener.told(time, shownText(std::move(line)));
}

// ---- What comes in

void VirtualPrinter::take(const platform::Notification &notification, PrinterTime now) {
    advance(now);
    if (!notification.object) {
        tell("< something without a name");
        return;
    }
    const std::string &object = *notification.object;
    tell("< " +
         describe(object, notification.data ? std::optional(notification.data->size()) : std::nullopt));

    if (object == channel::frontendByebye) {
        if (job) {
            ++job->report.notifications[object];
        }
        endJob();
        return;
    }
    if (object == channel::frontendAlive) {
        endJob(); // of a host that is no more
    }
    if (!job) {
        beginJob();
    }
    ++job->report.notifications[object];
    if (object == channel::frontendAlive) {
        hostAnnounced();
    } else if (object == channel::readPipe) {
        statusRequested();
    } else if (object == channel::writePipe && notification.data) {
        takeData(*notification.data, now);
    }
}

void VirtualPrinter::announce() {
    plan(time, PostNotification{channel::backendAlive, std::nullopt});
}

void VirtualPrinter::reconnected(PrinterTime now) {
    advance(now);
    if (scenario.announcement && isPresent()) {
        announce();
    }
}

void VirtualPrinter::hostAnnounced() {
    if (scenario.announcement && isPresent()) {
        plan(time + *scenario.announcement, PostNotification{channel::backendAlive, std::nullopt});
    }
}

void VirtualPrinter::statusRequested() {
    const std::uint64_t request = ++job->report.statusRequests;
    if (!isPresent()) {
        return;
    }
    if (auto reply = statusReply(scenario.replies, request, model.record())) {
        plan(time + reply->delay, PostNotification{std::move(reply->object), std::move(reply->data)});
    }
}

void VirtualPrinter::takeData(std::span<const std::byte> bytes, PrinterTime now) {
    advance(now);
    if (!job) {
        beginJob();
    }
    listener.dataArrived(bytes);
    job->feed(bytes);
    settleMemory();
    tellChanges();
}

// ---- A job

void VirtualPrinter::beginJob() {
    job = std::make_unique<JobRecorder>(++jobs, [this](const StreamEvent &event) { streamEvent(event); });
    overrunsBefore = model.overruns().size();
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
    report.overruns.assign(model.overruns().begin() + static_cast<std::ptrdiff_t>(overrunsBefore),
                           model.overruns().end());
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

void VirtualPrinter::streamEvent(const StreamEvent &event) {
    settleMemory();
    if (const auto *page = std::get_if<PageRead>(&event)) {
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

/// Puts what has come since the last time into the printer's memory. Command records take none, and neither
/// does what cannot be read as a stream.
void VirtualPrinter::settleMemory() {
    const StreamTotals &totals = job->totals();
    const std::uint64_t commands = job->report.commands.size() * sizeof(CommandRecord);
    const std::uint64_t header =
        totals.bytes - totals.dataBytes - std::min(totals.unread + commands, totals.bytes - totals.dataBytes);
    if (header > settledHeader) {
        model.received(MemoryPool::header, header - settledHeader);
        settledHeader = header;
    }
    if (totals.dataBytes > settledData) {
        model.received(MemoryPool::image, totals.dataBytes - settledData);
        settledData = totals.dataBytes;
    }
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
    std::optional<PrinterTime> next = timeline.nextDue();
    const auto consider = [&next](PrinterTime due) { next = std::min(next.value_or(due), due); };
    if (!deeds.empty()) {
        consider(deeds.begin()->first);
    }
    if (const auto change = model.nextChange()) {
        consider(*change);
    }
    return next;
}

std::optional<ChannelDeed> VirtualPrinter::takeDeed() {
    if (deeds.empty() || deeds.begin()->first > time) {
        return std::nullopt;
    }
    ChannelDeed deed = std::move(deeds.begin()->second);
    deeds.erase(deeds.begin());
    if (const auto *post = std::get_if<PostNotification>(&deed)) {
        tell("> " + describe(post->object, post->data ? std::optional(post->data->size()) : std::nullopt));
        if (job && post->object == channel::readPipe) {
            ++job->report.replies;
        }
    }
    return deed;
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

// What falls into the time without a channel shows only when that is over.

void VirtualPrinter::happen(const Leave & /*leave*/, const Timeline::Entry &entry) {
    hasLeft = entry.begins;
    if (!hasVanished) {
        plan(time,
             PostNotification{entry.begins ? channel::backendByebye : channel::backendAlive, std::nullopt});
    }
}

void VirtualPrinter::happen(const Vanish & /*vanish*/, const Timeline::Entry &entry) {
    hasVanished = entry.begins;
    if (entry.begins) {
        tell("gone without a word");
        deeds.clear();
        gone = !timeline.event(entry).lasting;
        plan(time, Disconnect{});
    } else {
        plan(time, Reconnect{});
        if (!hasLeft) {
            announce();
        }
    }
}

} // namespace veltrin::printer
