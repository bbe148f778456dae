#include "platform/linux/DBusNotificationCenter.h"

#include "platform/linux/NotificationMessage.h"
#include "platform/linux/NotificationPath.h"

#include <algorithm>
#include <utility>

namespace veltrin::platform {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// How long a post waits for the bus to tell who has announced itself.
constexpr auto introductionLimit = 1s;

/// How long a wait for the peer may go on before it looks at the job's cancellation again.
constexpr auto cancellationInterval = 100ms;

/// What is posted to a peer that takes nothing even when the job is cancelled: the end-of-job mark and the
/// command records, in bytes.
constexpr std::size_t smallBlock = 16;

PostKind kindOf(const std::optional<std::span<const std::byte>> &data) {
    return data ? PostKind::block : PostKind::command;
}

} // namespace

std::unique_ptr<DBusNotificationCenter> DBusNotificationCenter::connect(NotificationCenterClient client,
                                                                        std::string &problem,
                                                                        UserCheck acceptsUser) {
    std::unique_ptr<DBusNotificationCenter> center(
        new DBusNotificationCenter({std::move(client), std::move(acceptsUser)}));
    if (!center->connection.open(problem)) {
        return nullptr;
    }
    if (const int result = center->inbox.listen(); result < 0) {
        problem = "cannot listen on the system bus: " + busErrorText(result);
        return nullptr;
    }
    return center;
}

DBusNotificationCenter::DBusNotificationCenter(Settings settings)
    : client(std::move(settings.client)),
      connection({.report = client.report, .whenLost = [this] { noteLossOfBus(); }}),
      senders({.connection = connection,
               .acceptsUser = std::move(settings.acceptsUser),
               .objectionTo = client.objectionTo,
               .report = client.report,
               .whenGone = [this](const std::string &sender) { inbox.noteDeparture(sender); }}),
      inbox({.connection = connection,
             .senders = senders,
             .report = client.report,
             .overheard = client.overheard,
             .peerChanges = [this](Inbox::PeerChange change) { notePeerChange(change); }}),
      calls({.report = client.report}) {}

DBusNotificationCenter::~DBusNotificationCenter() {
    connection.drain();
}

void DBusNotificationCenter::noteLossOfBus() {
    calls.abandonCalls();
    inbox.notePeersDeparture();
}

/// Nobody can say any more that the calls under way were printed, and the next peer is not to answer for the
/// one before.
void DBusNotificationCenter::notePeerChange(Inbox::PeerChange change) {
    calls.abandonCalls();
    if (change == Inbox::PeerChange::succeeded) {
        calls.forgetLosses();
    }
}

// ---- What is heard

void DBusNotificationCenter::startObserving(const std::string &name, const PeerCommands &peerCommands,
                                            Observer observer) {
    if (connection.isLost()) {
        throw NotificationError("the system bus is lost");
    }
    if (!connection.canCarry(name)) {
        throw NotificationError("the name \"" + name + "\" cannot be carried by the system bus");
    }
    // Whoever wants to overhear the others hears them all: they are few, since only announcements are
    // signals.
    const std::string rule = std::string("type='signal',interface='") + notificationInterface + "',member='" +
                             notificationMember + "'" +
                             (client.overheard ? "" : ",path='" + notificationPath(name) + "'");
    inbox.startObserving(name, peerCommands, std::move(observer));
    if (const int error = connection.match(rule); error != 0) {
        inbox.stopObserving();
        throw NotificationError("cannot observe \"" + name + "\": " + busErrorText(error));
    }
}

