#include "platform/linux/DBusNotificationCenter.h"

#include "platform/linux/BusHandles.h"
#include "platform/linux/NotificationPath.h"
#include "platform/linux/SealedMemory.h"
#include "platform/linux/TrustedUser.h"
#include "tests/support/BusClient.h"
#include "tests/support/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using test::BusClient;
using test::BusKind;
using test::notificationArguments;
using test::PrivateBus;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Block = std::vector<std::byte>;

const std::string port = "usb://Veltrin/C200?serial=1";
const std::string frontendName = port + ".frontend";
const std::string backendName = port + ".backend";
const PeerCommands backendCommands{"backend-alive", "backend-byebye"};
const PeerCommands frontendCommands{"fronted-alive", "frontend-byebye"};

Block patternOf(std::size_t size) {
    Block block(size);
    for (std::size_t i = 0; i < size; ++i) {
        block[i] = static_cast<std::byte>(i * 13 + i / 257);
    }
    return block;
}

/// Lets this process open no more descriptors while it lives.
class NoMoreDescriptors {
  public:
    NoMoreDescriptors() {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
        const int lowestFree = dup(STDIN_FILENO);
        EXPECT_NE(lowestFree, -1);
        close(lowestFree);
        const rlimit none{static_cast<rlim_t>(lowestFree), before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }

    NoMoreDescriptors(const NoMoreDescriptors &) = delete;
    NoMoreDescriptors &operator=(const NoMoreDescriptors &) = delete;

    ~NoMoreDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0); }

  private:
    rlimit before{};
};

/// One end of a channel.
class End {
  public:
    struct Received {
        std::optional<std::string> object;
        std::optional<Block> data;

        bool operator==(const Received &) const = default;
    };

    End(const std::string &observed, std::string posted, const PeerCommands &peer,
        std::optional<DBusNotificationCenter::UserCheck> check = std::nullopt)
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
            received.push_back({notification.object, notification.data
                                                         ? std::optional(Block(notification.data->begin(),
                                                                               notification.data->end()))
                                                         : std::nullopt});
            onReceived();
        });
    }

    void post(const std::string &object) const { EXPECT_TRUE(center->post(postName, object, std::nullopt)); }

    void post(const std::string &object, std::span<const std::byte> data) const {
        EXPECT_TRUE(center->post(postName, object, data));
    }

    /// Whether the post succeeded.
    bool tryPost(const std::string &object, std::optional<std::span<const std::byte>> data = std::nullopt) {
        try {
            EXPECT_TRUE(center->post(postName, object, data));
            return true;
        } catch (const NotificationError &error) {
            lastError = error.what();
            return false;
        }
    }

    [[nodiscard]] std::vector<std::string> objects() const {
        std::vector<std::string> result;
        for (const Received &one : received) {
            result.push_back(one.object.value_or("(no text)"));
        }
        return result;
    }

    /// Asked in every wait; a test may do something there, or end the wait by returning true.
    std::function<bool()> isCancelled = [] { return false; };
    std::function<void()> onReceived = [] {};

    std::unique_ptr<DBusNotificationCenter> center;
    std::string postName;
    std::vector<Received> received;
    std::vector<std::string> reports;
    std::string lastError;
};

std::unique_ptr<End> makeFrontend(std::optional<DBusNotificationCenter::UserCheck> check = std::nullopt) {
    return std::make_unique<End>(frontendName, backendName, backendCommands, std::move(check));
}

std::unique_ptr<End> makeBackend() {
    return std::make_unique<End>(backendName, frontendName, frontendCommands);
}

/// Calls the steps in turn until `done`; false when it takes too long.
bool runUntil(const std::function<bool()> &done, const std::vector<std::function<void()>> &steps,
              std::chrono::seconds limit = 20s) {
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

/// Returns when an end has what the bus has taken for it before: a bus may answer a sender first and deliver
/// then, but to each of them in order. The answer to a claim stands behind it.
void letArrive(const End &end) {
    EXPECT_TRUE(end.center->claim("the end of what has come"));
}

/// Makes the two ends each other's peers; afterwards nothing is under way and nothing noted.
void introduce(End &frontend, End &backend) {
    frontend.post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {turning(backend)}));
    backend.post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return !frontend.received.empty(); }, {turning(frontend)}));
    backend.center->turn(20ms); // takes the reply
    frontend.received.clear();
    backend.received.clear();
}

/// Makes a hand-made backend the peer of the filter's end. Returns the unique name of the filter's end.
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

class DBusNotificationCenterTest : public testing::Test {
  protected:
    PrivateBus bus;
};

// ---- Names and blocks

