#include "Version.h"
#include "driver/stream/StreamMaker.h"
#include "platform/CommandLine.h"
#include "platform/StandardDescriptors.h"
#include "platform/WriteAll.h"

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

// veltrin-mkstream: writes a page stream.

namespace {

using namespace veltrin;

constexpr const char *program = "veltrin-mkstream";

constexpr const char *helpText = R"(Usage: veltrin-mkstream [OPTION]...
Write a page stream as the renderer in front of the print filter does.

The document:
  -n, --pages=N            pages of the document (1)
  -c, --copies=N           copies, all of them in the stream (1)
      --order=ORDER        how the copies are repeated: collated (1 2 1 2, the
                           default), uncollated (1 1 2 2) or pairs (both sides
                           of a sheet together: 1 2 1 2 3 4 3 4)
      --blank-page         end each copy with the renderer's blank page

Each page:
  -b, --bands=N            bands of a page (4)
  -s, --band-size=BYTES    data of a band, all four planes together (1024)
      --plane-sizes=K,Y,M,C
                           data of a band plane by plane, in bytes, instead
      --paper-size=N       paper size, 0 to 255 (1)
      --tray=N             paper tray, 0 to 255 (1)
      --media=N            media type, 0 to 255 (1)
      --page-type=BITS     type bits of every page, 0 to 255 (0)
      --seed=N             another seed makes other data (0)

The job:
      --job-setting=BITS   the job's setting bits, 0 to 65535 (0)
      --identifier=TEXT    the 36 bytes in front of the headers
      --no-identifier      none: a stream as the printer receives it

  -o, --output=FILE        write to FILE instead of standard output
  -h, --help               show this text and exit
  -V, --version            show the version and exit

Numbers may be hexadecimal with 0x. Exit status: 0 when the stream was
written, 1 when it could not be, 2 for a mistake in the options.
)";

enum LongOnly : int {
    optionOrder = 256,
    optionBlankPage,
    optionPlaneSizes,
    optionPaperSize,
    optionTray,
    optionMedia,
    optionPageType,
    optionSeed,
    optionJobSetting,
    optionIdentifier,
    optionNoIdentifier,
};

