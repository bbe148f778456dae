#pragma once

#include <cstddef>

namespace veltrin::platform {

/// Asks the system to let a pipe hold `bytes`, so that the processes at its ends wait for each other less
/// often. A pipe that holds more already, one that the system does not allow to hold so much, and anything
/// that is no pipe stay as they are.
void widenPipe(int fd, std::size_t bytes) noexcept;

} // namespace veltrin::platform
