#include "ipc/BackendEnd.h"

#include "ipc/ChannelVocabulary.h"

#include <utility>

namespace veltrin {

namespace {

/// How long to wait before asking again for a URI that somebody else serves.
constexpr std::chrono::milliseconds claimInterval{100};

} // namespace

BackendEnd::BackendEnd(Settings theSettings) : settings(std::move(theSettings)) {}

BackendEnd::Opening BackendEnd::open(std::string &problem) {
    center.reset(); // a claim of our own must not be in the way
    center = settings.platform.makeNotificationCenter(settings.client, problem);
    if (!center) {
        return Opening::impossible;
    }
    try {
        const std::string name = settings.uri + channel::backendSuffix;
        if (!center->claim(name)) {
            problem = "another printer or backend serves \"" + settings.uri + "\"";
            center.reset();
            return Opening::occupied;
        }
        center->startObserving(name, {channel::frontendAlive, channel::frontendByebye, true},
                               settings.observer);
    } catch (const platform::NotificationError &error) {
        problem = error.what();
        center.reset();
        return Opening::impossible;
    }
    return Opening::done;
}

BackendEnd::Opening BackendEnd::openInTurn(const std::function<bool()> &goesOnWaiting, std::string &problem) {
    Opening opening = open(problem);
    while (opening == Opening::occupied && goesOnWaiting && goesOnWaiting()) {
        settings.platform.clock().sleepFor(claimInterval);
        opening = open(problem);
    }
    return opening;
}

bool BackendEnd::post(const std::string &object, std::optional<std::span<const std::byte>> data) {
    std::string problem;
    if (!center) {
        problem = "there is no channel";
    } else {
        try {
            if (center->post(settings.uri + channel::frontendSuffix, object, data)) {
                return true;
            }
            problem = "the host has gone";
        } catch (const platform::NotificationError &error) {
            problem = error.what();
        }
    }
    settings.client.report("not delivered: " + problem);
    return false;
}

void BackendEnd::sayGoodbye() {
    if (isConnected()) {
        try {
            static_cast<void>(
                center->post(settings.uri + channel::frontendSuffix, channel::backendByebye, std::nullopt));
        } catch (const platform::NotificationError &) {
        }
    }
    close();
}

void BackendEnd::turn(std::chrono::microseconds length) {
    turnBy([this, length] { center->turn(length); });
}

void BackendEnd::turnWatching(std::chrono::microseconds length, std::span<pollfd> watched) {
    turnBy([this, length, watched] { center->turnWatching(length, watched); });
}

void BackendEnd::turnBy(const std::function<void()> &turning) const {
    try {
        turning();
    } catch (const platform::NotificationError &error) {
        settings.client.report(error.what());
    }
}

} // namespace veltrin
