#include "tests/platform/ChannelEnds.h"

#include <ctime>
#include <utility>

namespace veltrin::test {

using platform::DBusNotificationCenter;
using platform::NotificationCenterClient;
using platform::notificationPath;

End::End(const std::string &observed, std::string posted, const platform::PeerCommands &peer,
         const std::optional<UserCheck> &check)
    : ChannelEnd(
          [&check](const NotificationCenterClient &client, std::string &problem) {
              return check ? DBusNotificationCenter::connect(client, problem, *check)
                           : DBusNotificationCenter::connect(client, problem);
          },
          observed, std::move(posted), peer) {}

std::unique_ptr<End> makeFrontend(const std::optional<End::UserCheck> &check) {
    return std::make_unique<End>(frontendName, backendName, backendCommands, check);
}

std::unique_ptr<End> makeBackend() {
    return std::make_unique<End>(backendName, frontendName, frontendCommands);
}

std::function<void()> processing(BusClient &client) {
    return [&client] { client.process(); };
}

void letArrive(const End &end) {
    static_cast<void>(end.center->claim("the end of what has come")); // another end may have it already
}

std::string introduce(End &frontend, BusClient &backend) {
    frontend.post("fronted-alive");
    EXPECT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
    std::string name = sd_bus_message_get_sender(backend.received.back().get());
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    EXPECT_TRUE(runUntil([&] { return !frontend.received.empty(); }, {turning(frontend)}));
    frontend.received.clear();
    backend.received.clear();
    return name;
}

BusClient::Arguments withData(const std::function<void(sd_bus_message *)> &appendData,
                              const std::string &object) {
    return [appendData, object](sd_bus_message *message) {
        EXPECT_GE(sd_bus_message_append(message, "sv", frontendName.c_str(), "s", object.c_str()), 0);
        EXPECT_GE(sd_bus_message_open_container(message, 'a', "{sv}"), 0);
        EXPECT_GE(sd_bus_message_append(message, "{sv}", "other", "i", 7), 0);
        EXPECT_GE(sd_bus_message_open_container(message, 'e', "sv"), 0);
        EXPECT_GE(sd_bus_message_append(message, "s", "data"), 0);
        appendData(message);
        EXPECT_GE(sd_bus_message_close_container(message), 0);
        EXPECT_GE(sd_bus_message_close_container(message), 0);
    };
}

std::chrono::milliseconds processorTimeOf(const std::function<void()> &deed) {
    const std::clock_t start = std::clock();
    deed();
    return std::chrono::milliseconds((std::clock() - start) * 1000 / CLOCKS_PER_SEC);
}

} // namespace veltrin::test
