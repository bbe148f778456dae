#include "log/DebugLog.h"

#include "platform/SharedFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace veltrin {

std::FILE *gDebugFile = nullptr;

namespace {

const platform::Clock *logClock = &platform::systemClock();

[[gnu::format(printf, 2, 0)]] void appendFormatted(std::string &line, const char *format,
                                                   std::va_list arguments) {
    std::va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length <= 0) {
        return;
    }
    const std::size_t start = line.size();
    line.resize(start + static_cast<std::size_t>(length) + 1);
    std::vsnprintf(&line[start], static_cast<std::size_t>(length) + 1, format, arguments);
    line.pop_back();
}

[[gnu::format(printf, 2, 3)]] void appendFormatted(std::string &line, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    appendFormatted(line, format, arguments);
    va_end(arguments);
}

/// The time and process id that a line begins with; empty where the time cannot be had.
std::string linePrefix(pid_t process) {
    const std::optional<std::chrono::microseconds> now = logClock->timeOfDay();
    if (!now) {
        return {};
    }
    // The seconds come from a reading of their own, not from `now`; at a second boundary the two may
    // disagree.
    const std::time_t seconds = logClock->wholeSeconds();
    std::tm local{};
    localtime_r(&seconds, &local);
    const auto fraction = static_cast<int>((*now % std::chrono::seconds(1)).count());
    std::string prefix;
    // The month counts from 00 (January) and the fraction is in microseconds whatever its width: readers of
    // these logs rely on both.
    appendFormatted(prefix, "%2.2d/%2.2d/%2.2d %2.2d:%2.2d:%2.2d.%4.4d (%d) ", local.tm_mon, local.tm_mday,
                    local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec, fraction, process);
    return prefix;
}

/// Writes the line in one piece, so that lines of several processes do not run into each other.
void writeLine(std::string line) {
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), gDebugFile);
    std::fflush(gDebugFile);
}

} // namespace

void DebugUseClock(const platform::Clock &clock) {
    logClock = &clock;
}

void DebugStart() {
    if (gDebugFile != nullptr) {
        return;
    }

    struct stat marker {};

    if (stat(debugMarkerPath, &marker) != 0) {
        return;
    }
    const int fd = platform::openSharedFileForAppending(debugLogPath);
    gDebugFile = fd != -1 ? fdopen(fd, "a") : nullptr;
    if (gDebugFile == nullptr) {
        if (fd != -1) {
            const int error = errno;
            close(fd);
            errno = error;
        }
        std::perror("DEBUG: Unable to open debug log for writing, switching to stderr");
        gDebugFile = stderr;
        return;
    }
    std::setbuf(gDebugFile, nullptr);
}

void DebugEnd() {
    if (gDebugFile == nullptr || gDebugFile == stderr) {
        return;
    }
    std::fclose(gDebugFile);
    gDebugFile = nullptr;
}

void CPSDebugLog(const char *format, ...) {
    DebugStart();
    if (gDebugFile == nullptr) {
        return;
    }
    std::string line = linePrefix(getpid());
    std::va_list arguments;
    va_start(arguments, format);
    appendFormatted(line, format, arguments);
    va_end(arguments);
    writeLine(std::move(line));
}

void CPSDebugAssert_(const char *format, ...) {
    DebugStart();
    if (gDebugFile == nullptr) {
        return;
    }
    std::string line = linePrefix(getpid()) + "ASSERT: ";
    std::va_list arguments;
    va_start(arguments, format);
    appendFormatted(line, format, arguments);
    va_end(arguments);
    writeLine(std::move(line));
}

void CPSDebugLogHexDump(const void *bytes, std::uint32_t length) {
    DebugStart();
    if (gDebugFile == nullptr) {
        return;
    }
    constexpr std::uint32_t bytesPerLine = 8;
    std::string dump = "    ";
    for (std::uint32_t i = 0; i < length; ++i) {
        appendFormatted(dump, "0x%2.2x ", static_cast<const std::uint8_t *>(bytes)[i]);
        if (i + 1 < length && (i + 1) % bytesPerLine == 0) {
            dump += "\n    ";
        }
    }
    writeLine(std::move(dump));
}

} // namespace veltrin
