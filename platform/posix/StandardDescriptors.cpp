#include "platform/StandardDescriptors.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace veltrin::platform {

void reserveStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) {
            continue;
        }
        // The lowest free number is handed out, which is this one: those below are in use by now.
        static_cast<void>(open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

bool isAtEnd(int fd) {
    pollfd source{fd, POLLIN, 0};
    return poll(&source, 1, 0) > 0 && (source.revents & POLLIN) == 0;
}

} // namespace veltrin::platform
