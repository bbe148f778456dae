#include "platform/PipeCapacity.h"

#include <fcntl.h>

namespace veltrin::platform {

void widenPipe(int fd, std::size_t bytes) noexcept {
    const int present = fcntl(fd, F_GETPIPE_SZ);
    while (present >= 0 && static_cast<std::size_t>(present) < bytes &&
           fcntl(fd, F_SETPIPE_SZ, static_cast<int>(bytes)) == -1) {
        bytes /= 2;
    }
}

} // namespace veltrin::platform
