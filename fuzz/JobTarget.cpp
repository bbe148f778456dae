// A whole job without a channel. The input: a byte for the printer's configuration, a line with the
// job's options, and the page stream.

#include "driver/DriverFilter.h"
#include "driver/stream/StreamReader.h"
#include "filter/Cancellation.h"
#include "fuzz/ExpectedJob.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "log/DebugLog.h"
#include "tests/support/Arguments.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <set>
#include <variant>

namespace veltrin::fuzz {

namespace {

constexpr const char *spoolFolder = "/tmp/spool";

/// A page is sent as often as the options say, which are no more bounded than the paper.
constexpr std::size_t mostPagesSent = 400;

struct Configuration {
    PrinterKeys keys;
    std::uint32_t systemVersion = 0;
    bool takesNothing = false; ///< whoever the job is written to

    explicit Configuration(std::uint8_t bits) {
        const std::array<std::optional<std::string>, 4> orders = {std::nullopt, "642135", "246135", "214365"};
        keys = {orders[bits & 3U], (bits & 4U) != 0, (bits & 8U) != 0};
        systemVersion = (bits & 16U) != 0 ? pairedVersion : pairedVersion - 1;
        takesNothing = (bits & 32U) != 0;
    }

    void putInto(test::FakePlatform &platform) const {
        auto &dictionary = platform.fakeBundle.infoDictionary;
        if (keys.duplexOrder) {
            dictionary["VeltrinDuplexOrder"] = *keys.duplexOrder;
        }
        dictionary["VeltrinManualDuplex"] = keys.manualDuplex ? "true" : "false";
        dictionary["VeltrinDuplexBypass"] = keys.duplexBypass ? "yes" : "no";
        platform.fakeSystemVersion = systemVersion;
    }

