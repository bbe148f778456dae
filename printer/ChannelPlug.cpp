#include "printer/ChannelPlug.h"

#include "ipc/ChannelVocabulary.h"
#include "platform/EndSignals.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <variant>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

/// How long the bus may take to bring an announcement back to whoever made it.
constexpr PrinterTime echoLimit = 2s;

/// So many strange hosts are hinted at.
constexpr std::size_t strangeHostLimit = 8;

} // namespace

ChannelPlug::ChannelPlug(platform::Platform &thePlatform, VirtualPrinter &thePrinter,
                         const PrinterClock &theClock, Wishes theWishes)
    : platform(thePlatform), printer(thePrinter), clock(theClock), wishes(std::move(theWishes)) {}

/// Opens the channel, after whoever else serves the same URI if that is waited for.
bool ChannelPlug::open(std::string &problem) {
    Opening opening = connect(problem);
    while (opening == Opening::occupied && wishes.waitsForOther && wishes.waitsForOther()) {
        platform.clock().sleepFor(longestTurn);
        opening = connect(problem);
    }
    if (opening == Opening::done) {
        tell("listening");
    }
    return opening == Opening::done;
}

/// To whoever is still there; there may be nobody.
void ChannelPlug::close() {
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
bool ChannelPlug::act(std::string &problem) {
    if ((isBusLost || (center && !center->isConnected())) && !awaitBus(problem)) {
        return false;
    }
    end.advance(now());
    while (const auto deed = end.takeDeed()) {
        if (!perform(*deed, problem)) {
            return false;
        }
    }
    return true;
}

/// The bus is lost: the host is, too, and whoever stays comes back with the bus.
bool ChannelPlug::awaitBus(std::string &problem) {
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
    if (std::string stillMissing; connect(stillMissing) == Opening::done) {
        isBusLost = false;
        tell("listening");
        end.reconnected(now());
    }
    return true;
}

ChannelPlug::Opening ChannelPlug::connect(std::string &problem) {
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
                                   end.take(notification, now());
                               });
    } catch (const platform::NotificationError &error) {
        problem = error.what();
        center.reset();
        return Opening::impossible;
    }
    return Opening::done;
}

bool ChannelPlug::perform(const ChannelDeed &deed, std::string &problem) {
    if (const auto *notification = std::get_if<PostNotification>(&deed)) {
        post(*notification);
    } else if (std::holds_alternative<Disconnect>(deed)) {
        center.reset();
    } else if (!isBusLost && connect(problem) != Opening::done) {
        if (!wishes.stays) {
            return false;
        }
        tell("! " + problem + ": waiting");
        isBusLost = true;
    }
    return true;
}

void ChannelPlug::post(const PostNotification &notification) {
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

void ChannelPlug::turn() {
    const PrinterTime until = now() + longestTurn;
    const PrinterTime length = std::clamp(end.nextDue().value_or(until) - now(), PrinterTime(0), longestTurn);
    if (!center) {
        platform.clock().sleepFor(length);
    } else {
        try {
            center->turn(length);
        } catch (const platform::NotificationError &error) {
            tell(std::string("! ") + error.what());
        }
    }
    hintAtDeafness();
}

// ---- Hints for whoever waits in vain

void ChannelPlug::overheard(const std::string &name) {
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
void ChannelPlug::hintAtDeafness() {
    if (announced && !hearsAnything && !isDeafnessTold && now() - *announced > echoLimit) {
        isDeafnessTold = true;
        tell("hint: the bus does not let this user take part; start the printer as root or as the user that "
             "CUPS runs its filters as (\"" VELTRIN_SCHEDULER_USER "\")");
    }
}

void ChannelPlug::tell(const std::string &line) {
    printer.tell(now(), line);
}

} // namespace veltrin::printer
