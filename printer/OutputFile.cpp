#include "printer/OutputFile.h"

#include "platform/WriteAll.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace veltrin::printer {

OutputFile::OutputFile(const std::string &path, Links links) {
    if (!path.empty()) {
        const int refusal = links == Links::refused ? O_NOFOLLOW : 0;
        fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | refusal, 0666);
        failure = fd == -1 ? errno : 0;
    }
}

void OutputFile::drop() {
    // What is no regular file has nothing to drop.
    if (fd != -1 && ftruncate(fd, 0) != 0 && errno != EINVAL && failure == 0) {
        failure = errno;
    }
}

void OutputFile::write(std::span<const std::byte> bytes) {
    if (fd != -1 && failure == 0 && platform::writeAll(fd, bytes) != bytes.size()) {
        failure = errno;
    }
}

void OutputFile::close() {
    if (fd != -1 && ::close(std::exchange(fd, -1)) != 0 && failure == 0) {
        failure = errno;
    }
}

} // namespace veltrin::printer
