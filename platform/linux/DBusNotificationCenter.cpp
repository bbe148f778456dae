#include "platform/linux/DBusNotificationCenter.h"

#include "platform/linux/NotificationPath.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <thread>
#include <utility>

namespace veltrin::platform {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// How long a post waits for the bus to tell who has announced itself.
constexpr auto introductionLimit = 1s;

/// How long a wait for the peer may go on before it looks at the job's cancellation again.
constexpr auto cancellationInterval = 100ms;

/// More than a peer that keeps to the window ever has on its way; whoever sends more without waiting for the
/// replies is refused.
constexpr std::size_t inboxLimit = 2 * CallWindow::size;

/// What is posted to a peer that takes nothing even when the job is cancelled: the end-of-job mark and the
/// command records, in bytes.
constexpr std::size_t smallBlock = 16;

PostKind kindOf(const std::optional<std::span<const std::byte>> &data) {
    return data ? PostKind::block : PostKind::command;
}

class Flag {
  public:
    explicit Flag(bool &flag) : raised(flag) { raised = true; }

    Flag(const Flag &) = delete;
    Flag &operator=(const Flag &) = delete;

    ~Flag() { raised = false; }

  private:
    bool &raised;
};

} // namespace

// ---- The connection

std::unique_ptr<DBusNotificationCenter> DBusNotificationCenter::connect(NotificationCenterClient client,
                                                                        std::string &problem,
                                                                        UserCheck acceptsUser) {
    std::unique_ptr<DBusNotificationCenter> center(
        new DBusNotificationCenter(std::move(client), std::move(acceptsUser)));
    if (!center->connection.open(problem)) {
        return nullptr;
    }
    sd_bus_slot *slot = nullptr;
    const int result = sd_bus_add_filter(center->connection.get(), &slot, received, center.get());
    center->filter.reset(slot);
    if (result < 0) {
        problem = "cannot listen on the system bus: " + busErrorText(result);
        return nullptr;
    }
    return center;
}

DBusNotificationCenter::DBusNotificationCenter(NotificationCenterClient owner, UserCheck acceptsUser)
    : client(std::move(owner)),
      connection({.report = client.report, .whenLost = [this] { noteLossOfBus(); }}),
      senders({.connection = connection,
               .acceptsUser = std::move(acceptsUser),
               .objectionTo = client.objectionTo,
               .report = client.report,
               .whenGone =
                   [this](const std::string &sender) {
                       inbox.push_back({sender, nullptr});
                   }}),
      calls({.report = client.report}) {}

DBusNotificationCenter::~DBusNotificationCenter() {
    connection.drain();
}

void DBusNotificationCenter::noteLossOfBus() {
    calls.abandonCalls();
    if (!peer.empty()) {
        inbox.push_back({peer, nullptr}); // nothing will be heard of it any more
    }
}

// ---- What comes in

void DBusNotificationCenter::startObserving(const std::string &name, const PeerCommands &peerCommands,
                                            Observer observer) {
    if (connection.isLost()) {
        throw NotificationError("the system bus is lost");
    }
    if (!connection.canCarry(name)) {
        throw NotificationError("the name \"" + name + "\" cannot be carried by the system bus");
    }
    const std::string path = notificationPath(name);
    // Whoever wants to overhear the others hears them all: they are few, since only announcements are
    // signals.
    const std::string rule = std::string("type='signal',interface='") + notificationInterface + "',member='" +
                             notificationMember + "'" + (client.overheard ? "" : ",path='" + path + "'");
    observation.emplace(Observation{name, path, peerCommands, std::move(observer)});
    if (const int error = connection.match(rule); error != 0) {
        observation.reset();
        throw NotificationError("cannot observe \"" + name + "\": " + busErrorText(error));
    }
}

void DBusNotificationCenter::stopObserving() noexcept {
    observation.reset();
    connection.endMatch();
}

