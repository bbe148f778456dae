#pragma once

#include <cstddef>
#include <span>

namespace veltrin::platform {

/// Writes `bytes`, and goes on where the system takes only a part of them or a signal interrupts it. Returns
/// the number of bytes that went out: all of them, or fewer with `errno` set by the write that failed. To a
/// descriptor that does not wait, a lack of room is a failure (EAGAIN) as well.
[[nodiscard]] std::size_t writeAll(int fd, std::span<const std::byte> bytes) noexcept;

} // namespace veltrin::platform
