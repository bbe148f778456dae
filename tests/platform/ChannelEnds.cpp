#include "tests/platform/ChannelEnds.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace veltrin::test {

using namespace std::chrono_literals;
using platform::DBusNotificationCenter;
using platform::Notification;
using platform::NotificationCenterClient;
using platform::NotificationError;
using platform::notificationPath;
using std::chrono::steady_clock;

Block patternOf(std::size_t size) {
    Block block(size);
    for (std::size_t i = 0; i < size; ++i) {
        block[i] = static_cast<std::byte>(i * 13 + i / 257);
    }
    return block;
}

End::End(const std::string &observed, std::string posted, const platform::PeerCommands &peer,
         const std::optional<UserCheck> &check)
    : postName(std::move(posted)) {
    const NotificationCenterClient client{[this] { return isCancelled(); },
                                          [this](const std::string &line) { reports.push_back(line); }};
    std::string problem;
    center = check ? DBusNotificationCenter::connect(client, problem, *check)
                   : DBusNotificationCenter::connect(client, problem);
    if (!center) {
        ADD_FAILURE() << problem;
        std::abort();
    }
    center->startObserving(observed, peer, [this](const Notification &notification) {
        received.push_back({notification.object,
                            notification.data
                                ? std::optional(Block(notification.data->begin(), notification.data->end()))
                                : std::nullopt});
        onReceived();
    });
}

bool End::tryPost(const std::string &object, std::optional<std::span<const std::byte>> data) {
    try {
        EXPECT_TRUE(center->post(postName, object, data));
        return true;
    } catch (const NotificationError &error) {
        lastError = error.what();
        return false;
    }
}

std::vector<std::string> End::objects() const {
    std::vector<std::string> result;
    for (const Received &one : received) {
        result.push_back(one.object.value_or("(no text)"));
    }
    return result;
}

std::unique_ptr<End> makeFrontend(const std::optional<End::UserCheck> &check) {
    return std::make_unique<End>(frontendName, backendName, backendCommands, check);
}

std::unique_ptr<End> makeBackend() {
    return std::make_unique<End>(backendName, frontendName, frontendCommands);
}

bool runUntil(const std::function<bool()> &done, const std::vector<std::function<void()>> &steps,
              std::chrono::seconds limit) {
    const auto deadline = steady_clock::now() + limit;
    while (!done()) {
        if (steady_clock::now() > deadline) {
            return false;
        }
        for (const auto &step : steps) {
            step();
        }
    }
    return true;
}

std::function<void()> turning(End &end) {
    return [&end] { end.center->turn(1ms); };
}

std::function<void()> processing(BusClient &client) {
    return [&client] { client.process(); };
}

void letArrive(const End &end) {
    static_cast<void>(end.center->claim("the end of what has come")); // another end may have it already
}

void introduce(End &frontend, End &backend) {
    frontend.post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {turning(backend)}));
    backend.post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return !frontend.received.empty(); }, {turning(frontend)}));
    backend.center->turn(20ms); // takes the reply
    frontend.received.clear();
    backend.received.clear();
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

std::chrono::milliseconds durationOf(const std::function<void()> &deed) {
    const auto start = steady_clock::now();
    deed();
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
}

std::chrono::milliseconds processorTimeOf(const std::function<void()> &deed) {
    const std::clock_t start = std::clock();
    deed();
    return std::chrono::milliseconds((std::clock() - start) * 1000 / CLOCKS_PER_SEC);
}

} // namespace veltrin::test
