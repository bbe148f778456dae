#include "platform/apple/FoundationNotificationCenter.h"

#include "platform/apple/FoundationInbox.h"
#include "platform/apple/FoundationText.h"
#include "platform/apple/ReleasePool.h"
#include "platform/apple/SystemMessages.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace veltrin::platform {

namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;
using std::chrono::steady_clock;

/// How long descriptors are left alone in a turn that watches them: a run loop does not wait for them.
constexpr microseconds watchInterval = 10ms;

#ifdef __APPLE__
/// Of a limit nothing is known.
constexpr std::optional<std::size_t> largestBlock;

/// A post that fails is a post that failed: the system starts its service anew by itself.
constexpr bool isLostByException = false;
#else
/// GNUstep's daemon takes no message of 32 MiB, and breaks the connection over one: nothing would be heard
/// any more. This leaves room for what a block is wrapped in.
constexpr std::optional<std::size_t> largestBlock = (std::size_t{32} << 20) - (std::size_t{64} << 10);

/// A daemon that is started in the place of one that has died knows nothing of who observed what.
constexpr bool isLostByException = true;
#endif

NSDate *dateIn(microseconds length) {
    return [NSDate dateWithTimeIntervalSinceNow:std::chrono::duration<double>(length).count()];
}

template <typename Messages>
void sendOrFail(const char *failure, Messages messages) {
    send(messages, [failure] { throw NotificationError(failure); });
}

class FoundationNotificationCenter final : public NotificationCenter {
  public:
    FoundationNotificationCenter(NSDistributedNotificationCenter *theCenter,
                                 NotificationCenterClient theClient)
        : client(std::move(theClient)), center(theCenter), inbox(theCenter, client.report) {}

    void startObserving(const std::string &name, const PeerCommands &peer, Observer observer) override;

    [[nodiscard]] std::unique_ptr<HeldNotification> hold() override { return inbox.hold(); }

    void stopObserving() noexcept override { inbox.stopObserving(); }

    [[nodiscard]] bool claim(const std::string &name) override;

    [[nodiscard]] bool isConnected() const override { return !isLost; }

    /// The service does not tell who posts.
    [[nodiscard]] std::optional<pid_t> peerProcess() const override { return std::nullopt; }

    [[nodiscard]] bool post(const std::string &name, const std::string &object,
                            std::optional<std::span<const std::byte>> data) override;
    void turn(microseconds length) override;
    void turnWatching(microseconds length, std::span<pollfd> watched) override;

    /// Nobody says that a notification was taken, so there is nothing that would end this turn early.
    void turnAfterPost(microseconds length) override { turn(length); }

    void performLater(std::function<void()> function) override { later.push_back(std::move(function)); }

    /// What has been posted is with the system, and more is not known of it.
    [[nodiscard]] bool waitForDelivery() override { return true; }

  private:
    template <typename Condition>
    void turnUntil(microseconds length, microseconds step, Condition isOver);
    template <typename Messages>
    void sendToService(const char *failure, Messages messages);
    static bool runLoopUntil(NSDate *date);
    void takeIn();

    NotificationCenterClient client;
    Retained<NSDistributedNotificationCenter *> center;
    FoundationInbox inbox;
    bool isLost = false;
    std::vector<std::function<void()>> later;
};

void FoundationNotificationCenter::startObserving(const std::string &name, const PeerCommands &peer,
                                                  Observer observer) {
    const ReleasePool pool;
    NSString *text = foundationText(name);
    if (text == nil) {
        throw NotificationError("the name \"" + name + "\" cannot be carried: it is not UTF-8");
    }
    sendToService("cannot observe: the notification service has raised an exception",
                  [&] { inbox.startObserving(text, peer.farewell, std::move(observer)); });
}

/// Sends messages that reach the service itself. Where an exception says that it is gone, the connection is
/// at its end for good, and the peer as good as gone.
template <typename Messages>
void FoundationNotificationCenter::sendToService(const char *failure, Messages messages) {
    if (isLost) {
        throw NotificationError("the notification service is lost");
    }
    try {
        sendOrFail(failure, messages);
    } catch (const NotificationError &) {
        if (isLostByException) {
            isLost = true;
            inbox.noteFarewell();
            client.report("the notification service is lost");
        }
        throw;
    }
}

