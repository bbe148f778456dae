#include "Version.h"
#include "platform/CommandLine.h"
#include "platform/PipeCapacity.h"
#include "platform/StandardDescriptors.h"
#include "raster/FilterOptions.h"
#include "raster/JobRenderer.h"
#include "raster/QueuePPD.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

// veltrin-raster: renders CUPS raster into a page stream, for the filter that it starts in its own place.

namespace {

using namespace veltrin;
using namespace veltrin::raster;

constexpr const char *program = "veltrin-raster";
constexpr const char *filterName = "veltrin";
constexpr const char *noMemory = "There is not enough memory to render the page.";

constexpr const char *helpText = R"(Usage: veltrin-raster JOB USER TITLE COPIES OPTIONS [FILE]
  or:  veltrin-raster --stream JOB USER TITLE COPIES OPTIONS [FILE]
Render CUPS raster into the page stream of the printer.

The raster is read from FILE, or from standard input. In the first form, the
one in which CUPS calls it, the print filter veltrin is started in place of
this program and prints the stream.

      --stream    write the stream to standard output instead
  -h, --help      show this text and exit
  -V, --version   show the version and exit

Exit status: that of the filter, or 0 when the stream was written; 1 when the
raster could not be rendered; 2 for a mistake in the arguments.
)";

/// Large enough that renderer and filter seldom wait for each other.
constexpr std::size_t pipeBytes = std::size_t{1024} * 1024;

/// A line that the scheduler shows, logs or counts.
void tell(const std::string &line) {
    std::fprintf(stderr, "%s\n", line.c_str());
}

void tellError(const std::string &sentence) {
    tell("ERROR: " + sentence);
}

std::string errorText() {
    return std::strerror(errno);
}

/// The arguments of a filter of CUPS.
struct Arguments {
    std::string job;
    std::string user;
    std::string title;
    std::string copies;
    std::string options;
    std::optional<std::string> file;
};

constexpr int fewestArguments = 5;
constexpr int mostArguments = 6;

Arguments argumentsFrom(char **argv, int count) {
    Arguments arguments = {argv[0], argv[1], argv[2], argv[3], argv[4], std::nullopt};
    if (count == mostArguments) {
        arguments.file = argv[fewestArguments];
    }
    return arguments;
}

JobIdentity identityOf(const Arguments &arguments) {
    JobIdentity identity;
    identity.jobId = arguments.job;
    identity.title = arguments.title;
    identity.user = arguments.user;
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) == 0) {
        identity.host = host.data();
    }
    identity.submittedTime = static_cast<std::uint32_t>(std::time(nullptr));
    return identity;
}

PPDChoices queueChoices(const std::string &options) {
    const char *path = std::getenv("PPD");
    if (path == nullptr || *path == '\0') {
        return {};
    }
    std::string problem;
    PPDChoices choices = choicesInPPD(path, options, problem);
    if (!problem.empty()) {
        tell("WARNING: " + problem);
    }
    return choices;
}

/// A job that is ready to be rendered: its first page has been found.
struct Job {
    Arguments arguments;
    JobOptions options;
    JobTicket ticket;
};

int render(RasterReader &reader, const Job &job, int output) {
    JobRenderer renderer(reader, job.ticket, CompressMode::zstd, output, tell);
    if (!renderer.render(identifierFor(job.options, job.arguments.job), identityOf(job.arguments))) {
        tellError(renderer.problem());
        return exitFailure;
    }
    return exitFine;
}

/// The print filter: beside this program, or where the scheduler has its filters.
std::optional<std::string> findFilter() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::string beside = self.parent_path() / filterName;
        if (access(beside.c_str(), X_OK) == 0) {
            return beside;
        }
    }
    if (const char *serverBin = std::getenv("CUPS_SERVERBIN"); serverBin != nullptr && *serverBin != '\0') {
        const std::string installed = std::string(serverBin) + "/filter/" + filterName;
        if (access(installed.c_str(), X_OK) == 0) {
            return installed;
        }
    }
    return std::nullopt;
}

