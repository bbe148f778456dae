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
    : platform(thePlatform), printer(thePrinter), clock(theClock), wishes(std::move(theWishes)),
      backendEnd({.platform = platform,
                  .uri = wishes.uri,
                  .client = {.isCancelled = endWanted,
                             .report = [this](const std::string &line) { tell("! " + line); },
                             .overheard = [this](const std::string &name) { overheard(name); },
                             .objectionTo = wishes.objectionTo},
                  .observer = [this](const platform::Notification &notification) {
                      hearsAnything = true;
                      end.take(notification, now());
                  }}) {}

bool ChannelPlug::open(std::string &problem) {
    if (backendEnd.openInTurn(wishes.waitsForOther, problem) != BackendEnd::Opening::done) {
        return false;
    }
    tell("listening");
    return true;
}

void ChannelPlug::close() {
    if (backendEnd.isConnected()) {
        tell("> backend-byebye");
    }
    backendEnd.sayGoodbye();
}

/// Does what is due.
bool ChannelPlug::act(std::string &problem) {
    if ((isBusLost || (backendEnd.isOpen() && !backendEnd.isConnected())) && !awaitBus(problem)) {
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
        backendEnd.close();
        printer.endJob();
        problem = "the message bus is lost";
        if (!wishes.stays) {
            return false;
        }
        tell("! the message bus is lost: waiting for it");
        isBusLost = true;
    }
    if (std::string stillMissing; backendEnd.open(stillMissing) == BackendEnd::Opening::done) {
        isBusLost = false;
        tell("listening");
        end.reconnected(now());
    }
    return true;
}

bool ChannelPlug::perform(const ChannelDeed &deed, std::string &problem) {
    if (const auto *notification = std::get_if<PostNotification>(&deed)) {
        post(*notification);
    } else if (std::holds_alternative<Disconnect>(deed)) {
        backendEnd.close();
    } else if (!isBusLost && backendEnd.open(problem) != BackendEnd::Opening::done) {
        if (!wishes.stays) {
            return false;
        }
        tell("! " + problem + ": waiting");
        isBusLost = true;
    }
    return true;
}

/// A host that is gone, or a bus that is, is no reason for a printer to end.
void ChannelPlug::post(const PostNotification &notification) {
    const bool isPosted = backendEnd.post(notification.object, notification.data);
    if (isPosted && notification.object == channel::backendAlive && !announced) {
        announced = now();
    }
}

void ChannelPlug::turn() {
    const PrinterTime until = now() + longestTurn;
    const PrinterTime length = std::clamp(end.nextDue().value_or(until) - now(), PrinterTime(0), longestTurn);
    if (backendEnd.isOpen()) {
        backendEnd.turn(length);
    } else {
        platform.clock().sleepFor(length);
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
