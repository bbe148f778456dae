#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// A program on the system bus that speaks the notification messages by hand: it sees them as they travel,
/// answers only when told to, and can send what no proper end of a channel would.
class BusClient {
  public:
    struct Release {
        void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
    };

    using Message = std::unique_ptr<sd_bus_message, Release>;

    /// Appends a message's arguments.
    using Arguments = std::function<void(sd_bus_message *)>;

    /// Connects and takes in the notifications of `name` from now on.
    explicit BusClient(const std::string &name);

    BusClient(const BusClient &) = delete;
    BusClient &operator=(const BusClient &) = delete;
    ~BusClient();

    [[nodiscard]] std::string uniqueName() const;

    /// Sends a broadcast signal.
    void signal(const std::string &path, const Arguments &arguments);

    /// Sends a call; what becomes of it goes into `replies`.
    void call(const std::string &destination, const std::string &path, const Arguments &arguments);

    /// Sends a signal to `destination` alone that says, in the bus's stead, that `leaver` has left the bus.
    void forgeDeparture(const std::string &destination, const std::string &leaver);

    /// Sends replies to calls that `destination` has made to others, one for each serial number that its next
    /// calls may have; with a number in them, or empty.
    void forgeReplies(const std::string &destination, std::optional<std::uint32_t> number = std::nullopt);

    /// Answers a call as delivered, or with an error.
    void answer(sd_bus_message *call);
    void answerWithError(sd_bus_message *call, const char *error);

    /// Takes in whatever has come, without waiting.
    void process();

    /// Takes in what comes until there are so many notifications in all. False when that takes too long.
    [[nodiscard]] bool awaitReceived(std::size_t count);

    /// Takes in what comes until so many calls of this client are answered. False when that takes too long.
    [[nodiscard]] bool awaitReplies(std::size_t count);

    /// Takes in what comes until a call of this client is answered. False when that takes too long.
    [[nodiscard]] bool awaitReply();

    /// Returns when the bus has passed on everything that was sent before.
    void waitForBus();

    std::vector<Message> received;       // signals and calls of the name, in order
    std::vector<std::string> replies;    // to this client's calls, in order: "" or the error's name
    std::vector<std::string> replyTexts; // what the errors say, likewise

  private:
    static int onMessage(sd_bus_message *message, void *client, sd_bus_error *error);
    static int onReply(sd_bus_message *reply, void *client, sd_bus_error *error);
    [[nodiscard]] bool await(const std::function<bool()> &done);
    void flush();

    sd_bus *bus = nullptr;
};

/// The arguments of a proper notification without data.
[[nodiscard]] BusClient::Arguments notificationArguments(const std::string &name, const std::string &object);

} // namespace veltrin::test