/// A name of the bus stands for the claim.
bool DBusNotificationCenter::claim(const std::string &name) {
    const std::string path = notificationPath(name);
    bool isGranted = false;
    if (const int result =
            connection.claim(notificationInterface + ("." + path.substr(path.rfind('/') + 1)), isGranted);
        result < 0) {
        throw NotificationError("cannot ask for \"" + name + "\": " + busErrorText(result));
    }
    return isGranted;
}

int DBusNotificationCenter::received(sd_bus_message *message, void *center,
                                     sd_bus_error * /*error*/) noexcept {
    return static_cast<DBusNotificationCenter *>(center)->receive(message);
}

/// Puts a notification of the observed name aside until it can be delivered. Returns 0 for a message that is
/// none, for others to look at, else 1.
int DBusNotificationCenter::receive(sd_bus_message *message) {
    const bool isNotification =
        sd_bus_message_is_signal(message, notificationInterface, notificationMember) > 0 ||
        sd_bus_message_is_method_call(message, notificationInterface, notificationMember) > 0;
    const char *sender = sd_bus_message_get_sender(message);
    if (!isNotification || !observation || sender == nullptr) {
        return 0;
    }
    if (observation->path != sd_bus_message_get_path(message)) {
        overhear(message);
        return 0;
    }
    if (senders.inquire(sender) == Verdict::refused) {
        answerWithError(message, SD_BUS_ERROR_ACCESS_DENIED, senders.refusalOf(sender));
    } else if (inbox.size() >= inboxLimit) {
        refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "it comes too fast");
    } else {
        inbox.push_back({sender, BusMessage(sd_bus_message_ref(message))});
    }
    return 1;
}

void DBusNotificationCenter::overhear(sd_bus_message *message) const {
    std::string problem;
    if (client.overheard && sd_bus_message_is_signal(message, nullptr, nullptr) > 0) {
        if (const auto received = readNotification(message, problem)) {
            client.overheard(received->name);
        }
    }
}

/// Delivers the first of what has come in, of those whose sender is known by now. Returns whether the
/// observer was called.
bool DBusNotificationCenter::deliverNext() {
    if (isDelivering) {
        return false;
    }
    for (std::size_t place = 0; place < inbox.size();) {
        if (senders.verdictOn(inbox[place].sender) == Verdict::pending) {
            ++place;
            continue;
        }
        Incoming incoming = std::move(inbox[place]);
        inbox.erase(inbox.begin() + static_cast<std::ptrdiff_t>(place));
        if (mustWait(incoming)) {
            letWait(std::move(incoming));
            continue;
        }
        if (incoming.standing == Standing::unknown) {
            incoming.standing = standingOf(incoming);
        }
        if (deliver(incoming)) {
            return true;
        }
    }
    return false;
}

bool DBusNotificationCenter::deliver(const Incoming &incoming) {
    if (!incoming.message) {
        return deliverDeparture(incoming);
    }
    if (senders.verdictOn(incoming.sender) == Verdict::refused) {
        answerWithError(incoming.message.get(), SD_BUS_ERROR_ACCESS_DENIED,
                        senders.refusalOf(incoming.sender));
        return false;
    }
    return deliverMessage(incoming);
}

bool DBusNotificationCenter::deliverMessage(const Incoming &incoming) {
    sd_bus_message *message = incoming.message.get();
    std::string problem;
    const std::optional<ReceivedNotification> received = readNotification(message, problem);
    if (!received) {
        refuse(message, SD_BUS_ERROR_INVALID_ARGS, problem);
        return false;
    }
    if (!observation || received->name != observation->name) {
        refuse(message, SD_BUS_ERROR_UNKNOWN_OBJECT, "nobody observes its name");
        return false;
    }
    if (incoming.standing == Standing::ofNobody) {
        refuse(message, SD_BUS_ERROR_ACCESS_DENIED, "another peer has taken its sender's place");
        return false;
    }
    observe(received->notification);
    // Only now: the reply says that the block has been taken.
    if (const int result =
            sd_bus_message_get_expect_reply(message) > 0 ? sd_bus_reply_method_return(message, "") : 0;
        result < 0 && !connection.isLost()) {
        client.report("cannot answer " + incoming.sender + ": " + busErrorText(result));
    }
    if (incoming.standing == Standing::peersFarewell) {
        endWaiting();
    }
    return true;
}

