#pragma once

#include <chrono>
#include <ctime>
#include <optional>

namespace veltrin::platform {

/// The system's time and its waits. Everything in the filter that reads or passes time goes through here or
/// through the turns of a notification center, so that a wait of half a minute can run in a test without half
/// a minute going by.
class Clock {
  public:
    Clock() = default;
    Clock(const Clock &) = delete;
    Clock &operator=(const Clock &) = delete;
    virtual ~Clock() = default;

    /// Wall-clock time since the epoch in microseconds, or nothing where the system cannot tell.
    [[nodiscard]] virtual std::optional<std::chrono::microseconds> timeOfDay() const = 0;

    /// Wall-clock time since the epoch in whole seconds, a reading of its own: just after a second begins it
    /// may still name the one before while `timeOfDay()` does not.
    [[nodiscard]] virtual std::time_t wholeSeconds() const = 0;

    /// Blocks the calling thread for the whole duration; a signal does not shorten it.
    virtual void sleepFor(std::chrono::microseconds duration) = 0;
};

/// The operating system's own clock.
[[nodiscard]] Clock &systemClock();

} // namespace veltrin::platform
