#include "tests/support/PeakMemory.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veltrin::test {

namespace {

std::size_t peakOfProcess(const std::function<void()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    rusage usage{};
    EXPECT_EQ(wait4(child, &status, 0, &usage), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

} // namespace

std::size_t peakMemoryOf(const std::function<void()> &work) {
    // What has been freed and is still held would hide as much of what the work takes.
    malloc_trim(0);
    const std::size_t idle = peakOfProcess([] {});
    const std::size_t busy = peakOfProcess(work);
    return memoryIsMeasured && busy > idle ? busy - idle : 0;
}

} // namespace veltrin::test
