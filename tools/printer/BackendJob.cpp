#include "tools/printer/BackendJob.h"

#include "status/MediaNames.h"
#include "tools/printer/LineOutput.h"
#include "tools/printer/Pace.h"
#include "tools/printer/PrinterRun.h"

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

namespace veltrin {

namespace {

using namespace std::chrono_literals;

/// The exit statuses that CUPS knows and that are of use here.
constexpr int backendOk = 0;
constexpr int backendFailed = 1;

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

const KnownPrinter &printerAt(std::string_view uri) {
    const auto *found = std::find_if(std::begin(knownPrinters), std::end(knownPrinters),
                                     [uri](const KnownPrinter &known) { return uri == known.uri; });
    return found == std::end(knownPrinters) ? knownPrinters[0] : *found;
}

std::optional<unsigned> numberIn(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// Reads what is there, without waiting. Returns whether there may be more to come.
template <typename Take>
bool readAvailable(int fd, Take take) {
    static std::array<std::byte, 65'536> block;
    pollfd source{fd, POLLIN, 0};
    while (poll(&source, 1, 0) > 0) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got > 0) {
            take(std::span(block).first(static_cast<std::size_t>(got)));
        } else if (got == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

class BackendJob {
  public:
    BackendJob(std::string deviceUri, platform::Platform &channelPlatform)
        : uri(std::move(deviceUri)), platform(channelPlatform) {}

    /// The job of a filter, by the channel; what comes on standard input instead is the printer's, too.
    int runFromFilter() {
        PrinterListener listening = listener();
        listening.told = [this](PrinterTime when, const std::string &line) {
            lastHeard = when;
            messages.add("DEBUG: " + line);
        };
        PrinterRun run(platform,
                       {uri, scenario(), listening,
                        [this](VirtualPrinter &printer, PrinterTime now) { return goOn(printer, now); }});
        std::string problem;
        if (!run.run(problem)) {
            messages.add("ERROR: " + problem);
            return backendFailed;
        }
        return exitStatus();
    }

    /// A file that no filter has handled, as often as copies are wanted.
    int runFromFile(const char *path, unsigned copies) {
        VirtualPrinter printer(scenario(), listener());
        for (unsigned copy = 0; copy < copies && !endWanted(); ++copy) {
            const int fd = open(path, O_RDONLY | O_CLOEXEC);
            if (fd == -1) {
                messages.add(std::string("ERROR: ") + path + ": " + std::strerror(errno));
                return backendFailed;
            }
            static_cast<void>(readAvailable(
                fd, [&printer](std::span<const std::byte> bytes) { printer.takeData(bytes, 0us); }));
            close(fd);
            printer.endJob();
        }
        return exitStatus();
    }

  private:
    [[nodiscard]] Scenario scenario() const {
        Scenario plain;
        plain.printer.model = printerAt(uri).model;
        plain.printer.duplexUnit = printerAt(uri).duplexUnit;
        return plain;
    }

    PrinterListener listener() {
        PrinterListener listening;
        listening.jobEnded = [this](const JobReport &report) {
            ended = true;
            allWhole = allWhole && report.outcome() != JobOutcome::broken;
            messages.add((report.outcome() == JobOutcome::broken ? "ERROR: " : "DEBUG: ") +
                         summaryOf(report));
            messages.write();
        };
        return listening;
    }

    bool goOn(VirtualPrinter &printer, PrinterTime now) {
        const bool isDue = pace.isDue(now);
        if (isDue) {
            messages.write();
        }
        if (ended) {
            return false;
        }
        if (sourceOpen && isDue) {
            sourceOpen = readAvailable(STDIN_FILENO, [this, &printer, now](std::span<const std::byte> bytes) {
                lastHeard = now;
                printer.takeData(bytes, now);
            });
        }
        if (endWanted() && !cancelled) {
            cancelled = now;
        }
        const bool lateAfterCancel = cancelled && now - *cancelled > cancelLimit;
        const bool silent = !sourceOpen && now - lastHeard > silenceLimit;
        return !lateAfterCancel && !silent;
    }

    [[nodiscard]] int exitStatus() const {
        return (ended && allWhole) || cancelled || endWanted() ? backendOk : backendFailed;
    }

    std::string uri;
    platform::Platform &platform;
    LineOutput messages{STDERR_FILENO};
    Pace pace;
    bool sourceOpen = true;
    PrinterTime lastHeard{};
    std::optional<PrinterTime> cancelled;
    bool ended = false;
    bool allWhole = true;
};

} // namespace

BackendRole backendRole(int argc, const char *const *argv) {
    if (argc == 1) {
        return BackendRole::discovery;
    }
    return (argc == 6 || argc == 7) && numberIn(argv[1]) ? BackendRole::job : BackendRole::none;
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
    const char *uri = std::getenv("DEVICE_URI");
    BackendJob job(uri != nullptr ? uri : argv[0], platform);
    if (argc == 6) {
        return job.runFromFilter();
    }
    const auto copies = numberIn(argv[4]);
    if (!copies || *copies == 0) {
        std::cerr << "ERROR: the number of copies is \"" << argv[4] << "\"\n";
        return backendFailed;
    }
    return job.runFromFile(argv[6], *copies);
}

} // namespace veltrin
