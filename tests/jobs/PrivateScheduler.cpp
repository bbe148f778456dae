#include "tests/jobs/PrivateScheduler.h"

#include "tests/jobs/JobFixture.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gtest/gtest.h>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <regex>
#include <system_error>
#include <utility>

namespace veltrin::test {

namespace {

namespace fs = std::filesystem;

constexpr const char *filterName = "veltrin";
constexpr const char *rendererName = "veltrin-raster";
constexpr const char *printerName = "veltrin-printer";
constexpr const char *backendName = "veltrin";

constexpr const char *filesConfiguration = R"(FileDevice Yes
User @USER@
Group @GROUP@
ServerRoot @ROOT@/etc
ServerBin @ROOT@/lib
DataDir @ROOT@/share
StateDir @ROOT@/run
CacheDir @ROOT@/cache
RequestRoot @ROOT@/spool
TempDir @ROOT@/spool/tmp
ErrorLog @ROOT@/log/error_log
AccessLog @ROOT@/log/access_log
PageLog @ROOT@/log/page_log
@BUS@)";

constexpr const char *schedulerConfiguration = R"(Listen @ROOT@/socket
LogLevel debug
MaxLogSize 0
Browsing No
WebInterface No
DefaultAuthType None
JobKillDelay 20
JobRetryLimit 1
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  <Limit All>
    Order allow,deny
    Allow all
  </Limit>
</Policy>
)";

/// The user whom the scheduler runs filters as. An ordinary user can have them run as nobody but himself.
std::string filterUser() {
    return geteuid() == 0 ? "lp" : getpwuid(geteuid())->pw_name;
}

std::string filterGroup() {
    return geteuid() == 0 ? "lp" : getgrgid(getegid())->gr_name;
}

/// Tells the scheduler to pass the test's bus on to filters and backends.
std::string busConfiguration() {
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address == nullptr ? "" : "SetEnv DBUS_SYSTEM_BUS_ADDRESS " + std::string(address) + "\n";
}

/// Started by root, the scheduler runs only filters that nobody but root can change.
void copyAsInstalled(const fs::path &from, const fs::path &to, fs::perms mode) {
    fs::create_directories(to.parent_path());
    fs::copy_file(from, to);
    fs::permissions(to, mode);
}

struct AnswerDeleter {
    void operator()(ipp_t *answer) const { ippDelete(answer); }
};

/// What the scheduler says of a queue.
std::unique_ptr<ipp_t, AnswerDeleter> attributesOf(const std::string &queue) {
    ipp_t *request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
    const std::string uri = "ipp://localhost/printers/" + queue;
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri.c_str());
    return std::unique_ptr<ipp_t, AnswerDeleter>(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
}

std::vector<std::string> textsIn(ipp_attribute_t *attribute) {
    std::vector<std::string> texts;
    for (int i = 0; i < ippGetCount(attribute); ++i) {
        texts.emplace_back(ippGetString(attribute, i, nullptr));
    }
    return texts;
}

std::string quotedForLog(const std::string &log) {
    return "The scheduler's log:\n" + log;
}

} // namespace

PrivateScheduler::PrivateScheduler(const std::string &deviceUri, int backendMode) {
    std::string path = "/tmp/cups-XXXXXX";
    root = mkdtemp(path.data());
    // The filter's user comes through here.
    fs::permissions(root, fs::perms(0755));
    umask(022);
    install(backendMode);
    configure();
    cupsSetServer((root + "/socket").c_str());

    daemon = std::make_unique<Process>(Command{
        .program = CUPSD,
        .arguments = {CUPSD, "-f", "-c", root + "/etc/cupsd.conf", "-s", root + "/etc/cups-files.conf"},
        .environment = std::map<std::string, std::string>{{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}},
        .input = Text{}});
    const auto listening = [this] {
        http_t *connection = httpConnect2((root + "/socket").c_str(), 0, nullptr, AF_UNSPEC,
                                          HTTP_ENCRYPTION_NEVER, 1, 1000, nullptr);
        httpClose(connection);
        return connection != nullptr;
    };
    if (!waitUntil(listening)) {
        ADD_FAILURE() << "cupsd does not listen. " << daemon->errors() << quotedForLog(log());
        return;
    }
    addQueue(queue, deviceUri);
}

PrivateScheduler::~PrivateScheduler() {
    daemon->send(SIGTERM);
    daemon->finish();

    fs::remove_all(root);
}

void PrivateScheduler::installBackend(const std::string &name, const std::string &program, int mode) const {
    copyAsInstalled(program, fs::path(root + "/lib/backend") / name, fs::perms(static_cast<unsigned>(mode)));
}

