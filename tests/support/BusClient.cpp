#include "tests/support/BusClient.h"

#include "platform/linux/NotificationMessage.h"
#include "platform/linux/NotificationPath.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace veltrin::test {

using platform::notificationInterface;
using platform::notificationMember;

BusClient::BusClient(const std::string &name) {
    EXPECT_GE(sd_bus_open_system(&bus), 0);
    const std::string rule = "type='signal',path='" + platform::notificationPath(name) + "'";
    EXPECT_GE(sd_bus_add_match(bus, nullptr, rule.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(sd_bus_add_filter(bus, nullptr, onMessage, this), 0);
}

BusClient::~BusClient() {
    received.clear();
    sd_bus_flush_close_unref(bus);
}

std::string BusClient::uniqueName() const {
    const char *name = nullptr;
    EXPECT_GE(sd_bus_get_unique_name(bus, &name), 0);
    return name;
}

void BusClient::signal(const std::string &path, const Arguments &arguments) {
    sd_bus_message *raw = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(bus, &raw, path.c_str(), notificationInterface, notificationMember),
              0);
    const Message message(raw);
    arguments(raw);
    EXPECT_GE(sd_bus_send(bus, raw, nullptr), 0);
    flush();
}

void BusClient::call(const std::string &destination, const std::string &path, const Arguments &arguments) {
    sd_bus_message *raw = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(bus, &raw, destination.c_str(), path.c_str(),
                                             notificationInterface, notificationMember),
              0);
    const Message message(raw);
    arguments(raw);
    EXPECT_GE(sd_bus_call_async(bus, nullptr, raw, onReply, this, UINT64_MAX), 0);
    flush();
}

void BusClient::answer(sd_bus_message *call) {
    EXPECT_GE(sd_bus_reply_method_return(call, ""), 0);
    flush();
}

void BusClient::answerWithError(sd_bus_message *call, const char *error) {
    EXPECT_GE(sd_bus_reply_method_errorf(call, error, "the test says so"), 0);
    flush();
}

void BusClient::process() {
    while (sd_bus_process(bus, nullptr) > 0) {
    }
}

void BusClient::waitForBus() {
    constexpr const char *busName = "org.freedesktop.DBus";
    EXPECT_GE(
        sd_bus_call_method(bus, busName, "/org/freedesktop/DBus", busName, "GetId", nullptr, nullptr, ""), 0);
}

void BusClient::flush() {
    EXPECT_GE(sd_bus_flush(bus), 0);
}

int BusClient::onMessage(sd_bus_message *message, void *client, sd_bus_error * /*error*/) {
    const char *interface = sd_bus_message_get_interface(message);
    if (interface == nullptr || std::string(interface) != notificationInterface) {
        return 0;
    }
    static_cast<BusClient *>(client)->received.emplace_back(sd_bus_message_ref(message));
    return 1;
}

int BusClient::onReply(sd_bus_message *reply, void *client, sd_bus_error * /*error*/) {
    const sd_bus_error *error = sd_bus_message_get_error(reply);
    static_cast<BusClient *>(client)->replies.emplace_back(error != nullptr ? error->name : "");
    return 1;
}

BusClient::Arguments notificationArguments(const std::string &name, const std::string &object) {
    return [name, object](sd_bus_message *message) {
        EXPECT_GE(sd_bus_message_append(message, "sva{sv}", name.c_str(), "s", object.c_str(), 0), 0);
    };
}

} // namespace veltrin::test
