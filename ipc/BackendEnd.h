#pragma once

#include "platform/Platform.h"

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace veltrin {

/// The backend's end of the channel: alone at its device URI, and closed while there is no bus. What goes
/// wrong with a host or the bus is reported, and is no reason for a backend to end.
class BackendEnd {
  public:
    struct Settings {
        platform::Platform &platform;
        std::string uri; ///< the device URI that the channel is named after
        platform::NotificationCenterClient client;
        platform::NotificationCenter::Observer observer;
    };

    enum class Opening {
        done,
        occupied, ///< somebody else serves the URI
        impossible,
    };

    explicit BackendEnd(Settings theSettings);

    /// Comes to the bus, anew if need be, and listens. Sets `problem` where it does not.
    [[nodiscard]] Opening open(std::string &problem);

    /// The same after whoever else serves the URI, which is asked for about ten times a second as long as
    /// `goesOnWaiting` says so.
    [[nodiscard]] Opening openInTurn(const std::function<bool()> &goesOnWaiting, std::string &problem);

    /// Leaves without a word.
    void close() { center.reset(); }

    [[nodiscard]] bool isOpen() const { return center != nullptr; }

    [[nodiscard]] bool isConnected() const { return center && center->isConnected(); }

    /// The process of the host that is there, where it is known.
    [[nodiscard]] std::optional<pid_t> hostProcess() const {
        return center ? center->peerProcess() : std::nullopt;
    }

    /// Posts to the host, or to all while there is none. Returns whether that was possible.
    bool post(const std::string &object, std::optional<std::span<const std::byte>> data = std::nullopt);

    /// Says goodbye to whoever is still there, which may be nobody, and leaves.
    void sayGoodbye();

    /// Lets the observer hear one notification that comes in meanwhile, if the end is open.
    void turn(std::chrono::microseconds length);

    /// The same, and ends when something can be done with one of the descriptors, which their `revents` tell.
    void turnWatching(std::chrono::microseconds length, std::span<pollfd> watched);

    /// In the observer: keeps the notification, to be acknowledged later.
    [[nodiscard]] std::unique_ptr<platform::HeldNotification> hold() { return center->hold(); }

  private:
    void turnBy(const std::function<void()> &turning) const;

    Settings settings;
    std::unique_ptr<platform::NotificationCenter> center;
};

} // namespace veltrin