void DBusNotificationCenter::stopObserving() noexcept {
    inbox.stopObserving();
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

std::optional<pid_t> DBusNotificationCenter::peerProcess() const {
    return inbox.peer().isThere() ? senders.processOf(inbox.peer().name()) : std::nullopt;
}

// ---- Turns

void DBusNotificationCenter::turn(std::chrono::microseconds length) {
    turnUntil(length, [] { return false; });
}

void DBusNotificationCenter::turnWatching(std::chrono::microseconds length, std::span<pollfd> watched) {
    const auto isOneReady = [watched] { return poll(watched.data(), watched.size(), 0) > 0; };
    turnUntil(length, isOneReady, watched);
    static_cast<void>(isOneReady());
}

void DBusNotificationCenter::turnAfterPost(std::chrono::microseconds length) {
    turnUntil(length, [this] { return calls.isLastPostDone(); });
}

/// A turn that also ends when the condition holds and everything that has come in already is looked at.
template <typename Condition>
void DBusNotificationCenter::turnUntil(std::chrono::microseconds length, Condition isOver,
                                       std::span<const pollfd> watched) {
    const Time end = steady_clock::now() + length;
    for (const auto &function : std::exchange(later, {})) {
        function();
    }
    do {
        if (inbox.deliverNext()) {
            return;
        }
        if (!connection.process()) {
            if (isOver()) {
                return;
            }
            connection.waitUntil(end, watched);
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
        if (!inbox.deliverNext() && !connection.process()) {
            connection.waitUntil(steady_clock::now() + cancellationInterval);
        }
    }
}

// ---- Posts

bool DBusNotificationCenter::post(const std::string &name, const std::string &object,
                                  std::optional<std::span<const std::byte>> data) {
    heedNews();
    if (!connection.isLost() && inbox.isFarewellUntold()) {
        return false;
    }
    requireReceiver(data.has_value());
    if (!connection.canCarry(name) || !connection.canCarry(object)) {
        throw NotificationError("a name or object cannot be carried by the system bus");
    }
    const ChannelPeer &peer = inbox.peer();
    const bool wasPeerGone = peer.hasSaidFarewell();
    turnWhile([&] { return !calls.hasRoom() && peer.isThere(); });
    if (data && peer.exists() && peer.hasSaidFarewell() && !wasPeerGone) {
        return false; // it is not to be sent more until it is back
    }
    // A bus that is filled with the data of a cancelled job would drop what matters then, the cancel record.
    if (data && data->size() > smallBlock && !calls.hasRoom() && client.isCancelled()) {
        throw NotificationError("the job is cancelled and the peer takes nothing");
    }
    send(name, object, data);
    turnWhile([this] { return connection.hasUnsent(); });
    if (calls.takeLoss(kindOf(data))) {
        throw NotificationError("an earlier notification was not delivered");
    }
    requireReceiver(false);
    return true;
}

/// Takes in what has come from the bus by now, and lets it count who has left and who has announced itself:
/// what is posted next must not go to a peer that is known to be no more. The observer hears of it in turns,
/// as ever.
void DBusNotificationCenter::heedNews() {
    for (std::size_t messages = 0; messages < Inbox::limit && connection.process(); ++messages) {
    }
    const Time deadline = steady_clock::now() + introductionLimit;
    while (inbox.isAnnouncerUnknown() && !connection.isLost() && !client.isCancelled() &&
           steady_clock::now() < deadline) {
        if (!connection.process()) {
            connection.waitUntil(std::min(deadline, steady_clock::now() + cancellationInterval));
        }
    }
    inbox.heedNews();
}

void DBusNotificationCenter::requireReceiver(bool withData) const {
    if (connection.isLost()) {
        throw NotificationError("the system bus is lost");
    }
    if (inbox.peer().hasLeft()) {
        throw NotificationError("the peer has left the bus");
    }
    // A broadcast would show the data to everybody.
    if (!inbox.peer().exists() && withData) {
        throw NotificationError("there is no peer yet to send data to");
    }
}

/// Hands one message to the library, in spite of passing shortages.
void DBusNotificationCenter::send(const std::string &name, const std::string &object,
                                  std::optional<std::span<const std::byte>> data) {
    while (true) {
        requireReceiver(data.has_value());
        const int result = trySend(name, object, data);
        if (result >= 0) {
            return;
        }
        if (!BusConnection::isPassingShortage(result) || client.isCancelled()) {
            throw NotificationError("cannot post: " + busErrorText(result));
        }
        connection.waitOutShortage();
    }
}

/// Returns 0 or more, or the negative error number.
int DBusNotificationCenter::trySend(const std::string &name, const std::string &object,
                                    std::optional<std::span<const std::byte>> data) {
    calls.expectNoAnswer();
    const ChannelPeer &peer = inbox.peer();
    const std::string path = notificationPath(name);
    sd_bus_message *raw = nullptr;
    int result = peer.exists()
                     ? sd_bus_message_new_method_call(connection.get(), &raw, peer.name().c_str(),
                                                      path.c_str(), notificationInterface, notificationMember)
                     : sd_bus_message_new_signal(connection.get(), &raw, path.c_str(), notificationInterface,
                                                 notificationMember);
    const BusMessage message(raw);
    if (result >= 0) {
        result = appendNotification(raw, name, object, data);
    }
    if (result < 0) {
        return result;
    }
    // With a full window only the end mark, cancel record and goodbye of a cancelled job come here, and
    // commands to a peer that has said its farewell.
    if (!peer.exists() || !calls.hasRoom()) {
        return sd_bus_send(connection.get(), raw, nullptr); // wants no reply
    }
    return calls.send(connection.get(), raw, kindOf(data));
}

bool DBusNotificationCenter::waitForDelivery() {
    turnWhile([this] { return calls.hasUnansweredBlocks(); });
    return !calls.takeLoss(PostKind::block);
}

} // namespace veltrin::platform
