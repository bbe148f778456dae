// Runs a target on the files of folders, once each: the seeds and all that the fuzzer has ever found, by any
// compiler and within the tests.

#include "fuzz/Target.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::filesystem::path> filesIn(const std::filesystem::path &folder) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(folder)) {
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<char> bytesIn(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void run(const std::vector<char> &bytes) {
    static_cast<void>(
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()));
}

} // namespace

int main(int argc, char **argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    std::size_t count = 0;
    run({});
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : filesIn(argv[i])) {
            // The last one named is the one that fails.
            std::printf("%s\n", file.filename().c_str());
            std::fflush(stdout);
            run(bytesIn(file));
            ++count;
        }
    }
    std::printf("%zu files\n", count);
    return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
