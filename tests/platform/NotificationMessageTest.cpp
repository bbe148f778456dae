#include "platform/linux/SealedMemory.h"
#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class NotificationMessageTest : public OnPrivateBus {};

// ---- Names and blocks

TEST_F(NotificationMessageTest, CarriesEveryNameThatADeviceUriMayHave) {
    const std::vector<std::string> ports = {
        "usb://Veltrin/C200",
        "socket://192.0.2.1:9100/?waiteof=false&contimeout=30",
        "dnssd://Veltrin%20C200%20%40%20it's._pdl-datastream._tcp.local/?uuid=1,2",
        R"(usb://a'b,c\d'',\\'/;:@&=+$-_.!~*"()#[]{}|^`<>%25)",
        "usb://arg0='x',type='signal'",
        "usb://dr\xC3\xBC"
        "cker/\xE2\x82\xAC/\xF0\x9F\x96\xA8",
        "usb://tab\tand\nnewline\x7F",
        "",
        "usb://" + std::string(2000, 'x') + "?y='z'",
    };
    for (const std::string &name : ports) {
        SCOPED_TRACE(name);
        End frontend(name + ".frontend", name + ".backend", backendCommands);
        End backend(name + ".backend", name + ".frontend", frontendCommands);
        introduce(frontend, backend);
        frontend.post("writePipe", patternOf(16));
        EXPECT_TRUE(runUntil([&] { return !backend.received.empty(); }, {turning(backend)}));
        EXPECT_THAT(backend.received, ElementsAre(End::Received{"writePipe", patternOf(16)}));
        EXPECT_THAT(frontend.reports, IsEmpty());
        EXPECT_THAT(backend.reports, IsEmpty());
    }
}

TEST_F(NotificationMessageTest, RefusesNamesThatAreNoValidText) {
    const auto frontend = makeFrontend();
    for (const char *name : {"usb://\xFF", "usb://\xC3", "usb://\xC0\xAF", "usb://\xED\xA0\x80", "\x80",
                             "usb://\xF4\x90\x80\x80"}) {
        EXPECT_THROW(frontend->center->startObserving(name, backendCommands, [](const Notification &) {}),
                     NotificationError);
        EXPECT_THROW(static_cast<void>(frontend->center->post(name, "fronted-alive", std::nullopt)),
                     NotificationError);
        EXPECT_THROW(static_cast<void>(frontend->center->post(backendName, name, std::nullopt)),
                     NotificationError);
    }
    frontend->post("fronted-alive"); // the connection is none the worse for it
}

TEST_F(NotificationMessageTest, CarriesBlocksOfEverySize) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 1024U * 1024U, 100U * 1024U * 1024U}) {
        SCOPED_TRACE(size);
        const Block block = patternOf(size);
        for (const bool toBackend : {true, false}) {
            End &from = toBackend ? *frontend : *backend;
            End &to = toBackend ? *backend : *frontend;
            to.received.clear();
            from.post("writePipe", block);
            ASSERT_TRUE(runUntil([&] { return !to.received.empty(); }, {turning(to)}));
            EXPECT_TRUE(to.received.front().data == block);
            from.center->turn(1ms);
        }
    }
    EXPECT_TRUE(frontend->center->waitForDelivery());
}

TEST_F(NotificationMessageTest, CarriesANotificationWithoutUserInfoAsSuch) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->received, ElementsAre(End::Received{"readPipe", std::nullopt}));
}

// ---- The messages as they travel

