#include "driver/SpooledPages.h"

#include <cups/cups.h>

#include <unistd.h>

#include <array>

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

SpoolFile::SpoolFile() {
    std::array<char, longestSpoolPath> path{};
    fd = cupsTempFd(path.data(), static_cast<int>(path.size()));
    name = path.data();
}

SpoolFile::~SpoolFile() {
    if (isOpen()) {
        close(fd);
    }
}

void SpoolFile::remove() const {
    unlink(name.c_str());
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
