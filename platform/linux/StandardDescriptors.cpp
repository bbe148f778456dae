#include "platform/StandardDescriptors.h"

#include <fcntl.h>
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

void closeAllButStandardDescriptors() {
    closefrom(STDERR_FILENO + 1);
}

} // namespace veltrin::platform
