#include "tests/faults/ProcessesAtRest.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace veltrin::test {

char *append(char *end, const char *text) {
    return stpcpy(end, text);
}

char *append(char *end, std::int64_t number) {
    char digits[24];
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    while (count != 0) {
        *end++ = digits[--count];
    }
    *end = '\0';
    return end;
}

namespace {

constexpr std::size_t mostProcesses = 8;

/// What a process was at a moment.
struct Rest {
    bool isAtRest = false;
    std::uint64_t awakenings = 0;

    bool operator==(const Rest &) const = default;
};

/// A process that sleeps, stands still or is no more is at rest.
Rest restOf(pid_t process) {
    char text[4096];
    append(append(append(text, "/proc/"), process), "/status");
    const auto file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, text, O_RDONLY));
    const long length = file != -1 ? syscall(SYS_read, file, text, sizeof text - 1) : -1;
    syscall(SYS_close, file);
    if (length <= 0) {
        return {.isAtRest = true};
    }
    text[length] = '\0';
    const char *state = std::strstr(text, "State:\t");
    const char *awakenings = std::strstr(text, "\nvoluntary_ctxt_switches:\t");
    if (state == nullptr || awakenings == nullptr) {
        return {};
    }
    constexpr const char *statesOfRest = "STtZX";
    return {.isAtRest = std::strchr(statesOfRest, state[std::strlen("State:\t")]) != nullptr,
            .awakenings =
                std::strtoull(awakenings + std::strlen("\nvoluntary_ctxt_switches:\t"), nullptr, 10)};
}

} // namespace

/// All are seen at rest, and again, and none has been awake in between.
bool areAtRest(const pid_t *processes, std::size_t count) {
    Rest before[mostProcesses];
    for (std::size_t i = 0; i < count; ++i) {
        before[i] = restOf(processes[i]);
        if (!before[i].isAtRest) {
            return false;
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (restOf(processes[i]) != before[i]) {
            return false;
        }
    }
    return true;
}

} // namespace veltrin::test
