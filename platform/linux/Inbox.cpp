#include "platform/linux/Inbox.h"

#include "platform/linux/BusConnection.h"
#include "platform/linux/HeldMessage.h"
#include "platform/linux/NotificationPath.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace veltrin::platform {

namespace {

/// Gives a variable another value for a while.
template <typename Value>
class During {
  public:
    During(Value &theVariable, Value value)
        : variable(theVariable), before(std::exchange(theVariable, value)) {}

    During(const During &) = delete;
    During &operator=(const During &) = delete;

    ~During() { variable = before; }

  private:
    Value &variable;
    Value before;
};

} // namespace

Inbox::Inbox(Settings settings)
    : connection(settings.connection), senders(settings.senders), report(std::move(settings.report)),
      overheard(std::move(settings.overheard)), peerChanges(std::move(settings.peerChanges)) {}

// ---- What comes in

int Inbox::listen() {
    sd_bus_slot *slot = nullptr;
    const int result = sd_bus_add_filter(connection.get(), &slot, received, this);
    filter.reset(slot);
    return result;
}

void Inbox::startObserving(const std::string &name, const PeerCommands &peerCommands,
                           NotificationCenter::Observer observer) {
    observation.emplace(Observation{name, notificationPath(name), peerCommands, std::move(observer)});
}

void Inbox::notePeersDeparture() {
    if (currentPeer.exists()) {
        noteDeparture(currentPeer.name());
    }
}

int Inbox::received(sd_bus_message *message, void *inbox, sd_bus_error * /*error*/) noexcept {
    Inbox &receiver = *static_cast<Inbox *>(inbox);
    int result = 1;
    if (!withinMemory([&] { result = receiver.receive(message); }, receiver.report, "lost a notification")) {
        static_cast<void>(
            withinMemory([&] { answerWithError(message, SD_BUS_ERROR_NO_MEMORY, "not enough memory"); }));
    }
    return result;
}

/// Puts a notification of the observed name aside until it can be delivered. Returns 0 for a message that is
/// none, for others to look at, else 1.
int Inbox::receive(sd_bus_message *message) {
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
    } else if (incomings.size() + *held >= limit) {
        refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "it comes too fast");
    } else {
        incomings.push_back({sender, BusMessage(sd_bus_message_ref(message)), {}});
    }
    return 1;
}

void Inbox::overhear(sd_bus_message *message) const {
    std::string problem;
    if (overheard && sd_bus_message_is_signal(message, nullptr, nullptr) > 0) {
        if (const auto received = readNotification(message, problem)) {
            overheard(received->name);
        }
    }
}

// ---- Delivery

bool Inbox::deliverNext() {
    if (isDelivering) {
        return false;
    }
    for (std::size_t place = 0; place < incomings.size();) {
        if (senders.verdictOn(incomings[place].sender) == Verdict::pending) {
            ++place;
            continue;
        }
        Incoming incoming = std::move(incomings[place]);
        incomings.erase(incomings.begin() + static_cast<std::ptrdiff_t>(place));
        if (mustWait(incoming)) {
            letWait(std::move(incoming));
            continue;
        }
        if (!incoming.standing) {
            incoming.standing = standingOf(incoming);
        }
        if (deliver(incoming)) {
            return true;
        }
    }
    return false;
}