const std::array<option, 19> longOptions = {{
    {"pages", required_argument, nullptr, 'n'},
    {"copies", required_argument, nullptr, 'c'},
    {"order", required_argument, nullptr, optionOrder},
    {"blank-page", no_argument, nullptr, optionBlankPage},
    {"bands", required_argument, nullptr, 'b'},
    {"band-size", required_argument, nullptr, 's'},
    {"plane-sizes", required_argument, nullptr, optionPlaneSizes},
    {"paper-size", required_argument, nullptr, optionPaperSize},
    {"tray", required_argument, nullptr, optionTray},
    {"media", required_argument, nullptr, optionMedia},
    {"page-type", required_argument, nullptr, optionPageType},
    {"seed", required_argument, nullptr, optionSeed},
    {"job-setting", required_argument, nullptr, optionJobSetting},
    {"identifier", required_argument, nullptr, optionIdentifier},
    {"no-identifier", no_argument, nullptr, optionNoIdentifier},
    {"output", required_argument, nullptr, 'o'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
}};

constexpr std::array<std::pair<const char *, CopyOrder>, 3> orderNames = {{
    {"collated", CopyOrder::collated},
    {"uncollated", CopyOrder::uncollated},
    {"pairs", CopyOrder::pairs},
}};

/// What the command line asks for.
struct Request {
    StreamOptions stream;
    std::string output; ///< empty: standard output
    bool help = false;
    bool version = false;
};

/// Reads `text` into `field`; false if it is no number that the field holds.
template <typename Integer>
bool readNumber(Integer &field, const char *text) {
    const auto number = parseNumber(text, std::numeric_limits<Integer>::max());
    field = static_cast<Integer>(number.value_or(0));
    return number.has_value();
}

bool readPlaneSizes(PlaneSizes &sizes, const char *text) {
    const auto numbers = parseNumbers(text, std::numeric_limits<std::uint32_t>::max());
    if (!numbers || numbers->size() != 4) {
        return false;
    }
    const auto plane = [&numbers](std::size_t i) { return static_cast<std::uint32_t>((*numbers)[i]); };
    sizes = {plane(0), plane(1), plane(2), plane(3)};
    return true;
}

bool readOrder(CopyOrder &order, const std::string &text) {
    const auto found = parseWord(orderNames, text);
    order = found.value_or(order);
    return found.has_value();
}

/// Takes one option over; false if its value is none that the option takes.
bool take(int choice, const char *value, Request &request) {
    StreamOptions &stream = request.stream;
    switch (choice) {
    case 'n':
        return readNumber(stream.pages, value);
    case 'c':
        return readNumber(stream.copies, value);
    case optionOrder:
        return readOrder(stream.order, value);
    case optionBlankPage:
        stream.blankPage = true;
        return true;
    case 'b':
        return readNumber(stream.bandsPerPage, value);
    case 's': {
        std::uint32_t bytes = 0;
        const bool valid = readNumber(bytes, value);
        stream.planeSizes = dealtOut(bytes);
        return valid;
    }
    case optionPlaneSizes:
        return readPlaneSizes(stream.planeSizes, value);
    case optionPaperSize:
        return readNumber(stream.paperSize, value);
    case optionTray:
        return readNumber(stream.paperTray, value);
    case optionMedia:
        return readNumber(stream.mediaType, value);
    case optionPageType:
        return readNumber(stream.pageType, value);
    case optionSeed:
        return readNumber(stream.seed, value);
    case optionJobSetting:
        return readNumber(stream.jobSetting, value);
    case optionIdentifier:
        stream.identifier = value;
        return true;
    case optionNoIdentifier:
        stream.identifier.reset();
        return true;
    case 'o':
        request.output = value;
        return !request.output.empty();
    case 'h':
        request.help = true;
        return true;
    default:
        request.version = true;
        return true;
    }
}

/// Collects a stream's many small pieces into blocks and writes these.
class BlockWriter {
  public:
    explicit BlockWriter(int theFd) : fd(theFd) { block.reserve(blockSize); }

    bool take(std::span<const std::byte> bytes) {
        while (!bytes.empty()) {
            const auto part = bytes.first(std::min(bytes.size(), blockSize - block.size()));
            block.insert(block.end(), part.begin(), part.end());
            bytes = bytes.subspan(part.size());
            if (block.size() == blockSize && !flush()) {
                return false;
            }
        }
        return true;
    }

    bool flush() {
        if (platform::writeAll(fd, block) != block.size()) {
            return false;
        }
        block.clear();
        return true;
    }

  private:
    static constexpr std::size_t blockSize = 262144;

    int fd;
    std::vector<std::byte> block;
};

int writeStream(const Request &request) {
    const bool toFile = !request.output.empty();
    const std::string name = toFile ? request.output : "standard output";
    const int fd =
        toFile ? open(request.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666) : STDOUT_FILENO;
    if (fd == -1) {
        return reportFailure(program, name, errno);
    }
    BlockWriter writer(fd);
    const bool written =
        makeStream(request.stream,
                   [&writer](std::span<const std::byte> bytes) { return writer.take(bytes); }) &&
        writer.flush();
    const int error = errno;
    // A network file system may report only here that the disk is full.
    const bool closed = close(fd) == 0;
    if (!written || !closed) {
        return reportFailure(program, name, written ? errno : error);
    }
    return exitFine;
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();

    Request request;
    const auto refusal =
        readOptions(program, argc, argv, "n:c:b:s:o:hV", longOptions.data(),
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
    if (optind < argc) {
        return refuseUsage(program, std::string("does not take the argument '") + argv[optind] + "'");
    }
    if (const auto problem = problemWith(request.stream)) {
        return refuseUsage(program, *problem);
    }
    return writeStream(request);
}
