#pragma once

#include <cstddef>
#include <functional>

namespace veltrin::test {

/// A sanitizer takes memory of its own for all that the program takes, and gives it back late.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool memoryIsMeasured = false;
#else
inline constexpr bool memoryIsMeasured = true;
#endif

/// The most memory, in bytes, that `work` takes at a time, measured as what a process that does it holds
/// more than one that does nothing; 0 where memory is not measured. What the work leaves behind goes with its
/// process.
[[nodiscard]] std::size_t peakMemoryOf(const std::function<void()> &work);

} // namespace veltrin::test
