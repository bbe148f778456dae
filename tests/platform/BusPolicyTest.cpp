#include "platform/linux/DBusNotificationCenter.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/PrivateTmp.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;

std::unique_ptr<DBusNotificationCenter> makeEnd() {
    std::string problem;
    auto center = DBusNotificationCenter::connect({[] { return false; }, [](const std::string &) {}}, problem,
                                                  [](uid_t) { return true; });
    EXPECT_NE(center, nullptr) << problem;
    return center;
}

constexpr auto longEnough = 10s; // for what is to come
constexpr auto briefly = 300ms;  // for what is not to come

enum class Heard { nothing, signals, signalsAndCalls };

/// What two ends on this bus hear of each other within that time, first of signals and then of calls.
Heard whatEndsHear(std::chrono::milliseconds patience) {
    const auto first = makeEnd();
    const auto second = makeEnd();
    bool firstHeard = false;
    bool secondHeard = false;
    first->startObserving("first", {"hello", "bye"}, [&](const Notification &) { firstHeard = true; });
    second->startObserving("second", {"hello", "bye"}, [&](const Notification &) { secondHeard = true; });
    static_cast<void>(first->post("second", "hello", std::nullopt));
    second->turn(patience);
    if (!secondHeard) {
        return Heard::nothing;
    }
    static_cast<void>(second->post("first", "hello", std::nullopt));
    first->turn(patience);
    return firstHeard ? Heard::signalsAndCalls : Heard::signals;
}

std::string installedPolicy() {
    return test::PrivateBus::systemPolicy + ("<include>" + test::hostPath(VELTRIN_BUS_POLICY) + "</include>");
}

TEST(BusPolicyTest, WithoutItABusRefusesTheChannelsCalls) {
    const test::PrivateBus bus(test::PrivateBus::systemPolicy);
    EXPECT_EQ(whatEndsHear(briefly), Heard::signals);
}

struct User {
    uid_t id;
    bool takesPart;
};

std::vector<User> users() {
    std::vector<User> all = {{0, true}, {65534, false}};
    if (const passwd *scheduler = getpwnam(VELTRIN_SCHEDULER_USER)) {
        all.push_back({scheduler->pw_uid, true});
    }
    if (std::none_of(all.begin(), all.end(), [](const User &user) { return user.id == geteuid(); })) {
        all.push_back({geteuid(), false});
    }
    return all;
}

/// Only root can play the others' part; anybody else plays their own.
TEST(BusPolicyTest, LetsOnlyRootAndTheSchedulersUserTakePart) {
    const test::PrivateBus bus(installedPolicy());
    for (const User &user : users()) {
        if (geteuid() != 0 && geteuid() != user.id) {
            continue;
        }
        const pid_t child = fork();
        if (child == 0) {
            const Heard heard =
                setuid(user.id) == 0 ? whatEndsHear(user.takesPart ? longEnough : briefly) : Heard::signals;
            _exit(static_cast<int>(heard));
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(static_cast<Heard>(WEXITSTATUS(status)),
                  user.takesPart ? Heard::signalsAndCalls : Heard::nothing)
            << user.id;
    }
}

} // namespace
} // namespace veltrin::platform