TEST_F(NotificationMessageTest, BroadcastsUntilThereIsAPeerAndThenCallsIt) {
    const auto frontend = makeFrontend();
    BusClient witness(backendName);
    BusClient backend(backendName);
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !witness.received.empty(); }, {processing(witness)}));
    sd_bus_message *first = witness.received.front().get();
    EXPECT_GT(sd_bus_message_is_signal(first, "org.veltrin.Notifications1", "Posted"), 0);
    EXPECT_EQ(sd_bus_message_get_path(first), notificationPath(backendName));
    EXPECT_EQ(sd_bus_message_get_destination(first), nullptr);
    EXPECT_STREQ(sd_bus_message_get_signature(first, 1), "sva{sv}");
    const char *name = nullptr;
    const char *object = nullptr;
    ASSERT_GT(sd_bus_message_read(first, "sv", &name, "s", &object), 0);
    EXPECT_EQ(name, backendName);
    EXPECT_STREQ(object, "fronted-alive");
    ASSERT_GT(sd_bus_message_enter_container(first, 'a', "{sv}"), 0);
    EXPECT_GT(sd_bus_message_at_end(first, 0), 0);

    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    backend.process();
    backend.received.clear();
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
    sd_bus_message *second = backend.received.front().get();
    EXPECT_GT(sd_bus_message_is_method_call(second, "org.veltrin.Notifications1", "Posted"), 0);
    EXPECT_EQ(sd_bus_message_get_path(second), notificationPath(backendName));
    EXPECT_EQ(sd_bus_message_get_destination(second), backend.uniqueName());
    EXPECT_STREQ(sd_bus_message_get_signature(second, 1), "sva{sv}");
    EXPECT_GT(sd_bus_message_get_expect_reply(second), 0);
    witness.process();
    EXPECT_EQ(witness.received.size(), 1U) << "nobody else is to see it";
}

TEST_F(NotificationMessageTest, PutsLargeBlocksIntoSealedMemoryAndSmallOnesIntoTheMessage) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    const std::vector<std::pair<std::size_t, std::string>> table = {
        {0, "ay"}, {1, "ay"}, {65535, "ay"}, {65536, "h"}, {1024 * 1024, "h"}};
    for (const auto &[size, type] : table) {
        SCOPED_TRACE(size);
        backend.received.clear();
        frontend->post("writePipe", patternOf(size));
        ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
        sd_bus_message *message = backend.received.front().get();
        const char *key = nullptr;
        const char *contents = nullptr;
        ASSERT_GE(sd_bus_message_skip(message, "sv"), 0);
        ASSERT_GT(sd_bus_message_enter_container(message, 'a', "{sv}"), 0);
        ASSERT_GT(sd_bus_message_enter_container(message, 'e', "sv"), 0);
        ASSERT_GT(sd_bus_message_read(message, "s", &key), 0);
        EXPECT_STREQ(key, "data");
        ASSERT_GT(sd_bus_message_peek_type(message, nullptr, &contents), 0);
        EXPECT_EQ(contents, type);
        if (type == "h") {
            int descriptor = -1;
            ASSERT_GT(sd_bus_message_read(message, "v", "h", &descriptor), 0);
            constexpr int required = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK;
            EXPECT_EQ(fcntl(descriptor, F_GET_SEALS) & required, required);
        } else {
            ASSERT_GE(sd_bus_message_skip(message, "v"), 0);
        }
        ASSERT_GE(sd_bus_message_exit_container(message), 0);
        EXPECT_GT(sd_bus_message_at_end(message, 0), 0) << "only one entry";
        backend.answer(message);
    }
    EXPECT_TRUE(frontend->center->waitForDelivery());
}

BusClient::Arguments withDescriptor(int descriptor) {
    return withData([descriptor](sd_bus_message *message) {
        EXPECT_GE(sd_bus_message_append(message, "v", "h", descriptor), 0);
        close(descriptor);
    });
}

BusClient::Arguments withBytes(const Block &block) {
    return withData([block](sd_bus_message *message) {
        EXPECT_GE(sd_bus_message_open_container(message, 'v', "ay"), 0);
        EXPECT_GE(sd_bus_message_append_array(message, 'y', block.data(), block.size()), 0);
        EXPECT_GE(sd_bus_message_close_container(message), 0);
    });
}

