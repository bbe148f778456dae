#pragma once

#include <cstddef>

namespace veltrin::platform {

/// Asks the system to let a pipe hold `bytes`, so that the processes at its ends wait for each other less
/// often. Where the system does not allow that, a pipe gets a half of it, a quarter and so on. A pipe that
/// holds more already and anything that is no pipe stay as they are.
void widenPipe(int fd, std::size_t bytes) noexcept;

} // namespace veltrin::platform
