#include "platform/linux/SenderTrust.h"

#include "platform/linux/BusConnection.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace veltrin::platform {

namespace {

/// The user's name, or the number of one who has none.
std::string nameOf(uid_t user) {
    const passwd *entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

} // namespace

SenderTrust::SenderTrust(Settings settings)
    : connection(settings.connection), acceptsUser(std::move(settings.acceptsUser)),
      objectionTo(std::move(settings.objectionTo)), report(std::move(settings.report)),
      whenGone(std::move(settings.whenGone)) {}

/// Takes a step towards the verdict. Who cannot be judged for want of memory is refused: a sender on whom
/// there is no verdict would be waited for.
template <typename Step>
void SenderTrust::decide(Sender &sender, Step step) const noexcept {
    if (!withinMemory(step, report, "refused a sender")) {
        sender.verdict = Verdict::refused;
    }
}

SenderTrust::Verdict SenderTrust::inquire(const std::string &uniqueName) {
    const auto [entry, isNew] =
        senders.try_emplace(uniqueName, Sender{.trust = *this, .uniqueName = uniqueName});
    if (isNew) {
        Sender &sender = entry->second;
        decide(sender, [&] { watch(sender); });
    }
    return entry->second.verdict;
}

/// Asks the bus for the sender's user, and to be told when the sender leaves. In this order: a sender that
/// leaves in between has no user any more, and one that leaves later is reported.
void SenderTrust::watch(Sender &sender) {
    const std::string rule = std::string("type='signal',sender='") + busName + "',path='" + busPath +
                             "',interface='" + busName + "',member='NameOwnerChanged',arg0='" +
                             sender.uniqueName + "'";
    sd_bus_slot *slot = nullptr;
    const int result =
        sd_bus_add_match_async(connection.get(), &slot, rule.c_str(), nameOwnerChanged, nullptr, &sender);
    sender.departure.reset(slot);
    if (result < 0) {
        refuseSender(sender, "the bus cannot be asked who it is: " + busErrorText(result));
    } else {
        askForUser(sender);
    }
}

void SenderTrust::askForUser(Sender &sender) {
    ask(sender, "GetConnectionUnixUser", userToldOf);
}

void SenderTrust::askForProcess(Sender &sender) {
    ask(sender, "GetConnectionUnixProcessID", processToldOf);
}

void SenderTrust::ask(Sender &sender, const char *question, sd_bus_message_handler_t take) {
    sd_bus_slot *slot = nullptr;
    const int result = sd_bus_call_method_async(connection.get(), &slot, busName, busPath, busName, question,
                                                take, &sender, "s", sender.uniqueName.c_str());
    sender.inquiry.reset(slot);
    if (result < 0) {
        refuseSender(sender, "the bus cannot be asked who it is: " + busErrorText(result));
    }
}

void SenderTrust::refuseSender(Sender &sender, const std::string &reason) const {
    sender.verdict = Verdict::refused;
    sender.refusal = reason;
    report("refused " + sender.uniqueName + ": " + reason);
}

int SenderTrust::userToldOf(sd_bus_message *reply, void *sender, sd_bus_error * /*error*/) noexcept {
    Sender &asked = *static_cast<Sender *>(sender);
    asked.trust.decide(asked, [&] {
        if (sd_bus_message_is_method_error(reply, nullptr) > 0 || isFrom(reply, busName)) {
            asked.trust.judgeUser(asked, reply);
        } else {
            asked.trust.askForUser(asked); // somebody else has answered in the bus's place
        }
    });
    return 1;
}

int SenderTrust::processToldOf(sd_bus_message *reply, void *sender, sd_bus_error * /*error*/) noexcept {
    Sender &asked = *static_cast<Sender *>(sender);
    asked.trust.decide(asked, [&] {
        if (sd_bus_message_is_method_error(reply, nullptr) > 0 || isFrom(reply, busName)) {
            asked.trust.judgeProcess(asked, reply);
        } else {
            asked.trust.askForProcess(asked);
        }
    });
    return 1;
}

void SenderTrust::judgeUser(Sender &sender, sd_bus_message *reply) {
    std::uint32_t user = 0;
    if (sd_bus_message_is_method_error(reply, nullptr) > 0 || sd_bus_message_read(reply, "u", &user) <= 0) {
        refuseSender(sender, "the bus does not tell its user");
    } else if (!acceptsUser(user)) {
        refuseSender(sender,
                     "the user " + nameOf(user) + " may not take part with the user " + nameOf(geteuid()));
    } else if (objectionTo) {
        askForProcess(sender);
    } else {
        sender.verdict = Verdict::accepted;
    }
}

/// A process that the bus cannot name, in another namespace say, is heard: its user is a trusted one.
void SenderTrust::judgeProcess(Sender &sender, sd_bus_message *reply) {
    std::uint32_t process = 0;
    std::string objection;
    if (sd_bus_message_is_method_error(reply, nullptr) == 0 &&
        sd_bus_message_read(reply, "u", &process) > 0) {
        sender.process = static_cast<pid_t>(process);
        objection = objectionTo(*sender.process);
    }
    if (objection.empty()) {
        sender.verdict = Verdict::accepted;
    } else {
        refuseSender(sender, objection);
    }
}

int SenderTrust::nameOwnerChanged(sd_bus_message *message, void *sender, sd_bus_error * /*error*/) noexcept {
    const char *newOwner = nullptr;
    if (isFrom(message, busName) && sd_bus_message_read(message, "sss", nullptr, nullptr, &newOwner) > 0 &&
        *newOwner == '\0') {
        const Sender &gone = *static_cast<Sender *>(sender);
        const SenderTrust &trust = gone.trust;
        static_cast<void>(withinMemory([&] { trust.whenGone(gone.uniqueName); }, trust.report,
                                       "a departure was not noted"));
    }
    return 0;
}

SenderTrust::Verdict SenderTrust::verdictOn(const std::string &uniqueName) const {
    const auto known = senders.find(uniqueName);
    return known != senders.end() ? known->second.verdict : Verdict::refused;
}

std::optional<pid_t> SenderTrust::processOf(const std::string &uniqueName) const {
    const auto known = senders.find(uniqueName);
    return known != senders.end() && known->second.verdict == Verdict::accepted ? known->second.process
                                                                                : std::nullopt;
}

std::string SenderTrust::refusalOf(const std::string &uniqueName) const {
    const auto known = senders.find(uniqueName);
    return known != senders.end() ? known->second.refusal : "";
}

} // namespace veltrin::platform
