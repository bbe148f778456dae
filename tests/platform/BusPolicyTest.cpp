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

/// Whether two ends on this bus hear each other within that time, first by signals and then by calls.
bool canTalk(std::chrono::milliseconds patience) {
    const auto first = makeEnd();
    const auto second = makeEnd();
    int firstHeard = 0;
    int secondHeard = 0;
    first->startObserving("first", {"hello", "bye"}, [&](const Notification &) { ++firstHeard; });
    second->startObserving("second", {"hello", "bye"}, [&](const Notification &) { ++secondHeard; });
    first->post("second", "hello", std::nullopt);
    second->turn(patience);
    second->post("first", "hello", std::nullopt);
    first->turn(patience);
    return firstHeard == 1 && secondHeard == 1;
}

std::string installedPolicy() {
    return test::PrivateBus::systemPolicy + ("<include>" + test::hostPath(VELTRIN_BUS_POLICY) + "</include>");
}

TEST(BusPolicyTest, WithoutItABusRefusesTheChannelsCalls) {
    const test::PrivateBus bus(test::PrivateBus::systemPolicy);
    EXPECT_FALSE(canTalk(briefly));
}

struct User {
    uid_t id;
    bool takesPart;
};

std::vector<User> users() {
    std::vector<User> all = {{0, true}, {65534, false}};
    if (const passwd *scheduler = getpwnam("lp")) {
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
            _exit(setuid(user.id) == 0 ? static_cast<int>(canTalk(user.takesPart ? longEnough : briefly))
                                       : 2);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(user.takesPart)) << user.id;
    }
}

} // namespace
} // namespace veltrin::platform