void PrivateScheduler::addQueue(const std::string &name, const std::string &deviceUri) const {
    const ProcessResult added = run(clientCommand(
        LPADMIN, {"-p", name, "-E", "-v", deviceUri, "-P", hostPath(VELTRIN_PPDS "/lx-520n.ppd")}));
    EXPECT_EQ(added.exitStatus, 0) << added.errors << quotedForLog(log());
}

void PrivateScheduler::administer(const std::vector<std::string> &options, const std::string &name) const {
    std::vector<std::string> arguments = {"-p", name};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProcessResult changed = run(clientCommand(LPADMIN, arguments));
    EXPECT_EQ(changed.exitStatus, 0) << changed.errors << quotedForLog(log());
}

void PrivateScheduler::prefer(const std::vector<std::string> &options, const std::string &name) const {
    std::vector<std::string> arguments = {"-p", name};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ProcessResult set = run(clientCommand(LPOPTIONS, arguments));
    EXPECT_EQ(set.exitStatus, 0) << set.errors;
}

int PrivateScheduler::submit(const std::string &stream, const std::vector<std::string> &options,
                             const std::string &toQueue) {
    return submitAll({stream}, options, toQueue);
}

int PrivateScheduler::submitAll(const std::vector<std::string> &streams,
                                const std::vector<std::string> &options, const std::string &toQueue) {
    std::vector<std::string> arguments = {"-d", toQueue};
    arguments.insert(arguments.end(), options.begin(), options.end());
    for (const std::string &stream : streams) {
        const std::string file = root + "/stream" + std::to_string(++documents);
        writeFile(file, stream);
        arguments.push_back(file);
    }
    const ProcessResult result = run(clientCommand(LP, arguments));
    std::smatch match;
    if (!std::regex_search(result.output, match, std::regex(toQueue + "-([0-9]+)"))) {
        ADD_FAILURE() << "lp: " << result.output << result.errors << quotedForLog(log());
        return 0;
    }
    return std::stoi(match[1]);
}

void PrivateScheduler::cancel(int job) const {
    const ProcessResult result = run(clientCommand(CANCEL, {std::to_string(job)}));
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
}

std::optional<ipp_jstate_t> PrivateScheduler::stateOf(int job) const {
    cups_job_t *jobs = nullptr;
    const int count = cupsGetJobs2(CUPS_HTTP_DEFAULT, &jobs, nullptr, 0, CUPS_WHICHJOBS_ALL);
    std::optional<ipp_jstate_t> state;
    for (int i = 0; i < count; ++i) {
        if (jobs[i].id == job) {
            state = jobs[i].state;
        }
    }
    cupsFreeJobs(count, jobs);
    return state;
}

int PrivateScheduler::sheetsOf(int job) const {
    ipp_t *request = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
    const std::string uri = "ipp://localhost/jobs/" + std::to_string(job);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, uri.c_str());
    ipp_t *answer = cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/");
    ipp_attribute_t *sheets = ippFindAttribute(answer, "job-media-sheets-completed", IPP_TAG_INTEGER);
    const int count = sheets != nullptr ? ippGetInteger(sheets, 0) : -1;
    ippDelete(answer);
    return count;
}

PrivateScheduler::QueueStatus PrivateScheduler::queueStatus(const std::string &name) const {
    const auto answer = attributesOf(name);
    QueueStatus status;
    status.state = static_cast<ipp_pstate_t>(
        ippGetInteger(ippFindAttribute(answer.get(), "printer-state", IPP_TAG_ENUM), 0));
    if (const char *text =
            ippGetString(ippFindAttribute(answer.get(), "printer-state-message", IPP_TAG_TEXT), 0, nullptr)) {
        status.message = text;
    }
    status.reasons = textsIn(ippFindAttribute(answer.get(), "printer-state-reasons", IPP_TAG_KEYWORD));
    status.markers = textsIn(ippFindAttribute(answer.get(), "marker-names", IPP_TAG_NAME));
    ipp_attribute_t *levels = ippFindAttribute(answer.get(), "marker-levels", IPP_TAG_INTEGER);
    for (int i = 0; i < ippGetCount(levels); ++i) {
        status.markerLevels.push_back(ippGetInteger(levels, i));
    }
    return status;
}

std::string PrivateScheduler::queueAttribute(const std::string &name) const {
    const auto answer = attributesOf(queue);
    ipp_attribute_t *found = ippFindAttribute(answer.get(), name.c_str(), IPP_TAG_ZERO);
    if (found == nullptr) {
        return "";
    }
    std::string text(ippAttributeString(found, nullptr, 0), '\0');
    // With room for the terminator, which is there already.
    ippAttributeString(found, text.data(), text.size() + 1);
    return text;
}

bool PrivateScheduler::waitUntil(const std::function<bool()> &predicate, std::chrono::milliseconds deadline) {
    return daemon->waitUntil(predicate, deadline);
}