TEST_F(DBusNotificationCenterTest, CarriesEveryNameThatADeviceUriMayHave) {
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

TEST_F(DBusNotificationCenterTest, RefusesNamesThatAreNoValidText) {
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

TEST_F(DBusNotificationCenterTest, CarriesBlocksOfEverySize) {
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

TEST_F(DBusNotificationCenterTest, CarriesANotificationWithoutUserInfoAsSuch) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->received, ElementsAre(End::Received{"readPipe", std::nullopt}));
}

// ---- The messages as they travel

TEST_F(DBusNotificationCenterTest, BroadcastsUntilThereIsAPeerAndThenCallsIt) {
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

TEST_F(DBusNotificationCenterTest, PutsLargeBlocksIntoSealedMemoryAndSmallOnesIntoTheMessage) {
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

BusClient::Arguments withData(const std::function<void(sd_bus_message *)> &appendData,
                              const std::string &object = "readPipe") {
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

TEST_F(DBusNotificationCenterTest, TakesBothFormsOfDataAtAnySizeInSignalsAndCalls) {
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

TEST_F(DBusNotificationCenterTest, DropsMalformedNotificationsAndSaysSo) {
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

TEST_F(DBusNotificationCenterTest, DeliversAnObjectThatIsNoTextWithoutIt) {
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

TEST_F(DBusNotificationCenterTest, DropsANotificationOfAnotherNameOnTheSamePath) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    backend.call(destination, notificationPath(frontendName),
                 notificationArguments(frontendName + "x", "readPipe"));
    ASSERT_TRUE(
        runUntil([&] { return !backend.replies.empty(); }, {turning(*frontend), processing(backend)}));
    EXPECT_THAT(backend.replies, ElementsAre(SD_BUS_ERROR_UNKNOWN_OBJECT));
    EXPECT_THAT(frontend->received, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, HearsNothingOfOtherPortsAndNothingAfterItStoppedObserving) {
    const auto frontend = makeFrontend();
    End other("usb://other.frontend", frontendName, backendCommands);
    BusClient backend(backendName);
    introduce(*frontend, backend);
    other.center->turn(20ms);
    EXPECT_THAT(other.received, IsEmpty());
    frontend->center->stopObserving();
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    frontend->center->turn(20ms);
    EXPECT_THAT(frontend->received, IsEmpty());
}

// ---- Turns

std::chrono::milliseconds durationOf(const std::function<void()> &deed) {
    const auto start = steady_clock::now();
    deed();
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
}

/// What the deed costs this process.
std::chrono::milliseconds processorTimeOf(const std::function<void()> &deed) {
    const std::clock_t start = std::clock();
    deed();
    return std::chrono::milliseconds((std::clock() - start) * 1000 / CLOCKS_PER_SEC);
}

TEST_F(DBusNotificationCenterTest, WaitsWithoutUsingTheProcessor) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    EXPECT_LT(processorTimeOf([&] { frontend->center->turn(500ms); }), 250ms);
    introduce(*frontend, backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 5; }; // half a second
    EXPECT_LT(processorTimeOf([&] { frontend->post("writePipe", patternOf(16)); }), 250ms);
    bus.kill();
    EXPECT_LT(processorTimeOf([&] { frontend->center->turn(500ms); }), 250ms);
}

TEST_F(DBusNotificationCenterTest, ATurnLastsItsTimeWhereNothingComes) {
    const auto frontend = makeFrontend();
    frontend->center->turn(10ms);
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    bus.kill();
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    EXPECT_EQ(frontend->reports.size(), 1U) << "the loss is reported once";
}

TEST_F(DBusNotificationCenterTest, ATurnEndsWithOneNotification) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    for (int i = 0; i < 3; ++i) {
        backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    }
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_LT(durationOf([&] { frontend->center->turn(10s); }), 5s);
        EXPECT_EQ(frontend->received.size(), i);
    }
}

TEST_F(DBusNotificationCenterTest, ATurnGoesOnBehindWhatItDrops) {
    const std::string path = notificationPath(frontendName);
    const std::vector<BusClient::Arguments> table = {
        [](sd_bus_message *) {},
        withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "s", "GDIR"); }),
        notificationArguments(frontendName + "x", "readPipe"),
    };
    for (const auto &dropped : table) {
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        introduce(*frontend, backend);
        backend.signal(path, dropped);
        backend.waitForBus();
        EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
        EXPECT_EQ(frontend->reports.size(), 1U);
        backend.signal(path, dropped);
        backend.signal(path, notificationArguments(frontendName, "readPipe"));
        backend.waitForBus();
        EXPECT_LT(durationOf([&] { frontend->center->turn(10s); }), 5s);
        EXPECT_THAT(frontend->objects(), ElementsAre("readPipe"));
    }
}

// ---- Turns that follow a post

class TurnAfterPost : public DBusNotificationCenterTest {
  protected:
    static constexpr auto length = 150ms; // of a turn that nothing ends
    static constexpr auto tooLong = 5s;   // for one that something ends

    TurnAfterPost() { destination = introduce(*frontend, backend); }

    /// Posts and waits until the backend has it.
    void post(const std::string &object, std::optional<std::span<const std::byte>> data = std::nullopt) {
        EXPECT_TRUE(frontend->center->post(frontend->postName, object, data));
        const std::size_t posted = backend.received.size() + 1;
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == posted; }, {processing(backend)}));
    }

    void postBlocks(int count) {
        for (int i = 0; i < count; ++i) {
            post("writePipe", patternOf(16));
        }
    }

    void expectTurnLastsItsTime() {
        EXPECT_GE(durationOf([&] { frontend->center->turnAfterPost(length); }), length - 1ms);
    }

    void expectTurnEndsEarly() {
        EXPECT_LT(durationOf([&] { frontend->center->turnAfterPost(2 * tooLong); }), tooLong);
    }

    /// Sends a notification that has arrived when this returns.
    void sendFromBackend(const std::string &object) {
        backend.call(destination, notificationPath(frontendName),
                     notificationArguments(frontendName, object));
        backend.waitForBus();
        letArrive(*frontend);
    }

    std::unique_ptr<End> frontend = makeFrontend();
    BusClient backend{backendName};
    std::string destination;
};

TEST_F(TurnAfterPost, EndsWhenACommandIsAnswered) {
    post("readPipe");
    expectTurnLastsItsTime();
    backend.answer(backend.received.back().get());
    expectTurnEndsEarly();

    post("readPipe");
    backend.answerWithError(backend.received.back().get(), SD_BUS_ERROR_FAILED);
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, IsNotEndedByTheAnswerToAnEarlierPost) {
    post("readPipe");
    postBlocks(1);
    post("readPipe");
    backend.answer(backend.received[0].get());
    backend.answer(backend.received[1].get());
    expectTurnLastsItsTime();
    backend.answer(backend.received[2].get());
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, DoesNotWaitWhereThereIsRoomForTheNextBlock) {
    for (int block = 1; block < 16; ++block) {
        postBlocks(1);
        expectTurnEndsEarly();
    }
    postBlocks(1);
    expectTurnLastsItsTime();
    backend.answer(backend.received.front().get());
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, DeliversOneNotificationAndLeavesTheOthersToLaterTurnsInOrder) {
    postBlocks(1);
    sendFromBackend("backend-byebye");
    sendFromBackend("backend-alive");
    backend.answer(backend.received.back().get());
    sendFromBackend("readPipe");
    EXPECT_THAT(frontend->received, IsEmpty());
    std::vector<std::string> expected;
    for (const char *object : {"backend-byebye", "backend-alive", "readPipe"}) {
        expectTurnEndsEarly();
        expected.emplace_back(object);
        EXPECT_EQ(frontend->objects(), expected);
    }
}

TEST_F(TurnAfterPost, HearsAGoodbyeThatCameInBeforeItHadToWait) {
    for (int block = 1; block <= 3; ++block) {
        postBlocks(1);
        backend.answer(backend.received.back().get());
        expectTurnEndsEarly();
    }
    postBlocks(1);
    backend.answer(backend.received.back().get());
    sendFromBackend("backend-byebye");
    expectTurnEndsEarly();
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
}

TEST_F(TurnAfterPost, LastsItsTimeWhereNobodyCanAnswer) {
    const auto alone = std::make_unique<End>("nobody", "nobody else", backendCommands);
    alone->post("fronted-alive");
    EXPECT_GE(durationOf([&] { alone->center->turnAfterPost(length); }), length - 1ms) << "a broadcast";

    postBlocks(16);
    frontend->isCancelled = [] { return true; };
    post("frontend-byebye"); // wants no reply
    backend.answer(backend.received.front().get());
    expectTurnLastsItsTime();
    postBlocks(1);
    expectTurnLastsItsTime();
}

TEST_F(TurnAfterPost, LastsItsTimeOnceTheBusIsLostAndTheLossIsHeardOf) {
    postBlocks(1);
    bus.kill();
    expectTurnEndsEarly();
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    expectTurnLastsItsTime();
    expectTurnLastsItsTime();
    EXPECT_EQ(frontend->received.size(), 1U);
}

TEST_F(TurnAfterPost, EndsWithTheGoodbyeOfAPeerThatLeavesAndThenLastsItsTime) {
    for (const bool afterBlock : {false, true}) {
        auto leaving = makeBackend();
        leaving->post("backend-alive"); // takes the other's place
        ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
        frontend->received.clear();
        if (afterBlock) {
            frontend->post("writePipe", patternOf(16));
            leaving.reset();
            ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
        } else {
            frontend->post("readPipe");
            leaving.reset();
            expectTurnEndsEarly();
        }
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
        expectTurnLastsItsTime();
        frontend->received.clear();
    }
}

