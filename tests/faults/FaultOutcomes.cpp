#include "tests/faults/FaultOutcomes.h"

#include "tests/support/ExpectedOutput.h"

#include <algorithm>
#include <cstring>

namespace veltrin::test {

namespace {

constexpr const char *endOfJobMark = "JIDG";

constexpr const char *logOnStandardError =
    "DEBUG: Unable to open debug log for writing, switching to stderr: ";
constexpr const char *notSent = "FrontendIPC: cannot post: ";
constexpr const char *notWritten = "DriverFilter writeToFD: Unable to write all of data.";

/// The rows that fit a call most closely, by how it failed and then by its target, are for it; one of them
/// must hold.
///
/// A status line is repeated until the job is cancelled where the printer, or a file on the way to it, takes
/// no data: only then does the user have to do something. What the filter can print without (its log, the
/// PPD, its texts and its configuration) does not fail a job.
constexpr FaultOutcome outcomes[] = {
    // Opening
    {"open", "input", "", Ending::unstarted, "Unable to open argv[6]"},
    {"open", "log", "", Ending::whole, logOnStandardError},
    {"fdopen", "log", "", Ending::whole, logOnStandardError},
    {"open", "PPD", "", Ending::whole, ""},                               // CUPS knows another way to it
    {"open", "spool file", "", Ending::whole, "Unable to open ppd file"}, // CUPS's copy of the PPD
    {"open", "spool file", "", Ending::cancelled, "DriverFilter spoolPages: cupsTempFd failed"},
    {"open", "spool file", "", Ending::cancelled, "DriverFilter copyPageFromPath: unable to open file: "},
    {"open", "spool file", "", Ending::pageLost, "DriverFilter copyPageFromPath: unable to open file: "},
    {"cupsTempFd", "", "", Ending::cancelled, "DriverFilter spoolPages: cupsTempFd failed"},
    {"fopen", "Info.plist", "", Ending::unordered, "CUPSFilter: no information dictionary: "},
    {"fopen", "Localizable.strings", "", Ending::whole, "CUPSFilter: no string table: "},
    {"fopen", "process", "", Ending::whole, ""}, // of which job the peer is, in case it is another's
    {"open", "", "", Ending::whole, ""},         // what CUPS looks for in the user's folder

    // Reading
    {"read", "", "short", Ending::whole, ""},
    {"read", "input", "", Ending::cancelled, "DriverFilter readFromFD: Wanted "}, // EINTR, too
    {"read", "spool file", "", Ending::cancelled, "DriverFilter readFromFD: Wanted "},
    {"read", "spool file", "", Ending::pageLost, "DriverFilter readFromFD: Wanted "},
    {"read", "Info.plist", "EINTR", Ending::whole, ""},
    {"read", "Info.plist", "", Ending::unordered, "CUPSFilter: no information dictionary: "},
    {"read", "Localizable.strings", "EINTR", Ending::whole, ""},
    {"read", "Localizable.strings", "", Ending::whole, "CUPSFilter: no string table: "},
    {"read", "process", "", Ending::whole, ""},
    {"read", "PPD", "", Ending::whole, ""}, // CUPS reads on, or takes the rest for missing

    // Writing
    {"write", "", "short", Ending::whole, ""},
    {"write", "", "EINTR", Ending::whole, ""},
    {"write", "output", "ENOSPC:lasting", Ending::cutOff, notWritten},
    {"write", "output", "EPIPE:lasting", Ending::cutOff, notWritten},
    {"write", "output", "", Ending::shown, notWritten},
    {"write", "output", "", Ending::pageLost, notWritten},
    {"write", "spool file", "ENOSPC:lasting", Ending::cutOff,
     notWritten}, // standard output takes nothing, too
    {"write", "spool file", "EPIPE:lasting", Ending::cutOff, notWritten},
    {"write", "spool file", "ENOSPC:lasting", Ending::shown, notWritten}, // a channel is open all the same
    {"write", "spool file", "EPIPE:lasting", Ending::shown, notWritten},
    {"write", "spool file", "", Ending::shown, notWritten},
    {"write", "block", "", Ending::shown, notSent},
    {"write", "block", "", Ending::pageLost, notSent},
    {"memfd_create", "", "EMFILE", Ending::whole, ""}, // a shortage that passes is waited out
    {"memfd_create", "", "", Ending::shown, notSent},
    {"memfd_create", "", "", Ending::pageLost, notSent},
    {"fwrite", "", "", Ending::whole, ""}, // one line less
    {"fprintf", "", "", Ending::whole, ""},

    // Settings and status of files
    {"fcntl", "block", "", Ending::shown, notSent},
    {"fcntl", "block", "", Ending::pageLost, notSent},
    {"fcntl", "", "", Ending::whole, ""}, // how much a pipe holds, and whether a descriptor is open
    {"fchmod", "log", "", Ending::whole, ""},
    {"fstat", "log", "", Ending::whole, logOnStandardError},
    {"fstat", "socket", "", Ending::shown, notSent}, // whether it carries descriptors
    {"fstat", "socket", "", Ending::pageLost, notSent},
    {"stat", "Info.plist", "", Ending::unordered, "CUPSFilter: no information dictionary: "},
    {"stat", "process", "", Ending::unordered, "CUPSFilter: no information dictionary: "}, // where it is
    {"stat", "Localizable.strings", "", Ending::whole, ""},
    {"stat", "", "", Ending::whole, ""},

    // The bus. Which call of a connection is failed, and what is on its way then, is nothing that a test can
    // know:
    // the job is whole or says why it is not.
    {"socket", "", "short", Ending::whole, ""},
    {"connect", "", "short", Ending::whole, ""},
    {"getsockopt", "", "short", Ending::whole, ""},
    {"getsockname", "", "short", Ending::whole, ""},
    {"socket", "", "", Ending::unstarted, "no notification center: cannot connect to the system bus: "},
    {"connect", "", "", Ending::unstarted, "no notification center: cannot connect to the system bus: "},
    {"setsockopt", "", "", Ending::whole, ""},
    {"recvmsg", "", "short", Ending::whole, ""},
    {"sendmsg", "", "short", Ending::whole, ""},
    {"recvmsg", "", "EINTR", Ending::whole, ""},
    {"sendmsg", "", "EINTR", Ending::whole, ""},
    {"getsockopt", "", "", Ending::whole, ""},
    {"getsockopt", "", "", Ending::shown, notSent},
    {"getsockopt", "", "", Ending::pageLost, notSent},
    {"getsockname", "", "", Ending::shown, notSent},
    {"getsockname", "", "", Ending::pageLost, notSent},
    {"recvmsg", "", "ENOBUFS", Ending::whole, ""},
    {"recvmsg", "", "ENOBUFS", Ending::unstarted, "no notification center: "},
    {"sendmsg", "", "ENOBUFS", Ending::whole, ""},
    {"sendmsg", "", "ENOBUFS", Ending::unstarted, "initWithPortName: cannot observe "},
    {"sendmsg", "", "ENOBUFS", Ending::unstarted, "no notification center: "},
    {"sendmsg", "", "ENOBUFS", Ending::unstarted, "the bus cannot be asked who it is: "},
    {"recvmsg", "", "ECONNRESET", Ending::whole, ""},
    {"recvmsg", "", "ECONNRESET", Ending::unstarted, "no notification center: "},
    {"recvmsg", "", "ECONNRESET", Ending::unstarted, "the system bus is lost: "},
    {"recvmsg", "", "ECONNRESET", Ending::cutOff, "the system bus is lost: "},
    {"sendmsg", "", "ECONNRESET", Ending::whole, ""},
    {"sendmsg", "", "ECONNRESET", Ending::unstarted, "initWithPortName: cannot observe "},
    {"sendmsg", "", "ECONNRESET", Ending::unstarted, "no notification center: "},
    {"sendmsg", "", "ECONNRESET", Ending::unstarted, "the bus cannot be asked who it is: "},
    {"sendmsg", "", "ECONNRESET", Ending::unstarted, "the system bus is lost: "},
    {"sendmsg", "", "ECONNRESET", Ending::cutOff, "the system bus is lost: "},
    {"ppoll", "", "", Ending::whole, ""},
    {"ppoll", "", "ENOMEM", Ending::whole, ""},
    {"ppoll", "", "ENOMEM", Ending::unstarted, "no notification center: "},

    // Memory. One refusal is no reason to give up where the bus's library asks again.
    {"allocate", "", "", Ending::whole, ""},
    {"allocate", "", "", Ending::unstarted, "not enough memory"},
    {"allocate", "", "", Ending::unstarted, "annot allocate memory"},
    {"allocate", "", "", Ending::unstarted, "Bad self"},
    {"allocate", "", "", Ending::cancelled, "not enough memory"},
    {"allocate", "", "", Ending::cancelled, "Catch Exception!"},
    {"allocate", "", "", Ending::shown, "Catch Exception!"},
    {"allocate", "", "", Ending::shown, "dropped a notification"},
    {"allocate", "", "", Ending::shown, "not enough memory"},
    {"allocate", "", "", Ending::pageLost, "Catch Exception!"},
    {"allocate", "", "", Ending::pageLost, "not enough memory"},
};

bool holds(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

bool says(const FaultedJob &job, const std::string &part) {
    const auto has = [&part](const std::string &line) { return holds(line, part); };
    return std::any_of(job.log.begin(), job.log.end(), has);
}

bool fits(const char *expected, const std::string &value) {
    return *expected == '\0' || value == expected;
}

/// How closely a row fits the failure; negative where it does not.
int closeness(const FaultOutcome &outcome, const Hit &hit, const std::string &how) {
    if (!fits(outcome.call, hit.call) || !fits(outcome.target, hit.target) || !how.starts_with(outcome.how)) {
        return -1;
    }
    return 2 * static_cast<int>(std::strlen(outcome.how)) + (*outcome.target != '\0' ? 1 : 0);
}

/// How often the last line of standard error that tells of an error was repeated.
long timesShown(const FaultedJob &job) {
    return std::count_if(job.errors.begin(), job.errors.end(),
                         [](const std::string &line) { return line.starts_with("ERROR: recoverable: "); });
}

} // namespace

std::vector<std::string> generalObjectionsTo(const FaultedJob &job) {
    std::vector<std::string> objections;
    const auto object = [&objections](const std::string &objection) { objections.push_back(objection); };
    if (job.filter.timedOut) {
        object("it neither waited nor ended");
    } else if (job.filter.signal) {
        object("signal " + std::to_string(*job.filter.signal));
    }
    if (const std::string words = lastWordsIn(job.errors); !words.empty()) {
        object(words);
    }
    if (job.gaveUp) {
        object("it did not end when it was cancelled");
    }
    for (const std::string &path : job.left) {
        object("it left " + path);
    }
    // Two seconds for the port; half a minute for a backend that does not announce itself. A cancelled job
    // waits as long for a backend that is gone with the end-of-job mark and with the cancel record.
    constexpr double longestWait = 40;
    constexpr double cancelledAfter = 100;
    if (job.isTerminated ? job.secondsWaited > cancelledAfter + 2 * longestWait
                         : job.secondsWaited > longestWait) {
        object("it waited for " + std::to_string(job.secondsWaited) + " seconds");
    }
    return objections;
}

std::vector<std::string> objectionsTo(Ending ending, const FaultedJob &job, const JobKind &kind,
                                      const std::string &whole) {
    std::vector<std::string> objections;
    const auto object = [&objections](const std::string &objection) { objections.push_back(objection); };
    const bool isToSucceed = ending == Ending::whole || ending == Ending::taken ||
                             ending == Ending::pageLost || ending == Ending::unordered;
    if (job.filter.exitStatus != (isToSucceed ? 0 : 1)) {
        object("exit status");
    }
    // An error is shown until the job is cancelled, and nothing else goes on for so long.
    constexpr long oftenShown = 100;
    if (job.isTerminated && timesShown(job) < oftenShown) {
        object("it waited without showing an error");
    }
    const bool mayBeShown = ending == Ending::shown || ending == Ending::pageLost || ending == Ending::cutOff;
    if (!mayBeShown && job.isTerminated) {
        object("it waited to be cancelled");
    }
    if (ending == Ending::shown && !job.isTerminated) {
        object("it did not show the error until it was cancelled");
    }
    switch (ending) {
    case Ending::whole:
    case Ending::taken:
        if (job.printed != whole) {
            object("not all is printed");
        }
        if (kind.hasChannel && ending == Ending::whole && job.outcome != "whole") {
            object("the printer has not got a whole job");
        }
        break;
    case Ending::unstarted:
        if (!job.printed.empty()) {
            object("something is printed");
        }
        break;
    case Ending::cancelled:
    case Ending::shown: {
        const std::string &cancel = cancelRecord();
        if (!job.printed.ends_with(cancel)) {
            object("no cancel record");
        } else if (says(job, "Pages: Sending EOJ") && !says(job, "Pages: failed to send EOJ") &&
                   !job.printed.ends_with(endOfJobMark + cancel)) {
            object("no end-of-job mark in front of the cancel record");
        }
        break;
    }
    case Ending::pageLost:
        if (!kind.isTwoSided) {
            object("a page is missing");
        }
        if (job.printed.size() >= whole.size() || !job.printed.ends_with(endOfJobMark)) {
            object("not a job without a page");
        }
        break;
    case Ending::unordered:
        if (job.printed != whole &&
            (!kind.isTwoSided || kind.hasChannel || job.printed.size() != whole.size() ||
             !job.printed.ends_with(endOfJobMark))) {
            object("not all is printed");
        }
        break;
    case Ending::cutOff:
        if (!whole.starts_with(job.printed)) {
            object("the printer got something else");
        }
        break;
    }
    return objections;
}

std::vector<std::string> objectionsTo(const FaultedJob &job, const JobKind &kind, const std::string &whole,
                                      const std::string &how) {
    if (isEndedByLibrary(job, job.filter, job.errors)) {
        return {};
    }
    std::vector<std::string> objections = generalObjectionsTo(job);
    if (!objections.empty()) {
        return objections;
    }
    if (!job.hit) {
        return objectionsTo(Ending::whole, job, kind, whole);
    }
    int closest = 0;
    for (const FaultOutcome &outcome : outcomes) {
        closest = std::max(closest, closeness(outcome, *job.hit, how));
    }
    for (const FaultOutcome &outcome : outcomes) {
        if (closeness(outcome, *job.hit, how) != closest) {
            continue;
        }
        std::vector<std::string> differences = objectionsTo(outcome.ending, job, kind, whole);
        if (!says(job, outcome.says)) {
            differences.push_back(std::string("nothing says \"") + outcome.says + "\"");
        }
        if (differences.empty()) {
            return {};
        }
        objections.insert(objections.end(), differences.begin(), differences.end());
    }
    if (objections.empty()) {
        objections.emplace_back("nothing is known of such a failure");
    }
    return objections;
}

} // namespace veltrin::test
