#include "Version.h"
#include "driver/stream/StreamReader.h"
#include "platform/CommandLine.h"
#include "platform/StandardDescriptors.h"
#include "tools/dump/JsonReport.h"
#include "tools/dump/TextReport.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

// veltrin-dump: shows what is in a page stream and what is wrong with it.

namespace {

using namespace veltrin;

constexpr const char *program = "veltrin-dump";

constexpr const char *helpText = R"(Usage: veltrin-dump [OPTION]... [FILE]
Show what is in a page stream, and what is wrong with it and at which byte.
Without FILE, or when FILE is -, read standard input.

  -i, --identifier=WHEN    whether the stream begins with a job identifier:
                           detect (the default), present or absent
  -b, --bands              list every band
  -r, --resync             where the stream is broken, go on at the next header
                           that makes sense; read further streams as well
  -j, --json               write a JSON document for programs
  -h, --help               show this text and exit
  -V, --version            show the version and exit

Exit status: 0 when the stream is well-formed, 1 when it is not or input or
output failed, 2 for a mistake in the options.
)";

const std::array<option, 7> longOptions = {{
    {"identifier", required_argument, nullptr, 'i'},
    {"bands", no_argument, nullptr, 'b'},
    {"resync", no_argument, nullptr, 'r'},
    {"json", no_argument, nullptr, 'j'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
}};

constexpr std::array<std::pair<const char *, IdentifierRule>, 3> ruleNames = {{
    {"detect", IdentifierRule::detect},
    {"present", IdentifierRule::present},
    {"absent", IdentifierRule::absent},
}};

/// Feeds the whole input to the reader. Returns 0, or the error that ended the reading.
int readInput(int fd, StreamReader &reader) {
    std::vector<std::byte> block(262144);
    for (;;) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got > 0) {
            reader.feed(std::span(block).first(static_cast<std::size_t>(got)));
            // There is no point in reading on for an output that takes no more.
            if (!std::cout) {
                return 0;
            }
        } else if (got == 0) {
            return 0;
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

template <typename Report>
int dump(int fd, const std::string &inputName, IdentifierRule rule, ReaderOptions options, Report report) {
    StreamReader reader([&report](const StreamEvent &event) { report.show(event); }, rule, options);
    const int error = readInput(fd, reader);
    if (error != 0) {
        std::cout.flush();
        return reportFailure(program, inputName, error);
    }
    reader.finish();
    report.showTotals(reader.totals());
    const int status = printText(program, "");
    return status == exitFine && !reader.isWellFormed() ? exitFailure : status;
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    std::ios::sync_with_stdio(false);

    IdentifierRule rule = IdentifierRule::detect;
    ReaderOptions options = {.afterFault = AfterFault::locate, .bands = false};
    bool json = false;
    bool help = false;
    bool showVersion = false;
    int choice = 0;
    while ((choice = getopt_long(argc, argv, "i:brjhV", longOptions.data(), nullptr)) != -1) {
        switch (choice) {
        case 'i': {
            const std::string when = optarg;
            const auto *found = std::find_if(ruleNames.begin(), ruleNames.end(),
                                             [&when](const auto &entry) { return when == entry.first; });
            if (found == ruleNames.end()) {
                return refuseUsage(program, "--identifier does not take '" + when + "'");
            }
            rule = found->second;
            break;
        }
        case 'b':
            options.bands = true;
            break;
        case 'r':
            options.afterFault = AfterFault::resume;
            break;
        case 'j':
            json = true;
            break;
        case 'h':
            help = true;
            break;
        case 'V':
            showVersion = true;
            break;
        default:
            return refuseUsage(program);
        }
    }
    if (help) {
        return printText(program, helpText);
    }
    if (showVersion) {
        return printText(program, std::string(program) + " " + version + "\n");
    }
    if (argc - optind > 1) {
        return refuseUsage(program,
                           std::string("reads one stream; '") + argv[optind + 1] + "' is one too many");
    }

    const std::string file = optind < argc ? argv[optind] : "-";
    const bool fromFile = file != "-";
    const std::string inputName = fromFile ? file : "standard input";
    const int fd = fromFile ? open(file.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
    if (fd == -1) {
        return reportFailure(program, inputName, errno);
    }
    return json ? dump(fd, inputName, rule, options, JsonReport(std::cout, file))
                : dump(fd, inputName, rule, options, TextReport(std::cout));
}
