#pragma once

#include "platform/linux/DBusNotificationCenter.h"
#include "platform/linux/NotificationPath.h"
#include "tests/support/BusClient.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The two ends of a channel on a bus of their own, and what tests do with them.

namespace veltrin::test {

using Block = std::vector<std::byte>;

inline const std::string port = "usb://Veltrin/C200?serial=1";
inline const std::string frontendName = port + ".frontend";
inline const std::string backendName = port + ".backend";
inline const platform::PeerCommands backendCommands{"backend-alive", "backend-byebye"};
inline const platform::PeerCommands frontendCommands{"fronted-alive", "frontend-byebye"};

[[nodiscard]] Block patternOf(std::size_t size);

/// One end of a channel.
class End {
  public:
    using UserCheck = platform::DBusNotificationCenter::UserCheck;

    struct Received {
        std::optional<std::string> object;
        std::optional<Block> data;

        bool operator==(const Received &) const = default;
    };

    End(const std::string &observed, std::string posted, const platform::PeerCommands &peer,
        const std::optional<UserCheck> &check = std::nullopt);

    void post(const std::string &object) const { EXPECT_TRUE(center->post(postName, object, std::nullopt)); }

    void post(const std::string &object, std::span<const std::byte> data) const {
        EXPECT_TRUE(center->post(postName, object, data));
    }

    /// Whether the post succeeded.
    bool tryPost(const std::string &object, std::optional<std::span<const std::byte>> data = std::nullopt);

    [[nodiscard]] std::vector<std::string> objects() const;

    /// Asked in every wait; a test may do something there, or end the wait by returning true.
    std::function<bool()> isCancelled = [] { return false; };
    std::function<void()> onReceived = [] {};

    std::unique_ptr<platform::DBusNotificationCenter> center;
    std::string postName;
    std::vector<Received> received;
    std::vector<std::string> reports;
    std::string lastError;
};

[[nodiscard]] std::unique_ptr<End> makeFrontend(const std::optional<End::UserCheck> &check = std::nullopt);
[[nodiscard]] std::unique_ptr<End> makeBackend();

/// Calls the steps in turn until `done`; false when it takes too long.
[[nodiscard]] bool runUntil(const std::function<bool()> &done,
                            const std::vector<std::function<void()>> &steps,
                            std::chrono::seconds limit = std::chrono::seconds(20));

[[nodiscard]] std::function<void()> turning(End &end);
[[nodiscard]] std::function<void()> processing(BusClient &client);

/// Returns when an end has what the bus has taken for it before: a bus may answer a sender first and deliver
/// then, but to each of them in order. The answer to a claim stands behind it.
void letArrive(const End &end);

/// Makes the two ends each other's peers; afterwards nothing is under way and nothing noted.
void introduce(End &frontend, End &backend);

/// Makes a hand-made backend the peer of the filter's end. Returns the unique name of the filter's end.
std::string introduce(End &frontend, BusClient &backend);

/// The arguments of a notification for the filter's end that has another entry in its user info, and under
/// "data" the variant that the function appends.
[[nodiscard]] BusClient::Arguments withData(const std::function<void(sd_bus_message *)> &appendData,
                                            const std::string &object = "readPipe");

[[nodiscard]] std::chrono::milliseconds durationOf(const std::function<void()> &deed);

/// What the deed costs this process.
[[nodiscard]] std::chrono::milliseconds processorTimeOf(const std::function<void()> &deed);

class OnPrivateBus : public testing::Test {
  protected:
    PrivateBus bus;
};

} // namespace veltrin::test
