#include "tests/support/BusClient.h"

#include "platform/linux/NotificationMessage.h"
#include "platform/linux/NotificationPath.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <utility>

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

void BusClient::forgeDeparture(const std::string &destination, const std::string &leaver) {
    constexpr const char *busName = "org.freedesktop.DBus";
    sd_bus_message *raw = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(bus, &raw, "/org/freedesktop/DBus", busName, "NameOwnerChanged"), 0);
    const Message message(raw);
    EXPECT_GE(sd_bus_message_set_destination(raw, destination.c_str()), 0);
    EXPECT_GE(sd_bus_message_append(raw, "sss", leaver.c_str(), leaver.c_str(), ""), 0);
    EXPECT_GE(sd_bus_send(bus, raw, nullptr), 0);
    flush();
}

// The library makes replies only to calls that it has received, so these are made by hand.
void BusClient::forgeReplies(const std::string &destination, std::optional<std::uint32_t> number) {
    for (std::uint32_t serial = 1; serial <= 200; ++serial) {
        std::string fields;
        const auto put = [&fields](const std::string &bytes) { fields += bytes; };
        const auto putNumber = [&fields](std::uint32_t value) {
            fields.append(reinterpret_cast<const char *>(&value), sizeof value);
        };
        const auto align = [&fields] { fields.resize((fields.size() + 7) / 8 * 8); };
        put(std::string("\5\1u\0", 4)); // the serial number of the call
        putNumber(serial);
        put(std::string("\6\1s\0", 4)); // the destination
        putNumber(static_cast<std::uint32_t>(destination.size()));
        put(destination + '\0');
        if (number) {
            align();
            put(std::string("\10\1g\0\1u\0", 7)); // the types of the body
        }
        const auto fieldsSize = static_cast<std::uint32_t>(fields.size());
        align();
        const std::string rest = std::exchange(fields, "");
        put(std::string("l\2\1\1", 4)); // little-endian, a reply, wants none itself, protocol 1
        putNumber(number ? sizeof *number : 0);
        putNumber(0x7FFF0000 + serial);
        putNumber(fieldsSize);
        put(rest);
        if (number) {
            putNumber(*number);
        }
        EXPECT_EQ(write(sd_bus_get_fd(bus), fields.data(), fields.size()),
                  static_cast<ssize_t>(fields.size()));
    }
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

bool BusClient::awaitReceived(std::size_t count) {
    return await([&] { return received.size() >= count; });
}

bool BusClient::awaitReplies(std::size_t count) {
    return await([&] { return replies.size() >= count; });
}

bool BusClient::awaitReply() {
    return awaitReplies(1);
}

bool BusClient::await(const std::function<bool()> &done) {
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, 100'000);
        }
    }
    return done();
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
    auto &self = *static_cast<BusClient *>(client);
    self.replies.emplace_back(error != nullptr ? error->name : "");
    self.replyTexts.emplace_back(error != nullptr && error->message != nullptr ? error->message : "");
    return 1;
}

BusClient::Arguments notificationArguments(const std::string &name, const std::string &object) {
    return [name, object](sd_bus_message *message) {
        EXPECT_GE(sd_bus_message_append(message, "sva{sv}", name.c_str(), "s", object.c_str(), 0), 0);
    };
}

} // namespace veltrin::test
