#include "tests/faults/FaultReport.h"

#include "tests/faults/FaultInjector.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>

namespace veltrin::test {

namespace {

using namespace std::chrono_literals;

/// For a process that neither waits nor ends.
constexpr auto realTimeLimit = 60s;

using Names = std::vector<std::pair<std::string, std::string>>;

/// What a path or the link of a descriptor stands for.
std::string nameOfTarget(const std::string &target, const Names &names) {
    for (const auto &[beginning, name] : names) {
        if (target.starts_with(beginning)) {
            return name;
        }
    }
    const std::string file = std::filesystem::path(target).filename();
    if (target.starts_with("/proc/")) {
        return "process";
    }
    return file == "Info.plist" || file == "Localizable.strings" ? file : target;
}

/// Takes one line of the injector's report.
void take(const std::string &line, const Names &names, FaultReport &report) {
    std::istringstream words(line);
    std::string word;
    std::string name;
    words >> word >> name;
    if (word == "hit") {
        std::string target;
        words >> target;
        report.hit = Hit{name, nameOfTarget(target, names)};
    } else if (word == "count") {
        words >> report.counts[name];
    } else if (word == "waited") {
        constexpr double microseconds = 1e6;
        report.secondsWaited = std::stod(name) / microseconds;
    }
    report.isStepped = report.isStepped || word == "stepped";
    report.isTerminated = report.isTerminated || word == "terminated";
    report.gaveUp = report.gaveUp || word == "gave";
}

} // namespace

FaultReport readFaultReport(const std::string &path, const Names &names) {
    FaultReport report;
    if (std::filesystem::exists(path)) {
        for (const std::string &line : linesOf(readFile(path))) {
            take(line, names, report);
        }
    }
    return report;
}

ProcessResult finishAtOnce(Process &process) {
    const auto file = static_cast<int>(syscall(SYS_pidfd_open, process.id(), 0));
    pollfd end{file, POLLIN, 0};
    poll(&end, 1, static_cast<int>(std::chrono::milliseconds(realTimeLimit).count()));
    close(file);
    return process.finish(1s);
}

std::vector<std::string> takeAway(const std::string &folder, const std::vector<std::string> &expected) {
    std::vector<std::string> paths;
    for (const std::string &name : namesIn(folder)) {
        const std::string path = folder + "/" + name;
        if (!name.starts_with("bus-") &&
            std::find(expected.begin(), expected.end(), path) == expected.end()) {
            paths.push_back(path);
            std::filesystem::remove_all(path);
        }
    }
    return paths;
}

void injectFaults(Command &command, const std::string &fault, const std::string &reportFile) {
    auto &variables = *command.environment;
    variables["LD_PRELOAD"] = hostPath(VELTRIN_FAULT_INJECTOR);
    variables["ASAN_OPTIONS"] += ":verify_asan_link_order=0";
    variables[reportVariable] = reportFile;
    variables[faultVariable] = fault;
}

std::string lastWordsIn(const std::vector<std::string> &lines) {
    for (const std::string &line : lines) {
        for (const char *word : {"Sanitizer", "runtime error", "terminate called"}) {
            if (line.find(word) != std::string::npos) {
                return line;
            }
        }
    }
    return "";
}

bool isEndedByLibrary(const FaultReport &report, const ProcessResult &end,
                      const std::vector<std::string> &errors) {
    return report.hit && report.hit->call == "allocate" && end.signal == SIGABRT && !errors.empty() &&
           errors.back().find("failed at src/libsystemd/sd-bus/bus-match.c:") != std::string::npos;
}

} // namespace veltrin::test
