#include "platform/linux/DBusNotificationCenter.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/PrivateTmp.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
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

/// Runs a check as that user, if this process may; nothing where it may not. Only root can play the others'
/// part; anybody else plays their own.
std::optional<int> resultAs(const User &user, const std::function<int()> &check) {
    if (geteuid() != 0 && geteuid() != user.id) {
        return std::nullopt;
    }
    constexpr int cannotBe = 99;
    const pid_t child = fork();
    if (child == 0) {
        _exit(setuid(user.id) == 0 ? check() : cannotBe);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
}

/// What ends of each user hear of each other.
void expectOnlyTheseUsersToTakePart() {
    for (const User &user : users()) {
        const auto heard = resultAs(
            user, [&user] { return static_cast<int>(whatEndsHear(user.takesPart ? longEnough : briefly)); });
        const Heard expected = user.takesPart ? Heard::signalsAndCalls : Heard::nothing;
        EXPECT_EQ(heard.value_or(static_cast<int>(expected)), static_cast<int>(expected)) << user.id;
    }
}

TEST(BusPolicyTest, LetsOnlyRootAndTheSchedulersUserClaimAPrinter) {
    const test::PrivateBus bus(installedPolicy());
    for (const User &user : users()) {
        const auto isGranted = resultAs(user, [] {
            bool refused = false;
            std::string problem;
            const auto center = DBusNotificationCenter::connect(
                {[] { return false; }, [&refused](const std::string &) { refused = true; }}, problem);
            return center && center->claim("usb://any.backend") && !refused ? 1 : 0;
        });
        EXPECT_EQ(isGranted.value_or(user.takesPart ? 1 : 0), user.takesPart ? 1 : 0) << user.id;
    }
}

TEST(BusPolicyTest, LetsOnlyRootAndTheSchedulersUserTakePart) {
    const test::PrivateBus bus(installedPolicy());
    expectOnlyTheseUsersToTakePart();
}

/// Rules behind the installed ones, for everybody.
std::string installedPolicyAnd(const std::string &rules) {
    return installedPolicy() + "<policy context=\"default\">" + rules + "</policy>";
}

TEST(BusPolicyTest, LetsNobodyElseSendEvenToThoseWhoMayReceive) {
    const test::PrivateBus bus(
        installedPolicyAnd(R"(<allow receive_interface="org.veltrin.Notifications1"/>)"));
    expectOnlyTheseUsersToTakePart();
}

TEST(BusPolicyTest, LetsNobodyElseReceiveEvenFromThoseWhoMaySend) {
    const test::PrivateBus bus(installedPolicyAnd(R"(<allow send_interface="org.veltrin.Notifications1"/>)"));
    expectOnlyTheseUsersToTakePart();
}

} // namespace
} // namespace veltrin::platform
