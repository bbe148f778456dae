#include "platform/PipeCapacity.h"

#include <fcntl.h>

namespace veltrin::platform {

void widenPipe(int fd, std::size_t bytes) noexcept {
    const int present = fcntl(fd, F_GETPIPE_SZ);
    if (present >= 0 && static_cast<std::size_t>(present) < bytes) {
        static_cast<void>(fcntl(fd, F_SETPIPE_SZ, static_cast<int>(bytes)));
    }
}

} // namespace veltrin::platform
