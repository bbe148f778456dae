#include "backend/JobEnd.h"

#include "platform/SchedulerJob.h"

#include <csignal>

namespace veltrin::backend {

namespace {

using namespace std::chrono_literals;

/// How long the channel may be silent once standard input has ended: the filter is gone by then, and its
/// goodbye is on the way or will never come.
constexpr auto silenceLimit = 2s;

/// How long the job may go on after it has been cancelled, and how long a device's backend that was asked to
/// end may take. CUPS kills after 30 seconds.
constexpr auto cancelLimit = 20s;
constexpr auto endLimit = 2s;

} // namespace

bool isJobOver(const JobView &job) {
    const bool isLastGone = job.hasServed && !job.isFilterThere && (!job.isInputOpen || job.isCancelled);
    return isLastGone || (!job.isInputOpen && job.silence > silenceLimit);
}

std::optional<int> endSignalFor(const DeviceView &device) {
    const bool isLate = device.sinceCancelled && *device.sinceCancelled > cancelLimit;
    const bool isUnreachable = device.isOver && device.isConnecting && !device.hasSpoken;
    if (!isLate && !isUnreachable) {
        return std::nullopt;
    }
    if (!device.sinceEndAsked) {
        return SIGTERM;
    }
    return *device.sinceEndAsked > endLimit ? std::optional(SIGKILL) : std::nullopt;
}

int exitStatusOf(const JobEnding &ending) {
    const int deviceStatus = ending.exitStatus.value_or(platform::backendFailed);
    if (ending.isCancelled) {
        return ending.exitStatus.value_or(platform::backendOk);
    }
    if (deviceStatus != platform::backendOk) {
        return deviceStatus;
    }
    if (!ending.hasServed) {
        // The filter gave up just as the printer became free. A retry after a pause would be one of a few:
        // the scheduler then aborts the job.
        return ending.hasWaited ? platform::backendRetryCurrent : platform::backendFailed;
    }
    return ending.isCutOff ? platform::backendFailed : platform::backendOk;
}

} // namespace veltrin::backend
