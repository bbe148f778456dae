#include "platform/SharedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace veltrin::platform {

namespace {

constexpr mode_t everybodyMode = 0666;

// O_NONBLOCK: a pipe planted at the name must not hold the job up until somebody reads it.
constexpr int appendFlags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

int openOrCreate(const char *path) {
    // Between the two attempts another filter may create or remove the file, so each is tried twice.
    int fd = -1;
    for (int attempt = 0; attempt < 2; ++attempt) {
        fd = open(path, appendFlags);
        if (fd != -1 || errno != ENOENT) {
            return fd;
        }
        fd = open(path, appendFlags | O_CREAT | O_EXCL, everybodyMode);
        if (fd != -1 || errno != EEXIST) {
            return fd;
        }
    }
    return fd;
}

} // namespace

int openSharedFileForAppending(const char *path) {
    const int fd = openOrCreate(path);
    if (fd == -1) {
        return -1;
    }

    struct stat status {};

    // A file with a second name is somebody else's that was planted here. (One without a name is ours,
    // removed meanwhile.)
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    // Refused for another user's file, whose mode its first user has set already.
    static_cast<void>(fchmod(fd, everybodyMode));
    return fd;
}

} // namespace veltrin::platform
