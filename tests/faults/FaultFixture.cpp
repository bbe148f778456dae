#include "tests/faults/FaultFixture.h"

#include "driver/stream/PageStream.h"
#include "log/DebugLog.h"
#include "tests/faults/ProcessesAtRest.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/PPD.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace veltrin::test {

namespace {

using namespace std::chrono_literals;

constexpr const char *uri = "socket://printer.example:9100";
constexpr const char *inputFile = "/tmp/job";
constexpr const char *printedFile = "/tmp/printed";
constexpr const char *errorFile = "/tmp/errors";
constexpr const char *reportFile = "/tmp/report.json";
constexpr const char *injectorsReport = "/tmp/injector";

/// What a run makes in /tmp, besides what the filter must remove.
constexpr const char *ownFiles[] = {inputFile,  printedFile,     errorFile,
                                    reportFile, injectorsReport, debugLogPath};

/// After so many seconds of waiting the job is cancelled: longer than all waits with a limit that a job
/// without a printer comes to. And by then it has to be at its end.
constexpr const char *timeLimits = "100:600";

StreamOptions document(const JobKind &kind) {
    StreamOptions options;
    options.pages = 2;
    // With a channel the data go as a descriptor of sealed memory; without, more is read than ahead at once.
    options.bandsPerPage = kind.hasChannel ? 1 : 2;
    options.planeSizes = {.black = std::uint32_t{64} * 1024};
    return options;
}

std::string expectedOf(const JobKind &kind) {
    const std::string reset = kind.hasChannel ? resetRecord() : "";
    if (!kind.isTwoSided) {
        return reset + printed(document(kind), 0, "1 2");
    }
    return reset + (kind.hasChannel ? printed(document(kind), jobSettingDuplex, "2(12) 1(4)")
                                    : printed(document(kind), jobSettingManualDuplex, "2 1*"));
}

/// What paths and the links of descriptors stand for.
const std::vector<std::pair<std::string, std::string>> targetNames = {
    {inputFile, "input"},  {printedFile, "output"},     {errorFile, "standard error"},
    {debugLogPath, "log"}, {debugMarkerPath, "marker"}, {"/tmp/spool", "spool file"},
    {"socket:", "socket"}, {"/memfd:", "block"},        {"/tmp/cups/", "PPD"},
};

/// Waits until the process has ended, or it and the other have nothing to do.
void awaitRest(const Process &process, pid_t other) {
    const auto file = static_cast<int>(syscall(SYS_pidfd_open, process.id(), 0));
    const std::array<pid_t, 2> both = {process.id(), other};
    pollfd end{file, POLLIN, 0};
    while (poll(&end, 1, 1) == 0 && !areAtRest(both.data(), both.size())) {
    }
    close(file);
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

} // namespace

/// The filter has few texts beside itself, for they are read into memory one by one.
FaultFixture::FaultFixture(const JobKind &theKind) : kind(theKind), expected(expectedOf(theKind)) {
    const std::filesystem::path bundle = bundleFolder;
    const std::filesystem::path built = std::filesystem::path(filterProgram).parent_path();
    std::filesystem::create_directories(bundle);
    std::filesystem::copy_file(filterProgram, bundle / "veltrin");
    std::filesystem::copy_file(built / "Info.plist", bundle / "Info.plist");
    writeFile(bundle / "en.lproj" / "Localizable.strings",
              "<plist version=\"1.0\"><dict><key>DriverCommError</key>"
              "<string>Unable to communicate with printer</string></dict></plist>\n");
    filterProgram = bundle / "veltrin";
    writeFile(inputFile, makeStream(document(kind)));
    writeFile("/tmp/cups/ppd/queue.ppd", ppdWith("*NickName: \"Test\"\n*DefaultPaperType: Plain\n"));
    switchLogOn();
}

Command FaultFixture::faultedFilter(const Injection &injection) const {
    Command command = filterCommand(
        {.options =
             JobOptions{.collate = true, .duplexing = kind.isTwoSided ? 2 : 0, .sidesImaged = 2}.argument()});
    if (kind.isTwoSided) {
        command.input = File{inputFile};
    } else {
        command.arguments.emplace_back(inputFile);
    }
    command.errors = File{errorFile};
    auto &variables = *command.environment;
    injectFaults(command, injection.fault, injectorsReport);
    variables[timeVariable] = timeLimits;
    if (!kind.hasChannel) {
        command.output = File{printedFile};
    } else {
        command.output = File{"/dev/null"};
        variables["DEVICE_URI"] = uri;
        variables["DBUS_SYSTEM_BUS_ADDRESS"] = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        variables[peersVariable] =
            std::to_string(bus->processIds().back()) + ":" + std::to_string(printer->id());
    }
    if (!injection.signalAt.empty()) {
        variables[stepVariable] = injection.signalAt + ":0";
    } else if (injection.victim != Injection::Victim::none) {
        const pid_t victim =
            injection.victim == Injection::Victim::bus ? bus->processIds().back() : printer->id();
        variables[stepVariable] =
            injection.killAt + ":" + std::to_string(SIGKILL) + ":" + std::to_string(victim);
    }
    return command;
}

FaultedJob FaultFixture::print(const Injection &injection) {
    for (const char *file : ownFiles) {
        if (file != inputFile) {
            std::filesystem::remove(file);
        }
    }
    if (kind.hasChannel) {
        startPrinter(injection.victim == Injection::Victim::bus);
    }
    Process filter(faultedFilter(injection));
    const ProcessResult ended = finishAtOnce(filter);
    if (kind.hasChannel) {
        awaitRest(*printer, bus->processIds().back());
        printer->send(SIGTERM); // where there was no job
        EXPECT_FALSE(finishAtOnce(*printer).timedOut);
    }
    FaultedJob job = result();
    job.filter = ended;
    return job;
}

void FaultFixture::startPrinter(bool onNewBus) {
    if (!bus || onNewBus) {
        bus.reset();
        bus.emplace();
    }
    const std::string scenario = kind.isTwoSided ? "duplex-unit" : "one-sided";
    printer.emplace(Command{
        hostPath(VELTRIN_PRINTER),
        {"veltrin-printer", "--scenario=" + hostPath(VELTRIN_SCENARIOS) + "/" + scenario + ".json",
         std::string("--output=") + printedFile, std::string("--report=") + reportFile, "--jobs=1", uri}});
    EXPECT_TRUE(printer->waitUntil([this] { return contains(printer->output(), " listening\n"); }))
        << printer->errors();
}

FaultedJob FaultFixture::result() const {
    FaultedJob job{readFaultReport(injectorsReport, targetNames), {}, {}, {}, {}, {}, {}};
    job.errors = linesOf(readFile(errorFile));
    job.log = messagesOf(readFile(errorFile));
    if (std::filesystem::exists(debugLogPath)) {
        const std::vector<std::string> messages = messagesOf(readFile(debugLogPath));
        job.log.insert(job.log.end(), messages.begin(), messages.end());
    }
    job.printed = std::filesystem::exists(printedFile) ? readFile(printedFile) : "";
    if (kind.hasChannel && std::filesystem::exists(reportFile)) {
        // A printer that was killed has made no report, or the beginning of one.
        const auto report = nlohmann::json::parse(readFile(reportFile), nullptr, false);
        const auto jobs =
            report.is_object() ? report.value("jobs", nlohmann::json::array()) : nlohmann::json::array();
        job.outcome = jobs.empty() ? "" : jobs[0].value("outcome", "");
    }
    std::vector<std::string> expectedFiles = {spoolFolder, bundleFolder, debugMarkerPath, "/tmp/cups",
                                              "/tmp/.outer"};
    expectedFiles.insert(expectedFiles.end(), std::begin(ownFiles), std::end(ownFiles));
    job.left = takeAway("/tmp", expectedFiles);
    const std::vector<std::string> spooled = takeAway(spoolFolder, {});
    job.left.insert(job.left.end(), spooled.begin(), spooled.end());
    return job;
}

} // namespace veltrin::test
