#include "backend/JobEnd.h"

#include "platform/SchedulerJob.h"

namespace veltrin::backend {

namespace {

/// How long the channel may be silent once standard input has ended: the filter is gone by then, and its
/// goodbye is on the way or will never come.
constexpr std::chrono::seconds silenceLimit{2};

} // namespace

bool isJobOver(const JobView &job) {
    const bool isLastGone = job.hasServed && !job.isFilterThere && (!job.isInputOpen || job.isCancelled);
    return isLastGone || (!job.isInputOpen && job.silence > silenceLimit);
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
