#include "platform/StandardDescriptors.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace veltrin::platform {
namespace {

/// What a child process says of itself through its exit status, since a test needs its own descriptors.
template <typename Body>
int exitStatusOf(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StandardDescriptors, KeepTheirPlacesWhenClosedAndStillFail) {
    for (unsigned closed = 0; closed < 8; ++closed) {
        const int status = exitStatusOf([closed] {
            for (int fd = 0; fd <= 2; ++fd) {
                if ((closed >> fd & 1U) != 0) {
                    close(fd);
                }
            }
            reserveStandardDescriptors();
            char byte = 0;
            if ((closed & 1U) != 0 && (read(0, &byte, 1) != -1 || errno != EBADF)) {
                return 1;
            }
            if ((closed & 2U) != 0 && (write(1, &byte, 1) != -1 || errno != EBADF)) {
                return 2;
            }
            if ((closed & 4U) != 0 && (write(2, &byte, 1) != -1 || errno != EBADF)) {
                return 3;
            }
            const int next = open("/dev/null", O_RDONLY);
            return next > 2 ? 0 : 4;
        });
        EXPECT_EQ(status, 0) << "closed: " << closed;
    }
}

TEST(StandardDescriptors, AreLeftAloneWhenOpen) {
    const int status = exitStatusOf([] {
        int ends[2] = {-1, -1};
        if (pipe(ends) != 0 || dup2(ends[1], 1) != 1) {
            return 1;
        }
        reserveStandardDescriptors();
        char byte = 0;
        return write(1, "x", 1) == 1 && read(ends[0], &byte, 1) == 1 && byte == 'x' ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
}

TEST(StandardDescriptors, AreTheOnlyOnesThatAreLeft) {
    const int status = exitStatusOf([] {
        const int ordinary = open("/dev/null", O_RDONLY);
        const int distant = fcntl(ordinary, F_DUPFD, 200);
        closeAllButStandardDescriptors();
        if (fcntl(ordinary, F_GETFD) != -1 || fcntl(distant, F_GETFD) != -1) {
            return 1;
        }
        for (int fd = 0; fd <= 2; ++fd) {
            if (fcntl(fd, F_GETFD) == -1) {
                return 2;
            }
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace veltrin::platform
