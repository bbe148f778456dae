#pragma once

#include "platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

// One end of a channel, on whatever notification service, and what tests do with it.

namespace veltrin::test {

using Block = std::vector<std::byte>;

inline const std::string port = "usb://Veltrin/C200?serial=1";
inline const std::string frontendName = port + ".frontend";
inline const std::string backendName = port + ".backend";
inline const platform::PeerCommands backendCommands{"backend-alive", "backend-byebye"};
inline const platform::PeerCommands frontendCommands{"fronted-alive", "frontend-byebye"};

[[nodiscard]] Block patternOf(std::size_t size);

class ChannelEnd {
  public:
    /// Connects to the service under test, as `Platform::makeNotificationCenter` does.
    using Connect = std::function<std::unique_ptr<platform::NotificationCenter>(
        platform::NotificationCenterClient client, std::string &problem)>;

    struct Received {
        std::optional<std::string> object;
        std::optional<Block> data;

        bool operator==(const Received &) const = default;
    };

    ChannelEnd(const Connect &connect, const std::string &observed, std::string posted,
               const platform::PeerCommands &peer);
    ChannelEnd(const ChannelEnd &) = delete;
    ChannelEnd &operator=(const ChannelEnd &) = delete;

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

    std::unique_ptr<platform::NotificationCenter> center;
    std::string postName;
    std::vector<Received> received;
    std::vector<std::string> reports;
    std::string lastError;
};

/// Calls the steps in turn until `done`; false when it takes too long.
[[nodiscard]] bool runUntil(const std::function<bool()> &done,
                            const std::vector<std::function<void()>> &steps,
                            std::chrono::seconds limit = std::chrono::seconds(20));

[[nodiscard]] std::function<void()> turning(ChannelEnd &end);

/// Makes the two ends each other's peers; afterwards nothing is under way and nothing noted.
void introduce(ChannelEnd &frontend, ChannelEnd &backend);

[[nodiscard]] std::chrono::milliseconds durationOf(const std::function<void()> &deed);

} // namespace veltrin::test
