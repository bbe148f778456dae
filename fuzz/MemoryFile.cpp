#include "fuzz/MemoryFile.h"

#include "fuzz/Target.h"
#include "platform/WriteAll.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iterator>

namespace veltrin::fuzz {

MemoryFile::MemoryFile(std::span<const std::byte> contents) : fd(memfd_create("fuzz", MFD_CLOEXEC)) {
    require(fd != -1 && platform::writeAll(fd, contents) == contents.size() && lseek(fd, 0, SEEK_SET) == 0,
            "there is memory for a file");
}

MemoryFile::~MemoryFile() {
    close(fd);
}

std::string MemoryFile::path() const {
    return "/proc/self/fd/" + std::to_string(fd);
}

std::string MemoryFile::contents() const {
    const off_t size = lseek(fd, 0, SEEK_END);
    std::string text(static_cast<std::size_t>(size), '\0');
    require(pread(fd, text.data(), text.size(), 0) == size, "a memory file can be read");
    return text;
}

Caught::Caught(int theNumber) : number(theNumber) {
    std::fflush(nullptr);
    kept = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(file.descriptor(), number);
}

Caught::~Caught() {
    std::fflush(nullptr);
    dup2(kept, number);
    close(kept);
}

std::size_t openDescriptors() {
    // The folder's own is among them every time.
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

} // namespace veltrin::fuzz
