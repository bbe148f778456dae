#pragma once

#include "platform/Clock.h"

#include <functional>

namespace veltrin {

/// Asks once a second until the end of the job is acknowledged. Only a cancelled job ends the wait before.
void awaitAcknowledgement(const std::function<bool()> &isAcknowledged,
                          const std::function<bool()> &isCancelled, platform::Clock &clock);

} // namespace veltrin
