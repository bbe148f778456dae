#include "tests/support/PrivateBus.h"

#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace veltrin::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

std::vector<std::string> programsOf(const std::vector<pid_t> &processes) {
    std::vector<std::string> names;
    for (const pid_t process : processes) {
        names.push_back(readFile("/proc/" + std::to_string(process) + "/comm"));
    }
    return names;
}

TEST(PrivateBusTest, IsTheProgramThatTheEnvironmentNames) {
    const PrivateBus bus;
    if (busKind() == BusKind::broker) {
        EXPECT_THAT(programsOf(bus.processIds()), ElementsAre("dbus-broker-lau\n", "dbus-broker\n"));
    } else {
        EXPECT_THAT(programsOf(bus.processIds()), ElementsAre("dbus-daemon\n"));
    }
}

TEST(PrivateBusTest, TakesNothingWhileItIsFrozen) {
    constexpr const char *busName = "org.freedesktop.DBus";
    const PrivateBus bus;
    sd_bus *connection = nullptr;
    ASSERT_GE(sd_bus_open_system(&connection), 0);
    const auto ask = [&] {
        return sd_bus_call_method(connection, busName, "/org/freedesktop/DBus", busName, "GetId", nullptr,
                                  nullptr, "");
    };
    ASSERT_GE(ask(), 0);
    bus.freeze();
    sd_bus_set_method_call_timeout(connection, 200'000);
    EXPECT_EQ(ask(), -ETIMEDOUT);
    bus.thaw();
    sd_bus_set_method_call_timeout(connection, 20'000'000);
    EXPECT_GE(ask(), 0);
    sd_bus_flush_close_unref(connection);
}

TEST(PrivateBusTest, RefusesConnectionsAtOnceWhenItIsKilled) {
    PrivateBus bus;
    bus.kill();
    sd_bus *connection = nullptr;
    EXPECT_EQ(sd_bus_open_system(&connection), -ECONNREFUSED);
}

TEST(PrivateBusTest, LeavesNothingRunning) {
    std::optional<PrivateBus> bus(std::in_place);
    const std::vector<pid_t> processes = bus->processIds();
    bus.reset();
    for (const pid_t process : processes) {
        EXPECT_EQ(kill(process, 0), -1) << process;
    }
}

/// Whether the process has ended; whoever has become its parent may not have noticed yet, or may do so
/// meanwhile.
bool hasEnded(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string state;
    std::getline(file, state);
    return state.empty() || state.find(") Z") != std::string::npos;
}

TEST(PrivateBusTest, EndsWithItsTestEvenWhenItIsFrozen) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t test = fork();
    if (test == 0) {
        const PrivateBus bus;
        bus.freeze();
        for (const pid_t process : bus.processIds()) {
            static_cast<void>(write(ends[1], &process, sizeof process));
        }
        raise(SIGKILL);
    }
    close(ends[1]);
    ASSERT_EQ(waitpid(test, nullptr, 0), test);
    pid_t process = -1;
    int processes = 0;
    while (read(ends[0], &process, sizeof process) == sizeof process) {
        ++processes;
        for (int i = 0; i < 2000 && !hasEnded(process); ++i) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_TRUE(hasEnded(process)) << process;
    }
    EXPECT_EQ(processes, busKind() == BusKind::broker ? 2 : 1);
    close(ends[0]);
}

} // namespace
} // namespace veltrin::test
