#include "printer/PrinterRun.h"

#include "ipc/ChannelVocabulary.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string_view>
#include <utility>
#include <variant>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

/// How long to wait for the channel before looking at everything else again.
constexpr PrinterTime longestTurn = 100ms;

/// How long the bus may take to bring an announcement back to whoever made it.
constexpr PrinterTime echoLimit = 2s;

/// So many strange hosts are hinted at.
constexpr std::size_t strangeHostLimit = 8;

std::atomic<bool> endSignal{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void noteEndSignal(int /*signal*/) {
    endSignal = true;
}

} // namespace

void catchEndSignals() {
    struct sigaction action {};

    action.sa_handler = noteEndSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool endWanted() {
    return endSignal;
}

PrinterRun::PrinterRun(platform::Platform &thePlatform, Wishes theWishes)
    : platform(thePlatform), wishes(std::move(theWishes)), printer(wishes.scenario, wishes.listener) {}

bool PrinterRun::run(std::string &problem) {
    if (!connect(problem)) {
        return false;
    }
    tell("listening");
    const bool served = serve(problem);
    sayGoodbye();
    printer.endJob();
    printer.tellUnprinted();
    return served;
}

bool PrinterRun::serve(std::string &problem) {
    while (true) {
        if (!act(problem)) {
            return false;
        }
        if (printer.isGone() || !wishes.goOn(printer, now())) {
            return true;
        }
        turn();
        hintAtDeafness();
    }
}

/// To whoever is still there; there may be nobody.
void PrinterRun::sayGoodbye() {
    if (center && center->isConnected()) {
        tell("> backend-byebye");
        try {
            static_cast<void>(
                center->post(wishes.uri + channel::frontendSuffix, channel::backendByebye, std::nullopt));
        } catch (const platform::NotificationError &) {
        }
    }
    center.reset();
}

/// Does what is due.
bool PrinterRun::act(std::string &problem) {
    if ((isBusLost || (center && !center->isConnected())) && !awaitBus(problem)) {
        return false;
    }
    printer.advance(now());
    while (const auto deed = printer.takeDeed()) {
        if (!perform(*deed, problem)) {
            return false;
        }
    }
    return true;
}

/// The bus is lost: the host is, too, and whoever stays comes back with the bus.
bool PrinterRun::awaitBus(std::string &problem) {
    if (!isBusLost) {
        center.reset();
        printer.endJob();
        problem = "the message bus is lost";
        if (!wishes.stays) {
            return false;
        }
        tell("! the message bus is lost: waiting for it");
        isBusLost = true;
    }
    if (std::string stillMissing; open(stillMissing) == Opening::done) {
        isBusLost = false;
        tell("listening");
        printer.reconnected(now());
    }
    return true;
}

/// Opens the channel, after whoever else serves the same URI if that is waited for.
bool PrinterRun::connect(std::string &problem) {
    Opening opening = open(problem);
    while (opening == Opening::occupied && wishes.waitsForOther && wishes.waitsForOther()) {
        platform.clock().sleepFor(longestTurn);
        opening = open(problem);
    }
    return opening == Opening::done;
}

PrinterRun::Opening PrinterRun::open(std::string &problem) {
    center =
        platform.makeNotificationCenter({.isCancelled = endWanted,
                                         .report = [this](const std::string &line) { tell("! " + line); },
                                         .overheard = [this](const std::string &name) { overheard(name); },
                                         .objectionTo = wishes.objectionTo},
                                        problem);
    if (!center) {
        return Opening::impossible;
    }
    try {
        const std::string name = wishes.uri + channel::backendSuffix;
        if (!center->claim(name)) {
            problem = "another printer or backend serves \"" + wishes.uri + "\"";
            center.reset();
            return Opening::occupied;
        }
        center->startObserving(name, {channel::frontendAlive, channel::frontendByebye, true},
                               [this](const platform::Notification &notification) {
                                   hearsAnything = true;
                                   printer.take(notification, now());
                               });
    } catch (const platform::NotificationError &error) {
        problem = error.what();
        center.reset();
        return Opening::impossible;
    }
    return Opening::done;
}

bool PrinterRun::perform(const ChannelDeed &deed, std::string &problem) {
    if (const auto *notification = std::get_if<PostNotification>(&deed)) {
        post(*notification);
    } else if (std::holds_alternative<Disconnect>(deed)) {
        center.reset();
    } else if (!isBusLost && open(problem) != Opening::done) {
        if (!wishes.stays) {
            return false;
        }
        tell("! " + problem + ": waiting");
        isBusLost = true;
    }
    return true;
}

void PrinterRun::post(const PostNotification &notification) {
    if (!center) {
        tell("! not delivered: there is no channel");
        return;
    }
    try {
        if (!center->post(wishes.uri + channel::frontendSuffix, notification.object, notification.data)) {
            tell("! not delivered: the host has gone");
        } else if (notification.object == channel::backendAlive && !announced) {
            announced = now();
        }
    } catch (const platform::NotificationError &error) {
        // A host that is gone, or a bus that is: neither is a reason for a printer to end.
        tell(std::string("! not delivered: ") + error.what());
    }
}

void PrinterRun::turn() {
    const PrinterTime until = now() + longestTurn;
    const PrinterTime length =
        std::clamp(printer.nextDue().value_or(until) - now(), PrinterTime(0), longestTurn);
    if (!center) {
        platform.clock().sleepFor(length);
        return;
    }
    try {
        center->turn(length);
    } catch (const platform::NotificationError &error) {
        tell(std::string("! ") + error.what());
    }
}

// ---- Hints for whoever waits in vain

void PrinterRun::overheard(const std::string &name) {
    constexpr std::string_view toBackend = channel::backendSuffix;
    if (name == wishes.uri + channel::frontendSuffix) {
        hearsAnything = true;
    } else if (name.ends_with(toBackend) && strangeHosts.size() < strangeHostLimit &&
               strangeHosts.insert(name).second) {
        tell("hint: a filter looks for the printer \"" + name.substr(0, name.size() - toBackend.size()) +
             "\"; this one is \"" + wishes.uri + "\"");
    }
}

/// An announcement for all to hear comes back to oneself, too, unless the bus's policy is against it.
void PrinterRun::hintAtDeafness() {
    if (announced && !hearsAnything && !isDeafnessTold && now() - *announced > echoLimit) {
        isDeafnessTold = true;
        tell("hint: the bus does not let this user take part; start the printer as root or as the user that "
             "CUPS runs its filters as (\"" VELTRIN_SCHEDULER_USER "\")");
    }
}

void PrinterRun::tell(const std::string &line) {
    wishes.listener.told(now(), shownText(line));
}

PrinterTime PrinterRun::now() const {
    return std::chrono::duration_cast<PrinterTime>(std::chrono::steady_clock::now() - switchedOn);
}

} // namespace veltrin::printer
