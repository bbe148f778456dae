#include "platform/WriteAll.h"

#include <unistd.h>

#include <cerrno>

namespace veltrin::platform {

std::size_t writeAll(int fd, std::span<const std::byte> bytes) noexcept {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = write(fd, &bytes[written], bytes.size() - written);
        if (put >= 0) {
            written += static_cast<std::size_t>(put);
        } else if (errno != EINTR) {
            break;
        }
    }
    return written;
}

} // namespace veltrin::platform
