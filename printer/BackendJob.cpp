#include "printer/BackendJob.h"

#include "platform/EndSignals.h"
#include "platform/LineOutput.h"
#include "platform/SchedulerJob.h"
#include "platform/StandardDescriptors.h"
#include "printer/ChannelPlug.h"
#include "printer/OutputFile.h"
#include "printer/Pace.h"
#include "printer/PrinterRun.h"
#include "printer/PrinterUri.h"
#include "printer/ScenarioLibrary.h"
#include "status/MediaNames.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string_view>
#include <vector>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

/// How long the channel may be silent once the filter's output has ended: the filter is gone by then, and its
/// goodbye is on the way or will never come.
constexpr PrinterTime silenceLimit = 2s;

/// How long the job may go on after it has been cancelled. CUPS kills after 30 seconds.
constexpr PrinterTime cancelLimit = 20s;

struct KnownPrinter {
    const char *uri;
    const char *deviceId;
    std::uint8_t model;
    bool duplexUnit;
};

constexpr KnownPrinter knownPrinters[] = {
    {"veltrin-printer:/lx-410n", "MFG:Morvex;MDL:LX 410N;CLS:PRINTER;", 0, false},
    {"veltrin-printer:/lx-520n", "MFG:Morvex;MDL:LX 520N;CLS:PRINTER;", 2, true},
};

/// The printer that a URI stands for, where its own scenario does not say what printer it is.
Scenario scenarioOf(std::string_view printer) {
    const auto *found = std::find_if(std::begin(knownPrinters), std::end(knownPrinters),
                                     [printer](const KnownPrinter &known) { return printer == known.uri; });
    const KnownPrinter &known = found == std::end(knownPrinters) ? knownPrinters[0] : *found;
    Scenario plain;
    plain.printer.model = known.model;
    plain.printer.duplexUnit = known.duplexUnit;
    return plain;
}

std::optional<unsigned> numberIn(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// Reads what is there, without waiting. Returns whether there may be more to come; where there may
/// not, `error` is 0 at the end, else the system's number of what went wrong.
template <typename Take>
bool readAvailable(int fd, int &error, Take take) {
    static std::array<std::byte, 65'536> block;
    pollfd source{fd, POLLIN, 0};
    while (poll(&source, 1, 0) > 0) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got > 0) {
            take(std::span(block).first(static_cast<std::size_t>(got)));
        } else if (got == 0 || errno != EINTR) {
            error = got == 0 ? 0 : errno;
            return false;
        }
    }
    return true;
}

class BackendJob {
  public:
    BackendJob(std::string theUri, const PrinterUri &files, Scenario theScenario,
               platform::Platform &thePlatform)
        : uri(std::move(theUri)), scenario(std::move(theScenario)), platform(thePlatform),
          outputName(files.outputFile), reportName(files.reportFile) {}

    /// The job of a filter, by the channel; what comes on standard input instead is the printer's, too.
    int runFromFilter() {
        if (!areFilesFine()) {
            return platform::backendFailed;
        }
        PrinterListener listening = listener();
        listening.told = [this](PrinterTime when, const std::string &line) {
            lastHeard = when;
            messages.add("DEBUG: " + line);
        };
        const PrinterClock clock;
        VirtualPrinter printer(scenario, listening);
        ChannelPlug plug(platform, printer, clock,
                         {.uri = uri,
                          .waitsForOther = [this] { return waitForOther(); },
                          // Two queues with one device URI: the other's filter has a backend of
                          // its own to wait for, which would find nothing to print.
                          .objectionTo = platform::objectionToPeer});
        std::string problem;
        const bool served = runPrinter(
            printer, plug, clock, [this](VirtualPrinter &ours, PrinterTime now) { return goOn(ours, now); },
            problem);
        const bool reported = !isPrinterOurs || writeReport(printer.printer());
        if (endWanted() && !served) {
            return platform::backendOk;
        }
        // The filter may also have given up just as the printer became free.
        if (isWaiting || (hasWaited && jobs.empty() && !endWanted())) {
            // A retry after a pause would be one of a few: the scheduler then aborts the job.
            messages.add("INFO: Still waiting for another job to leave the printer.");
            return platform::backendRetryCurrent;
        }
        if (served) {
            return reported ? exitStatus() : platform::backendFailed;
        }
        messages.add("ERROR: " + problem);
        return platform::backendFailed;
    }

    /// A file that no filter has handled, as often as copies are wanted.
    int runFromFile(const char *path, unsigned copies) {
        if (!areFilesFine()) {
            return platform::backendFailed;
        }
        takePrinter();
        VirtualPrinter printer(scenario, listener());
        for (unsigned copy = 0; copy < copies && !endWanted(); ++copy) {
            const int fd = open(path, O_RDONLY | O_CLOEXEC);
            if (fd == -1) {
                messages.add(std::string("ERROR: ") + path + ": " + std::strerror(errno));
                return platform::backendFailed;
            }
            int error = 0;
            static_cast<void>(readAvailable(
                fd, error, [&printer](std::span<const std::byte> bytes) { printer.takeData(bytes, 0us); }));
            close(fd);
            printer.endJob();
            if (error != 0) {
                messages.add(std::string("ERROR: ") + path + ": " + std::strerror(error));
                return platform::backendFailed;
            }
        }
        // Nobody waits for this printer, so its time passes at once.
        while (!printer.isAtRest() && printer.nextDue()) {
            printer.advance(*printer.nextDue());
        }
        return writeReport(printer.printer()) ? exitStatus() : platform::backendFailed;
    }

  private:
    [[nodiscard]] bool areFilesFine() { return isFine(output, outputName) && isFine(reportFile, reportName); }

