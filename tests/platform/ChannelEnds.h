#pragma once

#include "platform/linux/DBusNotificationCenter.h"
#include "platform/linux/NotificationPath.h"
#include "tests/platform/ChannelEnd.h"
#include "tests/support/BusClient.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// The two ends of a channel on a bus of their own, and what tests do with them.

namespace veltrin::test {

/// One end of a channel on the bus.
class End final : public ChannelEnd {
  public:
    using UserCheck = platform::DBusNotificationCenter::UserCheck;

    End(const std::string &observed, std::string posted, const platform::PeerCommands &peer,
        const std::optional<UserCheck> &check = std::nullopt);
};

[[nodiscard]] std::unique_ptr<End> makeFrontend(const std::optional<End::UserCheck> &check = std::nullopt);
[[nodiscard]] std::unique_ptr<End> makeBackend();

[[nodiscard]] std::function<void()> processing(BusClient &client);

/// Returns when an end has what the bus has taken for it before: a bus may answer a sender first and deliver
/// then, but to each of them in order. The answer to a claim stands behind it.
void letArrive(const End &end);

/// Makes a hand-made backend the peer of the filter's end. Returns the unique name of the filter's end.
std::string introduce(End &frontend, BusClient &backend);

/// The arguments of a notification for the filter's end that has another entry in its user info, and under
/// "data" the variant that the function appends.
[[nodiscard]] BusClient::Arguments withData(const std::function<void(sd_bus_message *)> &appendData,
                                            const std::string &object = "readPipe");

/// What the deed costs this process.
[[nodiscard]] std::chrono::milliseconds processorTimeOf(const std::function<void()> &deed);

class OnPrivateBus : public testing::Test {
  protected:
    PrivateBus bus;
};

} // namespace veltrin::test
