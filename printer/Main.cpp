#include "Version.h"
#include "platform/CommandLine.h"
#include "platform/StandardDescriptors.h"
#include "printer/BackendJob.h"
#include "printer/LineOutput.h"
#include "printer/OutputFile.h"
#include "printer/Pace.h"
#include "printer/PrinterRun.h"
#include "printer/ScenarioLibrary.h"
#include "printer/SheetPictures.h"
#include "printer/StatusView.h"

#include <getopt.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iostream>
#include <memory>
#include <span>
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
  -p, --sheets=DIR       write a picture of each printed side, and index.html,
                         which shows them, into the folder
  -d, --dpi=N            smaller pictures, of N dots per inch
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

/// What a job can tell of its own.
constexpr std::uint64_t largestResolution = UINT16_MAX;

const std::array<option, 11> longOptions = {{
    {"scenario", required_argument, nullptr, 's'},
    {"list-scenarios", no_argument, nullptr, 'l'},
    {"output", required_argument, nullptr, 'o'},
    {"report", required_argument, nullptr, 'r'},
    {"sheets", required_argument, nullptr, 'p'},
    {"dpi", required_argument, nullptr, 'd'},
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
    SheetPictures::Wishes sheets;
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

/// What people see of the run: on a terminal a picture that changes, else a line for each thing that happens.
class Display {
  public:
    explicit Display(std::string name) : view(std::move(name)) {}

    void tell(PrinterTime when, const std::string &line) {
        const std::string text = secondsText(when) + " " + line;
        if (!isPicture()) {
            lines.add(text);
        } else if (isForPicture(line)) {
            view.addLine(text);
        }
    }

    void show(const VirtualPrinter &printer) {
        if (isPicture()) {
            view.setJob(printer.jobText());
            terminal.draw(view, printer.printer());
        } else {
            lines.write();
        }
    }

    [[nodiscard]] bool isPicture() const { return onTerminal; }

    [[nodiscard]] bool isFine() const { return std::cout.good() && lines.error() == 0; }

    /// Says what went wrong, if something did. Returns the exit status.
    [[nodiscard]] int end() const {
        return lines.error() != 0 ? reportFailure(program, "standard output", lines.error())
                                  : printText(program, "");
    }

  private:
    bool onTerminal = isatty(STDOUT_FILENO) == 1;
    StatusView view;
    Terminal terminal;
    LineOutput lines{STDOUT_FILENO};
};

/// What is left of the run: the data that the printer received, and the report of its jobs. What is in the
/// files is another printer's until it is known that this one can start.
class Results {
  public:
    explicit Results(const Options &theOptions)
        : options(theOptions), output(options.outputFile), reportFile(options.reportFile),
          sheets(options.sheets) {}

    void start() {
        if (!std::exchange(hasStarted, true)) {
            output.drop();
            reportFile.drop();
            sheets.start();
        }
    }

    void add(std::span<const std::byte> bytes) {
        output.write(bytes);
        sheets.take(bytes);
    }

    void add(const JobReport &job) {
        jobs.push_back(job);
        sheets.endJob(job);
    }

    void note(PrinterTime now, const PrinterModel &printer) { sheets.note(now, printer); }

    [[nodiscard]] std::size_t jobCount() const { return jobs.size(); }

    [[nodiscard]] bool takesData() const { return output.error() == 0 && sheets.error() == 0; }

    [[nodiscard]] bool hasBrokenJob() const {
        return std::any_of(jobs.begin(), jobs.end(),
                           [](const JobReport &job) { return job.outcome() == JobOutcome::broken; });
    }

    void end(const PrinterModel &printer) {
        for (JobReport &job : jobs) {
            job.pagesPrinted = printer.pagesPrintedOf(job.number);
        }
        const std::string report = hasStarted ? reportDocument(options.uri, jobs) : "";
        reportFile.write(std::as_bytes(std::span(report)));
        reportFile.close();
        output.close();
        if (hasStarted) {
            sheets.end(jobs);
        }
    }

    /// Says what went wrong with the files, if something did. Returns whether all is well.
    [[nodiscard]] bool areFilesFine() const {
        return isFine(output.error(), options.outputFile) && isFine(reportFile.error(), options.reportFile) &&
               isFine(sheets.error(), sheets.failedFile());
    }

  private:
    static bool isFine(int error, const std::string &path) {
        return error == 0 || reportFailure(program, path, error) == exitFine;
    }

    const Options &options;
    OutputFile output;
    OutputFile reportFile;
    SheetPictures sheets;
    bool hasStarted = false;
    std::vector<JobReport> jobs;
};

/// Serves the printer until it is to end. Returns whether there was a channel to serve; says it if not.
bool serve(const Options &options, Scenario scenario, Display &display, Results &results) {
    PrinterListener listener;
    listener.told = [&](PrinterTime when, const std::string &line) { display.tell(when, line); };
    listener.dataArrived = [&](std::span<const std::byte> bytes) { results.add(bytes); };
    listener.jobEnded = [&](const JobReport &report) { results.add(report); };

    Pace pace;
    const auto goOn = [&](const VirtualPrinter &printer, PrinterTime now) {
        results.start();
        results.note(now, printer.printer());
        if (pace.isDue(now)) {
            display.show(printer);
        }
        const bool isDone = options.jobs != 0 && results.jobCount() >= options.jobs && printer.isAtRest();
        return !endWanted() && results.takesData() && display.isFine() && !isDone;
    };

    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    PrinterRun run(*platform, {.uri = options.uri,
                               .scenario = std::move(scenario),
                               .listener = listener,
                               .stays = options.stays,
                               .goOn = goOn});
    std::string problem;
    const bool served = run.run(problem);
    if (served || !display.isPicture() || results.jobCount() != 0) {
        display.show(run.virtualPrinter());
    }
    if (!served) {
        std::cerr << program << ": " << problem << '\n';
    }
    results.end(run.virtualPrinter().printer());
    return served;
}

int servePrinter(const Options &options, Scenario scenario) {
    Results results(options);
    if (!results.areFilesFine()) {
        return exitFailure;
    }
    Display display(options.uri + (scenario.description.empty() ? "" : ": " + scenario.description));
    catchEndSignals();
    const bool served = serve(options, std::move(scenario), display, results);
    const bool areFilesFine = results.areFilesFine();
    const int status = display.end();
    return status == exitFine && (!served || !areFilesFine || results.hasBrokenJob()) ? exitFailure : status;
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
    while ((choice = getopt_long(argc, argv, "s:lo:r:p:d:j:khV", longOptions.data(), nullptr)) != -1) {
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
        case 'p':
            options.sheets.folder = optarg;
            break;
        case 'd': {
            const auto number = parseNumber(optarg, largestResolution);
            if (!number || *number == 0) {
                return refuseUsage(program, std::string("--dpi does not take '") + optarg + "'");
            }
            options.sheets.dotsPerInch = static_cast<std::uint32_t>(*number);
            break;
        }
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
    if (options.sheets.dotsPerInch && options.sheets.folder.empty()) {
        return refuseUsage(program, "--dpi is for --sheets");
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