/// The renderer's own process behind the pipe. It holds nothing open that is the filter's: not the job's
/// output, and not what the scheduler and the backend tell the filter through. It ends with the filter even
/// while it waits for raster, and without a word when the filter reads no more.
int renderBehindPipe(RasterReader &reader, const Job &job, int output, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        return exitFailure; // it has ended before the system was told
    }
    std::signal(SIGPIPE, SIG_DFL);
    if (dup2(output, STDOUT_FILENO) == -1) {
        tellError("The renderer cannot be given the pipe for its pages: " + errorText() + ".");
        return exitFailure;
    }
    platform::closeAllButStandardDescriptors();
    try {
        return render(reader, job, STDOUT_FILENO);
    } catch (const std::bad_alloc &) {
        tellError(noMemory);
        return exitFailure;
    }
}

/// Becomes the filter, with the stream from `input`; comes back where that fails.
void becomeFilter(const std::string &filter, char *name, const Job &job, int input) {
    if (dup2(input, STDIN_FILENO) == -1) {
        tellError("The print filter cannot be given the rendered pages: " + errorText() + ".");
        return;
    }
    Arguments arguments = job.arguments;
    arguments.options = filterOptions(job.options, job.ticket).text();
    std::array<char *, 7> argv = {name,
                                  arguments.job.data(),
                                  arguments.user.data(),
                                  arguments.title.data(),
                                  arguments.copies.data(),
                                  arguments.options.data(),
                                  nullptr};
    execv(filter.c_str(), argv.data());
    tellError("The print filter " + filter + " cannot be started: " + errorText() + ".");
}

int printThroughFilter(RasterReader &reader, const Job &job, char *name) {
    const std::optional<std::string> filter = findFilter();
    if (!filter) {
        tellError(std::string("The print filter ") + filterName + " is not installed beside " + program +
                  ".");
        return exitFailure;
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        tellError("There is no pipe for the rendered pages: " + errorText() + ".");
        return exitFailure;
    }
    platform::widenPipe(ends[1], pipeBytes);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == -1) {
        tellError("There is no process for the renderer: " + errorText() + ".");
        return exitFailure;
    }
    if (child == 0) {
        close(ends[0]);
        // Nothing of the parent's is to be put away twice.
        _exit(renderBehindPipe(reader, job, ends[1], parent));
    }
    close(ends[1]);
    becomeFilter(*filter, name, job, ends[0]);
    return exitFailure;
}

/// Makes the file the standard input.
bool readFrom(const std::string &file) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1 || dup2(fd, STDIN_FILENO) == -1) {
        tellError("The file " + file + " cannot be opened: " + errorText() + ".");
        return false;
    }
    close(fd);
    return true;
}

int run(const Arguments &arguments, char *name, bool streamOnly) {
    if (arguments.file && !readFrom(*arguments.file)) {
        return exitFailure;
    }
    RasterReader reader(STDIN_FILENO);
    switch (reader.nextPage()) {
    case RasterReader::Result::page:
        break;
    case RasterReader::Result::end:
        tellError("There is no page to print: the document is empty, or none of its pages was asked for.");
        return exitFailure;
    case RasterReader::Result::failed:
        tellError(reader.problem());
        return exitFailure;
    }
    Job job;
    job.arguments = arguments;
    job.options = JobOptions(arguments.options);
    job.ticket = ticketFor(arguments.copies, job.options, queueChoices(arguments.options), reader.page());
    if (job.ticket.sides != Sides::oneSided && !job.ticket.layout.twoSided) {
        tell("INFO: This paper is printed on one side only.");
    }
    return streamOnly ? render(reader, job, STDOUT_FILENO) : printThroughFilter(reader, job, name);
}

int runProgram(int argc, char **argv) {
    // The scheduler's first argument is the number of the job, never an option.
    int first = 1;
    const std::string_view option = argc > 1 ? argv[1] : "";
    const bool streamOnly = option == "--stream";
    if (option == "--help" || option == "-h") {
        return printText(program, helpText);
    }
    if (option == "--version" || option == "-V") {
        return printText(program, std::string(program) + " " + version + "\n");
    }
    if (streamOnly) {
        ++first;
    } else if (option.starts_with('-')) {
        return refuseUsage(program, "unrecognized option '" + std::string(option) + "'");
    }
    const int count = argc - first;
    if (count < fewestArguments || count > mostArguments) {
        return refuseUsage(program, "job, user, title, copies and options are needed, and at most one file");
    }
    return run(argumentsFrom(argv + first, count), argv[0], streamOnly);
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    try {
        return runProgram(argc, argv);
    } catch (const std::bad_alloc &) {
        tellError(noMemory);
        return exitFailure;
    }
}
