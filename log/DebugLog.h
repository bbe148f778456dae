#pragma once

#include "platform/Clock.h"

#include <cstdint>
#include <cstdio>

// The diagnostic log, shared by the whole process: plain functions over one global stream.
//
// It is off until an administrator creates the marker file; the marker is looked for at every call, so the
// log may come on in the middle of a job. Then every line goes to one file to which all filter processes
// append, or to standard error where that file cannot be opened.

namespace veltrin {

/// Switches the log on by its mere existence.
inline constexpr const char *debugMarkerPath = "/tmp/gdidebug";
inline constexpr const char *debugLogPath = "/tmp/CUPSDebug.log";

/// Where the lines go: null while the log is off, else the log file or standard error.
extern std::FILE *gDebugFile;

/// Opens the log if it is off and the marker file exists.
void DebugStart();

/// Closes the log file; the next call of a logging function may open it again. Leaves standard error alone.
void DebugEnd();

/// Takes the time of the log's lines from `clock` (the system's own clock at first), which must outlive its
/// use.
void DebugUseClock(const platform::Clock &clock);

/// Writes one line with time and process id.
[[gnu::format(printf, 1, 2)]] void CPSDebugLog(const char *format, ...);

/// Writes one line as `CPSDebugLog` does, marked "ASSERT: ": the report of a failure. It only logs; what to
/// do about the failure is the caller's business.
[[gnu::format(printf, 1, 2)]] void CPSDebugAssert_(const char *format, ...);

/// A 32-bit number as "%d" shows it: with its sign, modulo 2^32.
[[nodiscard]] constexpr std::int32_t asSigned(std::uint32_t number) {
    return static_cast<std::int32_t>(number);
}

/// Writes `length` bytes in hexadecimal, eight a line, without time and process id.
void CPSDebugLogHexDump(const void *bytes, std::uint32_t length);

} // namespace veltrin