bool DBusNotificationCenter::deliverDeparture(const Incoming &incoming) {
    senders.forget(incoming.sender);
    if (incoming.standing != Standing::peersFarewell || !observation) {
        return false;
    }
    observe({observation->peerCommands.farewell, std::nullopt});
    endWaiting();
    return true;
}

// ---- Who the peer is

DBusNotificationCenter::Standing DBusNotificationCenter::standingOf(const Incoming &incoming) {
    if (incoming.message) {
        return senders.verdictOn(incoming.sender) == Verdict::accepted
                   ? standingOfMessage(incoming.sender, incoming.message.get())
                   : Standing::ofNobody;
    }
    endWaiting(incoming.sender);
    if (incoming.sender != peer) {
        return Standing::ofNobody;
    }
    peer.clear();
    hasPeerLeft = true;
    calls.abandonCalls();
    return hasPeerSaidFarewell ? Standing::ofNobody : Standing::peersFarewell;
}

/// The sender may become the peer by this notification: the first that is heard of, and later one that
/// announces itself. What the one before still sends is nobody's.
DBusNotificationCenter::Standing DBusNotificationCenter::standingOfMessage(const std::string &sender,
                                                                           sd_bus_message *message) {
    if (!observation) {
        return Standing::ofNobody;
    }
    const std::optional<std::string> object = objectOf(message);
    const bool isAnnouncement = object == observation->peerCommands.announcement;
    const bool isFarewell = object == observation->peerCommands.farewell;
    if (isFarewell) {
        endWaiting(sender);
    }
    const bool becomesPeer = sender != peer && (peer.empty() || isAnnouncement);
    if (!becomesPeer && sender != peer) {
        return Standing::ofNobody;
    }
    if (!becomesPeer && !isAnnouncement && !isFarewell) {
        return Standing::ofPeer;
    }
    // Only a notification that will be delivered may change anything.
    std::string problem;
    if (const auto received = readNotification(message, problem);
        !received || received->name != observation->name) {
        return Standing::ofNobody;
    }
    if (becomesPeer) {
        calls.abandonCalls(); // nobody can say any more that they were printed
        if (observation->peerCommands.presentComesFirst) {
            calls.forgetLosses(); // the next peer is not to answer for the one before
        }
        peer = sender;
        hasPeerLeft = false;
        hasPeerSaidFarewell = false;
    }
    if (isAnnouncement) {
        hasPeerSaidFarewell = false;
    } else if (isFarewell) {
        hasPeerSaidFarewell = true;
        return Standing::peersFarewell;
    }
    return Standing::ofPeer;
}

/// Whether this is somebody's announcement that is to be heard only after the present peer's farewell, or
/// after those who wait already.
bool DBusNotificationCenter::mustWait(const Incoming &incoming) const {
    if (!observation || !observation->peerCommands.presentComesFirst || !incoming.message ||
        incoming.standing != Standing::unknown || incoming.sender == peer ||
        senders.verdictOn(incoming.sender) != Verdict::accepted) {
        return false;
    }
    const bool isPeerThere = !peer.empty() && !hasPeerSaidFarewell;
    return (isPeerThere || !waiting.empty()) &&
           objectOf(incoming.message.get()) == observation->peerCommands.announcement;
}

void DBusNotificationCenter::letWait(Incoming incoming) {
    if (waiting.size() >= inboxLimit) {
        refuse(incoming.message.get(), SD_BUS_ERROR_LIMITS_EXCEEDED, "too many wait already");
        return;
    }
    client.report(incoming.sender + " has announced itself and waits until " + peer + " has left");
    waiting.push_back(std::move(incoming));
}