TEST_F(TurnAfterPost, AnyOtherTurnIsNotEndedByAnAnswer) {
    post("readPipe");
    backend.answer(backend.received.back().get());
    EXPECT_GE(durationOf([&] { frontend->center->turn(length); }), length - 1ms);
    postBlocks(1);
    EXPECT_GE(durationOf([&] { frontend->center->turn(length); }), length - 1ms);
}

TEST_F(DBusNotificationCenterTest, DeliversOnlyInTurns) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("readPipe");
    std::this_thread::sleep_for(50ms);
    frontend->post("readPipe");
    EXPECT_THAT(frontend->received, IsEmpty());
    frontend->center->turn(1s);
    EXPECT_EQ(frontend->received.size(), 1U);
}

TEST_F(DBusNotificationCenterTest, RunsQueuedFunctionsInALaterTurnAndThenWaitsAllTheSame) {
    const auto frontend = makeFrontend();
    std::vector<int> order;
    frontend->center->performLater([&] {
        order.push_back(1);
        frontend->center->performLater([&] { order.push_back(3); });
    });
    frontend->center->performLater([&] { order.push_back(2); });
    EXPECT_THAT(order, IsEmpty());
    EXPECT_GE(durationOf([&] { frontend->center->turn(50ms); }), 49ms);
    EXPECT_THAT(order, ElementsAre(1, 2));
    frontend->center->turn(0ms);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(DBusNotificationCenterTest, KeepsTheOrderAcrossSignalsAndCalls) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    std::vector<std::string> expected;
    for (int i = 0; i < 20; ++i) {
        expected.push_back("object " + std::to_string(i));
        const auto arguments = notificationArguments(frontendName, expected.back());
        if (i % 3 == 0) {
            backend.signal(notificationPath(frontendName), arguments);
        } else {
            backend.call(destination, notificationPath(frontendName), arguments);
        }
    }
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 20; }, {turning(*frontend)}));
    EXPECT_EQ(frontend->objects(), expected);
}

// ---- Who takes part

TEST(TrustedUserTest, IsRootOrOneselfAndForRootTheScheduler) {
    constexpr uid_t scheduler = 7;
    constexpr uid_t somebody = 1000;
    constexpr auto nobody = static_cast<uid_t>(-1);

    struct Case {
        uid_t peer;
        uid_t own;
        bool isTrusted;
    };

    for (const Case &one : std::vector<Case>{{0, scheduler, true},
                                             {0, somebody, true},
                                             {0, 0, true},
                                             {scheduler, scheduler, true},
                                             {somebody, somebody, true},
                                             {scheduler, 0, true},
                                             {somebody, 0, false},
                                             {nobody, 0, false},
                                             {somebody, scheduler, false},
                                             {scheduler, somebody, false},
                                             {nobody, scheduler, false}}) {
        EXPECT_EQ(isTrustedUser(one.peer, one.own, scheduler), one.isTrusted) << one.peer << " " << one.own;
    }
    EXPECT_FALSE(isTrustedUser(scheduler, 0, std::nullopt));
    EXPECT_TRUE(isTrustedUser(0, 0, std::nullopt));
}

/// Only root can play the others' part; anybody else plays their own, which is trusted.
TEST_F(DBusNotificationCenterTest, TakesTheSchedulersUserByDefaultAndNobodyElse) {
    const bool isRoot = geteuid() == 0;
    for (const char *name : {VELTRIN_SCHEDULER_USER, "nobody"}) {
        const passwd *user = getpwnam(name);
        ASSERT_NE(user, nullptr);
        const bool isTrusted = !isRoot || std::string(name) == VELTRIN_SCHEDULER_USER;
        const auto frontend = makeFrontend();
        const pid_t child = fork();
        if (child == 0) {
            if (!isRoot || setuid(user->pw_uid) == 0) {
                const auto backend = makeBackend();
                backend->post("backend-alive");
                pause();
            }
            _exit(1);
        }
        EXPECT_TRUE(runUntil([&] { return !frontend->received.empty() || !frontend->reports.empty(); },
                             {turning(*frontend)}));
        EXPECT_EQ(frontend->objects(),
                  isTrusted ? std::vector<std::string>{"backend-alive"} : std::vector<std::string>());
        if (!isTrusted) {
            EXPECT_THAT(frontend->reports,
                        ElementsAre(HasSubstr(": the user nobody may not take part with the user root")));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST_F(DBusNotificationCenterTest, RefusesPeersOfAnotherUser) {
    std::vector<uid_t> asked;
    const auto frontend = makeFrontend([&](uid_t user) {
        asked.push_back(user);
        return false;
    });
    frontend->post("fronted-alive");
    BusClient stranger(backendName);
    const std::string path = notificationPath(frontendName);
    stranger.signal(path, notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(runUntil([&] { return !frontend->reports.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(asked, ElementsAre(geteuid()));
    const std::string own = getpwuid(geteuid())->pw_name;
    const std::string reason = "the user " + own + " may not take part with the user " + own;
    EXPECT_THAT(frontend->reports, ElementsAre("refused " + stranger.uniqueName() + ": " + reason));
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !stranger.received.empty(); }, {processing(stranger)}));
    EXPECT_GT(sd_bus_message_is_signal(stranger.received.front().get(), nullptr, nullptr), 0)
        << "it must not have become the peer";
    stranger.call(sd_bus_message_get_sender(stranger.received.front().get()), path,
                  notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(
        runUntil([&] { return !stranger.replies.empty(); }, {turning(*frontend), processing(stranger)}));
    EXPECT_THAT(stranger.replies, ElementsAre(SD_BUS_ERROR_ACCESS_DENIED));
    EXPECT_THAT(stranger.replyTexts, ElementsAre(reason)) << "who is refused can read why";
    EXPECT_THAT(frontend->received, IsEmpty());
    EXPECT_EQ(frontend->reports.size(), 1U) << "a stranger is reported once";
}

TEST_F(DBusNotificationCenterTest, HearsNoProcessThatItsOwnerObjectsTo) {
    std::vector<pid_t> asked;
    std::vector<std::string> objections = {"it is another's", ""};
    std::vector<std::string> reports;
    std::string problem;
    const auto backend = DBusNotificationCenter::connect(
        {.isCancelled = [] { return false; },
         .report = [&reports](const std::string &line) { reports.push_back(line); },
         .objectionTo =
             [&](pid_t process) {
                 asked.push_back(process);
                 return asked.size() <= objections.size() ? objections[asked.size() - 1] : "asked too often";
             }},
        problem);
    ASSERT_NE(backend, nullptr) << problem;
    std::vector<std::string> received;
    backend->startObserving(backendName, frontendCommands, [&](const Notification &notification) {
        received.push_back(notification.object.value_or(""));
    });
    const std::function<void()> turn = [&] { backend->turn(1ms); };

    const auto stranger = makeFrontend();
    stranger->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !reports.empty(); }, {turn}));
    EXPECT_THAT(reports, ElementsAre(testing::EndsWith(": it is another's")));
    EXPECT_THAT(received, IsEmpty());

    const auto own = makeFrontend();
    own->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !received.empty(); }, {turn}));
    EXPECT_THAT(received, ElementsAre("fronted-alive"));
    EXPECT_THAT(asked, ElementsAre(getpid(), getpid()));
    EXPECT_EQ(reports.size(), 1U);
}

