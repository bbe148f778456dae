#pragma once

#include "driver/stream/PageStream.h"

#include <array>
#include <cstddef>
#include <cstdint>

// The 16-byte records that command the printer itself. They go out between jobs: in front of a job's headers
// or behind its end-of-job mark.

namespace veltrin {

using CommandRecord = std::array<std::uint8_t, 16>;
static_assert(sizeof(CommandRecord) == 16);

/// The four bytes that every command record begins with.
inline constexpr Tag commandTag = tagOf("GDIC");

/// "GDIC GDIREND" and four blanks: the printer starts its reverse data afresh.
inline constexpr CommandRecord reverseDataReset = {0x47, 0x44, 0x49, 0x43, 0x20, 0x47, 0x44, 0x49,
                                                   0x52, 0x45, 0x4e, 0x44, 0x20, 0x20, 0x20, 0x20};

/// "GDIC CANCEL", four blanks and, unlike the reset, a zero byte: the printer drops the job.
inline constexpr CommandRecord cancelCommand = {0x47, 0x44, 0x49, 0x43, 0x20, 0x43, 0x41, 0x4e,
                                                0x43, 0x45, 0x4c, 0x20, 0x20, 0x20, 0x20, 0x00};

} // namespace veltrin
