#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/CallWindow.h"
#include "platform/linux/Inbox.h"
#include "platform/linux/SenderTrust.h"
#include "platform/linux/TrustedUser.h"

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::platform {

/// Notifications on the system message bus; docs/channel.md describes their form. Both ends of a channel use
/// this class.
///
/// The two ends find each other by broadcast signals. From the peer's first notification on, everything is
/// sent to it alone, as calls whose replies say that they were delivered.
///
/// This class conducts: turns, posts and waits. What it conducts is the connection to the bus, the trust in
/// those who send, the inbox with what they sent, and the window of calls that are not answered yet. They do
/// not know of it.
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

    [[nodiscard]] std::unique_ptr<HeldNotification> hold() override { return inbox.hold(); }

    void stopObserving() noexcept override;
    [[nodiscard]] bool claim(const std::string &name) override;

    [[nodiscard]] bool isConnected() const override { return !connection.isLost(); }

    [[nodiscard]] std::optional<pid_t> peerProcess() const override;

    [[nodiscard]] bool post(const std::string &name, const std::string &object,
                            std::optional<std::span<const std::byte>> data) override;
    void turn(std::chrono::microseconds length) override;
    void turnWatching(std::chrono::microseconds length, std::span<pollfd> watched) override;
    void turnAfterPost(std::chrono::microseconds length) override;
    void performLater(std::function<void()> function) override;
    [[nodiscard]] bool waitForDelivery() override;

  private:
    using Time = BusConnection::Time;

    struct Settings {
        NotificationCenterClient client;
        UserCheck acceptsUser;
    };

    explicit DBusNotificationCenter(Settings settings);

    template <typename Condition>
    void turnUntil(std::chrono::microseconds length, Condition isOver, std::span<const pollfd> watched = {});
    template <typename Condition>
    void turnWhile(Condition isToBeWaitedFor);
    void heedNews();
    void requireReceiver(bool withData) const;
    void send(const std::string &name, const std::string &object,
              std::optional<std::span<const std::byte>> data);
    [[nodiscard]] int trySend(const std::string &name, const std::string &object,
                              std::optional<std::span<const std::byte>> data);
    void noteLossOfBus();
    void notePeerChange(Inbox::PeerChange change);

    NotificationCenterClient client;
    BusConnection connection; // everything below holds on to it, so it goes last
    SenderTrust senders;
    Inbox inbox;
    CallWindow calls;
    std::vector<std::function<void()>> later;
};

} // namespace veltrin::platform
