#include "printer/PrinterOptions.h"

#include "platform/CommandLine.h"

#include <getopt.h>

#include <array>

namespace veltrin::printer {

const char *const printerHelp = R"(Usage: veltrin-printer [OPTION]... URI
       veltrin-printer [OPTION]... --listen=[ADDRESS:]PORT
       veltrin-printer --list-scenarios
Be the printer, and the backend, of the CUPS queue with the device URI; or be a
printer on a network, which takes jobs at a TCP port.
Show what happens: on a terminal as a picture that changes, else line by line.

  -t, --listen=[ADDRESS:]PORT
                         take jobs at this port of this machine; with 0 as PORT
                         at one that is free. Without ADDRESS only programs of
                         this machine come in; 0.0.0.0 or [::] is for everybody
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

namespace {

/// What a job can tell of its own.
constexpr std::uint64_t largestResolution = UINT16_MAX;

constexpr std::array<option, 12> longOptions = {{
    {"listen", required_argument, nullptr, 't'},
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

/// Takes the value that has been read for the option `name`; without one `text` is none for it.
template <typename Target, typename Value>
bool take(Target &target, const std::optional<Value> &value, const char *name, const std::string &text,
          std::string &problem) {
    if (!value) {
        problem = std::string("--") + name + " does not take '" + text + "'";
        return false;
    }
    target = static_cast<Target>(*value);
    return true;
}

std::optional<std::uint64_t> above0(const std::string &text, std::uint64_t largest) {
    const auto number = parseNumber(text, largest);
    return number != 0U ? number : std::nullopt;
}

/// Takes one option. Returns false for a mistake.
bool takeOption(int choice, const std::string &value, PrinterOptions &options, std::string &problem) {
    switch (choice) {
    case 't':
        return take(options.listen, parseListenAddress(value), "listen", value, problem);
    case 's':
        options.scenario = value;
        return true;
    case 'l':
        options.task = PrinterOptions::Task::listScenarios;
        return true;
    case 'o':
        options.outputFile = value;
        return true;
    case 'r':
        options.reportFile = value;
        return true;
    case 'p':
        options.sheets.folder = value;
        return true;
    case 'd':
        return take(options.sheets.dotsPerInch, above0(value, largestResolution), "dpi", value, problem);
    case 'j':
        return take(options.jobs, above0(value, UINT64_MAX), "jobs", value, problem);
    case 'k':
        options.stays = true;
        return true;
    case 'h':
        options.task = PrinterOptions::Task::help;
        return true;
    case 'V':
        options.task = PrinterOptions::Task::version;
        return true;
    default:
        return false;
    }
}

/// What does not go together; empty where everything does.
std::string contradictionIn(const PrinterOptions &options, int uris) {
    if (options.sheets.dotsPerInch && options.sheets.folder.empty()) {
        return "--dpi is for --sheets";
    }
    if (options.listen && uris != 0) {
        return "wants a device URI or --listen, not both";
    }
    if (options.listen && options.stays) {
        return "--stay is for a device URI";
    }
    if (!options.listen && (uris != 1 || options.uri.empty())) {
        return "wants one device URI, or --listen";
    }
    return "";
}

} // namespace

std::optional<PrinterOptions> parsePrinterOptions(int argc, char *const *argv, std::string &problem) {
    problem.clear();
    PrinterOptions options;
    optind = 0; // from the first one on, also the second time
    int choice = 0;
    while ((choice = getopt_long(argc, argv, "t:s:lo:r:p:d:j:khV", longOptions.data(), nullptr)) != -1) {
        if (!takeOption(choice, optarg != nullptr ? optarg : "", options, problem)) {
            return std::nullopt;
        }
        if (options.task != PrinterOptions::Task::serve) {
            return options;
        }
    }
    if (optind < argc) {
        options.uri = argv[optind];
    }
    problem = contradictionIn(options, argc - optind);
    return problem.empty() ? std::optional(options) : std::nullopt;
}

} // namespace veltrin::printer