// ---- Strangers who speak in another's name

/// On a bus that lets everybody answer what others were asked, which no system bus does, and dbus-broker
/// cannot be told to.
class AmongStrangers : public testing::Test {
  protected:
    static constexpr const char *everybodysReplies = R"(
        <policy context="default">
          <allow send_requested_reply="false" send_type="method_return"/>
          <allow receive_requested_reply="false" receive_type="method_return"/>
        </policy>)";
    PrivateBus bus{std::string(PrivateBus::openPolicy) +
                   (test::busKind() == BusKind::daemon ? everybodysReplies : "")};
};

TEST_F(AmongStrangers, OnlyTheBusIsBelievedThatAPeerHasLeft) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    BusClient stranger("somebody else");
    stranger.forgeDeparture(destination, backend.uniqueName());
    stranger.waitForBus();
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe"));
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(AmongStrangers, OnlyTheReceiverIsBelievedThatItHasTakenABlock) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    BusClient stranger("somebody else");
    stranger.forgeReplies(destination);
    stranger.waitForBus();
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 20; };
    const bool isDelivered = frontend->center->waitForDelivery();
    if (test::busKind() == BusKind::broker) {
        // This bus passes nobody's replies on but the receiver's: the block is as unanswered as before.
        EXPECT_EQ(questions, 21);
        EXPECT_THAT(frontend->reports, IsEmpty());
    } else {
        EXPECT_FALSE(isDelivered);
        EXPECT_THAT(frontend->reports,
                    ElementsAre("a notification was answered by somebody else than its receiver"));
    }
}

TEST_F(AmongStrangers, OnlyTheBusIsBelievedWhoseNotificationItIs) {
    constexpr uid_t trusted = 4711;
    const auto frontend = makeFrontend([](uid_t user) { return user == trusted; });
    BusClient witness(backendName);
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !witness.received.empty(); }, {processing(witness)}));
    const std::string destination = sd_bus_message_get_sender(witness.received.back().get());
    BusClient stranger("somebody else");
    // The replies are there before the bus can answer the question that this notification raises.
    stranger.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    stranger.forgeReplies(destination, trusted);
    stranger.waitForBus();
    ASSERT_TRUE(runUntil([&] { return !frontend->reports.empty() || !frontend->received.empty(); },
                         {turning(*frontend)}));
    EXPECT_THAT(frontend->received, IsEmpty());
    EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr("may not take part")));
}

TEST_F(DBusNotificationCenterTest, DoesNotBroadcastData) {
    const auto frontend = makeFrontend();
    BusClient witness(backendName);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THAT(frontend->lastError, HasSubstr("no peer"));
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !witness.received.empty(); }, {processing(witness)}));
    EXPECT_EQ(witness.received.size(), 1U);
}

TEST_F(DBusNotificationCenterTest, APeerThatLeavesCountsAsOneThatSaidGoodbye) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    BusClient witness(backendName);
    introduce(*frontend, *backend);
    witness.process();
    witness.received.clear();
    backend.reset();
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->received, ElementsAre(End::Received{"backend-byebye", std::nullopt}));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_THAT(frontend->lastError, HasSubstr("left"));
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    witness.process();
    EXPECT_THAT(witness.received, IsEmpty()) << "nothing is broadcast in its stead";

    backend = makeBackend(); // another one comes
    backend->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
}

TEST_F(DBusNotificationCenterTest, APeerThatSaidGoodbyeMayLeaveWithoutAnother) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("backend-byebye");
    backend.reset();
    frontend->center->turn(10s);
    frontend->center->turn(100ms);
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
}

TEST_F(DBusNotificationCenterTest, WhatAPeerSentBeforeItLeftIsDeliveredBeforeItsGoodbye) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("readPipe", patternOf(100));
    backend->post("readPipe", patternOf(100000));
    backend.reset();
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 3; }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe", "readPipe", "backend-byebye"));
    EXPECT_TRUE(frontend->received[1].data == patternOf(100000));
}

TEST_F(DBusNotificationCenterTest, TheNewestPeerThatAnnouncesItselfCounts) {
    const auto frontend = makeFrontend();
    const auto older = makeBackend();
    const auto newer = makeBackend();
    introduce(*frontend, *older);
    newer->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    newer->received.clear();
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !newer->received.empty(); }, {turning(*newer)}));
    EXPECT_THAT(older->received, IsEmpty());

    // What the older one still says, its goodbye above all, is not the newer one's.
    older->post("backend-byebye");
    frontend->center->turn(100ms);
    EXPECT_EQ(frontend->received.size(), 1U);
    older->center->turn(100ms);
    EXPECT_FALSE(older->tryPost("readPipe")) << "it is told so";
    frontend->post("writePipe", patternOf(16));

    older->post("backend-alive"); // unless it announces itself again
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    older->received.clear();
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(17))) << "the newer one has not taken its block";
    ASSERT_TRUE(runUntil([&] { return !older->received.empty(); }, {turning(*older)}));
}

// ---- News that have come in before a post

TEST_F(DBusNotificationCenterTest, APostGoesToThePeerThatHasAnnouncedItselfMeanwhile) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        const auto frontend = makeFrontend();
        auto first = std::make_unique<BusClient>(backendName);
        const std::string destination = introduce(*frontend, *first);
        if (saysGoodbye) {
            first->call(destination, notificationPath(frontendName),
                        notificationArguments(frontendName, "backend-byebye"));
        }
        first->waitForBus();
        first.reset();
        BusClient second(backendName);
        second.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
        second.waitForBus();
        letArrive(*frontend);

        frontend->post("readPipe");
        frontend->post("writePipe", patternOf(16));
        EXPECT_TRUE(second.awaitReceived(2));
        EXPECT_THAT(frontend->received, IsEmpty()) << "the observer hears of it in turns only";
        ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye", "backend-alive"));
        EXPECT_THAT(frontend->reports, IsEmpty());
    }
}

TEST_F(DBusNotificationCenterTest, APostIsNotMadeUntilItIsKnownThatThePeerHasGone) {
    const auto frontend = makeFrontend();
    auto backend = std::make_unique<BusClient>(backendName);
    const std::string destination = introduce(*frontend, *backend);
    for (const char *object : {"readPipe", "backend-byebye"}) {
        backend->call(destination, notificationPath(frontendName),
                      notificationArguments(frontendName, object));
    }
    backend->waitForBus();
    letArrive(*frontend);
    const Block block = patternOf(16);
    EXPECT_FALSE(frontend->center->post(backendName, "writePipe", block));
    EXPECT_FALSE(frontend->center->post(backendName, "readPipe", std::nullopt));
    frontend->center->turn(0us);
    EXPECT_FALSE(frontend->center->post(backendName, "writePipe", block)) << "it is yet to be heard";
    frontend->center->turn(0us);
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe", "backend-byebye"));
    frontend->post("frontend-byebye");
    EXPECT_TRUE(backend->awaitReceived(1));

    backend.reset();
    ASSERT_TRUE(runUntil([&] { return !frontend->tryPost("readPipe"); }, {turning(*frontend)}));
    EXPECT_EQ(frontend->received.size(), 2U);
}

