#pragma once

#include <cstddef>

namespace veltrin::bench {

/// What the channel is measured against: for each band, a block of `headerSize` and one of `bandSize` bytes
/// as plain method calls on the system bus, at most `window` of them unanswered, to a process that does
/// nothing but answer. Large blocks go the way the channel sends them, as sealed memory.
///
/// Returns the seconds from the first call to the last answer. Throws std::system_error where the bus fails.
[[nodiscard]] double timePlainCalls(std::size_t bands, std::size_t headerSize, std::size_t bandSize,
                                    std::size_t window);

} // namespace veltrin::bench
