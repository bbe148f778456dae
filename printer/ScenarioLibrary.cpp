#include "printer/ScenarioLibrary.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace veltrin::printer {

namespace {

constexpr const char *fileExtension = ".json";

/// As with the filter's resources, a build tree's own win.
std::filesystem::path folder() {
    std::error_code error;
    const auto beside = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "scenarios";
    return std::filesystem::is_directory(beside, error) ? beside : VELTRIN_INSTALLED_SCENARIOS;
}

/// The whole file; nothing, with `errno` set, where it cannot be read.
std::optional<std::string> contentsOf(const std::filesystem::path &path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    if (file) {
        contents << file.rdbuf();
    }
    return file && !file.bad() && errno == 0 ? std::optional(contents.str()) : std::nullopt;
}

std::string namesOfAll() {
    std::string names;
    for (const ListedScenario &scenario : listedScenarios()) {
        names += (names.empty() ? "" : ", ") + scenario.name;
    }
    return names;
}

} // namespace

std::vector<ListedScenario> listedScenarios() {
    std::vector<ListedScenario> listed;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder(), error)) {
        std::string problem;
        const auto text = contentsOf(entry.path());
        const auto scenario = text ? parseScenario(*text, problem) : std::nullopt;
        if (scenario && entry.path().extension() == fileExtension) {
            listed.push_back({entry.path().stem(), scenario->description});
        }
    }
    std::sort(listed.begin(), listed.end(),
              [](const ListedScenario &a, const ListedScenario &b) { return a.name < b.name; });
    return listed;
}

std::optional<Scenario> loadScenario(const std::string &nameOrFile, std::string &problem,
                                     const PrinterSettings &ordinary) {
    const bool isFile = nameOrFile.find_first_of("./") != std::string::npos;
    const std::filesystem::path path =
        isFile ? std::filesystem::path(nameOrFile) : folder() / (nameOrFile + fileExtension);
    const auto text = contentsOf(path);
    if (!text && !isFile && errno == ENOENT) {
        problem = "there is no scenario \"" + nameOrFile + "\", but " + namesOfAll();
        return std::nullopt;
    }
    if (!text) {
        problem = path.string() + ": " + std::strerror(errno);
        return std::nullopt;
    }
    auto scenario = parseScenario(*text, problem, ordinary);
    if (!scenario) {
        problem = path.string() + ": " + problem;
    }
    return scenario;
}

} // namespace veltrin::printer