TEST_F(DBusNotificationCenterTest, OfThoseThatAnnounceThemselvesBeforeAPostTheNewestCounts) {
    const auto frontend = makeFrontend();
    BusClient first(backendName);
    introduce(*frontend, first);
    BusClient second(backendName);
    BusClient third(backendName);
    for (BusClient *newcomer : {&second, &third}) {
        newcomer->signal(notificationPath(frontendName),
                         notificationArguments(frontendName, "backend-alive"));
        newcomer->waitForBus();
        letArrive(*frontend);
    }
    frontend->post("writePipe", patternOf(16));
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    frontend->post("writePipe", patternOf(16));
    EXPECT_TRUE(third.awaitReceived(3));
    second.process();
    EXPECT_THAT(second.received, IsEmpty());
    for (const BusClient::Message &call : third.received) {
        third.answer(call.get());
    }
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "what was posted to it is not given up";
}

TEST_F(DBusNotificationCenterTest, AnAnnouncementOfAStrangerChangesNothingBeforeAPost) {
    const auto frontend = makeFrontend([](uid_t user) { return user != getuid(); });
    BusClient backend(backendName);
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    backend.waitForBus();
    letArrive(*frontend);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_EQ(frontend->lastError, "there is no peer yet to send data to");
}

// ---- The peer that is there comes first

class PresentComesFirst : public DBusNotificationCenterTest {
  protected:
    void announce(BusClient &host) const {
        host.signal(notificationPath(backendName), notificationArguments(backendName, "fronted-alive"));
        host.waitForBus();
        letArrive(backend);
    }

    void sayGoodbye(BusClient &host) const {
        host.call(uniqueName, notificationPath(backendName),
                  notificationArguments(backendName, "frontend-byebye"));
        host.waitForBus();
        letArrive(backend);
    }

    /// Has the backend hear the first host.
    void introduceFirst() {
        announce(first);
        turnUntilHeard(1);
        backend.post("backend-alive");
        ASSERT_TRUE(first.awaitReceived(1));
        uniqueName = sd_bus_message_get_sender(first.received.front().get());
        first.answer(first.received.front().get());
    }

    void turnUntilHeard(std::size_t count) {
        EXPECT_TRUE(runUntil([&] { return backend.received.size() == count; }, {turning(backend)}));
    }

    /// Lets everything be heard that has come in.
    void turnALot() const {
        for (int i = 0; i < 50; ++i) {
            backend.center->turn(1ms);
        }
    }

    End backend{backendName, frontendName, {"fronted-alive", "frontend-byebye", true}};
    BusClient first{frontendName};
    BusClient second{frontendName};
    BusClient third{frontendName};
    std::string uniqueName; // of the backend
};

TEST_F(PresentComesFirst, OthersAreHeardAfterItsGoodbyeInTheirOrder) {
    introduceFirst();
    announce(second);
    announce(third);
    turnALot();
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive"));
    EXPECT_THAT(backend.reports, ElementsAre(second.uniqueName() + " has announced itself and waits until " +
                                                 first.uniqueName() + " has left",
                                             third.uniqueName() + " has announced itself and waits until " +
                                                 first.uniqueName() + " has left"));
    backend.post("readPipe"); // still to the first
    EXPECT_TRUE(first.awaitReceived(2));

    sayGoodbye(first);
    turnALot();
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("readPipe");
    EXPECT_TRUE(second.awaitReceived(1));

    sayGoodbye(second);
    turnUntilHeard(5);
    backend.post("readPipe");
    EXPECT_TRUE(third.awaitReceived(1));
    EXPECT_EQ(first.received.size(), 2U);
    EXPECT_EQ(second.received.size(), 1U);
}

TEST_F(PresentComesFirst, OthersAreHeardAfterItHasLeft) {
    {
        BusClient leaver(frontendName);
        announce(leaver);
        turnUntilHeard(1);
        announce(second);
        turnALot();
    }
    turnUntilHeard(3);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("backend-alive");
    EXPECT_TRUE(second.awaitReceived(1));
}

TEST_F(PresentComesFirst, ItStaysSoWhenAPostLooksAtTheNews) {
    introduceFirst();
    announce(second);
    backend.post("readPipe");
    EXPECT_TRUE(first.awaitReceived(2));
    sayGoodbye(first);
    EXPECT_FALSE(backend.center->post(frontendName, "readPipe", std::nullopt));
    announce(third);
    EXPECT_FALSE(backend.center->post(frontendName, "readPipe", std::nullopt));
    turnUntilHeard(3);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("readPipe");
    EXPECT_TRUE(second.awaitReceived(1));
    third.process();
    EXPECT_THAT(third.received, IsEmpty());
}

TEST_F(PresentComesFirst, WhoeverHasGivenUpWaitsNoMore) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        backend.received.clear();
        introduceFirst();
        auto impatient = std::make_unique<BusClient>(frontendName);
        announce(*impatient);
        turnALot();
        if (saysGoodbye) {
            impatient->signal(notificationPath(backendName),
                              notificationArguments(backendName, "frontend-byebye"));
            impatient->waitForBus();
        } else {
            impatient.reset();
        }
        turnALot();
        sayGoodbye(first);
        turnALot();
        EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye"));
        first.received.clear();
    }
}

TEST_F(PresentComesFirst, WhoeverHasGivenUpWaitsNoMoreWhereAPostHasLookedAtTheNews) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        End ownBackend{backendName, frontendName, {"fronted-alive", "frontend-byebye", true}};
        BusClient present(frontendName);
        auto impatient = std::make_unique<BusClient>(frontendName);
        announce(present);
        ASSERT_TRUE(runUntil([&] { return ownBackend.received.size() == 1; }, {turning(ownBackend)}));
        announce(*impatient);
        ASSERT_TRUE(runUntil([&] { return ownBackend.reports.size() == 1; }, {turning(ownBackend)}));

        // The present one ends and so does the one that waits, both of which a post gets to know at once.
        present.signal(notificationPath(backendName), notificationArguments(backendName, "frontend-byebye"));
        present.waitForBus();
        if (saysGoodbye) {
            impatient->signal(notificationPath(backendName),
                              notificationArguments(backendName, "frontend-byebye"));
            impatient->waitForBus();
        } else {
            impatient.reset();
        }
        for (int i = 0; i < 50; ++i) {
            EXPECT_FALSE(ownBackend.center->post(frontendName, "readPipe", std::nullopt));
            std::this_thread::sleep_for(1ms);
        }
        announce(third);
        ASSERT_TRUE(runUntil([&] { return ownBackend.received.size() == 3; }, {turning(ownBackend)}));
        ownBackend.post("backend-alive");
        ASSERT_TRUE(third.awaitReceived(1));
        third.answer(third.received.front().get());
        third.received.clear();
        EXPECT_THAT(ownBackend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
        third.signal(notificationPath(backendName), notificationArguments(backendName, "frontend-byebye"));
        third.waitForBus();
    }
}

