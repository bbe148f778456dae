#include "platform/linux/BusHandles.h"
#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What dbus-daemon and dbus-broker do differently, and that nothing relies on either.

class BusDifferencesTest : public OnPrivateBus {};

int keepErrorName(sd_bus_message *message, void *name, sd_bus_error * /*error*/) {
    if (const sd_bus_error *error = sd_bus_message_get_error(message)) {
        *static_cast<std::string *>(name) = error->name;
    }
    return 0;
}

/// Takes in what the bus has to say to everything sent before. False where the bus has cut the connection.
bool waitForBus(sd_bus *bus) {
    const bool isConnected =
        sd_bus_call_method(bus, busName, busPath, busName, "GetId", nullptr, nullptr, "") >= 0;
    while (sd_bus_process(bus, nullptr) > 0) {
    }
    return isConnected;
}

/// Whether a signal arrived cannot be told by the absence of an error, so nothing that matters is one.
TEST_F(BusDifferencesTest, ASignalToSomebodyWhoIsGoneIsAnErrorOnDBusDaemonAlone) {
    sd_bus *sender = nullptr;
    ASSERT_GE(sd_bus_open_system(&sender), 0);
    std::string error;
    ASSERT_GE(sd_bus_add_filter(sender, nullptr, keepErrorName, &error), 0);
    sd_bus_message *signal = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(sender, &signal, "/", "org.veltrin.Notifications1", "Posted"), 0);
    const BusClient::Message owner(signal);
    ASSERT_GE(sd_bus_message_set_destination(signal, ":1.4711"), 0);
    ASSERT_GE(sd_bus_send(sender, signal, nullptr), 0);
    EXPECT_TRUE(waitForBus(sender));
    EXPECT_EQ(error, test::busKind() == BusKind::broker ? "" : SD_BUS_ERROR_SERVICE_UNKNOWN);
    sd_bus_flush_close_unref(sender);
}

/// A bus with that limit for a connection. dbus-broker makes of it one for a user, 64 times as large.
std::string openPolicyWith(const std::string &limit, int value) {
    const int connections = test::busKind() == BusKind::broker ? 64 : 1;
    return PrivateBus::openPolicy + ("<limit name=\"" + limit + "\">") + std::to_string(value / connections) +
           "</limit>";
}

/// Signals are dropped, and nobody is told. A call is answered with an error, or costs its sender the
/// connection where the user's share of the bus is used up; either is noticed.
TEST(OnANarrowBus, SignalsToWhoeverDoesNotReadAreLostWithoutAWordAndCallsAreNot) {
    constexpr std::size_t signals = 400;
    const PrivateBus bus(openPolicyWith("max_outgoing_bytes", 512'000));
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    sd_bus *sender = nullptr;
    ASSERT_GE(sd_bus_open_system(&sender), 0);
    std::string error;
    ASSERT_GE(sd_bus_add_filter(sender, nullptr, keepErrorName, &error), 0);
    const std::string path = notificationPath(backendName);
    const std::string text(10'000, 'x');
    for (int i = 0; i < 400; ++i) {
        static_cast<void>(sd_bus_emit_signal(sender, path.c_str(), "org.veltrin.Notifications1", "Posted",
                                             "s", text.c_str()));
    }
    EXPECT_TRUE(waitForBus(sender));
    EXPECT_EQ(error, "");
    sd_bus_close_unref(sender);

    static_cast<void>(frontend->tryPost("writePipe", patternOf(60'000)));
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 50; };
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_THAT(frontend->reports,
                ElementsAre(test::busKind() == BusKind::daemon ? HasSubstr(SD_BUS_ERROR_LIMITS_EXCEEDED)
                                                               : HasSubstr("the system bus is lost")));

    static_cast<void>(runUntil([&] { return backend.received.size() == signals; },
                               {processing(backend), [] { std::this_thread::sleep_for(1ms); }}, 1s));
    EXPECT_LT(backend.received.size(), signals);
}

TEST(OnANarrowBus, WhoeverHasLeftTakesUpNoneOfItsMatches) {
    const PrivateBus bus(openPolicyWith("max_match_rules_per_connection", 64));
    const auto frontend = makeFrontend();
    const auto heard = [&](std::size_t count) {
        return runUntil([&] { return frontend->received.size() == count; }, {turning(*frontend)});
    };
    for (std::size_t clients = 1; clients <= 100; ++clients) {
        auto client = std::make_unique<BusClient>(backendName);
        client->signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
        ASSERT_TRUE(heard(2 * clients - 1));
        client.reset();
        ASSERT_TRUE(heard(2 * clients)) << "its goodbye";
    }
    EXPECT_THAT(frontend->reports, IsEmpty());
}

} // namespace
} // namespace veltrin::platform