/// Those who have waited are heard next, in the order in which they came.
void DBusNotificationCenter::endWaiting() {
    inbox.insert(inbox.begin(), std::make_move_iterator(waiting.begin()),
                 std::make_move_iterator(waiting.end()));
    waiting.clear();
}

/// One who has given up waits no more.
void DBusNotificationCenter::endWaiting(const std::string &sender) {
    std::erase_if(waiting, [&sender](const Incoming &one) { return one.sender == sender; });
}

/// Takes in what has come from the bus by now, and lets it count who has left and who has announced itself:
/// what is posted next must not go to a peer that is known to be no more. The observer hears of it in turns,
/// as ever.
void DBusNotificationCenter::heedNews() {
    for (std::size_t messages = 0; messages < inboxLimit && connection.process(); ++messages) {
    }
    const Time deadline = steady_clock::now() + introductionLimit;
    while (isAnnouncerUnknown() && !connection.isLost() && !client.isCancelled() &&
           steady_clock::now() < deadline) {
        if (!connection.process()) {
            connection.waitUntil(std::min(deadline, steady_clock::now() + cancellationInterval));
        }
    }
    for (std::size_t place = 0; place < inbox.size();) {
        Incoming &incoming = inbox[place];
        if (mustWait(incoming)) {
            letWait(std::move(incoming));
            inbox.erase(inbox.begin() + static_cast<std::ptrdiff_t>(place));
            continue;
        }
        if (incoming.standing == Standing::unknown &&
            senders.verdictOn(incoming.sender) != Verdict::pending) {
            incoming.standing = standingOf(incoming);
        }
        ++place;
    }
}

/// Whether somebody has announced itself of whom the bus has yet to tell the user.
bool DBusNotificationCenter::isAnnouncerUnknown() const {
    return observation && std::any_of(inbox.begin(), inbox.end(), [this](const Incoming &incoming) {
               return incoming.message && senders.verdictOn(incoming.sender) == Verdict::pending &&
                      objectOf(incoming.message.get()) == observation->peerCommands.announcement;
           });
}

/// Whether the peer has gone, none has come in its place, and the observer has yet to hear of it.
bool DBusNotificationCenter::isFarewellUntold() const {
    const bool isPeerThere = !peer.empty() && !hasPeerSaidFarewell;
    return !isPeerThere && std::any_of(inbox.begin(), inbox.end(), [](const Incoming &incoming) {
        return incoming.standing == Standing::peersFarewell;
    });
}

void DBusNotificationCenter::observe(const Notification &notification) {
    const Flag delivering(isDelivering);
    const Observer observer = observation->observer; // which may end the observation
    observer(notification);
}

/// Drops a notification, and tells a caller so.
void DBusNotificationCenter::refuse(sd_bus_message *message, const char *error,
                                    const std::string &reason) const {
    client.report("dropped a notification from " + std::string(sd_bus_message_get_sender(message)) + ": " +
                  reason);
    answerWithError(message, error, reason);
}

/// Tells a caller, who then knows why.
void DBusNotificationCenter::answerWithError(sd_bus_message *message, const char *error,
                                             const std::string &reason) {
    if (sd_bus_message_get_expect_reply(message) > 0) {
        static_cast<void>(sd_bus_reply_method_errorf(message, error, "%s", reason.c_str()));
    }
}

// ---- Turns

void DBusNotificationCenter::turn(std::chrono::microseconds length) {
    turnUntil(length, [] { return false; });
}

void DBusNotificationCenter::turnAfterPost(std::chrono::microseconds length) {
    turnUntil(length, [this] { return calls.isLastPostDone(); });
}

/// A turn that also ends when the condition holds and everything that has come in already is looked at.
template <typename Condition>
void DBusNotificationCenter::turnUntil(std::chrono::microseconds length, Condition isOver) {
    const Time end = steady_clock::now() + length;
    for (const auto &function : std::exchange(later, {})) {
        function();
    }
    do {
        if (deliverNext()) {
            return;
        }
        if (!connection.process()) {
            if (isOver()) {
                return;
            }
            connection.waitUntil(end);
        }
    } while (steady_clock::now() < end);
}

