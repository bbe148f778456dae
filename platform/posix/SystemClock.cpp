#include "platform/Clock.h"

#include <sys/time.h>

#include <thread>

namespace veltrin::platform {

namespace {

class SystemClock final : public Clock {
  public:
    [[nodiscard]] std::optional<std::chrono::microseconds> timeOfDay() const override {
        timeval now{};
        if (gettimeofday(&now, nullptr) != 0) {
            return std::nullopt;
        }
        return std::chrono::seconds(now.tv_sec) + std::chrono::microseconds(now.tv_usec);
    }

    [[nodiscard]] std::time_t wholeSeconds() const override { return std::time(nullptr); }

    void sleepFor(std::chrono::microseconds duration) override { std::this_thread::sleep_for(duration); }
};

} // namespace

Clock &systemClock() {
    static SystemClock clock;
    return clock;
}

} // namespace veltrin::platform
