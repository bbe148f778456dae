#include "printer/ChannelEnd.h"

#include "ipc/ChannelVocabulary.h"
#include "printer/StatusReply.h"

#include <algorithm>
#include <utility>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

std::string describe(const std::string &object, const std::optional<std::size_t> &bytes) {
    return object + (bytes ? ", " + std::to_string(*bytes) + " bytes" : "");
}

} // namespace

ChannelEnd::ChannelEnd(VirtualPrinter &thePrinter) : printer(thePrinter) {
    printer.setPlugEvents([this](const ScenarioEvent &event, bool begins) { happened(event, begins); });
    // Whoever waits for the printer already has missed nothing by it. A late announcement waits for a job.
    if (printer.rules().announcement == 0us) {
        announce();
    }
}

ChannelEnd::~ChannelEnd() {
    printer.setPlugEvents([](const ScenarioEvent &, bool) {});
}

// ---- What comes in

void ChannelEnd::take(const platform::Notification &notification, PrinterTime now) {
    advance(now);
    if (!notification.object) {
        printer.tell("< something without a name");
        return;
    }
    const std::string &object = *notification.object;
    printer.tell(
        "< " + describe(object, notification.data ? std::optional(notification.data->size()) : std::nullopt));

    if (object == channel::frontendByebye) {
        if (printer.inJob()) {
            ++printer.report().notifications[object];
        }
        printer.endJob();
        return;
    }
    if (object == channel::frontendAlive) {
        printer.endJob(); // of a host that is no more
    }
    printer.needJob();
    ++printer.report().notifications[object];
    if (object == channel::frontendAlive) {
        hostAnnounced();
    } else if (object == channel::readPipe) {
        statusRequested();
    } else if (object == channel::writePipe && notification.data) {
        printer.takeData(*notification.data, now);
    }
}

void ChannelEnd::announce() {
    plan(printer.passed(), PostNotification{channel::backendAlive, std::nullopt});
}

void ChannelEnd::reconnected(PrinterTime now) {
    advance(now);
    if (printer.rules().announcement && isPresent()) {
        announce();
    }
}

void ChannelEnd::hostAnnounced() {
    if (const auto &announcement = printer.rules().announcement; announcement && isPresent()) {
        plan(printer.passed() + *announcement, PostNotification{channel::backendAlive, std::nullopt});
    }
}

void ChannelEnd::statusRequested() {
    const std::uint64_t request = ++printer.report().statusRequests;
    if (!isPresent()) {
        return;
    }
    if (auto reply = statusReply(printer.rules().replies, request, printer.printer().record())) {
        plan(printer.passed() + reply->delay,
             PostNotification{std::move(reply->object), std::move(reply->data)});
    }
}

// ---- What goes on by itself

std::optional<PrinterTime> ChannelEnd::nextDue() const {
    const std::optional<PrinterTime> due = printer.nextDue();
    return deeds.empty() ? due : std::min(due.value_or(deeds.begin()->first), deeds.begin()->first);
}

std::optional<ChannelDeed> ChannelEnd::takeDeed() {
    if (deeds.empty() || deeds.begin()->first > printer.passed()) {
        return std::nullopt;
    }
    ChannelDeed deed = std::move(deeds.begin()->second);
    deeds.erase(deeds.begin());
    if (const auto *post = std::get_if<PostNotification>(&deed)) {
        printer.tell("> " +
                     describe(post->object, post->data ? std::optional(post->data->size()) : std::nullopt));
        if (printer.inJob() && post->object == channel::readPipe) {
            ++printer.report().replies;
        }
    }
    return deed;
}

void ChannelEnd::happened(const ScenarioEvent &event, bool begins) {
    const auto &happening = std::get<PlugHappening>(event.happening);
    if (std::holds_alternative<Leave>(happening)) {
        leave(begins);
    } else if (std::holds_alternative<Vanish>(happening)) {
        vanish(begins, event.lasting.has_value());
    } else if (begins) {
        printer.tell("there is no wire for this to happen to");
    }
}

// What falls into the time without a channel shows only when that is over.

void ChannelEnd::leave(bool begins) {
    hasLeft = begins;
    if (!hasVanished) {
        plan(printer.passed(),
             PostNotification{begins ? channel::backendByebye : channel::backendAlive, std::nullopt});
    }
}

void ChannelEnd::vanish(bool begins, bool comesBack) {
    hasVanished = begins;
    if (begins) {
        printer.tell("gone without a word");
        deeds.clear();
        gone = !comesBack;
        plan(printer.passed(), Disconnect{});
    } else {
        plan(printer.passed(), Reconnect{});
        if (!hasLeft) {
            announce();
        }
    }
}

} // namespace veltrin::printer
