#pragma once

#include "tests/support/Process.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::test {

/// A call that was failed, and what its descriptor or path stood for.
struct Hit {
    std::string call;
    std::string target; ///< "input", "output", "spool file", "bus", ...; else the path
};

/// What the injector has to say of a program's run.
struct FaultReport {
    std::optional<Hit> hit = {}; ///< nothing where the program did not make that call
    bool isStepped = false;      ///< the signal was sent
    bool isTerminated = false;   ///< the job had to be ended by SIGTERM after a minute
    bool gaveUp = false;         ///< not even that ended it
    double secondsWaited = 0;    ///< which took no time
    std::map<std::string, long> counts =
        {}; ///< of calls, by the names of the kinds, and of "line"s of the log
};

/// Reads the report from its file; of a program that was killed there is the beginning of one. `names` are
/// what paths, or the links of descriptors, begin with, and what they stand for.
[[nodiscard]] FaultReport readFaultReport(const std::string &path,
                                          const std::vector<std::pair<std::string, std::string>> &names);

/// Runs the process to its end, and notices that at once. One that neither waits nor ends is killed after a
/// minute.
ProcessResult finishAtOnce(Process &process);

/// The files in a folder but for those that are to be there, which are removed.
std::vector<std::string> takeAway(const std::string &folder, const std::vector<std::string> &expected);

/// Lets the injector into the program, for it to fail this call (see FaultInjector.h) and report to the file.
void injectFaults(Command &command, const std::string &fault, const std::string &reportFile);

/// What a sanitizer, or the C++ library at its wits' end, has said among these lines; empty where neither
/// has.
[[nodiscard]] std::string lastWordsIn(const std::vector<std::string> &lines);

/// Whether the bus's library has ended the process, which it does after a match that was half added for want
/// of memory. `errors` are the lines on its standard error.
[[nodiscard]] bool isEndedByLibrary(const FaultReport &report, const ProcessResult &end,
                                    const std::vector<std::string> &errors);

} // namespace veltrin::test
