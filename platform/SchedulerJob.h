#pragma once

#include <sys/types.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

// The print scheduler gives its filters and backends the same arguments behind their name: job id, user,
// title, copies, options and perhaps a file.

namespace veltrin::platform {

/// The exit statuses of backends that are of use here; what the scheduler does then.
enum BackendStatus : int {
    backendOk = 0,
    backendFailed = 1,       ///< what the queue's error policy says
    backendHold = 3,         ///< keeps the job until somebody releases it
    backendStop = 4,         ///< stops the queue
    backendCancel = 5,       ///< drops the job
    backendRetryCurrent = 7, ///< tries the job again at once, and as often as it takes
};

/// The number of the job that these arguments are for, argv[0] included; nothing where they are not the
/// scheduler's.
[[nodiscard]] std::optional<unsigned> schedulerJob(std::span<const std::string_view> arguments);

/// The same of a running process; nothing also where this one may not look at it.
[[nodiscard]] std::optional<unsigned> schedulerJob(pid_t process);

/// What is against the other end of a channel: it works for another job than this process. Empty where
/// nothing is, or where one of the two works for no job.
[[nodiscard]] std::string objectionToPeer(pid_t process);

/// Asks a process to end, as the scheduler does with those of a cancelled job. Returns whether it was asked:
/// not where it works for another job than this process, or one of the two for none.
[[nodiscard]] bool askPeerToEnd(pid_t process);

} // namespace veltrin::platform