  private:
    static constexpr std::uint32_t pairedVersion = 0x1040;
};

/// What the stream's inspector says of it: whether the first job in it is one that the filter can read to its
/// end.
struct Inspection {
    bool isReadable = false;
    bool isWellFormed = false;
};

Inspection inspectionOf(const std::string &stream) {
    static const std::set<StreamProblem> fatal = {
        StreamProblem::truncatedIdentifier, StreamProblem::truncatedTag,     StreamProblem::truncatedHeader,
        StreamProblem::truncatedData,       StreamProblem::truncatedCommand, StreamProblem::unknownTag,
        StreamProblem::negativeBandSize,    StreamProblem::unknownCommand,   StreamProblem::commandInsideJob};
    Inspection inspection;
    bool isLost = false;
    std::size_t headers = 0;
    const auto headerRead = [&](bool isNext) {
        isLost = isLost || (headers < 2 && !isNext);
        ++headers;
    };
    StreamReader reader(
        [&](const StreamEvent &event) {
            if (std::holds_alternative<FileHeaderRead>(event)) {
                headerRead(headers == 0);
            } else if (std::holds_alternative<FileHeaderExRead>(event)) {
                headerRead(headers == 1);
            } else if (std::holds_alternative<PageBegun>(event) || std::holds_alternative<BandRead>(event)) {
                headerRead(false);
            } else if (std::holds_alternative<CommandRead>(event)) {
                isLost = true;
            } else if (std::holds_alternative<EndOfJobRead>(event)) {
                inspection.isReadable = inspection.isReadable || (!isLost && headers >= 2);
                isLost = true; // what comes behind it is not this job's
            } else if (const auto *found = std::get_if<ProblemFound>(&event)) {
                isLost = isLost || fatal.contains(found->problem);
            }
        },
        IdentifierRule::present, {.afterFault = AfterFault::stop, .bands = true});
    reader.feed(std::as_bytes(std::span(stream)));
    reader.finish();
    // A cancelled job and the commands around one are well-formed, but nothing that a renderer writes.
    inspection.isWellFormed = reader.isWellFormed() && inspection.isReadable;
    return inspection;
}

struct Job {
    bool result = false;
    std::string log;
    std::string errors; ///< what the scheduler reads
    std::string output;
    std::size_t reports = 0; ///< of failures, in the log
    std::size_t sleeps = 0;
};

/// The lines that report a failure. What a stream holds is shown in the log as well, but in one line with
/// what it is.
std::size_t reportsIn(const std::string &log) {
    const std::string mark = " (" + std::to_string(getpid()) + ") ASSERT: ";
    // What the configuration lacks fails no job.
    const std::string missingKey = mark + "CUPSFilter stringForPPDAttr: failed to get";
    std::size_t count = 0;
    for (auto at = log.find(mark); at != std::string::npos; at = log.find(mark, at + 1)) {
        count += log.compare(at, missingKey.size(), missingKey) != 0 ? 1U : 0U;
    }
    return count;
}

Job printed(const Configuration &configuration, const std::string &options, const std::string &stream) {
    gSigTerm = 0;
    gSigPipe = 0;
    const MemoryFile input(std::as_bytes(std::span(stream)));
    const Caught errors(STDERR_FILENO);
    const Caught output(STDOUT_FILENO);
    test::CapturedLog log;
    test::FakePlatform platform;
    configuration.putInto(platform);
    platform.fakeClock.afterSleep = [&] {
        if (platform.fakeClock.sleeps.size() >= 3) {
            gSigTerm = 1; // an error is shown until somebody cancels the job
        }
    };
    test::Arguments arguments({"queue", "1", "user", "title", "1", options, input.path()});
    auto driver = CUPSFilter::initWithArgc(std::make_unique<DriverFilter>(platform), arguments.count(),
                                           arguments.vector());
    require(driver != nullptr, "a job without a channel begins");
    log.clear();
    if (configuration.takesNothing) {
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        dup2(full, STDOUT_FILENO);
        close(full);
    }
    const std::size_t begun = errors.text().size(); // with the URI's scheme
    Job job;
    job.result = driver->run();
    job.output = output.text();
    job.errors = errors.text().substr(begun);
    job.log = std::filesystem::exists(debugLogPath) ? test::readFile(debugLogPath) : "";
    job.reports = reportsIn(job.log);
    job.sleeps = platform.fakeClock.sleeps.size();
    return job;
}

const char *failedStep(const std::string &stream, const JobSettings &settings) {
    if (stream.size() < identifierSize) {
        return "ASSERT: read uuid error\n";
    }
    return settings.duplex ? "ASSERT: spoolPages error\n" : "ASSERT: sendPages error\n";
}

/// Nobody takes what the job sends, be it the cancel record alone.
void requireFailure(const Job &job) {
    require(!job.result, "a job that nobody takes fails");
    require(job.log.find("ASSERT: DriverFilter writeToFD: Unable to write all of data.") != std::string::npos,
            "a write that fails is logged");
    const std::string line = "ERROR: recoverable: Unable to communicate with printer\n";
    require(!job.errors.empty() && job.errors.size() % line.size() == 0, "people hear of it");
    for (std::size_t at = 0; at < job.errors.size(); at += line.size()) {
        require(job.errors.compare(at, line.size(), line) == 0, "people hear of it, and of nothing else");
    }
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const Configuration configuration(input.byte());
    const std::string options = input.line();
    const std::string stream = input.remainingText();
    if (options.find('\0') != std::string::npos) {
        return 0; // no argument of a process holds one
    }
    const JobSettings settings = settingsOf(options);
    const auto expected =
        expectedJob(stream, settings, configuration.keys, configuration.systemVersion, mostPagesSent);
    if (!expected) {
        return 0;
    }
    std::filesystem::create_directories(spoolFolder);
    setenv("TMPDIR", spoolFolder, 1);
    setenv("DEVICE_URI", "file:///dev/null", 1);
    setenv("LANG", "en.UTF-8", 1);

    const std::size_t descriptors = openDescriptors();
    const Job job = printed(configuration, options, stream);
    require(openDescriptors() == descriptors, "no descriptor is left open");
    require(std::filesystem::is_empty(spoolFolder), "no spool file is left behind");
    // Somebody cancels the job that nobody takes at the third time that people are told. What is still tried
    // then, pages from their files, headers, mark and record, is told of once each.
    const std::size_t most = configuration.takesNothing ? 3 + expected->spooledPages + 3 : 0;
    require(job.sleeps <= most, "no wait outlasts the job");
    if (configuration.takesNothing) {
        requireFailure(job);
        return 0;
    }
    require(job.result == expected->result, "a job succeeds where its stream is whole, and only there");
    require(job.output == expected->output,
            "what goes out is what came in, but for the patched bytes and the order");
    require(job.errors.empty(), "people hear nothing where the printer has taken all");
    // Where it is found and where the job ends for it.
    require(job.result ? job.reports == 0 : job.reports >= 2, "a failure is logged, and nothing else is");
    require(job.result || job.log.find(failedStep(stream, settings)) != std::string::npos,
            "the step that fails is logged");

    const Inspection inspection = inspectionOf(stream);
    require(inspection.isReadable == unitsOf(stream).ended, "filter and inspector agree where a job ends");
    require(!inspection.isWellFormed || job.result, "what the inspector finds well-formed is printed");
    return 0;
}