TEST_F(PresentComesFirst, ItMayAnnounceItselfAgain) {
    introduceFirst();
    announce(first);
    turnUntilHeard(2);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "fronted-alive"));
}

// ---- Losses

TEST_F(DBusNotificationCenterTest, BlocksThatAReplacedPeerDidNotTakeAreFailedSends) {
    const auto frontend = makeFrontend();
    BusClient older(backendName);
    introduce(*frontend, older);
    frontend->post("writePipe", patternOf(16));
    const auto newer = makeBackend();
    newer->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(DBusNotificationCenterTest, AFloodFromThePeerIsTakenOneByOne) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    const std::string path = notificationPath(frontendName);
    std::vector<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back(std::to_string(i));
        // A bus lets nobody wait for more than 128 replies.
        if (i % 5 == 0) {
            backend.call(destination, path, notificationArguments(frontendName, expected.back()));
        } else {
            backend.signal(path, notificationArguments(frontendName, expected.back()));
        }
    }
    for (std::size_t turns = 1; turns <= 500; ++turns) {
        frontend->center->turn(10s);
        ASSERT_EQ(frontend->received.size(), turns);
    }
    EXPECT_EQ(frontend->objects(), expected);
    ASSERT_TRUE(
        runUntil([&] { return backend.replies.size() == 100; }, {turning(*frontend), processing(backend)}));
    EXPECT_THAT(backend.replies, testing::Each(""));
    EXPECT_THAT(frontend->reports, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, AFloodFromSomebodyUnknownIsCutShort) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    for (int i = 0; i < 500; ++i) {
        backend.signal(notificationPath(frontendName),
                       notificationArguments(frontendName, std::to_string(i)));
    }
    backend.waitForBus(); // so that the answer about its user comes behind all of them
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() + frontend->reports.size() == 500; },
                         {turning(*frontend)}));
    // While its user is not known yet, 32 are kept and no more.
    ASSERT_GE(frontend->received.size(), 32U);
    for (std::size_t i = 0; i < 32; ++i) {
        EXPECT_EQ(frontend->objects()[i], std::to_string(i));
    }
    EXPECT_THAT(frontend->reports, Contains(HasSubstr("it comes too fast")));
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "good"));
    frontend->center->turn(10s);
    EXPECT_EQ(frontend->objects().back(), "good");
}

// ---- Delivery and failure

TEST_F(DBusNotificationCenterTest, LeavesSixteenCallsUnansweredAndAfterCancellationCallsWithoutReply) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 3; };
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(100000));
    }
    EXPECT_EQ(questions, 0) << "there is room, nothing is waited for";
    EXPECT_GE(durationOf([&] { frontend->post("writePipe", patternOf(16)); }), 250ms);
    EXPECT_EQ(questions, 4);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(17))) << "no page data";
    EXPECT_EQ(frontend->lastError, "the job is cancelled and the peer takes nothing");
    frontend->post("frontend-byebye");
    ASSERT_TRUE(runUntil([&] { return backend.received.size() == 18; }, {processing(backend)}));
    for (std::size_t i = 0; i < 18; ++i) {
        EXPECT_EQ(sd_bus_message_get_expect_reply(backend.received[i].get()) > 0, i < 16) << i;
        EXPECT_GT(sd_bus_message_is_method_call(backend.received[i].get(), nullptr, nullptr), 0);
    }
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "a cancelled job waits for nothing";
}

TEST_F(DBusNotificationCenterTest, AnAnswerMakesRoomForOneMore) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    std::size_t answeredCalls = 0;
    frontend->isCancelled = [&] {
        backend.process();
        EXPECT_LE(backend.received.size() - answeredCalls, 16U);
        if (answeredCalls < backend.received.size()) {
            backend.answer(backend.received[answeredCalls++].get());
        }
        return false;
    };
    for (int i = 0; i < 60; ++i) {
        frontend->post("writePipe", patternOf(static_cast<std::size_t>(i)));
    }
    EXPECT_GE(answeredCalls, 60U - 16U);
    EXPECT_TRUE(frontend->center->waitForDelivery());
    EXPECT_EQ(answeredCalls, 60U);
}

TEST_F(DBusNotificationCenterTest, AnAnswerMayTakeAsLongAsItLikes) {
    // What the library gives a call that names no limit, 25 s otherwise.
    setenv("SYSTEMD_BUS_TIMEOUT", "2s", 1);
    const auto frontend = makeFrontend();
    unsetenv("SYSTEMD_BUS_TIMEOUT");
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    frontend->post("readPipe");
    frontend->center->turn(2500ms);
    EXPECT_THAT(frontend->reports, IsEmpty());
    ASSERT_TRUE(runUntil([&] { return backend.received.size() == 2; }, {processing(backend)}));
    backend.answer(backend.received[0].get());
    backend.answer(backend.received[1].get());
    EXPECT_TRUE(frontend->center->waitForDelivery());
    frontend->post("readPipe");
    EXPECT_THAT(frontend->reports, IsEmpty());
}

TEST_F(DBusNotificationCenterTest, WaitsForRoomEndWithThePeersGoodbye) {
    for (const bool makesRoom : {false, true}) {
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        const std::string destination = introduce(*frontend, backend);
        for (int i = 0; i < 16; ++i) {
            frontend->post("writePipe", patternOf(100));
        }
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 16; }, {processing(backend)}));
        const auto send = [&](const char *object) {
            backend.call(destination, notificationPath(frontendName),
                         notificationArguments(frontendName, object));
        };
        int questions = 0;
        frontend->isCancelled = [&] { // asked in the wait
            if (++questions == 2) {
                send("backend-byebye");
                if (makesRoom) {
                    backend.answer(backend.received.front().get());
                }
            }
            return false;
        };
        EXPECT_FALSE(frontend->center->post(backendName, "writePipe", patternOf(100)));
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
        frontend->post("readPipe"); // a command goes out all the same
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 17; }, {processing(backend)}));

        send("backend-alive");
        ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
        for (std::size_t i = makesRoom ? 1 : 0; i < 16; ++i) {
            backend.answer(backend.received[i].get());
        }
        frontend->post("writePipe", patternOf(200));
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 18; }, {processing(backend)}));
    }
}

TEST_F(DBusNotificationCenterTest, WaitsForRoomEndWhenThePeerLeaves) {
    const auto frontend = makeFrontend();
    auto backend = std::make_unique<BusClient>(backendName);
    introduce(*frontend, *backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] {
        if (++questions == 2) {
            backend.reset();
        }
        return false;
    };
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(DBusNotificationCenterTest, WaitsForRoomEndWhenTheBusDies) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] {
        if (++questions == 2) {
            bus.kill();
        }
        return false;
    };
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THAT(frontend->lastError, HasSubstr("the system bus is lost"));
    EXPECT_FALSE(frontend->center->waitForDelivery());
}

