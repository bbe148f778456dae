#include "Version.h"
#include "driver/stream/StreamReader.h"
#include "platform/CommandLine.h"
#include "platform/StandardDescriptors.h"
#include "tools/dump/JsonReport.h"
#include "tools/dump/PagePictures.h"
#include "tools/dump/TextReport.h"

#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <variant>
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
  -p, --pictures=DIR       write a picture of each page into the folder, which
                           is made if need be: page-0001.png, ...
  -d, --dpi=N              smaller pictures, of N dots per inch
  -j, --json               write a JSON document for programs
  -h, --help               show this text and exit
  -V, --version            show the version and exit

Exit status: 0 when the stream is well-formed, 1 when it is not or input or
output failed, 2 for a mistake in the options.
)";

/// What a job can tell of its own.
constexpr std::uint64_t largestResolution = UINT16_MAX;

const std::array<option, 9> longOptions = {{
    {"identifier", required_argument, nullptr, 'i'},
    {"bands", no_argument, nullptr, 'b'},
    {"resync", no_argument, nullptr, 'r'},
    {"pictures", required_argument, nullptr, 'p'},
    {"dpi", required_argument, nullptr, 'd'},
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

/// Feeds the whole input to the reader, as long as `goesOn` says so. Returns 0, or the error that ended the
/// reading.
template <typename GoesOn>
int readInput(int fd, StreamReader &reader, GoesOn goesOn) {
    std::vector<std::byte> block(262144);
    for (;;) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got > 0) {
            reader.feed(std::span(block).first(static_cast<std::size_t>(got)));
            // There is no point in reading on for an output that takes no more.
            if (!std::cout || !goesOn()) {
                return 0;
            }
        } else if (got == 0) {
            return 0;
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

struct Wishes {
    IdentifierRule rule = IdentifierRule::detect;
    ReaderOptions options = {.afterFault = AfterFault::locate, .bands = false};
    std::optional<PagePictures::Wishes> pictures;
};

/// What the command line asks for.
struct Request {
    Wishes wishes;
    std::optional<std::uint32_t> dotsPerInch;
    bool json = false;
    bool help = false;
    bool version = false;
};

bool readRule(IdentifierRule &rule, const char *when) {
    const auto found = parseWord(ruleNames, when);
    rule = found.value_or(rule);
    return found.has_value();
}

bool readResolution(std::optional<std::uint32_t> &dotsPerInch, const char *value) {
    const auto number = parseNumber(value, largestResolution);
    if (!number || *number == 0) {
        return false;
    }
    dotsPerInch = static_cast<std::uint32_t>(*number);
    return true;
}

/// Takes one option. Returns whether its value is one.
bool take(int choice, const char *value, Request &request) {
    switch (choice) {
    case 'i':
        return readRule(request.wishes.rule, value);
    case 'b':
        request.wishes.options.bands = true;
        return true;
    case 'r':
        request.wishes.options.afterFault = AfterFault::resume;
        return true;
    case 'p':
        request.wishes.pictures = PagePictures::Wishes{value, std::nullopt};
        return true;
    case 'd':
        return readResolution(request.dotsPerInch, value);
    case 'j':
        request.json = true;
        return true;
    case 'h':
        request.help = true;
        return true;
    default:
        request.version = true;
        return true;
    }
}

/// Whether the event is only for the pictures.
bool isForPictures(const StreamEvent &event) {
    return std::holds_alternative<PageBegun>(event) || std::holds_alternative<BandRead>(event);
}

template <typename Report>
int dump(int fd, const std::string &inputName, const Wishes &wishes, Report report) {
    std::optional<PagePictures> pictures;
    ReaderOptions options = wishes.options;
    if (wishes.pictures) {
        pictures.emplace(
            *wishes.pictures,
            PagePictures::Listener{[&report](const raster::PageProblemFound &found) { report.show(found); },
                                   [&report](const PictureWritten &picture) { report.show(picture); }});
        options.bands = true;
        options.data = true;
    }
    StreamReader reader(
        [&](const StreamEvent &event) {
            if (pictures) {
                pictures->take(event);
            }
            if (wishes.options.bands || !isForPictures(event)) {
                report.show(event);
            }
        },
        wishes.rule, options);
    const int error = readInput(fd, reader, [&] { return !pictures || pictures->error() == 0; });
    if (error != 0) {
        std::cout.flush();
        return reportFailure(program, inputName, error);
    }
    reader.finish();
    if (pictures && pictures->error() != 0) {
        std::cout.flush();
        return reportFailure(program, pictures->failedFile(), pictures->error());
    }
    StreamTotals totals = reader.totals();
    totals.problems += pictures ? pictures->problems() : 0;
    report.showTotals(totals);
    const int status = printText(program, "");
    return status == exitFine && totals.problems != 0 ? exitFailure : status;
}

/// Dumps the file, or standard input where it is "-".
int dumpFile(const std::string &file, Request request) {
    const bool fromFile = file != "-";
    const std::string inputName = fromFile ? file : "standard input";
    const int fd = fromFile ? open(file.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
    if (fd == -1) {
        return reportFailure(program, inputName, errno);
    }
    Wishes &wishes = request.wishes;
    if (wishes.pictures) {
        wishes.pictures->dotsPerInch = request.dotsPerInch;
        const std::string &folder = wishes.pictures->folder;
        if (mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
            return reportFailure(program, folder, errno);
        }
    }
    return request.json ? dump(fd, inputName, wishes, JsonReport(std::cout, file))
                        : dump(fd, inputName, wishes, TextReport(std::cout));
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    std::ios::sync_with_stdio(false);

    Request request;
    const auto refusal =
        readOptions(program, argc, argv, "i:brp:d:jhV", longOptions.data(),
                    [&request](int choice, const char *value) { return take(choice, value, request); });
    if (refusal) {
        return *refusal;
    }
    if (request.help) {
        return printText(program, helpText);
    }
    if (request.version) {
        return printText(program, std::string(program) + " " + version + "\n");
    }
    if (request.dotsPerInch && !request.wishes.pictures) {
        return refuseUsage(program, "--dpi is for --pictures");
    }
    if (argc - optind > 1) {
        return refuseUsage(program,
                           std::string("reads one stream; '") + argv[optind + 1] + "' is one too many");
    }
    return dumpFile(optind < argc ? argv[optind] : "-", std::move(request));
}
