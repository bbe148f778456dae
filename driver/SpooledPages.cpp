#include "driver/SpooledPages.h"

#include <cups/cups.h>

#include <unistd.h>

#include <cstring>

namespace veltrin {

namespace {

constexpr std::size_t longestSpoolPath = 1024;

/// The elements at these places.
std::vector<std::string> at(const std::vector<std::string> &elements,
                            const std::vector<std::uint32_t> &indexes) {
    std::vector<std::string> chosen;
    chosen.reserve(indexes.size());
    for (const std::uint32_t index : indexes) {
        chosen.push_back(elements[index]);
    }
    return chosen;
}

} // namespace

/// The room for the name comes first: once there is a file, nothing may fail that would leave it behind.
SpoolFile::SpoolFile()
    : name(longestSpoolPath, '\0'), fd(cupsTempFd(name.data(), static_cast<int>(name.size()))) {
    name.resize(std::strlen(name.c_str()));
}

SpoolFile::~SpoolFile() {
    if (!isOpen()) {
        return;
    }
    close(fd);
    if (!isKept) {
        unlink(name.c_str());
    }
}

void SpooledPages::select(const std::vector<std::uint32_t> &indexes) {
    paths = at(origPaths, indexes);
}

void SpooledPages::reorder(const std::vector<std::uint32_t> &indexes) {
    paths = at(paths, indexes);
}

void SpooledPages::cleanupSpoolFiles() {
    for (const std::string &path : origPaths) {
        unlink(path.c_str());
    }
    origPaths.clear();
    paths.clear();
}

} // namespace veltrin
