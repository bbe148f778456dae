#pragma once

#include "platform/linux/BusHandles.h"

#include <poll.h>

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>

namespace veltrin::platform {

/// A connection to the system message bus. There is no thread, and nothing waits inside the library: every
/// wait is a poll of the bus with a limit.
class BusConnection {
  public:
    using Time = std::chrono::steady_clock::time_point;

    struct Settings {
        /// Takes one line for the diagnostic log.
        std::function<void(const std::string &line)> report;

        /// Called once, when the bus is lost: after the report and before the connection is closed.
        std::function<void()> whenLost;
    };

    explicit BusConnection(Settings settings);
    BusConnection(const BusConnection &) = delete;
    BusConnection &operator=(const BusConnection &) = delete;
    ~BusConnection() = default; // drops what is unsent

    /// Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS, if set). False with `problem` set where it cannot
    /// be reached or does not let us in within 5 seconds.
    [[nodiscard]] bool open(std::string &problem);

    /// The library's handle of a connection that has been opened; remains this object's.
    [[nodiscard]] sd_bus *get() const { return bus.get(); }

    /// Once the bus is lost it stays so.
    [[nodiscard]] bool isLost() const { return isBusLost; }

    /// Whether a message waits in the library's own queue.
    [[nodiscard]] bool hasUnsent() const;

    /// Lets the library do one thing that is due: send, or take in one message. Returns false when nothing
    /// is.
    bool process();

    /// Waits until `until`, until `process` has something to do, or until something can be done with one of
    /// the descriptors. A lost bus is waited for all the same: whoever waits counts on the time going by.
    void waitUntil(Time until, std::span<const pollfd> watched = {});

    /// Sends what is unsent, for two seconds at most.
    void drain() noexcept;

    /// Whether a negative error number is a shortage inside this process or this machine that passes, and a
    /// pause for it to pass in.
    [[nodiscard]] static bool isPassingShortage(int error);
    void waitOutShortage();

    /// Whether a message can carry the text, which is asked of the library once for each.
    [[nodiscard]] bool canCarry(const std::string &text);

    /// Has the bus pass on the messages of this rule, in place of those of any rule before, and waits for its
    /// consent. Returns 0 or the error number, negative or not.
    [[nodiscard]] int match(const std::string &rule);

    void endMatch() noexcept { matching.reset(); }

    /// Asks for a name that the bus gives to one connection at a time, of those that its policy lets own it,
    /// and takes back when that one is gone, however it ends. Where the policy lets nobody own it, that is
    /// reported and the name taken as granted. Returns 0, or the negative error number where the bus could
    /// not be asked.
    [[nodiscard]] int claim(const std::string &name, bool &isGranted);

  private:
    // Callbacks of the library. They only note what happened.
    static int matchAnswered(sd_bus_message *reply, void *connection, sd_bus_error *error) noexcept;
    static int claimAnswered(sd_bus_message *reply, void *connection, sd_bus_error *error) noexcept;

    template <typename Answer>
    [[nodiscard]] int awaitAnswer(const std::optional<Answer> &answer);
    void lose(const std::string &reason);

    std::function<void(const std::string &line)> report;
    std::function<void()> whenLost;
    Bus bus; // what is below holds on to it, so it goes last
    bool isBusLost = false;

    /// The texts that the bus is known to carry: a handful of names and objects, which every block needs.
    std::set<std::string> carriable;

    BusSlot matching;
    std::optional<int> matchError; // the bus's answer to the match: an error number, 0 where it is in place
    std::optional<bool> isClaimGranted; // the bus's answer to the claim
};

} // namespace veltrin::platform
