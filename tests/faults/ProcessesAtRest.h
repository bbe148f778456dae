#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace veltrin::test {

/// Puts a text, or a number that is not negative, behind what is there, without allocating anything. Returns
/// the new end.
char *append(char *end, const char *text);
char *append(char *end, std::int64_t number);

/// Whether all these processes have been at rest at one moment, so that nothing is under way among them. A
/// process that sleeps, stands still or is no more is at rest. Neither waits nor allocates.
[[nodiscard]] bool areAtRest(const pid_t *processes, std::size_t count);

} // namespace veltrin::test
