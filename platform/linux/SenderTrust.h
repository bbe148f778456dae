#pragma once

#include "platform/linux/BusHandles.h"

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace veltrin::platform {

class BusConnection;

/// Who sends notifications, and whether they are to be heard. The bus is asked for the user and, where the
/// program wants to know, the process of each sender.
class SenderTrust {
  public:
    enum class Verdict { pending, accepted, refused };

    struct Settings {
        const BusConnection &connection;

        /// Whose notifications are taken.
        std::function<bool(uid_t user)> acceptsUser;

        /// What is against hearing a process; empty where nothing is. Nothing where any process will do.
        std::function<std::string(pid_t process)> objectionTo;

        /// Takes one line for the diagnostic log: why a sender is refused.
        std::function<void(const std::string &line)> report;

        /// Takes the unique name of a sender that has left the bus.
        std::function<void(const std::string &sender)> whenGone;
    };

    explicit SenderTrust(Settings settings);
    SenderTrust(const SenderTrust &) = delete;
    SenderTrust &operator=(const SenderTrust &) = delete;
    ~SenderTrust() = default;

    /// Has the bus asked who a sender is that has not been heard of before. Returns what is known by now.
    Verdict inquire(const std::string &uniqueName);

    /// Nothing is expected any more of a sender that has left the bus: it is as one refused.
    [[nodiscard]] Verdict verdictOn(const std::string &uniqueName) const;

    /// The process of a sender that has been accepted, where it was asked for and the bus can name it.
    [[nodiscard]] std::optional<pid_t> processOf(const std::string &uniqueName) const;

    /// Why a sender is refused; empty where it has left the bus.
    [[nodiscard]] std::string refusalOf(const std::string &uniqueName) const;

    /// To be called when a departure has been dealt with.
    void forget(const std::string &uniqueName) { senders.erase(uniqueName); }

  private:
    struct Sender {
        SenderTrust &trust;
        std::string uniqueName;
        Verdict verdict = Verdict::pending;
        BusSlot departure = {};   // the match for its leaving the bus
        BusSlot inquiry = {};     // the question for its user or its process
        std::string refusal = {}; // why it is refused
        std::optional<pid_t> process = {};
    };

    // Callbacks of the library. They only note what happened.
    static int nameOwnerChanged(sd_bus_message *message, void *sender, sd_bus_error *error) noexcept;
    static int userToldOf(sd_bus_message *reply, void *sender, sd_bus_error *error) noexcept;
    static int processToldOf(sd_bus_message *reply, void *sender, sd_bus_error *error) noexcept;

    void watch(Sender &sender);
    void askForUser(Sender &sender);
    void askForProcess(Sender &sender);
    void ask(Sender &sender, const char *question, sd_bus_message_handler_t take);
    template <typename Step>
    void decide(Sender &sender, Step step) const noexcept;
    void judgeUser(Sender &sender, sd_bus_message *reply);
    void judgeProcess(Sender &sender, sd_bus_message *reply);
    void refuseSender(Sender &sender, const std::string &reason) const;

    const BusConnection &connection;
    std::function<bool(uid_t user)> acceptsUser;
    std::function<std::string(pid_t process)> objectionTo;
    std::function<void(const std::string &line)> report;
    std::function<void(const std::string &sender)> whenGone;
    std::map<std::string, Sender> senders; // by unique name
};

} // namespace veltrin::platform