TEST_F(DBusNotificationCenterTest, AnErrorReplyIsOneFailedSend) {
    for (const char *error : {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_ACCESS_DENIED,
                              SD_BUS_ERROR_LIMITS_EXCEEDED, "org.example.Error"}) {
        SCOPED_TRACE(error);
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        introduce(*frontend, backend);
        frontend->post("writePipe", patternOf(16));
        ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
        backend.answerWithError(backend.received.front().get(), error);
        frontend->center->turn(50ms);
        EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr(error)));
        EXPECT_TRUE(frontend->tryPost("readPipe")) << "a lost block is not a command's failure";
        EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
        EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16))) << "one failure for one loss";
    }
}

TEST_F(DBusNotificationCenterTest, ARefusedBlockFailsTheWaitForDelivery) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    frontend->post("writePipe", patternOf(16));
    std::size_t answeredCalls = 0;
    frontend->isCancelled = [&] {
        backend.process();
        if (answeredCalls < backend.received.size()) {
            sd_bus_message *call = backend.received[answeredCalls].get();
            answeredCalls++ == 0 ? backend.answerWithError(call, SD_BUS_ERROR_FAILED) : backend.answer(call);
        }
        return false;
    };
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_EQ(answeredCalls, 2U) << "it waits for all of them";
    EXPECT_TRUE(frontend->center->waitForDelivery());
}

TEST_F(DBusNotificationCenterTest, ALostCommandIsTheNextCommandsFailureAndNoBlocks) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("readPipe");
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "commands are not waited for";
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
    backend.answerWithError(backend.received.front().get(), SD_BUS_ERROR_FAILED);
    frontend->center->turn(50ms);
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_TRUE(frontend->tryPost("readPipe"));
}

TEST_F(DBusNotificationCenterTest, BlocksThatADepartedPeerDidNotTakeAreFailedSends) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("writePipe", patternOf(16));
    backend.reset();
    EXPECT_FALSE(frontend->center->waitForDelivery());
}

TEST_F(DBusNotificationCenterTest, ABusThatDiesIsAFailedSendForWhatWasUnderWayAndForWhatComes) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("writePipe", patternOf(16));
    bus.kill();
    frontend->center->turn(20ms);
    EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr("the system bus is lost")));
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THROW(frontend->center->startObserving("x", backendCommands, [](const Notification &) {}),
                 NotificationError);
}

TEST_F(DBusNotificationCenterTest, APostIntoABusThatHasJustDiedFails) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    bus.kill();
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)) && frontend->center->waitForDelivery());
}

TEST_F(DBusNotificationCenterTest, WaitsOutAShortageOfDescriptors) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    std::optional<NoMoreDescriptors> shortage(std::in_place);
    int questions = 0;
    frontend->isCancelled = [&] {
        if (++questions == 5) {
            shortage.reset();
        }
        return false;
    };
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(100000)));
    EXPECT_GE(questions, 5);
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_TRUE(backend->received.front().data == patternOf(100000));
}

TEST_F(DBusNotificationCenterTest, ACancelledJobDoesNotWaitOutAShortage) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->isCancelled = [] { return true; };
    std::exception_ptr problem;
    {
        // The exception is looked at afterwards: the sanitizers need descriptors for that.
        const NoMoreDescriptors shortage;
        try {
            frontend->post("writePipe", patternOf(100000));
        } catch (...) {
            problem = std::current_exception();
        }
    }
    ASSERT_TRUE(problem);
    EXPECT_THAT([&] { std::rethrow_exception(problem); },
                testing::ThrowsMessage<NotificationError>(HasSubstr("Too many open files")));
}

/// As many posts as may be unanswered, of a command that is long enough to fill a socket's buffer of any
/// usual size: a cancelled job's blocks would be refused.
constexpr int moreThanASocketHolds = 16;
const std::string longCommand(std::size_t{1536} * 1024, 'x');

TEST_F(DBusNotificationCenterTest, APostWaitsUntilItIsWrittenUnlessTheJobIsCancelled) {
    const auto frontend = makeFrontend();
    bus.freeze();
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 3; };
    int posts = 0;
    auto longest = 0ms;
    while (questions == 0 && posts < 100) { // until the socket is full
        longest = std::max(longest, durationOf([&] { frontend->post(longCommand); }));
        ++posts;
    }
    EXPECT_EQ(questions, 4);
    EXPECT_GE(longest, 250ms);
    bus.thaw();
}

TEST_F(DBusNotificationCenterTest, ABusThatStandsStillHoldsUpNeitherACancelledJobNorItsEnd) {
    auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    bus.freeze();
    frontend->isCancelled = [] { return true; };
    const auto posting = durationOf([&] {
        for (int i = 0; i < moreThanASocketHolds; ++i) {
            frontend->post(longCommand);
        }
    });
    EXPECT_LT(posting, 10s);
    const auto taken = durationOf([&] { frontend->center.reset(); });
    EXPECT_GE(taken, 1900ms) << "the end gives the rest a chance";
    EXPECT_LT(taken, 10s);
    bus.thaw();
}

TEST_F(DBusNotificationCenterTest, WhatIsUnsentGoesOutBeforeTheEnd) {
    auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    bus.freeze();
    frontend->isCancelled = [] { return true; };
    for (int i = 0; i < moreThanASocketHolds; ++i) {
        frontend->post(longCommand);
    }
    frontend->post("frontend-byebye");
    std::thread thawing([this] {
        std::this_thread::sleep_for(200ms);
        bus.thaw();
    });
    frontend->center.reset();
    thawing.join();
    ASSERT_TRUE(
        runUntil([&] { return backend->received.size() == moreThanASocketHolds + 1; }, {turning(*backend)}));
    EXPECT_EQ(backend->objects().back(), "frontend-byebye");
}

TEST_F(DBusNotificationCenterTest, TwoEndsThatBothWaitForRoomDoNotBlockEachOther) {
    constexpr std::size_t posts = 100;
    // The first notification is the other's announcement.
    const auto exchange = [](End &end, const std::string &object) {
        bool succeeded = runUntil([&] { return !end.received.empty(); }, {turning(end)});
        for (std::size_t i = 0; i < posts; ++i) {
            succeeded = end.tryPost(object, patternOf(64)) && succeeded;
        }
        return runUntil([&] { return end.received.size() > posts; }, {turning(end)}) && succeeded;
    };
    const auto frontend = makeFrontend();
    const pid_t other = fork();
    if (other == 0) {
        End backend(backendName, frontendName, frontendCommands);
        backend.post("backend-alive");
        _exit(exchange(backend, "readPipe") ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    frontend->post("fronted-alive");
    EXPECT_TRUE(exchange(*frontend, "writePipe"));
    int status = -1;
    while (waitpid(other, &status, WNOHANG) == 0) {
        frontend->center->turn(1ms);
    }
    EXPECT_EQ(status, EXIT_SUCCESS);
}

TEST_F(DBusNotificationCenterTest, SaysThatItCannotAnswer) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->onReceived = [this] { bus.kill(); };
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->reports, Contains(testing::StartsWith("cannot answer :")));
}

