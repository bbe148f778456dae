#include "platform/LineOutput.h"

#include "platform/WriteAll.h"

#include <poll.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <span>

namespace veltrin {

namespace {

/// The size of the first lines of `text` that may be written together.
std::size_t firstWrite(std::string_view text) {
    if (text.size() <= PIPE_BUF) {
        return text.size();
    }
    const std::size_t lastEnd = text.rfind('\n', PIPE_BUF - 1);
    return 1 + (lastEnd != std::string_view::npos ? lastEnd : text.find('\n'));
}

} // namespace

void LineOutput::add(std::string_view line) {
    pending.append(line).push_back('\n');
}

void LineOutput::write() {
    std::string_view rest = pending;
    while (!rest.empty()) {
        const std::size_t size = firstWrite(rest);
        writeWhole(rest.substr(0, size));
        rest.remove_prefix(size);
    }
    pending.clear();
}

void LineOutput::writeWhole(std::string_view lines) {
    while (failure == 0 && !lines.empty()) {
        lines.remove_prefix(platform::writeAll(fd, std::as_bytes(std::span(lines))));
        if (lines.empty()) {
            return;
        }
        // Whoever gave us the descriptor may have made it one that does not wait.
        if (errno == EAGAIN) {
            pollfd room{fd, POLLOUT, 0};
            poll(&room, 1, -1);
        } else {
            failure = errno;
        }
    }
}

} // namespace veltrin
