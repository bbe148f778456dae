#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/BusHandles.h"
#include "platform/linux/CallWindow.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/SenderTrust.h"
#include "platform/linux/TrustedUser.h"

#include <systemd/sd-bus.h>

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::platform {

/// Notifications on the system message bus; docs/channel.md describes their form. Both ends of a channel use
/// this class.
///
/// The two ends find each other by broadcast signals. From the peer's first notification on, everything is
/// sent to it alone, as calls whose replies say that they were delivered.
///
/// There is no thread, and nothing waits inside the library: every wait is a poll of the bus with a limit.
class DBusNotificationCenter final : public NotificationCenter {
  public:
    using UserCheck = std::function<bool(uid_t)>;

    /// Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS, if set). Null with `problem` set where it cannot
    /// be reached or does not let us in within 5 seconds. `acceptsUser` says whose notifications are taken.
    [[nodiscard]] static std::unique_ptr<DBusNotificationCenter>
    connect(NotificationCenterClient client, std::string &problem, UserCheck acceptsUser = mayTakePart);

    ~DBusNotificationCenter() override;

    void startObserving(const std::string &name, const PeerCommands &peerCommands,
                        Observer observer) override;
    void stopObserving() noexcept override;
    [[nodiscard]] bool claim(const std::string &name) override;

    [[nodiscard]] bool isConnected() const override { return !connection.isLost(); }

    [[nodiscard]] bool post(const std::string &name, const std::string &object,
                            std::optional<std::span<const std::byte>> data) override;
    void turn(std::chrono::microseconds length) override;
    void turnAfterPost(std::chrono::microseconds length) override;
    void performLater(std::function<void()> function) override;
    [[nodiscard]] bool waitForDelivery() override;

  private:
    using Time = BusConnection::Time;

    struct Observation {
        std::string name;
        std::string path;
        PeerCommands peerCommands;
        Observer observer;
    };

    using Verdict = SenderTrust::Verdict;

    /// What an incoming notification is to the channel. Found out once for each, in the order of their
    /// coming, at the latest when it is delivered.
    enum class Standing {
        unknown,
        ofPeer,        ///< of the peer, which it may have become by it
        peersFarewell, ///< said, or meant by leaving the bus
        ofNobody,      ///< of somebody who is not the peer
    };

    /// What has come in and is not delivered yet.
    struct Incoming {
        std::string sender;
        BusMessage message; // null: the sender has left the bus
        Standing standing = Standing::unknown;
    };

    DBusNotificationCenter(NotificationCenterClient owner, UserCheck acceptsUser);

    // Callbacks of the library. They only note what happened; observers run outside of them.
    static int received(sd_bus_message *message, void *center, sd_bus_error *error) noexcept;
    int receive(sd_bus_message *message);
    void overhear(sd_bus_message *message) const;

    bool deliverNext();
    bool deliver(const Incoming &incoming);
    bool deliverMessage(const Incoming &incoming);
    bool deliverDeparture(const Incoming &incoming);
    void observe(const Notification &notification);
    [[nodiscard]] Standing standingOf(const Incoming &incoming);
    [[nodiscard]] Standing standingOfMessage(const std::string &sender, sd_bus_message *message);
    [[nodiscard]] bool mustWait(const Incoming &incoming) const;
    void letWait(Incoming incoming);
    void endWaiting();
    void endWaiting(const std::string &sender);
    void heedNews();
    [[nodiscard]] bool isAnnouncerUnknown() const;
    [[nodiscard]] bool isFarewellUntold() const;
    void refuse(sd_bus_message *message, const char *error, const std::string &reason) const;
    static void answerWithError(sd_bus_message *message, const char *error, const std::string &reason);

    template <typename Condition>
    void turnUntil(std::chrono::microseconds length, Condition isOver);
    template <typename Condition>
    void turnWhile(Condition isToBeWaitedFor);
    void requireReceiver(bool withData) const;
    [[nodiscard]] int trySend(const std::string &name, const std::string &object,
                              std::optional<std::span<const std::byte>> data);
    void noteLossOfBus();

    NotificationCenterClient client;
    BusConnection connection; // everything below holds on to it, so it goes last
    BusSlot filter;

    std::optional<Observation> observation;
    SenderTrust senders;
    std::deque<Incoming> inbox;
    std::deque<Incoming> waiting; // announcements of others while the peer that is there comes first
    bool isDelivering = false;

    std::string peer; // its unique name; empty while there is none
    bool hasPeerLeft = false;
    bool hasPeerSaidFarewell = false;

    CallWindow calls;

    std::vector<std::function<void()>> later;
};

} // namespace veltrin::platform
