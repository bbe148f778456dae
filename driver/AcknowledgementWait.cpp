#include "driver/AcknowledgementWait.h"

#include <chrono>

namespace veltrin {

using namespace std::chrono_literals;

void awaitAcknowledgement(const std::function<bool()> &isAcknowledged,
                          const std::function<bool()> &isCancelled, platform::Clock &clock) {
    while (!isAcknowledged() && !isCancelled()) {
        clock.sleepFor(1s);
    }
}

} // namespace veltrin