    /// Says what went wrong with a file, if something did. Returns whether all is well.
    bool isFine(const OutputFile &file, const std::string &name) {
        if (file.error() != 0) {
            messages.add("ERROR: " + name + ": " + std::strerror(file.error()));
        }
        return file.error() == 0;
    }

    PrinterListener listener() {
        PrinterListener listening;
        listening.dataArrived = [this](std::span<const std::byte> bytes) { output.write(bytes); };
        listening.jobEnded = [this](const JobReport &report) {
            jobs.push_back(report);
            allWhole = allWhole && report.outcome() != JobOutcome::broken;
            messages.add((report.outcome() == JobOutcome::broken ? "ERROR: " : "DEBUG: ") +
                         summaryOf(report));
            messages.write();
        };
        return listening;
    }

    /// Two queues with one device URI: the printer is the other one's until its job is done. Whoever waits
    /// for this job is told, and the wait ends when its filter has given up.
    bool waitForOther() {
        if (!isWaiting) {
            isWaiting = hasWaited = true;
            messages.add("INFO: Waiting for another job to leave the printer.");
            messages.write();
        }
        return !endWanted() && !platform::isAtEnd(STDIN_FILENO);
    }

    /// From now on the files are this job's. Another one that has the same may have written them until now.
    void takePrinter() {
        isPrinterOurs = true;
        output.drop();
        reportFile.drop();
    }

    bool goOn(VirtualPrinter &printer, PrinterTime now) {
        const bool isDue = pace.isDue(now);
        if (!isPrinterOurs) {
            takePrinter();
        }
        if (isWaiting) {
            isWaiting = false;
            messages.add("INFO: Printing.");
        }
        if (isDue) {
            messages.write();
        }
        if (sourceOpen && isDue) {
            int error = 0; // of no interest: what there was has come
            sourceOpen =
                readAvailable(STDIN_FILENO, error, [this, &printer, now](std::span<const std::byte> bytes) {
                    lastHeard = now;
                    printer.takeData(bytes, now);
                });
        }
        if (endWanted() && !cancelled) {
            cancelled = now;
        }
        // The documents of a job come one after another, each by a filter of its own, until the source ends.
        const bool isDone = (!sourceOpen || cancelled) && !jobs.empty() && !printer.inJob();
        const bool isLateAfterCancel = cancelled && now - *cancelled > cancelLimit;
        const bool isSilent = !sourceOpen && now - lastHeard > silenceLimit;
        return !isDone && !isLateAfterCancel && !isSilent && output.error() == 0;
    }

    bool writeReport(const PrinterModel &printer) {
        for (JobReport &job : jobs) {
            job.pagesPrinted = printer.pagesPrintedOf(job.number);
        }
        const std::string report = reportDocument(uri, jobs);
        reportFile.write(std::as_bytes(std::span(report)));
        reportFile.close();
        output.close();
        return areFilesFine();
    }

    [[nodiscard]] int exitStatus() {
        if (jobs.empty() && !cancelled && !endWanted()) {
            messages.add("ERROR: Nothing has come to be printed.");
        }
        return (!jobs.empty() && allWhole) || cancelled || endWanted() ? platform::backendOk
                                                                       : platform::backendFailed;
    }

    std::string uri;
    Scenario scenario;
    platform::Platform &platform;
    std::string outputName;
    std::string reportName;
    // The scheduler may run this as root, and others may put links into folders for all.
    OutputFile output{outputName, OutputFile::Links::refused};
    OutputFile reportFile{reportName, OutputFile::Links::refused};
    LineOutput messages{STDERR_FILENO};
    Pace pace;
    bool sourceOpen = true;
    PrinterTime lastHeard{};
    std::optional<PrinterTime> cancelled;
    bool isWaiting = false; ///< until another backend has left the printer
    bool hasWaited = false; ///< for that
    bool isPrinterOurs = false;
    std::vector<JobReport> jobs;
    bool allWhole = true;
};

} // namespace

BackendRole backendRole(int argc, const char *const *argv) {
    if (argc == 1) {
        return BackendRole::discovery;
    }
    const std::vector<std::string_view> arguments(argv, argv + argc);
    return platform::schedulerJob(arguments) ? BackendRole::job : BackendRole::none;
}

std::string discoveryLines() {
    std::string lines;
    for (const KnownPrinter &known : knownPrinters) {
        const std::string model(modelDescription(known.model).english);
        lines.append("direct ").append(known.uri);
        lines.append(" \"").append(model).append("\" \"Virtual ").append(model);
        lines.append("\" \"").append(known.deviceId).append("\" \"\"\n");
    }
    return lines;
}

int runBackendJob(int argc, const char *const *argv, platform::Platform &platform) {
    const char *variable = std::getenv("DEVICE_URI");
    const std::string uri = variable != nullptr && *variable != '\0' ? variable : argv[0];
    std::string problem;
    const auto parsed = parsePrinterUri(uri, problem);
    std::optional<Scenario> scenario;
    if (parsed) {
        scenario = scenarioOf(parsed->printer);
        if (!parsed->scenario.empty()) {
            scenario = loadScenario(parsed->scenario, problem, scenario->printer);
        }
    }
    const auto copies = argc == 7 ? numberIn(argv[4]) : std::optional(1U);
    if (!copies || *copies == 0) {
        problem = std::string("the number of copies is \"") + argv[4] + "\"";
    }
    if (!problem.empty()) {
        std::cerr << "ERROR: " + problem + "\n";
        return platform::backendFailed;
    }
    BackendJob job(uri, *parsed, std::move(*scenario), platform);
    return argc == 7 ? job.runFromFile(argv[6], *copies) : job.runFromFilter();
}

} // namespace veltrin::printer
