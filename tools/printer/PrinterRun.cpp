#include "tools/printer/PrinterRun.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <utility>
#include <variant>

namespace veltrin {

namespace {

using namespace std::chrono_literals;

/// How long to wait for the channel before looking at everything else again.
constexpr PrinterTime longestTurn = 100ms;

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

PrinterRun::PrinterRun(platform::Platform &channelPlatform, Wishes whatToDo)
    : platform(channelPlatform), wishes(std::move(whatToDo)), printer(wishes.scenario, wishes.listener) {}

bool PrinterRun::run(std::string &problem) {
    if (!connect(problem)) {
        return false;
    }
    tell("listening");
    while (true) {
        printer.advance(now());
        while (const auto deed = printer.takeDeed()) {
            if (!perform(*deed, problem)) {
                return false;
            }
        }
        if (printer.isGone() || !wishes.goOn(printer, now())) {
            break;
        }
        turn();
    }
    if (center) {
        tell("> backend-byebye");
        post({"backend-byebye", std::nullopt});
        center.reset();
    }
    printer.endJob();
    return true;
}

bool PrinterRun::connect(std::string &problem) {
    center = platform.makeNotificationCenter(
        {.isCancelled = endWanted, .report = [this](const std::string &line) { tell("! " + line); }},
        problem);
    if (!center) {
        return false;
    }
    try {
        center->startObserving(
            wishes.uri + ".backend", {"fronted-alive", "frontend-byebye"},
            [this](const platform::Notification &notification) { printer.take(notification, now()); });
    } catch (const platform::NotificationError &error) {
        problem = error.what();
        return false;
    }
    return true;
}

bool PrinterRun::perform(const ChannelDeed &deed, std::string &problem) {
    if (const auto *notification = std::get_if<PostNotification>(&deed)) {
        post(*notification);
    } else if (std::holds_alternative<Disconnect>(deed)) {
        center.reset();
    } else {
        return connect(problem);
    }
    return true;
}

void PrinterRun::post(const PostNotification &notification) {
    try {
        static_cast<void>(center->post(wishes.uri + ".frontend", notification.object, notification.data));
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

void PrinterRun::tell(const std::string &line) {
    wishes.listener.told(now(), line);
}

PrinterTime PrinterRun::now() const {
    return std::chrono::duration_cast<PrinterTime>(std::chrono::steady_clock::now() - switchedOn);
}

} // namespace veltrin