bool Inbox::deliver(const Incoming &incoming) {
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

bool Inbox::deliverMessage(const Incoming &incoming) {
    sd_bus_message *message = incoming.message.get();
    std::string problem;
    std::optional<ReceivedNotification> received = readNotification(message, problem);
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
    Delivery delivery{message, std::move(*received)};
    observe(delivery);
    if (!delivery.isHeld) {
        answer(incoming); // only now: the reply says that the block has been taken
    }
    if (incoming.standing == Standing::peersFarewell) {
        endWaiting();
    }
    return true;
}

bool Inbox::deliverDeparture(const Incoming &incoming) {
    senders.forget(incoming.sender);
    if (incoming.standing != Standing::peersFarewell || !observation) {
        return false;
    }
    observe({observation->peerCommands.farewell, std::nullopt});
    endWaiting();
    return true;
}

void Inbox::observe(const Notification &notification) {
    const During delivering(isDelivering, true);
    const NotificationCenter::Observer observer = observation->observer; // which may end the observation
    observer(notification);
}

void Inbox::observe(Delivery &delivery) {
    const During theOne(current, &delivery);
    observe(Notification(delivery.received.notification));
}

std::unique_ptr<HeldNotification> Inbox::hold() {
    if (current == nullptr || std::exchange(current->isHeld, true)) {
        return nullptr;
    }
    return std::make_unique<HeldMessage>(BusMessage(sd_bus_message_ref(current->message)),
                                         std::move(current->received), held);
}

void Inbox::answer(const Incoming &incoming) const {
    if (const int result = answerAsTaken(incoming.message.get()); result < 0 && !connection.isLost()) {
        report("cannot answer " + incoming.sender + ": " + busErrorText(result));
    }
}

/// Drops a notification, and tells a caller so.
void Inbox::refuse(sd_bus_message *message, const char *error, const std::string &reason) const {
    report("dropped a notification from " + std::string(sd_bus_message_get_sender(message)) + ": " + reason);
    answerWithError(message, error, reason);
}

// ---- What counts

void Inbox::heedNews() {
    for (std::size_t place = 0; place < incomings.size();) {
        Incoming &incoming = incomings[place];
        if (mustWait(incoming)) {
            letWait(std::move(incoming));
            incomings.erase(incomings.begin() + static_cast<std::ptrdiff_t>(place));
            continue;
        }
        if (!incoming.standing && senders.verdictOn(incoming.sender) != Verdict::pending) {
            incoming.standing = standingOf(incoming);
        }
        ++place;
    }
}

Standing Inbox::standingOf(const Incoming &incoming) {
    if (!incoming.message) {
        return standingOfDeparture(incoming.sender);
    }
    if (!observation || senders.verdictOn(incoming.sender) != Verdict::accepted) {
        return Standing::ofNobody;
    }
    return standingOfMessage(incoming.sender, incoming.message.get());
}

Standing Inbox::standingOfDeparture(const std::string &sender) {
    endWaiting(sender);
    if (sender == currentPeer.name()) {
        peerChanges(PeerChange::left);
    }
    return currentPeer.leave(sender);
}

Standing Inbox::standingOfMessage(const std::string &sender, sd_bus_message *message) {
    const Word word = wordOf(message);
    if (word == Word::farewell) {
        endWaiting(sender);
    }
    // Only a notification that will be delivered may change anything.
    if (currentPeer.isChangedBy(sender, word) && !isDeliverable(message)) {
        return Standing::ofNobody;
    }
    if (currentPeer.isReplacedBy(sender, word)) {
        peerChanges(observation->peerCommands.presentComesFirst ? PeerChange::succeeded
                                                                : PeerChange::replaced);
    }
    return currentPeer.hear(sender, word);
}

Word Inbox::wordOf(sd_bus_message *message) const {
    const std::optional<std::string> object = objectOf(message);
    if (object == observation->peerCommands.announcement) {
        return Word::announcement;
    }
    return object == observation->peerCommands.farewell ? Word::farewell : Word::other;
}

bool Inbox::isDeliverable(sd_bus_message *message) const {
    std::string problem;
    const auto received = readNotification(message, problem);
    return received && received->name == observation->name;
}

bool Inbox::isAnnouncerUnknown() const {
    return observation && std::any_of(incomings.begin(), incomings.end(), [this](const Incoming &incoming) {
               return incoming.message && senders.verdictOn(incoming.sender) == Verdict::pending &&
                      wordOf(incoming.message.get()) == Word::announcement;
           });
}

bool Inbox::isFarewellUntold() const {
    return !currentPeer.isThere() &&
           std::any_of(incomings.begin(), incomings.end(),
                       [](const Incoming &incoming) { return incoming.standing == Standing::peersFarewell; });
}

// ---- The peer that is there comes first

/// Whether this is somebody's announcement that is to be heard only after the present peer's farewell, or
/// after those who wait already.
bool Inbox::mustWait(const Incoming &incoming) const {
    if (!observation || !observation->peerCommands.presentComesFirst || !incoming.message ||
        incoming.standing || incoming.sender == currentPeer.name() ||
        senders.verdictOn(incoming.sender) != Verdict::accepted) {
        return false;
    }
    return (currentPeer.isThere() || !waiting.empty()) &&
           wordOf(incoming.message.get()) == Word::announcement;
}

void Inbox::letWait(Incoming incoming) {
    if (waiting.size() >= limit) {
        refuse(incoming.message.get(), SD_BUS_ERROR_LIMITS_EXCEEDED, "too many wait already");
        return;
    }
    report(incoming.sender + " has announced itself and waits until " + currentPeer.name() + " has left");
    waiting.push_back(std::move(incoming));
}

/// Those who have waited are heard next, in the order in which they came.
void Inbox::endWaiting() {
    incomings.insert(incomings.begin(), std::make_move_iterator(waiting.begin()),
                     std::make_move_iterator(waiting.end()));
    waiting.clear();
}

/// One who has given up waits no more.
void Inbox::endWaiting(const std::string &sender) {
    std::erase_if(waiting, [&sender](const Incoming &one) { return one.sender == sender; });
}

} // namespace veltrin::platform
