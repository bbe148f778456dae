#pragma once

#include "tests/faults/FaultFixture.h"

#include <string>
#include <vector>

// What may become of a job in which a call has failed: the decisions, apart from the running of jobs.

namespace veltrin::test {

/// How a job may end.
enum class Ending {
    whole,     ///< it is printed as if nothing had been the matter; exit status 0
    taken,     ///< the same, of a printer that can tell no more of it
    unstarted, ///< the filter ends before it has begun with the job: the printer gets nothing; exit status 1
    cancelled, ///< the printer gets the end-of-job mark where it has been sent headers or pages, and the
               ///< cancel record; exit status 1
    shown,     ///< the same, and the user is shown the failure until the job is cancelled
    pageLost, ///< pages of a two-sided job fail on their way to the printer, or its headers, but not the last
              ///< page, which decides: exit status 0. The user has been shown the failure where it is the
              ///< printer's
    unordered, ///< the pages of a two-sided job come as a filter sends them that has no configuration, which
               ///< is whole for a printer with a duplex unit; exit status 0
    cutOff, ///< the way to the printer is lost, and the printer has what came through before; exit status 1
};

/// One way in which a failed call may end.
struct FaultOutcome {
    const char *call;   ///< "" is any
    const char *target; ///< "" is any
    const char *how;    ///< the beginning of what the injector is told, such as "EINTR"; "" is any
    Ending ending;
    const char
        *says; ///< what a line of the log, or of standard error, then has in it; "" where nothing is lost
};

/// What is wrong with a job in which a call may have failed in this way ("EIO", "short", ...); empty where it
/// has ended in one of the ways that are right. Where the call was never made, nothing may be the matter.
[[nodiscard]] std::vector<std::string> objectionsTo(const FaultedJob &job, const JobKind &kind,
                                                    const std::string &whole, const std::string &how);

/// What is wrong with a job whatever has been done to it: crashes, words of a sanitizer, files left behind,
/// waits longer than any that a job comes to.
[[nodiscard]] std::vector<std::string> generalObjectionsTo(const FaultedJob &job);

/// What is wrong with a job that ended this way.
[[nodiscard]] std::vector<std::string> objectionsTo(Ending ending, const FaultedJob &job, const JobKind &kind,
                                                    const std::string &whole);

} // namespace veltrin::test
