#include "Version.h"
#include "platform/StandardDescriptors.h"
#include "tools/CommandLine.h"
#include "tools/printer/BackendJob.h"
#include "tools/printer/LineOutput.h"
#include "tools/printer/Pace.h"
#include "tools/printer/PrinterRun.h"
#include "tools/printer/StatusView.h"

#include <fcntl.h>
#include <getopt.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// veltrin-printer: a printer and its backend in one, at the other end of the filter's channel.

namespace {

using namespace veltrin;

constexpr const char *program = "veltrin-printer";

constexpr const char *helpText = R"(Usage: veltrin-printer [OPTION]... URI
Be the printer, and the backend, of the CUPS queue with the device URI.
Show what happens: on a terminal as a picture that changes, else line by line.

  -s, --scenario=FILE    what the printer is and what happens to it (JSON)
  -o, --output=FILE      keep the data that the printer receives
  -r, --report=FILE      write a JSON report of the jobs at the end
  -j, --jobs=N           end after N jobs (without: on SIGTERM or SIGINT)
  -h, --help             show this text and exit
  -V, --version          show the version and exit

Without any argument, or with those of a CUPS backend (job id, user, title,
copies, options and perhaps a file), it acts as such a backend.

Exit status: 0, 1 when a job was broken or input or output failed, 2 for a
mistake in the options.
)";