void DBusNotificationCenter::performLater(std::function<void()> function) {
    later.push_back(std::move(function));
}

/// Turns the bus while the condition holds, the bus is there and the job is not cancelled.
template <typename Condition>
void DBusNotificationCenter::turnWhile(Condition isToBeWaitedFor) {
    while (isToBeWaitedFor() && !connection.isLost() && !client.isCancelled()) {
        if (!deliverNext() && !connection.process()) {
            connection.waitUntil(steady_clock::now() + cancellationInterval);
        }
    }
}

// ---- Posts

bool DBusNotificationCenter::post(const std::string &name, const std::string &object,
                                  std::optional<std::span<const std::byte>> data) {
    heedNews();
    if (!connection.isLost() && isFarewellUntold()) {
        return false;
    }
    requireReceiver(data.has_value());
    if (!connection.canCarry(name) || !connection.canCarry(object)) {
        throw NotificationError("a name or object cannot be carried by the system bus");
    }
    const bool isPeerGone = hasPeerSaidFarewell;
    turnWhile([this] { return !calls.hasRoom() && !peer.empty() && !hasPeerSaidFarewell; });
    if (data && hasPeerSaidFarewell && !isPeerGone && !peer.empty()) {
        return false; // it is not to be sent more until it is back
    }
    // A bus that is filled with the data of a cancelled job would drop what matters then, the cancel record.
    if (data && data->size() > smallBlock && !calls.hasRoom() && client.isCancelled()) {
        throw NotificationError("the job is cancelled and the peer takes nothing");
    }
    while (true) {
        requireReceiver(data.has_value());
        const int result = trySend(name, object, data);
        if (result >= 0) {
            break;
        }
        if (!BusConnection::isPassingShortage(result) || client.isCancelled()) {
            throw NotificationError("cannot post: " + busErrorText(result));
        }
        connection.waitOutShortage();
    }
    turnWhile([this] { return connection.hasUnsent(); });
    if (calls.takeLoss(kindOf(data))) {
        throw NotificationError("an earlier notification was not delivered");
    }
    requireReceiver(false);
    return true;
}

void DBusNotificationCenter::requireReceiver(bool withData) const {
    if (connection.isLost()) {
        throw NotificationError("the system bus is lost");
    }
    if (peer.empty() && hasPeerLeft) {
        throw NotificationError("the peer has left the bus");
    }
    // A broadcast would show the data to everybody.
    if (peer.empty() && withData) {
        throw NotificationError("there is no peer yet to send data to");
    }
}

/// Hands one message to the library. Returns 0 or more, or the negative error number.
int DBusNotificationCenter::trySend(const std::string &name, const std::string &object,
                                    std::optional<std::span<const std::byte>> data) {
    calls.expectNoAnswer();
    const std::string path = notificationPath(name);
    sd_bus_message *raw = nullptr;
    int result = peer.empty()
                     ? sd_bus_message_new_signal(connection.get(), &raw, path.c_str(), notificationInterface,
                                                 notificationMember)
                     : sd_bus_message_new_method_call(connection.get(), &raw, peer.c_str(), path.c_str(),
                                                      notificationInterface, notificationMember);
    const BusMessage message(raw);
    if (result >= 0) {
        result = appendNotification(raw, name, object, data);
    }
    if (result < 0) {
        return result;
    }
    // With a full window only the end mark, cancel record and goodbye of a cancelled job come here, and
    // commands to a peer that has said its farewell.
    if (peer.empty() || !calls.hasRoom()) {
        return sd_bus_send(connection.get(), raw, nullptr); // wants no reply
    }
    return calls.send(connection.get(), raw, kindOf(data));
}

bool DBusNotificationCenter::waitForDelivery() {
    turnWhile([this] { return calls.hasUnansweredBlocks(); });
    return !calls.takeLoss(PostKind::block);
}

} // namespace veltrin::platform