TEST_F(NotificationMessageTest, TakesBothFormsOfDataAtAnySizeInSignalsAndCalls) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    const std::string path = notificationPath(frontendName);
    for (const std::size_t size : {0U, 5U, 64U, 1024U * 1024U}) {
        SCOPED_TRACE(size);
        const Block block = patternOf(size);
        frontend->received.clear();
        backend.replies.clear();
        backend.signal(path, withBytes(block));
        backend.signal(path, withDescriptor(makeSealedMemory(block)));
        backend.call(destination, path, withBytes(block));
        backend.call(destination, path, withDescriptor(makeSealedMemory(block)));
        ASSERT_TRUE(
            runUntil([&] { return backend.replies.size() == 2; }, {turning(*frontend), processing(backend)}));
        EXPECT_THAT(backend.replies, ElementsAre("", ""));
        const End::Received expected{"readPipe", block};
        EXPECT_TRUE(frontend->received == std::vector<End::Received>(4, expected));
    }
}

TEST_F(NotificationMessageTest, DropsMalformedNotificationsAndSaysSo) {
    const std::string path = notificationPath(frontendName);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[1]);
    const int unsealed = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    const int halfSealed = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(fcntl(halfSealed, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW), 0);
    const std::vector<std::pair<std::string, BusClient::Arguments>> table = {
        {"no arguments", [](sd_bus_message *) {}},
        {"the name alone",
         [](sd_bus_message *message) { sd_bus_message_append(message, "s", frontendName.c_str()); }},
        {"an object that is no variant",
         [](sd_bus_message *message) {
             sd_bus_message_append(message, "ssa{sv}", frontendName.c_str(), "readPipe", 0);
         }},
        {"user info of other types",
         [](sd_bus_message *message) {
             sd_bus_message_append(message, "sva{ss}", frontendName.c_str(), "s", "readPipe", 0);
         }},
        {"one argument more",
         [](sd_bus_message *message) {
             sd_bus_message_append(message, "sva{sv}s", frontendName.c_str(), "s", "readPipe", 0, "more");
         }},
        {"data that is a text",
         withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "s", "GDIR"); })},
        {"data that is a number",
         withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "i", 1); })},
        {"data that is an array of numbers",
         withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "au", 1, 2); })},
        {"data in a variant more",
         withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "v", "s", "x"); })},
        {"a pipe", withDescriptor(ends[0])},
        {"unsealed memory", withDescriptor(unsealed)},
        {"memory that may still shrink", withDescriptor(halfSealed)},
    };
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    for (const auto &[what, arguments] : table) {
        SCOPED_TRACE(what);
        backend.replies.clear();
        frontend->reports.clear();
        backend.call(destination, path, arguments);
        ASSERT_TRUE(
            runUntil([&] { return !backend.replies.empty(); }, {turning(*frontend), processing(backend)}));
        EXPECT_THAT(backend.replies, ElementsAre(SD_BUS_ERROR_INVALID_ARGS));
        EXPECT_THAT(frontend->reports,
                    ElementsAre(HasSubstr("dropped a notification from " + backend.uniqueName())));
    }
    EXPECT_THAT(frontend->received, IsEmpty());
    backend.signal(path, notificationArguments(frontendName, "readPipe"));
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
}

TEST_F(NotificationMessageTest, DeliversAnObjectThatIsNoTextWithoutIt) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    const std::vector<BusClient::Arguments> table = {
        [](sd_bus_message *message) {
            sd_bus_message_append(message, "sva{sv}", frontendName.c_str(), "i", 5, 0);
        },
        [](sd_bus_message *message) {
            sd_bus_message_append(message, "sva{sv}", frontendName.c_str(), "o", "/readPipe", 0);
        },
        [](sd_bus_message *message) {
            sd_bus_message_append(message, "sva{sv}", frontendName.c_str(), "as", 1, "readPipe", 0);
        },
    };
    for (const auto &arguments : table) {
        backend.signal(notificationPath(frontendName), arguments);
    }
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == table.size(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), testing::Each("(no text)"));
    EXPECT_THAT(frontend->reports, IsEmpty());
}

} // namespace
} // namespace veltrin::platform