void PrivateScheduler::expectState(int job, ipp_jstate_t state, std::chrono::milliseconds deadline) {
    EXPECT_TRUE(waitUntil([&] { return stateOf(job) == state; }, deadline))
        << "job " << job << " is " << ippEnumString("job-state", stateOf(job).value_or(IPP_JSTATE_PENDING))
        << ", not " << ippEnumString("job-state", state) << ". " << quotedForLog(log());
}

void PrivateScheduler::expectIdleQueue(const std::string &name) {
    EXPECT_TRUE(waitUntil([&] { return queueStatus(name).state == IPP_PSTATE_IDLE; }))
        << "the queue is " << ippEnumString("printer-state", queueStatus(name).state) << ". "
        << quotedForLog(log());
}

std::size_t PrivateScheduler::startsOfBackend(int job) const {
    const std::string text = log();
    const std::regex start("\\[Job " + std::to_string(job) + "\\] Started backend");
    return static_cast<std::size_t>(
        std::distance(std::sregex_iterator(text.begin(), text.end(), start), std::sregex_iterator()));
}

std::string PrivateScheduler::log() const {
    const std::string path = root + "/log/error_log";
    return fs::exists(path) ? readFile(path) : std::string();
}

std::vector<std::string> PrivateScheduler::temporaryFiles() const {
    return namesIn(root + "/spool/tmp");
}

std::vector<std::string> PrivateScheduler::runningFilters() const {
    std::vector<std::string> running;
    for (const std::string &process : namesIn("/proc")) {
        std::error_code error; // it may end meanwhile, or be no process at all
        const fs::path program = fs::read_symlink("/proc/" + process + "/exe", error);
        if (program == root + "/lib/filter/" + program.filename().string()) {
            running.push_back(program.filename());
        }
    }
    return running;
}

std::map<std::string, uid_t> PrivateScheduler::runningPrograms() const {
    std::map<std::string, uid_t> running;
    for (const std::string &process : namesIn("/proc")) {
        std::error_code error; // as above
        const std::string program = fs::read_symlink("/proc/" + process + "/exe", error);
        struct stat status = {};
        if ((program.starts_with(root + "/lib/filter/") || program.starts_with(root + "/lib/backend/")) &&
            stat(("/proc/" + process).c_str(), &status) == 0) {
            running.emplace(program.substr((root + "/lib/").size()), status.st_uid);
        }
    }
    return running;
}

Command PrivateScheduler::filterByHand(const std::string &options, const std::string &stream) const {
    return {.program = root + "/lib/filter/" + filterName,
            .arguments = {queue, "1", "somebody", "a title", "1", options},
            .environment = filterEnvironment({.queue = queue,
                                              .server = root + "/socket",
                                              .serverRoot = root + "/etc",
                                              .temporaryFolder = root + "/spool/tmp"}),
            .input = Text{stream}};
}

void PrivateScheduler::guardAdministration() {
    std::string configuration = readFile(root + "/etc/cupsd.conf");
    const std::string policy = "<Policy default>\n";
    configuration.insert(configuration.find(policy) + policy.size(),
                         "<Limit CUPS-Add-Modify-Printer CUPS-Get-Devices>\n"
                         "  AuthType Basic\n  Require user nobody-at-all\n  Order deny,allow\n</Limit>\n");
    writeFile(root + "/etc/cupsd.conf", configuration);
    readConfigurationAgain([this] { return run(asStranger(clientCommand(LPINFO, {"-v"}))).exitStatus != 0; });
}

Command PrivateScheduler::asStranger(Command command) {
    if (geteuid() == 0) {
        std::vector<std::string> arguments = {"setpriv", "--reuid=nobody", "--regid=nogroup",
                                              "--clear-groups", command.program};
        arguments.insert(arguments.end(), command.arguments.begin() + 1, command.arguments.end());
        command.program = SETPRIV;
        command.arguments = arguments;
    }
    return command;
}

void PrivateScheduler::withdrawModels() const {
    fs::remove_all(root + "/share/model");
}

void PrivateScheduler::withdrawDocumentFilters() {
    for (const char *rules : {"cupsfilters.convs", "cupsfilters-ghostscript.convs"}) {
        fs::remove(fs::path(root + "/share/mime") / rules);
    }
    readConfigurationAgain([this] {
        return queueAttribute("document-format-supported").find("application/pdf") == std::string::npos;
    });
}

/// `done` is to hold once it has.
void PrivateScheduler::readConfigurationAgain(const std::function<bool()> &done) {
    daemon->send(SIGHUP);
    EXPECT_TRUE(waitUntil(done)) << quotedForLog(log());
}

std::vector<std::string> PrivateScheduler::keptFiles() const {
    std::vector<std::string> files = namesIn(root + "/etc/ppd");
    for (const std::string &name : namesIn(root + "/spool")) {
        if (name.starts_with('d')) {
            files.push_back(name);
        }
    }
    return files;
}

