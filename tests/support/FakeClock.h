#pragma once

#include "platform/Clock.h"

#include <functional>
#include <vector>

namespace veltrin::test {

/// A clock that only goes on when somebody sleeps.
class FakeClock final : public platform::Clock {
  public:
    [[nodiscard]] std::optional<std::chrono::microseconds> timeOfDay() const override {
        return fails ? std::nullopt : std::optional(now);
    }

    [[nodiscard]] std::time_t wholeSeconds() const override {
        return static_cast<std::time_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count()) -
               secondsBehind;
    }

    void sleepFor(std::chrono::microseconds duration) override;

    std::chrono::microseconds now{};
    std::time_t secondsBehind = 0;
    bool fails = false;

    /// Every sleep so far, in order.
    std::vector<std::chrono::microseconds> sleeps;

    /// Called after each sleep, so that a test can end a wait.
    std::function<void()> afterSleep = [] {};
};

} // namespace veltrin::test
