#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/BusHandles.h"
#include "platform/linux/CallWindow.h"
#include "platform/linux/ChannelPeer.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/SenderTrust.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace veltrin::platform {

class BusConnection;

/// What has come in for the observer: kept until it is known who sent it, let count as to who the peer is,
/// and delivered one by one, in the order in which it came.
class Inbox {
  public:
    /// More than a peer that keeps to the window ever has on its way, held ones included; whoever sends more
    /// without waiting for the replies is refused.
    static constexpr std::size_t limit = 2 * CallWindow::size;

    /// What becomes of the peer.
    enum class PeerChange {
        left,      ///< it has left the bus
        replaced,  ///< another one has announced itself in its stead
        succeeded, ///< another one comes after it, which is not to answer for it
    };

    struct Settings {
        const BusConnection &connection;
        SenderTrust &senders;

        /// Takes one line for the diagnostic log: why something was dropped, refused or is kept waiting.
        std::function<void(const std::string &line)> report;

        /// Takes the names of others' signals. Nothing where nobody wants to know.
        std::function<void(const std::string &name)> overheard;

        /// Called before the peer changes, the first time included.
        std::function<void(PeerChange change)> peerChanges;
    };

    explicit Inbox(Settings settings);
    Inbox(const Inbox &) = delete;
    Inbox &operator=(const Inbox &) = delete;
    ~Inbox() = default;

    /// Takes in what comes by the connection from now on. Returns 0 or more, or the negative error number.
    [[nodiscard]] int listen();

    /// As NotificationCenter has it.
    void startObserving(const std::string &name, const PeerCommands &peerCommands,
                        NotificationCenter::Observer observer);

    void stopObserving() noexcept { observation.reset(); }

    [[nodiscard]] std::unique_ptr<HeldNotification> hold();

    /// Puts a departure from the bus behind what has come in before.
    void noteDeparture(const std::string &sender) { incomings.push_back({sender, nullptr, {}}); }

    /// Nothing will be heard of the peer any more.
    void notePeersDeparture();

    [[nodiscard]] const ChannelPeer &peer() const { return currentPeer; }

    /// Delivers the first of what has come in, of those whose sender is known by now; nothing while the
    /// observer runs. Returns whether the observer was called.
    bool deliverNext();

    /// Lets it count who has left and who has announced itself, though the observer has yet to hear of it.
    void heedNews();

    /// Whether somebody has announced itself of whom the bus has yet to tell the user.
    [[nodiscard]] bool isAnnouncerUnknown() const;

    /// Whether the peer has gone, none has come in its place, and the observer has yet to hear of it.
    [[nodiscard]] bool isFarewellUntold() const;

  private:
    using Verdict = SenderTrust::Verdict;

    struct Observation {
        std::string name;
        std::string path;
        PeerCommands peerCommands;
        NotificationCenter::Observer observer;
    };

    struct Incoming {
        std::string sender;
        BusMessage message;               // null: the sender has left the bus
        std::optional<Standing> standing; // found out once, in the order of their coming, at the latest when
                                          // it is delivered
    };

    /// What the observer is being called with.
    struct Delivery {
        sd_bus_message *message;
        ReceivedNotification received;
        bool isHeld = false;
    };

    /// A callback of the library. It only notes what came; observers run outside of it.
    static int received(sd_bus_message *message, void *inbox, sd_bus_error *error) noexcept;
    int receive(sd_bus_message *message);
    void overhear(sd_bus_message *message) const;

    bool deliver(const Incoming &incoming);
    bool deliverMessage(const Incoming &incoming);
    bool deliverDeparture(const Incoming &incoming);
    void observe(const Notification &notification);
    void observe(Delivery &delivery);
    void answer(const Incoming &incoming) const;
    void refuse(sd_bus_message *message, const char *error, const std::string &reason) const;

    [[nodiscard]] Standing standingOf(const Incoming &incoming);
    [[nodiscard]] Standing standingOfMessage(const std::string &sender, sd_bus_message *message);
    [[nodiscard]] Standing standingOfDeparture(const std::string &sender);
    [[nodiscard]] Word wordOf(sd_bus_message *message) const;
    [[nodiscard]] bool isDeliverable(sd_bus_message *message) const;

    [[nodiscard]] bool mustWait(const Incoming &incoming) const;
    void letWait(Incoming incoming);
    void endWaiting();
    void endWaiting(const std::string &sender);

    const BusConnection &connection;
    SenderTrust &senders;
    std::function<void(const std::string &line)> report;
    std::function<void(const std::string &name)> overheard;
    std::function<void(PeerChange change)> peerChanges;

    BusSlot filter;
    std::optional<Observation> observation;
    bool isDelivering = false;
    Delivery *current = nullptr;                                           // null between deliveries
    std::shared_ptr<std::size_t> held = std::make_shared<std::size_t>(0U); // so many are not answered yet
    ChannelPeer currentPeer;
    std::deque<Incoming> incomings;
    std::deque<Incoming> waiting; // announcements of others while the peer that is there comes first
};

} // namespace veltrin::platform
