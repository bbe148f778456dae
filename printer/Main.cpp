#include "Version.h"
#include "platform/CommandLine.h"
#include "platform/StandardDescriptors.h"
#include "printer/BackendJob.h"
#include "printer/LineOutput.h"
#include "printer/OutputFile.h"
#include "printer/Pace.h"
#include "printer/PrinterRun.h"
#include "printer/ScenarioLibrary.h"
#include "printer/StatusView.h"

#include <getopt.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

// veltrin-printer: a printer and its backend in one, at the other end of the filter's channel.

namespace {

using namespace veltrin;
using namespace veltrin::printer;

constexpr const char *program = "veltrin-printer";

constexpr const char *helpText = R"(Usage: veltrin-printer [OPTION]... URI
       veltrin-printer --list-scenarios
Be the printer, and the backend, of the CUPS queue with the device URI.
Show what happens: on a terminal as a picture that changes, else line by line.

  -s, --scenario=NAME    what the printer is and what happens to it: the name
                         of an installed scenario, or a file (JSON)
  -l, --list-scenarios   list the installed scenarios and exit
  -o, --output=FILE      keep the data that the printer receives
  -r, --report=FILE      write a JSON report of the jobs at the end
  -j, --jobs=N           end after N jobs, once they are printed as far as they
                         can be (without: on SIGTERM or SIGINT)
  -k, --stay             wait for the message bus when it is lost
  -h, --help             show this text and exit
  -V, --version          show the version and exit

Without any argument, or with those of a CUPS backend (job id, user, title,
copies, options and perhaps a file), it acts as such a backend.

Exit status: 0, 1 when a job was broken or input or output failed, 2 for a
mistake in the options.
)";

const std::array<option, 9> longOptions = {{
    {"scenario", required_argument, nullptr, 's'},
    {"list-scenarios", no_argument, nullptr, 'l'},
    {"output", required_argument, nullptr, 'o'},
    {"report", required_argument, nullptr, 'r'},
    {"jobs", required_argument, nullptr, 'j'},
    {"stay", no_argument, nullptr, 'k'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
}};

struct Options {
    std::string uri;
    std::string scenario;
    std::string outputFile;
    std::string reportFile;
    std::uint64_t jobs = 0; ///< 0: no limit
    bool stays = false;
};

/// Draws the view over the one before, from where the cursor was at first.
class Terminal {
  public:
    void draw(const StatusView &view, const PrinterModel &printer) {
        winsize size{};
        const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
        std::string picture;
        // The cursor stands in a line of its own below the picture.
        const auto lines = view.lines(printer, (known && size.ws_col > 1 ? size.ws_col : 80U) - 1U,
                                      (known && size.ws_row > 1 ? size.ws_row : 25U) - 1U);
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

/// What is worth a place in the picture: blocks come by the hundred, and their sum stands above.
bool isForPicture(const std::string &line) {
    return !line.starts_with("< writePipe");
}

/// Says what went wrong with a file, if something did. Returns whether all is well.
bool isFine(const OutputFile &file, const std::string &path) {
    return file.error() == 0 || reportFailure(program, path, file.error()) == exitFine;
}

int servePrinter(const Options &options, Scenario scenario) {
    // What is in the files is another printer's until it is known that this one can start.
    OutputFile output(options.outputFile);
    OutputFile reportFile(options.reportFile);
    bool hasStarted = false;
    if (!isFine(output, options.outputFile) || !isFine(reportFile, options.reportFile)) {
        return exitFailure;
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
        if (!onTerminal) {
            lines.add(text);
        } else if (isForPicture(line)) {
            view.addLine(text);
        }
    };
    listener.dataArrived = [&output](std::span<const std::byte> bytes) { output.write(bytes); };
    listener.jobEnded = [&jobs](const JobReport &report) { jobs.push_back(report); };
    const auto show = [&](const VirtualPrinter &printer) {
        if (onTerminal) {
            view.setJob(printer.jobText());
            terminal.draw(view, printer.printer());
        } else {
            lines.write();
        }
    };
    const auto goOn = [&](const VirtualPrinter &printer, PrinterTime now) {
        if (!std::exchange(hasStarted, true)) {
            output.drop();
            reportFile.drop();
        }
        if (pace.isDue(now)) {
            show(printer);
        }
        const bool isDone = options.jobs != 0 && jobs.size() >= options.jobs && printer.isAtRest();
        return !endWanted() && output.error() == 0 && std::cout.good() && lines.error() == 0 && !isDone;
    };

    catchEndSignals();
    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    PrinterRun run(*platform, {.uri = options.uri,
                               .scenario = std::move(scenario),
                               .listener = listener,
                               .stays = options.stays,
                               .goOn = goOn});
    std::string problem;
    const bool served = run.run(problem);
    if (served || !onTerminal || !jobs.empty()) {
        show(run.virtualPrinter());
    }
    if (!served) {
        std::cerr << program << ": " << problem << '\n';
    }

    for (JobReport &job : jobs) {
        job.pagesPrinted = run.virtualPrinter().printer().pagesPrintedOf(job.number);
    }
    const std::string report = hasStarted ? reportDocument(options.uri, jobs) : "";
    reportFile.write(std::as_bytes(std::span(report)));
    reportFile.close();
    output.close();
    const bool areFilesFine = isFine(output, options.outputFile) && isFine(reportFile, options.reportFile);
    if (lines.error() != 0) {
        return reportFailure(program, "standard output", lines.error());
    }
    const bool broken = std::any_of(jobs.begin(), jobs.end(),
                                    [](const JobReport &job) { return job.outcome() == JobOutcome::broken; });
    const int status = printText(program, "");
    return status == exitFine && (!served || !areFilesFine || broken) ? exitFailure : status;
}

int listScenarios() {
    std::string text;
    for (const ListedScenario &scenario : listedScenarios()) {
        text += scenario.name + std::string(scenario.name.size() < 20 ? 20 - scenario.name.size() : 0, ' ') +
                "  " + scenario.description + "\n";
    }
    return printText(program, text);
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
    while ((choice = getopt_long(argc, argv, "s:lo:r:j:khV", longOptions.data(), nullptr)) != -1) {
        switch (choice) {
        case 's':
            options.scenario = optarg;
            break;
        case 'l':
            return listScenarios();
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
        case 'k':
            options.stays = true;
            break;
        case 'h':
            return printText(program, helpText);
        case 'V':
            return printText(program, std::string(program) + " " + version + "\n");
        default:
            return refuseUsage(program);
        }
    }
    if (argc - optind != 1 || *argv[optind] == '\0') {
        return refuseUsage(program, "wants one device URI");
    }
    options.uri = argv[optind];

    Scenario scenario;
    if (!options.scenario.empty()) {
        std::string problem;
        auto loaded = loadScenario(options.scenario, problem);
        if (!loaded) {
            std::cerr << program << ": " << problem << '\n';
            return exitFailure;
        }
        scenario = std::move(*loaded);
    }
    return servePrinter(options, std::move(scenario));
}
