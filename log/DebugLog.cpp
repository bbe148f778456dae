#include "log/DebugLog.h"

#include "platform/SharedFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <utility>

namespace veltrin {

std::FILE *gDebugFile = nullptr;

namespace {

const platform::Clock *logClock = &platform::systemClock();

/// A line of the log, kept in one piece. It is written without the heap, so that a job that fails for want of
/// memory can say so; only the rest of a long line needs memory, and is cut off where there is none.
class Line {
  public:
    [[gnu::format(printf, 2, 3)]] void append(const char *format, ...) {
        std::va_list arguments;
        va_start(arguments, format);
        appendList(format, arguments);
        va_end(arguments);
    }

    [[gnu::format(printf, 2, 0)]] void appendList(const char *format, std::va_list arguments) {
        std::va_list again;
        va_copy(again, arguments);
        const int length = std::vsnprintf(end(), room(), format, arguments);
        if (length > 0 && static_cast<std::size_t>(length) >= room() &&
            grow(static_cast<std::size_t>(length))) {
            std::vsnprintf(end(), room(), format, again);
        }
        va_end(again);
        if (length > 0) {
            used = std::min(used + static_cast<std::size_t>(length), size - 1);
        }
    }

    /// Writes the line in one piece, so that lines of several processes do not run into each other.
    void write() {
        text()[used] = '\n'; // in the place of the terminating zero byte
        std::fwrite(text(), 1, used + 1, gDebugFile);
        std::fflush(gDebugFile);
    }

  private:
    [[nodiscard]] char *text() { return heap != nullptr ? heap.get() : stack.data(); }

    [[nodiscard]] char *end() { return text() + used; }

    [[nodiscard]] std::size_t room() const { return size - used; }

    /// Makes room for so many characters more. False where there is no memory for them.
    bool grow(std::size_t length) {
        const std::size_t wanted = std::max(used + length + 1, 2 * size);
        std::unique_ptr<char[]> larger(new (std::nothrow) char[wanted]);
        if (larger == nullptr) {
            return false;
        }
        std::memcpy(larger.get(), text(), used);
        heap = std::move(larger);
        size = wanted;
        return true;
    }

    std::array<char, 512> stack{};
    std::unique_ptr<char[]> heap;
    std::size_t size = stack.size(); // with the terminating zero byte
    std::size_t used = 0;
};

/// Begins a line with the time and the process id, or with nothing where the time cannot be had.
void beginLine(Line &line, pid_t process) {
    const std::optional<std::chrono::microseconds> now = logClock->timeOfDay();
    if (!now) {
        return;
    }
    // The seconds come from a reading of their own, not from `now`; at a second boundary the two may
    // disagree.
    const std::time_t seconds = logClock->wholeSeconds();
    std::tm local{};
    localtime_r(&seconds, &local);
    const auto fraction = static_cast<int>((*now % std::chrono::seconds(1)).count());
    // The month counts from 00 (January) and the fraction is in microseconds whatever its width: readers of
    // these logs rely on both.
    line.append("%2.2d/%2.2d/%2.2d %2.2d:%2.2d:%2.2d.%4.4d (%d) ", local.tm_mon, local.tm_mday,
                local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec, fraction, process);
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
    Line line;
    beginLine(line, getpid());
    std::va_list arguments;
    va_start(arguments, format);
    line.appendList(format, arguments);
    va_end(arguments);
    line.write();
}

void CPSDebugAssert_(const char *format, ...) {
    DebugStart();
    if (gDebugFile == nullptr) {
        return;
    }
    Line line;
    beginLine(line, getpid());
    line.append("ASSERT: ");
    std::va_list arguments;
    va_start(arguments, format);
    line.appendList(format, arguments);
    va_end(arguments);
    line.write();
}

void CPSDebugLogHexDump(const void *bytes, std::uint32_t length) {
    DebugStart();
    if (gDebugFile == nullptr) {
        return;
    }
    constexpr std::uint32_t bytesPerLine = 8;
    Line dump;
    dump.append("    ");
    for (std::uint32_t i = 0; i < length; ++i) {
        dump.append("0x%2.2x ", static_cast<const std::uint8_t *>(bytes)[i]);
        if (i + 1 < length && (i + 1) % bytesPerLine == 0) {
            dump.append("\n    ");
        }
    }
    dump.write();
}

} // namespace veltrin
