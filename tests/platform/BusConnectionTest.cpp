#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BusConnectionTest : public OnPrivateBus {};

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

// ---- What is asked of the bus

TEST_F(BusConnectionTest, SaysWhenTheBusDoesNotLetItObserve) {
    const PrivateBus strict(std::string(PrivateBus::openPolicy) +
                            "<limit name=\"max_match_rules_per_connection\">0</limit>");
    std::string problem;
    const auto center =
        DBusNotificationCenter::connect({[] { return false; }, [](const std::string &) {}}, problem);
    ASSERT_NE(center, nullptr) << problem;
    EXPECT_THAT([&] { center->startObserving("name", backendCommands, [](const Notification &) {}); },
                testing::ThrowsMessage<NotificationError>(HasSubstr("cannot observe \"name\"")));
}

TEST_F(BusConnectionTest, HearsWhatIsPostedOnceItObserves) {
    for (int i = 0; i < 50; ++i) {
        const auto frontend = makeFrontend();
        const auto backend = makeBackend();
        frontend->post("fronted-alive");
        backend->center->turn(10s);
        ASSERT_EQ(backend->received.size(), 1U);
    }
}

TEST_F(BusConnectionTest, OneEndAtATimeServesAName) {
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

TEST_F(BusConnectionTest, ALostBusCanBeAskedForNothingAndIsKnownToBeLost) {
    const auto backend = makeBackend();
    EXPECT_TRUE(backend->center->isConnected());
    bus.kill();
    EXPECT_THROW(static_cast<void>(backend->center->claim(backendName)), NotificationError);
    backend->center->turn(1ms);
    EXPECT_FALSE(backend->center->isConnected());
    EXPECT_THROW(static_cast<void>(backend->center->claim(backendName)), NotificationError);
}

TEST_F(BusConnectionTest, OwnsNoNameButItsUniqueOneUnlessItClaimsOne) {
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

// ---- Shortages, and a bus that stands still

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

TEST_F(BusConnectionTest, WaitsOutAShortageOfDescriptors) {
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

TEST_F(BusConnectionTest, ACancelledJobDoesNotWaitOutAShortage) {
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

TEST_F(BusConnectionTest, APostWaitsUntilItIsWrittenUnlessTheJobIsCancelled) {
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

TEST_F(BusConnectionTest, ABusThatStandsStillHoldsUpNeitherACancelledJobNorItsEnd) {
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

TEST_F(BusConnectionTest, WhatIsUnsentGoesOutBeforeTheEnd) {
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

} // namespace
} // namespace veltrin::platform