bool FoundationNotificationCenter::claim(const std::string &name) {
    client.report("nothing keeps another program from serving \"" + name + "\", too");
    return true;
}

// ---- Turns

void FoundationNotificationCenter::turn(microseconds length) {
    turnUntil(length, length, [] { return false; });
}

void FoundationNotificationCenter::turnWatching(microseconds length, std::span<pollfd> watched) {
    const auto isOneReady = [watched] {
        return poll(watched.data(), static_cast<nfds_t>(watched.size()), 0) > 0;
    };
    turnUntil(length, watchInterval, isOneReady);
    static_cast<void>(isOneReady());
}

/// A turn that also ends when the condition holds, which is asked once in each step.
///
/// The end is a time and no number of runs of the loop: a run may end early without having brought anything,
/// as with a large block that comes in pieces.
template <typename Condition>
void FoundationNotificationCenter::turnUntil(microseconds length, microseconds step, Condition isOver) {
    const auto end = steady_clock::now() + length;
    for (const auto &function : std::exchange(later, {})) {
        function();
    }
    microseconds left = length;
    do {
        const ReleasePool pool;
        if (inbox.deliverNext()) {
            return;
        }
        NSDate *date = dateIn(std::min(left, step));
        // A loop without anything to wait for returns at once.
        if (!runLoopUntil(date)) {
            sendOrFail("the thread cannot sleep", [date] { [NSThread sleepUntilDate:date]; });
        }
        if (inbox.size() == 0 && isOver()) {
            return;
        }
        left = std::chrono::duration_cast<microseconds>(end - steady_clock::now());
    } while (left > 0us);
    // What the last run has brought.
    const ReleasePool pool;
    static_cast<void>(inbox.deliverNext());
}

bool FoundationNotificationCenter::runLoopUntil(NSDate *date) {
    bool hasRun = false;
    sendOrFail("the run loop has raised an exception",
               [&] { hasRun = [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode beforeDate:date]; });
    return hasRun;
}

// ---- Posts

/// The block is lent to the system: it is neither copied nor freed, and the system has put it on its way, and
/// let go of it, when the message returns.
bool FoundationNotificationCenter::post(const std::string &name, const std::string &object,
                                        std::optional<std::span<const std::byte>> data) {
    const ReleasePool pool;
    sendToService("cannot see what has come: the notification service has raised an exception",
                  [this] { takeIn(); });
    if (inbox.isFarewellUntold()) {
        return false;
    }
    NSString *foundationName = foundationText(name);
    NSString *foundationObject = foundationText(object);
    if (foundationName == nil || foundationObject == nil) {
        throw NotificationError("a name or object cannot be carried: it is not UTF-8");
    }
    if (data && largestBlock && data->size() > *largestBlock) {
        throw NotificationError("cannot post: the block is larger than the notification service takes");
    }
    sendToService("cannot post: the notification service has raised an exception", [&] {
        if (!data) {
            [center.get() postNotificationName:foundationName object:foundationObject];
            return;
        }
        NSData *block = [NSData dataWithBytesNoCopy:const_cast<std::byte *>(data->data())
                                             length:data->size()
                                       freeWhenDone:NO];
        [center.get() postNotificationName:foundationName
                                    object:foundationObject
                                  userInfo:[NSDictionary dictionaryWithObject:block forKey:@"data"]];
    });
    // Whoever looks whether it may take part at all: this service turns nobody away. The posts of others are
    // not listened for, since they would come with all their blocks.
    if (client.overheard) {
        client.overheard(name);
    }
    return true;
}

/// Lets what has come be put into the queue, since a farewell among it counts before the post.
void FoundationNotificationCenter::takeIn() {
    std::size_t before = 0;
    do {
        before = inbox.size();
        static_cast<void>(runLoopUntil([NSDate distantPast]));
    } while (inbox.size() > before);
}

} // namespace

std::unique_ptr<NotificationCenter> connectToFoundation(NotificationCenterClient client,
                                                        std::string &problem) {
    const ReleasePool pool;
    NSDistributedNotificationCenter *center =
        send([] { return [NSDistributedNotificationCenter defaultCenter]; },
             [] { return static_cast<NSDistributedNotificationCenter *>(nil); });
    if (center == nil) {
        problem = "the system has no distributed notification center";
        return nullptr;
    }
    return std::make_unique<FoundationNotificationCenter>(center, std::move(client));
}

} // namespace veltrin::platform