Command PrivateScheduler::printerForFilters(const std::vector<std::string> &arguments) const {
    const std::string printer = root + "/lib/backend/" + printerName;
    std::vector<std::string> all = {printer};
    if (geteuid() == 0) {
        all = {"setpriv", "--reuid=" + filterUser(), "--regid=" + filterGroup(), "--clear-groups", printer};
    }
    all.insert(all.end(), arguments.begin(), arguments.end());
    return {.program = geteuid() == 0 ? SETPRIV : printer, .arguments = all};
}

/// Lays out what an installation puts into CUPS's directories.
void PrivateScheduler::install(int backendMode) const {
    const fs::path programs = hostPath(VELTRIN_PROGRAMS);
    const fs::path filters = root + "/lib/filter";
    for (const char *filter : {filterName, rendererName}) {
        copyAsInstalled(programs / filter, filters / filter, fs::perms(0755));
    }
    for (const char *resource : {"Info.plist", "en.lproj/Localizable.strings"}) {
        copyAsInstalled(programs / resource, filters / resource, fs::perms(0644));
    }
    copyAsInstalled(hostPath(VELTRIN_PACKAGING "/veltrin.types"), root + "/share/mime/veltrin.types",
                    fs::perms(0644));
    copyAsInstalled(CUPS_DATADIR "/mime/mime.types", root + "/share/mime/mime.types", fs::perms(0644));
    // What makes raster of people's documents.
    for (const char *filter :
         {"gstopdf", "gstoraster", "imagetoraster", "pdftopdf", "rastertopdf", "texttopdf"}) {
        fs::create_symlink(fs::path(CUPS_SERVERBIN "/filter") / filter, filters / filter);
    }
    for (const char *rules : {"cupsfilters.convs", "cupsfilters.types", "cupsfilters-ghostscript.convs"}) {
        copyAsInstalled(fs::path(CUPS_DATADIR "/mime") / rules, fs::path(root + "/share/mime") / rules,
                        fs::perms(0644));
    }
    for (const char *data : {"charsets", "data"}) {
        fs::create_symlink(fs::path(CUPS_DATADIR) / data, fs::path(root + "/share") / data);
    }
    const fs::path backends = root + "/lib/backend";
    const auto mode = fs::perms(static_cast<unsigned>(backendMode));
    copyAsInstalled(programs / printerName, backends / printerName, mode);
    copyAsInstalled(programs / "veltrin-backend", backends / backendName, mode);
    fs::copy(programs / "scenarios", backends / "scenarios");
    writeFile(backends / channelOnly, "#!/bin/sh\nexec cat >/dev/null\n");
    fs::permissions(backends / channelOnly, fs::perms(0755));
    for (const char *model : {"lx-410n.ppd", "lx-520n.ppd", "qm7-k2b.ppd"}) {
        copyAsInstalled(fs::path(hostPath(VELTRIN_PPDS)) / model,
                        fs::path(root + "/share/model/veltrin") / model, fs::perms(0644));
    }
    // The scheduler's own helpers, through which it starts filters and finds models and devices.
    for (const char *helper : {"cups-exec", "cups-driverd", "cups-deviced"}) {
        copyAsInstalled(fs::path(CUPS_SERVERBIN "/daemon") / helper, fs::path(root + "/lib/daemon") / helper,
                        fs::perms(0755));
    }
}

void PrivateScheduler::configure() const {
    for (const char *directory : {"/etc/ppd", "/log", "/run", "/cache", "/spool/tmp"}) {
        fs::create_directories(root + directory);
    }
    writeFile(root + "/etc/cups-files.conf", filledIn(filesConfiguration));
    writeFile(root + "/etc/cupsd.conf", filledIn(schedulerConfiguration));
}

/// The configuration with this scheduler's root directory, user and group in place of their names between @.
std::string PrivateScheduler::filledIn(std::string configuration) const {
    configuration = std::regex_replace(configuration, std::regex("@ROOT@"), root);
    configuration = std::regex_replace(configuration, std::regex("@USER@"), filterUser());
    configuration = std::regex_replace(configuration, std::regex("@GROUP@"), filterGroup());
    return std::regex_replace(configuration, std::regex("@BUS@"), busConfiguration());
}

Command PrivateScheduler::clientCommand(const std::string &program,
                                        std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), program);
    return {.program = program,
            .arguments = std::move(arguments),
            .environment = std::map<std::string, std::string>{{"CUPS_SERVER", root + "/socket"},
                                                              {"CUPS_SERVERROOT", root + "/etc"},
                                                              {"HOME", root},
                                                              {"PATH", "/usr/bin:/bin"}},
            .input = Text{}};
}

} // namespace veltrin::test
