#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace veltrin::platform {

/// What a notification brings besides its name.
struct Notification {
    /// The object; nothing where it is not a text.
    std::optional<std::string> object;

    /// The block under "data" in the user info, if there is one. Valid only while the observer runs.
    std::optional<std::span<const std::byte>> data;
};

/// A notification that has been heard but is not taken yet. One that is let go without having been
/// acknowledged is lost, and its sender is told so.
class HeldNotification {
  public:
    HeldNotification() = default;
    HeldNotification(const HeldNotification &) = delete;
    HeldNotification &operator=(const HeldNotification &) = delete;
    virtual ~HeldNotification() = default;

    /// The block, empty where there is none; valid as long as this object is there.
    [[nodiscard]] virtual std::span<const std::byte> data() const = 0;

    /// Writes the block from this byte on to a descriptor, as far as it takes it, like write(2): returns how
    /// many bytes it has taken, or -1 with `errno` set. A pipe gets them without a copy where the system can.
    [[nodiscard]] virtual ssize_t writeTo(int descriptor, std::size_t from) = 0;

    /// Tells the sender that it is taken.
    virtual void acknowledge() = 0;
};

/// The two objects by which the other end comes and goes. A notification center needs to know them because
/// an end may also go without a word, and another one may take its place.
struct PeerCommands {
    std::string announcement;
    std::string farewell;

    /// Whether the peer that is there comes first: others that announce themselves are heard once it has said
    /// its farewell or left. Else the newest that announces itself counts.
    bool presentComesFirst = false;
};

/// A notification center could not do what it was asked; `what()` says why.
class NotificationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The system's service of named notifications between processes, as one end of a channel sees it.
///
/// Everything happens on the calling thread: queued functions run only while that thread turns its run loop
/// (`turn`, `turnAfterPost`), and notifications come in only then and while it waits inside `claim`, `post`
/// and `waitForDelivery`.
///
/// Whoever is an end of the channel catches what these methods throw; nobody else has to do with them.
class NotificationCenter {
  public:
    using Observer = std::function<void(const Notification &)>;

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter &) = delete;
    NotificationCenter &operator=(const NotificationCenter &) = delete;

    /// Sends what is still unsent, for a short time at most, and takes leave of the service.
    virtual ~NotificationCenter() = default;

    /// Has `observer` called with every notification of this name from now on; one name at a time. A peer
    /// that vanishes without its farewell is reported as if it had sent one.
    /// Throws NotificationError where the name cannot be carried.
    virtual void startObserving(const std::string &name, const PeerCommands &peer, Observer observer) = 0;

    /// Only while the observer runs, and once for each notification: keeps the one that it was called with
    /// until it is acknowledged, where else it would be when the observer returns. As long as a peer has too
    /// many of them it has to wait. Null where there is nobody to be told, as of a farewell without words.
    [[nodiscard]] virtual std::unique_ptr<HeldNotification> hold() = 0;

    /// The observer is not called again.
    virtual void stopObserving() noexcept = 0;

    /// Asks to be the one end that serves this name, of all that ask, until this object is gone. Returns
    /// false where another one serves it; it may be asked for again later. Where the system does not allow
    /// such claims it is reported and true, since two ends at one name are rare. Throws NotificationError
    /// where the service cannot be asked.
    [[nodiscard]] virtual bool claim(const std::string &name) = 0;

    /// Whether the service is there. Once it is not, it never is again for this object.
    [[nodiscard]] virtual bool isConnected() const = 0;

    /// The process of the peer that is there; nothing where there is none, the system does not tell, or the
    /// program has not asked for processes (`NotificationCenterClient::objectionTo`).
    [[nodiscard]] virtual std::optional<pid_t> peerProcess() const = 0;

    /// Posts a notification, with a block under "data" in its user info or without any user info. While the
    /// peer is slow to take earlier ones this waits, unless the job is cancelled. The block is not kept.
    ///
    /// What has come in of departures and announcements counts before it is addressed. Returns false, and has
    /// posted nothing, where the peer has left or said its farewell and either the observer has yet to hear
    /// so, in the next turns, or a block was waiting for room meanwhile. It may be posted once the peer has
    /// announced itself again.
    ///
    /// Throws NotificationError where the notification cannot be posted, and also, after posting it, where an
    /// earlier one of its kind (with or without data) has turned out to be undelivered since: a lost block is
    /// the failure of one post, that one's or a later one's.
    [[nodiscard]] virtual bool post(const std::string &name, const std::string &object,
                                    std::optional<std::span<const std::byte>> data) = 0;

    /// Turns the run loop: runs the functions queued before, then waits until one notification has been
    /// delivered or `length` has passed. Throws NotificationError where the system gives up on it.
    virtual void turn(std::chrono::microseconds length) = 0;

    /// A turn that also ends when something can be done with one of these descriptors. However it ends, their
    /// `revents` say what can be done with each.
    virtual void turnWatching(std::chrono::microseconds length, std::span<pollfd> watched) = 0;

    /// A turn that follows a post. It also ends once what has come in so far holds nothing to be delivered
    /// and there is nothing to wait for: the peer has taken the command posted last, or a block posted last
    /// leaves room for another. Where the peer cannot say so (a broadcast, say), it is like any other turn.
    virtual void turnAfterPost(std::chrono::microseconds length) = 0;

    /// Queues a function to a later turn.
    virtual void performLater(std::function<void()> function) = 0;

    /// Waits until the peer has taken every block posted so far, as long as it takes; ends early when the job
    /// is cancelled. Returns false where a block was not delivered and no post has said so yet.
    [[nodiscard]] virtual bool waitForDelivery() = 0;
};

/// What a notification center asks of, and tells, the program it works for.
struct NotificationCenterClient {
    /// Whether the job is cancelled, which ends the waits for a slow peer.
    std::function<bool()> isCancelled;

    /// Takes one line for the diagnostic log: why something was dropped, refused or lost.
    std::function<void(const std::string &line)> report;

    /// Takes the name of each notification that passes by for all to hear and that nobody observes here,
    /// one's own included; from whomever, so it is good for a hint only. Nothing where nobody wants to know.
    std::function<void(const std::string &name)> overheard = nullptr;

    /// What is against hearing a process that has sent a notification; empty where nothing is. Nothing where
    /// any process will do.
    std::function<std::string(pid_t process)> objectionTo = nullptr;
};

} // namespace veltrin::platform
