#include "bench/Inputs.h"

#include "driver/stream/StreamMaker.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <system_error>

namespace veltrin::bench {

namespace {

[[noreturn]] void give(const std::string &path) {
    throw std::system_error(errno, std::generic_category(), path);
}

} // namespace

WorkDirectory::WorkDirectory() {
    // Not /tmp, which may be memory: jobs are spooled to disk.
    const char *parent = std::getenv("TMPDIR");
    path = std::string(parent != nullptr ? parent : "/var/tmp") + "/veltrin-bench.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        give(path);
    }
    setenv("TMPDIR", path.c_str(), 1);
}

WorkDirectory::~WorkDirectory() {
    std::error_code error;
    std::filesystem::remove_all(path, error);
}

InputFile::InputFile(const WorkDirectory &directory, std::uint32_t pages, std::uint32_t bandsPerPage,
                     std::uint32_t bandSize)
    : name(directory.file(std::to_string(pages) + "-" + std::to_string(bandsPerPage) + "-" +
                          std::to_string(bandSize))) {
    StreamOptions options;
    options.pages = pages;
    options.bandsPerPage = bandsPerPage;
    options.planeSizes = dealtOut(bandSize);
    std::ofstream file(name, std::ios::binary);
    const bool made = makeStream(options, [&file](std::span<const std::byte> bytes) {
        file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return file.good();
    });
    file.close();
    if (!made || !file.good()) {
        give(name);
    }
}

InputFile::~InputFile() {
    std::error_code error;
    std::filesystem::remove(name, error);
}

} // namespace veltrin::bench