const std::array<option, 7> longOptions = {{
    {"scenario", required_argument, nullptr, 's'},
    {"output", required_argument, nullptr, 'o'},
    {"report", required_argument, nullptr, 'r'},
    {"jobs", required_argument, nullptr, 'j'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
}};

struct Options {
    std::string uri;
    std::string scenarioFile;
    std::string outputFile;
    std::string reportFile;
    std::uint64_t jobs = 0; ///< 0: no limit
};

/// The whole file; nothing, with `errno` set, where it cannot be read.
std::optional<std::string> contentsOf(const std::string &path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    if (file) {
        contents << file.rdbuf();
    }
    return file && !file.bad() && errno == 0 ? std::optional(contents.str()) : std::nullopt;
}

/// A file that is written piece by piece; the first failure is kept.
class OutputFile {
  public:
    /// Without a name there is nothing to write.
    explicit OutputFile(const std::string &path) {
        if (!path.empty()) {
            fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
            failure = fd == -1 ? errno : 0;
        }
    }

    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    ~OutputFile() { close(); }

    void write(std::span<const std::byte> bytes) {
        while (fd != -1 && failure == 0 && !bytes.empty()) {
            const ssize_t written = ::write(fd, bytes.data(), bytes.size());
            if (written >= 0) {
                bytes = bytes.subspan(static_cast<std::size_t>(written));
            } else if (errno != EINTR) {
                failure = errno;
            }
        }
    }

    void close() {
        if (fd != -1 && ::close(std::exchange(fd, -1)) != 0 && failure == 0) {
            failure = errno;
        }
    }

    /// The system's number of what went wrong, or 0.
    [[nodiscard]] int error() const { return failure; }

  private:
    int fd = -1;
    int failure = 0;
};

/// Draws the view over the one before, from where the cursor was at first.
class Terminal {
  public:
    void draw(const StatusView &view, const PrinterModel &printer) {
        winsize size{};
        const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
        std::string picture;
        const auto lines = view.lines(printer, known ? size.ws_col - 1U : 79U);
        for (const std::string &line : lines) {
            picture += line + "\n";
        }
        if (picture != drawn) {
            if (height > 0) {
                std::cout << "\x1b[" << height << "A\x1b[J"; // up to the picture's first line, and clear
            }
            std::cout << picture << std::flush;
            drawn = picture;
            height = lines.size();
        }
    }

  private:
    std::string drawn;
    std::size_t height = 0;
};

int servePrinter(const Options &options, Scenario scenario) {
    OutputFile output(options.outputFile);
    if (output.error() != 0) {
        return reportFailure(program, options.outputFile, output.error());
    }
    const bool onTerminal = isatty(STDOUT_FILENO) == 1;
    StatusView view(options.uri + (scenario.description.empty() ? "" : ": " + scenario.description));
    Terminal terminal;
    LineOutput lines(STDOUT_FILENO);
    Pace pace;
    std::vector<JobReport> jobs;

    PrinterListener listener;
    listener.told = [&view, &lines, onTerminal](PrinterTime when, const std::string &line) {
        const std::string text = secondsText(when) + " " + line;
        if (onTerminal) {
            view.addLine(text);
        } else {
            lines.add(text);
        }
    };
    listener.dataArrived = [&output](std::span<const std::byte> bytes) { output.write(bytes); };
    listener.jobEnded = [&jobs](const JobReport &report) { jobs.push_back(report); };
    const auto show = [&](const PrinterModel &printer) {
        if (onTerminal) {
            terminal.draw(view, printer);
        } else {
            lines.write();
        }
    };
    const auto goOn = [&](const VirtualPrinter &printer, PrinterTime now) {
        if (pace.isDue(now)) {
            show(printer.printer());
        }
        return !endWanted() && output.error() == 0 && std::cout.good() && lines.error() == 0 &&
               (options.jobs == 0 || jobs.size() < options.jobs);
    };

    catchEndSignals();
    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    PrinterRun run(*platform, {options.uri, std::move(scenario), listener, goOn});
    std::string problem;
    const bool served = run.run(problem);
    if (served || !onTerminal) {
        show(run.model());
    }
    if (!served) {
        std::cerr << program << ": " << problem << '\n';
        return exitFailure;
    }

    output.close();
    if (output.error() != 0) {
        return reportFailure(program, options.outputFile, output.error());
    }
    OutputFile reportFile(options.reportFile);
    const std::string report = reportDocument(options.uri, jobs);
    reportFile.write(std::as_bytes(std::span(report)));
    reportFile.close();
    if (reportFile.error() != 0) {
        return reportFailure(program, options.reportFile, reportFile.error());
    }
    if (lines.error() != 0) {
        return reportFailure(program, "standard output", lines.error());
    }
    const int status = printText(program, "");
    const bool broken = std::any_of(jobs.begin(), jobs.end(),
                                    [](const JobReport &job) { return job.outcome() == JobOutcome::broken; });
    return status == exitFine && broken ? exitFailure : status;
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    switch (backendRole(argc, argv)) {
    case BackendRole::discovery:
        return printText(program, discoveryLines());
    case BackendRole::job: {
        catchEndSignals();
        const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
        return runBackendJob(argc, argv, *platform);
    }
    case BackendRole::none:
        break;
    }

    Options options;
    int choice = 0;
    while ((choice = getopt_long(argc, argv, "s:o:r:j:hV", longOptions.data(), nullptr)) != -1) {
        switch (choice) {
        case 's':
            options.scenarioFile = optarg;
            break;
        case 'o':
            options.outputFile = optarg;
            break;
        case 'r':
            options.reportFile = optarg;
            break;
        case 'j': {
            const auto jobs = parseNumber(optarg, UINT64_MAX);
            if (!jobs || *jobs == 0) {
                return refuseUsage(program, std::string("--jobs does not take '") + optarg + "'");
            }
            options.jobs = *jobs;
            break;
        }
        case 'h':
            return printText(program, helpText);
        case 'V':
            return printText(program, std::string(program) + " " + version + "\n");
        default:
            return refuseUsage(program);
        }
    }
    if (argc - optind != 1) {
        return refuseUsage(program, "wants one device URI");
    }
    options.uri = argv[optind];

    Scenario scenario;
    if (!options.scenarioFile.empty()) {
        const auto text = contentsOf(options.scenarioFile);
        if (!text) {
            return reportFailure(program, options.scenarioFile, errno);
        }
        std::string problem;
        auto parsed = parseScenario(*text, problem);
        if (!parsed) {
            std::cerr << program << ": " << options.scenarioFile << ": " << problem << '\n';
            return exitFailure;
        }
        scenario = std::move(*parsed);
    }
    return servePrinter(options, std::move(scenario));
}
