#pragma once

#include "platform/NotificationCenter.h"
#include "printer/VirtualPrinter.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// The printer's backend as one end of the channel: what it makes of what comes in and what it has to do when,
// without doing it.

namespace veltrin::printer {

// What is to be done on the channel.

struct PostNotification {
    std::string object;
    std::optional<std::vector<std::byte>> data;
};

/// Leave the channel without a word.
struct Disconnect {};

/// Come back to it as somebody new.
struct Reconnect {};

using ChannelDeed = std::variant<PostNotification, Disconnect, Reconnect>;

class ChannelEnd {
  public:
    explicit ChannelEnd(VirtualPrinter &printer);
    ChannelEnd(const ChannelEnd &) = delete;
    ChannelEnd &operator=(const ChannelEnd &) = delete;
    ~ChannelEnd();

    /// A notification from the host.
    void take(const platform::Notification &notification, PrinterTime now);

    /// Lets the time pass up to `now`.
    void advance(PrinterTime now) { printer.advance(now); }

    /// When there is something to be done or told next, if nothing comes in.
    [[nodiscard]] std::optional<PrinterTime> nextDue() const;

    /// The next deed, if one is due; it is to be done at once.
    [[nodiscard]] std::optional<ChannelDeed> takeDeed();

    /// The channel, lost meanwhile, is there again.
    void reconnected(PrinterTime now);

    /// It has vanished for good.
    [[nodiscard]] bool isGone() const { return gone; }

  private:
    void plan(PrinterTime when, ChannelDeed deed) { deeds.emplace(when, std::move(deed)); }

    /// Whether the channel is there and the backend has not said goodbye.
    [[nodiscard]] bool isPresent() const { return !hasLeft && !hasVanished; }

    void announce();
    void hostAnnounced();
    void statusRequested();
    void happened(const ScenarioEvent &event, bool begins);
    void leave(bool begins);
    void vanish(bool begins, bool comesBack);

    VirtualPrinter &printer;
    std::multimap<PrinterTime, ChannelDeed> deeds; ///< by when they are due, first planned first
    bool hasLeft = false;                          ///< with a goodbye
    bool hasVanished = false;                      ///< without one
    bool gone = false;
};

} // namespace veltrin::printer