TEST_F(DBusNotificationCenterTest, AnObserverMayPostAndStop) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->onReceived = [&] {
        backend->post("readPipe", patternOf(64));
        backend->center->turn(1ms); // hears nothing inside of it
        backend->center->stopObserving();
    };
    frontend->post("readPipe");
    frontend->post("readPipe");
    ASSERT_TRUE(
        runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend), turning(*backend)}));
    EXPECT_EQ(backend->received.size(), 1U);
}

// ---- What the buses do differently

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
TEST_F(DBusNotificationCenterTest, ASignalToSomebodyWhoIsGoneIsAnErrorOnDBusDaemonAlone) {
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

// ---- Connecting

NotificationCenterClient indifferentClient() {
    return {[] { return false; }, [](const std::string &) {}};
}

TEST(DBusConnectionTest, SaysWhyTheBusCannotBeReached) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"unix:path=/tmp/nowhere", "No such file or directory"},
        {"unix:path=/tmp", "Connection refused"},
        {"nonsense", "Connection refused"},
    };
    for (const auto &[address, reason] : table) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
        std::string problem;
        EXPECT_EQ(DBusNotificationCenter::connect(indifferentClient(), problem), nullptr);
        EXPECT_EQ(problem, "cannot connect to the system bus: " + reason);
    }
}

/// A socket that stands for the system bus and does what the test wants.
class ListeningSocket {
  public:
    ListeningSocket() : descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/tmp/listening");
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(descriptor, 1), 0);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/tmp/listening", 1);
    }

    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;

    ~ListeningSocket() {
        close(descriptor);
        unlink("/tmp/listening");
    }

    int descriptor;
};

TEST(DBusConnectionTest, GivesABusFiveSecondsToLetItIn) {
    const ListeningSocket silent;
    std::string problem;
    const auto processorTime = processorTimeOf([&] {
        const auto taken = durationOf(
            [&] { EXPECT_EQ(DBusNotificationCenter::connect(indifferentClient(), problem), nullptr); });
        EXPECT_GE(taken, 4900ms);
        EXPECT_LT(taken, 8s);
    });
    EXPECT_EQ(problem, "the system bus did not let us in within 5 seconds");
    EXPECT_LT(processorTime, 1s) << "it waits";
}

TEST(DBusConnectionTest, SaysThatTheBusClosedTheConnection) {
    const ListeningSocket rude;
    std::thread closing([&] { close(accept(rude.descriptor, nullptr, nullptr)); });
    std::string problem;
    EXPECT_EQ(DBusNotificationCenter::connect(indifferentClient(), problem), nullptr);
    closing.join();
    EXPECT_THAT(problem, HasSubstr("the system bus"));
}

TEST_F(DBusNotificationCenterTest, SaysWhenTheBusDoesNotLetItObserve) {
    const PrivateBus strict(std::string(PrivateBus::openPolicy) +
                            "<limit name=\"max_match_rules_per_connection\">0</limit>");
    std::string problem;
    const auto center =
        DBusNotificationCenter::connect({[] { return false; }, [](const std::string &) {}}, problem);
    ASSERT_NE(center, nullptr) << problem;
    EXPECT_THAT([&] { center->startObserving("name", backendCommands, [](const Notification &) {}); },
                testing::ThrowsMessage<NotificationError>(HasSubstr("cannot observe \"name\"")));
}

TEST_F(DBusNotificationCenterTest, HearsWhatIsPostedOnceItObserves) {
    for (int i = 0; i < 50; ++i) {
        const auto frontend = makeFrontend();
        const auto backend = makeBackend();
        frontend->post("fronted-alive");
        backend->center->turn(10s);
        ASSERT_EQ(backend->received.size(), 1U);
    }
}

// ---- One end at a name

TEST_F(DBusNotificationCenterTest, OneEndAtATimeServesAName) {
    auto first = makeBackend();
    const auto second = makeBackend();
    EXPECT_TRUE(first->center->claim(backendName));
    EXPECT_TRUE(first->center->claim(backendName)) << "it has it already";
    EXPECT_FALSE(second->center->claim(backendName));
    EXPECT_TRUE(second->center->claim("usb://another.backend"));
    first.reset();
    EXPECT_TRUE(runUntil([&] { return second->center->claim(backendName); }, {}));
    EXPECT_THAT(second->reports, IsEmpty());
}

TEST(ClaimTest, IsTrueWhereTheBusAllowsNone) {
    const PrivateBus bus(std::string(PrivateBus::openPolicy) +
                         R"(<policy context="mandatory"><deny own="*"/></policy>)");
    const auto backend = makeBackend();
    EXPECT_TRUE(backend->center->claim(backendName));
    EXPECT_THAT(backend->reports, ElementsAre(HasSubstr("cannot make sure that nobody else is a backend")));
}

TEST_F(DBusNotificationCenterTest, ALostBusCanBeAskedForNothingAndIsKnownToBeLost) {
    const auto backend = makeBackend();
    EXPECT_TRUE(backend->center->isConnected());
    bus.kill();
    EXPECT_THROW(static_cast<void>(backend->center->claim(backendName)), NotificationError);
    backend->center->turn(1ms);
    EXPECT_FALSE(backend->center->isConnected());
    EXPECT_THROW(static_cast<void>(backend->center->claim(backendName)), NotificationError);
}

TEST_F(DBusNotificationCenterTest, WhoeverWantsToOverhearsTheAnnouncementsOfOthersAndItsOwn) {
    std::vector<std::string> names;
    std::string problem;
    const auto listener = DBusNotificationCenter::connect(
        {.isCancelled = [] { return false; },
         .report = [](const std::string &line) { ADD_FAILURE() << line; },
         .overheard = [&names](const std::string &name) { names.push_back(name); }},
        problem);
    ASSERT_NE(listener, nullptr) << problem;
    std::vector<std::string> received;
    listener->startObserving(backendName, frontendCommands, [&](const Notification &notification) {
        received.push_back(notification.object.value_or(""));
    });
    static_cast<void>(listener->post(frontendName, "backend-alive", std::nullopt));
    const End other("usb://other.frontend", "usb://other.backend", backendCommands);
    other.post("fronted-alive");
    const auto host = makeFrontend();
    host->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !received.empty(); }, {[&] { listener->turn(1ms); }}));
    EXPECT_THAT(received, ElementsAre("fronted-alive"));
    EXPECT_THAT(names, ElementsAre(frontendName, "usb://other.backend"));
}

TEST_F(DBusNotificationCenterTest, OwnsNoNameButItsUniqueOneUnlessItClaimsOne) {
    const auto frontend = makeFrontend();
    BusClient client(backendName);
    introduce(*frontend, client);
    sd_bus *raw = nullptr;
    ASSERT_GE(sd_bus_open_system(&raw), 0);
    char **names = nullptr;
    ASSERT_GE(sd_bus_list_names(raw, &names, nullptr), 0);
    for (char **name = names; *name != nullptr; ++name) {
        const std::string text = *name;
        EXPECT_TRUE(text.front() == ':' || text == "org.freedesktop.DBus") << text;
        std::free(*name);
    }
    std::free(names);
    sd_bus_unref(raw);
}

} // namespace
} // namespace veltrin::platform
