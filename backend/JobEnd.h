#pragma once

#include <chrono>
#include <optional>

namespace veltrin::backend {

/// What is known of a job under way.
struct JobView {
    bool isInputOpen = true;             ///< a filter of the job still runs, or the next one is to come
    bool isFilterThere = false;          ///< on the channel
    bool hasServed = false;              ///< a filter has been there and has gone
    bool isCancelled = false;            ///< by SIGTERM
    std::chrono::milliseconds silence{}; ///< on the channel
};

/// Whether nothing more will come for the device. The documents of a job come one after another, each by a
/// filter of its own, until standard input ends.
[[nodiscard]] bool isJobOver(const JobView &job);

/// What is known of a device's backend under way.
struct DeviceView {
    bool isOver = false;       ///< nothing more will come for it
    bool isConnecting = false; ///< it says so
    bool hasSpoken = false;    ///< a status record has come
    std::optional<std::chrono::milliseconds> sinceCancelled = {};
    std::optional<std::chrono::milliseconds> sinceEndAsked = {}; ///< it was sent SIGTERM
};

/// The signal that a device's backend is to be sent now: SIGTERM, SIGKILL, or none.
///
/// One that takes nothing would keep a cancelled job for ever, and one that cannot be reached any job. No
/// page is lost with the latter: the filter sends none before it has a record.
[[nodiscard]] std::optional<int> endSignalFor(const DeviceView &device);

/// How a job ended.
struct JobEnding {
    std::optional<int> exitStatus; ///< of the device's backend; nothing where a signal ended it
    bool isCutOff = false;         ///< it ended before the job did
    bool hasServed = false;
    bool hasWaited = false; ///< for another job to leave the printer
    bool isCancelled = false;
};

/// The exit status that the scheduler is to get.
[[nodiscard]] int exitStatusOf(const JobEnding &ending);

} // namespace veltrin::backend
