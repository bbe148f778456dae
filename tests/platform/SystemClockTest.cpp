#include "platform/Clock.h"

#include <gtest/gtest.h>

#include <sys/time.h>

#include <csignal>
#include <ctime>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;

TEST(SystemClock, TellsTheTimeOfTheSystem) {
    const std::time_t before = std::time(nullptr);
    const auto now = systemClock().timeOfDay();
    const std::time_t seconds = systemClock().wholeSeconds();
    const std::time_t after = std::time(nullptr);
    ASSERT_TRUE(now.has_value());
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
    EXPECT_GE(*now, std::chrono::seconds(before));
    // time() is behind by as much as a tick, across the beginning of a second, too.
    EXPECT_LT(*now, std::chrono::seconds(after + 2));
}

TEST(SystemClock, SleepsTheWholeTimeThroughSignals) {
    static volatile std::sig_atomic_t signals = 0;

    struct sigaction action {};

    action.sa_handler = [](int) { signals = signals + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
    const itimerval never = {};
    const auto start = std::chrono::steady_clock::now();
    setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
    systemClock().sleepFor(50ms);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
    EXPECT_GT(signals, 0);
}

} // namespace
} // namespace veltrin::platform
