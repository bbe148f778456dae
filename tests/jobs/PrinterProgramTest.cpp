#include "log/DebugLog.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/NotificationPath.h"
#include "status/ReverseRecord.h"
#include "tests/jobs/PrinterFixture.h"
#include "tests/support/BusClient.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

// The virtual printer as people and as CUPS start it.

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::Command;
using test::ProcessResult;
using test::readFile;
using test::resetRecord;
using test::run;
using testing::ElementsAre;
using testing::HasSubstr;

Command printerCommand(const std::vector<std::string> &arguments) {
    Command command{test::hostPath(VELTRIN_PRINTER), {"veltrin-printer"}};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    return command;
}

std::string streamForPrinter() {
    StreamOptions options;
    options.identifier.reset();
    return makeStream(options);
}

// ---- By hand

class PrinterByHand : public test::PrinterFixture {};

class PrinterWithSignal : public PrinterByHand, public testing::WithParamInterface<int> {};

TEST_P(PrinterWithSignal, SaysGoodbyeWhenItIsToEnd) {
    startPrinter("one-sided", {});
    printer->send(GetParam());
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_THAT(notifications(), ElementsAre("> backend-alive", "> backend-byebye"));
    const nlohmann::json expected = {{"uri", uri}, {"jobs", nlohmann::json::array()}};
    EXPECT_EQ(nlohmann::json::parse(readFile(reportFile)), expected);
}

INSTANTIATE_TEST_SUITE_P(Signals, PrinterWithSignal, testing::Values(SIGTERM, SIGINT),
                         [](const auto &test) { return test.param == SIGTERM ? "SIGTERM" : "SIGINT"; });

TEST_F(PrinterByHand, IsHeardByWhoeverWaitsForIt) {
    test::BusClient host(uri + ".frontend");
    startPrinter("one-sided", {});
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    ASSERT_TRUE(host.awaitReceived(2));
    std::vector<std::string> objects;
    for (const test::BusClient::Message &message : host.received) {
        const char *name = nullptr;
        const char *object = nullptr;
        ASSERT_GT(sd_bus_message_read(message.get(), "sv", &name, "s", &object), 0);
        EXPECT_EQ(name, uri + ".frontend");
        objects.emplace_back(object);
    }
    EXPECT_THAT(objects, ElementsAre("backend-alive", "backend-byebye"));
}

TEST_F(PrinterByHand, TakesJobAfterJob) {
    startPrinter("one-sided", {"--jobs=2"});
    for (int job = 0; job < 2; ++job) {
        startFilter();
        EXPECT_EQ(finishFilter().exitStatus, 0);
    }
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    const nlohmann::json report = nlohmann::json::parse(readFile(reportFile));
    ASSERT_EQ(report["jobs"].size(), 2U);
    EXPECT_EQ(report["jobs"][1]["job"], 2);
    EXPECT_EQ(report["jobs"][1]["outcome"], "whole");
    EXPECT_THAT(Bytes(readFile(outputFile)),
                BytesAre(resetRecord() + streamForPrinter() + resetRecord() + streamForPrinter()));
}

TEST_F(PrinterByHand, ReportsTheJobThatItWasInTheMiddleOf) {
    startPrinter("port-busy-for-good", {});
    startFilter();
    awaitPrinter("< readPipe");
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 1);
    EXPECT_EQ(reportedJob()["outcome"], "broken");
}

TEST_F(PrinterByHand, ListsTheScenariosThatComeWithIt) {
    const ProcessResult result = run(printerCommand({"--list-scenarios"}));
    EXPECT_EQ(result.exitStatus, 0);
    const std::vector<std::string> lines = test::linesOf(result.output);
    EXPECT_THAT(lines,
                testing::Contains("cover-open            Somebody opens the cover for six seconds after the "
                                  "first page"));
    EXPECT_EQ(lines.size(), 14U);
    for (const std::string &line : lines) {
        const std::string name = line.substr(0, line.find(' '));
        printer.emplace(printerCommand({"--scenario=" + name, uri}));
        awaitPrinter("listening");
        printer->send(SIGTERM);
        EXPECT_EQ(printer->finish().exitStatus, 0) << name;
    }
}

TEST_F(PrinterByHand, EndsWhenTheLastJobIsOnPaper) {
    test::writeFile("/tmp/slow.json", R"({"description": "x", "printer": {"pagesPerMinute": 120}})");
    printer.emplace(printerCommand(
        {"--jobs=1", "--scenario=/tmp/slow.json", std::string("--report=") + reportFile, uri}));
    awaitPrinter("listening");
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(reportedJob()["printed"], 1);
    EXPECT_THAT(printerLines(printer->output()), testing::Contains("job 1 printed: 1 of 1 pages"));
}

TEST_F(PrinterByHand, EndsWhenThePaperIsOutAndReportsWhatIsPrinted) {
    test::writeFile("/tmp/out.json", R"({"description": "x", "printer": {"pagesPerMinute": 6000,
                        "trays": {"tray1": {"sheets": 1}}}})");
    printer.emplace(
        printerCommand({"--jobs=1", "--scenario=/tmp/out.json", std::string("--report=") + reportFile, uri}));
    awaitPrinter("listening");
    StreamOptions options;
    options.pages = 3;
    options.paperTray = 2;
    startFilter({.stream = makeStream(options)});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(reportedJob()["printed"], 1);
    EXPECT_EQ(reportedJob()["pages"].size(), 3U);
    EXPECT_THAT(printerLines(printer->output()),
                testing::Contains("job 1 not printed to its end: 1 of 3 pages, status 35/1/0 Tray 1 empty"));
}

TEST_F(PrinterByHand, EndsTheJobAndItselfWhenTheBusDies) {
    startPrinter("port-busy-for-good");
    startFilter();
    awaitPrinter("< readPipe");
    bus.kill();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-printer: the message bus is lost\n");
    EXPECT_EQ(reportedJob()["outcome"], "broken");
    filter->send(SIGKILL); // it waits for its backend for long
    finishFilter();
}

TEST_F(PrinterByHand, WaitsForTheBusIfItIsToStay) {
    startPrinter("one-sided", {"--stay"});
    bus.kill();
    awaitPrinter("! the message bus is lost: waiting for it");
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
}

TEST_F(PrinterByHand, DoesNotTakeThePlaceOfAnother) {
    startPrinter("one-sided", {});
    const ProcessResult result = run(printerCommand({uri}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-printer: another printer or backend serves \"" + uri + "\"\n");
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
}

TEST_F(PrinterByHand, LeavesItsFilesAloneWhereItCannotStart) {
    startPrinter("one-sided", {});
    test::writeFile("/tmp/earlier", "of another printer");
    EXPECT_EQ(run(printerCommand({"--output=/tmp/earlier", "--report=/tmp/earlier", uri})).exitStatus, 1);
    EXPECT_EQ(readFile("/tmp/earlier"), "of another printer");

    test::writeFile(outputFile, "of a job before");
    printer->send(SIGTERM);
    finishPrinter();
    startPrinter("one-sided", {});
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(readFile(outputFile), "") << "made anew";
}

TEST_F(PrinterByHand, ServesASecondHostOnceTheFirstHasSaidGoodbye) {
    startPrinter("cover-open", {"--jobs=2"});
    StreamOptions options;
    options.pages = 3;
    options.bandsPerPage = 3; // fills the memory while the cover is open
    startFilter({.stream = makeStream(options)});
    awaitPrinter("> readPipe, 64 bytes");
    test::Process second(filterOnBus());
    ASSERT_TRUE(printer->waitUntil(
        [&] { return printer->output().find("has announced itself and waits") != std::string::npos; }));
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(second.finish().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    const nlohmann::json report = nlohmann::json::parse(readFile(reportFile));
    ASSERT_EQ(report["jobs"].size(), 2U);
    EXPECT_EQ(report["jobs"][0]["outcome"], "whole");
    EXPECT_EQ(report["jobs"][0]["pages"].size(), 3U);
    EXPECT_EQ(report["jobs"][1]["outcome"], "whole");
    EXPECT_EQ(report["jobs"][1]["pages"].size(), 1U);
}

TEST_F(PrinterByHand, HintsAtAFilterThatLooksForAnotherPrinter) {
    startPrinter("one-sided", {});
    const std::string own = uri;
    uri = "socket://other.example";
    for (int i = 0; i < 2; ++i) {
        startFilter();
        awaitLog("FrontendIPC sendData: waiting for backend alive...");
        filter->send(SIGKILL);
        finishFilter();
        std::filesystem::remove(debugLogPath);
    }
    const std::string hint =
        R"(hint: a filter looks for the printer "socket://other.example"; this one is ")" + own + "\"";
    awaitPrinter(hint);
    printer->send(SIGTERM);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    const std::vector<std::string> lines = printerLines(printer->output());
    EXPECT_EQ(std::count(lines.begin(), lines.end(), hint), 1);
}

TEST(PrinterOnAClosedBus, HintsThatItsUserMayNotTakePart) {
    const test::PrivateBus bus(std::string(test::PrivateBus::systemPolicy) +
                               R"(<policy context="mandatory">
                                    <deny send_type="signal" send_interface="org.veltrin.Notifications1"/>
                                  </policy>)");
    test::Process printer(printerCommand({"usb://printer"}));
    EXPECT_TRUE(printer.waitUntil([&] {
        return printer.output().find("hint: the bus does not let this user take part") != std::string::npos;
    }));
    printer.send(SIGTERM);
    EXPECT_EQ(printer.finish().exitStatus, 0);
}

TEST_F(PrinterByHand, CannotDoWithoutABus) {
    bus.kill();
    const ProcessResult result = run(printerCommand({uri}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                testing::MatchesRegex("veltrin-printer: cannot connect to the system bus: .*\n"));
}

TEST_F(PrinterByHand, RefusesMistakes) {
    test::writeFile("/tmp/bad.json", R"({"description": "x", "printer": {"model": 4}})");

    struct Mistake {
        std::vector<std::string> arguments;
        int exitStatus;
        std::string message;
    };

    // A mistake in one line.
    // clang-format off
    const std::vector<Mistake> mistakes = {
        {{"--jobs=1"}, 2, "wants one device URI, or --listen"},
        {{""}, 2, "wants one device URI, or --listen"},
        {{uri, "another"}, 2, "wants one device URI, or --listen"},
        {{"--jobs=0", uri}, 2, "--jobs does not take '0'"},
        {{"--jobs=many", uri}, 2, "--jobs does not take 'many'"},
        {{"--scenario=/tmp/none.json", uri}, 1, "/tmp/none.json: No such file or directory"},
        {{"--scenario=/tmp/bad.json", uri}, 1, "/tmp/bad.json: printer.model must be a whole number from 0 to 3"},
        {{"--scenario=none", uri}, 1, "there is no scenario \"none\", but busy-port, cover-open, cut-wire, duplex, "
                                      "empty-tray, fast, garbled-records, goodbye, little-memory, low-toner, "
                                      "never-answers, service-call, slow-wire, switched-off"},
        {{"--report=/tmp/none/report", uri}, 1, "/tmp/none/report: No such file or directory"},
        {{"--output=/tmp", uri}, 1, "/tmp: Is a directory"},
    };
    // clang-format on
    for (const Mistake &mistake : mistakes) {
        const ProcessResult result = run(printerCommand(mistake.arguments));
        const std::string help = mistake.exitStatus == 2 ? "Try 'veltrin-printer --help'.\n" : "";
        EXPECT_EQ(result.exitStatus, mistake.exitStatus);
        EXPECT_EQ(result.errors, "veltrin-printer: " + mistake.message + "\n" + help);
        EXPECT_EQ(result.output, "");
    }
}

TEST_F(PrinterByHand, FailsWhenItCannotWrite) {
    printer.emplace(printerCommand({"--report=/dev/full", uri}));
    awaitPrinter("listening");
    printer->send(SIGTERM);
    ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-printer: /dev/full: No space left on device\n");

    printer.emplace(printerCommand({"--output=/dev/full", uri}));
    awaitPrinter("listening");
    startFilter();
    result = printer->finish();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-printer: /dev/full: No space left on device\n");

    Command command = printerCommand({uri});
    command.output = test::File{"/dev/full"};
    EXPECT_EQ(run(command).exitStatus, 1);
}

/// A terminal of 60 columns.
class Screen {
  public:
    Screen() {
        EXPECT_EQ(grantpt(terminal), 0);
        EXPECT_EQ(unlockpt(terminal), 0);
        std::array<char, 64> name{};
        EXPECT_EQ(ptsname_r(terminal, name.data(), name.size()), 0);
        screen = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        winsize size{};
        size.ws_col = 60;
        size.ws_row = 25;
        EXPECT_EQ(ioctl(screen, TIOCSWINSZ, &size), 0);
    }

    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    ~Screen() {
        close(screen);
        close(terminal);
    }

    [[nodiscard]] test::Descriptor output() const { return {screen}; }

    bool shows(const std::string &text) {
        std::array<char, 4096> block{};
        ssize_t got = 0;
        while ((got = read(terminal, block.data(), block.size())) > 0) {
            drawn.append(block.data(), static_cast<std::size_t>(got));
        }
        return drawn.find(text) != std::string::npos;
    }

    std::string drawn;

  private:
    int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    int screen = -1;
};

TEST_F(PrinterByHand, DrawsAPictureOnATerminal) {
    Screen screen;
    Command command = printerCommand({uri});
    command.output = screen.output();
    printer.emplace(command);
    const auto shows = [&screen](const std::string &text) { return screen.shows(text); };
    const std::string &drawn = screen.drawn;
    EXPECT_TRUE(printer->waitUntil([&] { return shows("> backend-alive\r\n"); })) << drawn;
    EXPECT_THAT(drawn, HasSubstr("status         0/0/0 Ready\r\n"));
    EXPECT_THAT(drawn, HasSubstr("[------------------------------]"));
    startFilter();
    // The next picture is drawn over the last one.
    EXPECT_TRUE(printer->waitUntil([&] { return shows("A\x1b[J" + uri + "\r\n"); })) << drawn;
    EXPECT_TRUE(printer->waitUntil([&] { return shows("< fronted-alive\r\n"); })) << drawn;
    for (const std::string &line : test::linesOf(drawn)) {
        EXPECT_LE(line.size(), 60U + std::string("\x1b[10A\x1b[J").size()) << line;
    }
    printer->send(SIGTERM);
    EXPECT_EQ(printer->finish().exitStatus, 1); // in the middle of a job
    EXPECT_TRUE(shows("> backend-byebye\r\n")) << "the last picture shows the end: " << drawn;
}

/// A job of a few thousand notifications.
std::string streamOfManyBlocks() {
    StreamOptions options;
    options.pages = 2;
    options.bandsPerPage = 800;
    options.planeSizes = {64, 0, 0, 0};
    return makeStream(options);
}

/// A pipe that keeps writes apart, and counts them.
class CountingPipe {
  public:
    CountingPipe() {
        EXPECT_EQ(pipe2(ends.data(), O_DIRECT | O_CLOEXEC), 0);
        EXPECT_GE(fcntl(ends[1], F_SETPIPE_SZ, 1024 * 1024), 1024 * 1024);
    }

    CountingPipe(const CountingPipe &) = delete;
    CountingPipe &operator=(const CountingPipe &) = delete;

    ~CountingPipe() { finish(); }

    [[nodiscard]] test::Descriptor input() const { return {ends[1]}; }

    /// Reads what has been written, once nobody else writes any more.
    void finish() {
        if (ends[1] == -1) {
            return;
        }
        close(std::exchange(ends[1], -1));
        std::array<char, PIPE_BUF> block{};
        ssize_t got = 0;
        while ((got = read(ends[0], block.data(), block.size())) > 0) {
            text.append(block.data(), static_cast<std::size_t>(got));
            EXPECT_EQ(text.back(), '\n') << "a line was torn";
            // What is full is continued by the next write at once.
            writes += got < PIPE_BUF - 200 ? 1 : 0;
        }
        close(ends[0]);
        EXPECT_LE(writes,
                  10 * std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() + 3);
    }

    std::string text;
    double writes = 0;

  private:
    std::array<int, 2> ends{-1, -1};
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

TEST_F(PrinterByHand, WritesItsLinesTogetherTenTimesASecondAtMost) {
    CountingPipe pipe;
    Command command = printerCommand({"--jobs=1", uri});
    command.output = pipe.input();
    printer.emplace(command);
    startFilter({.stream = streamOfManyBlocks()});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    pipe.finish();
    const std::vector<std::string> lines = printerLines(pipe.text);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "< writePipe, 64 bytes"), 2 * (800 + 1));
    EXPECT_EQ(lines.front(), "listening");
    EXPECT_EQ(lines.back(), "> backend-byebye");
}

TEST_F(PrinterByHand, DrawsTenTimesASecondAtMost) {
    const auto begin = std::chrono::steady_clock::now();
    Screen screen;
    Command command = printerCommand({"--jobs=1", uri});
    command.output = screen.output();
    printer.emplace(command);
    startFilter({.stream = streamOfManyBlocks()});
    EXPECT_TRUE(printer->waitUntil([&] { return screen.shows("> backend-byebye\r\n"); })) << screen.drawn;
    EXPECT_EQ(finishPrinter().exitStatus, 0);
    EXPECT_EQ(finishFilter().exitStatus, 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::size_t pictures = 1;
    for (std::size_t at = 0; (at = screen.drawn.find("\x1b[J", at)) != std::string::npos; ++at) {
        ++pictures;
    }
    EXPECT_GT(pictures, 2U);
    EXPECT_LE(static_cast<double>(pictures), 10 * taken.count() + 2);
}

TEST_F(PrinterByHand, DrawsNothingWhereItCannotStart) {
    bus.kill();
    Screen screen;
    Command command = printerCommand({uri});
    command.output = screen.output();
    EXPECT_EQ(run(command).exitStatus, 1);
    EXPECT_FALSE(screen.shows(uri));
}

// ---- As a CUPS backend

struct UriCase {
    const char *name;
    const char *uri;
    unsigned model;
    bool duplexUnit;
};

void PrintTo(const UriCase &one, std::ostream *out) {
    *out << one.uri;
}

class PrinterAsBackend : public test::PrinterFixture {
  protected:
    static inline const std::vector<std::string> jobArguments = {"7", "user", "title", "1", ""};

    void startBackend(const std::vector<std::string> &arguments = jobArguments,
                      std::optional<test::Descriptor> errors = std::nullopt) {
        printer.emplace(backendCommand(arguments, errors));
    }

    /// What `startBackend` starts.
    [[nodiscard]] Command backendCommand(const std::vector<std::string> &arguments = jobArguments,
                                         std::optional<test::Descriptor> errors = std::nullopt) const {
        Command command = printerCommand(arguments);
        if (errors) {
            command.errors = *errors;
        }
        command.arguments[0] = "veltrin-printer:/lx-520n";
        command.environment = {{"DEVICE_URI", uri},
                               {"DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SYSTEM_BUS_ADDRESS")}};
        command.input = test::Pipe();
        return command;
    }

    [[nodiscard]] bool says(const std::string &text) {
        return printer->waitUntil([&] { return printer->errors().find(text) != std::string::npos; });
    }

    /// Starts a second backend of the same device URI, once the first has the printer.
    void startBackendBehind(test::Process &first) {
        ASSERT_TRUE(first.waitUntil([&] { return first.errors().find("listening") != std::string::npos; }));
        startBackend();
        ASSERT_TRUE(says("INFO: Waiting for another job to leave the printer.\n"));
    }
};

TEST_F(PrinterAsBackend, ListsItsPrinters) {
    const ProcessResult result = run(printerCommand({}));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(test::linesOf(result.output),
                ElementsAre(R"(direct veltrin-printer:/lx-410n "Morvex LX 410N" "Virtual Morvex LX 410N" )"
                            R"("MFG:Morvex;MDL:LX 410N;CLS:PRINTER;" "")",
                            R"(direct veltrin-printer:/lx-520n "Morvex LX 520N" "Virtual Morvex LX 520N" )"
                            R"("MFG:Morvex;MDL:LX 520N;CLS:PRINTER;" "")"));
}

TEST_F(PrinterAsBackend, TakesAFiltersJob) {
    uri = "veltrin-printer:/lx-520n";
    startBackend();
    ASSERT_TRUE(says("listening"));
    StreamOptions options;
    options.pages = 2;
    startFilter({.stream = makeStream(options),
                 .options = test::JobOptions{.duplexing = 2, .sidesImaged = 2}.argument()});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
    // The URI stands for a model with a duplex unit.
    EXPECT_THAT(result.errors, HasSubstr("job 1 whole: 2 pages for 1 sheet"));
    for (const std::string &line : test::linesOf(result.errors)) {
        EXPECT_THAT(line, testing::StartsWith("DEBUG: "));
    }
}

/// The record that the printer of a URI sends a host.
class PrinterOfUri : public PrinterAsBackend, public testing::WithParamInterface<UriCase> {};

TEST_P(PrinterOfUri, IsTheModelThatTheUriNames) {
    uri = GetParam().uri;
    startBackend();
    ASSERT_TRUE(says("> backend-alive"));
    test::BusClient host(uri + ".frontend");
    const std::string path = platform::notificationPath(uri + ".backend");
    host.signal(path, test::notificationArguments(uri + ".backend", "fronted-alive"));
    ASSERT_TRUE(host.awaitReceived(1));
    const std::string backend = sd_bus_message_get_sender(host.received.front().get());
    host.answer(host.received.front().get());
    host.call(backend, path, test::notificationArguments(uri + ".backend", "readPipe"));
    ASSERT_TRUE(host.awaitReceived(2));
    std::string problem;
    const auto reply = platform::readNotification(host.received.back().get(), problem);
    ASSERT_TRUE(reply && reply->notification.data) << problem;
    ReverseRecord record{};
    ASSERT_EQ(reply->notification.data->size(), sizeof record);
    std::memcpy(&record, reply->notification.data->data(), sizeof record);
    EXPECT_EQ(Model_Info.valueIn(record), GetParam().model);
    EXPECT_EQ(DuplexInstall.valueIn(record), GetParam().duplexUnit ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Uris, PrinterOfUri,
    testing::Values(UriCase{"OneSided", "veltrin-printer:/lx-410n", 0, false},
                    UriCase{"TwoSided", "veltrin-printer:/lx-520n", 2, true},
                    UriCase{"TwoSidedInAScenario", "veltrin-printer:/lx-520n?scenario=low-toner", 2, true},
                    UriCase{"OfTheScenario", "veltrin-printer:/lx-410n?scenario=duplex", 2, true},
                    UriCase{"Unlisted", "veltrin-printer:/another", 0, false}),
    test::nameOfCase<UriCase>);

TEST_F(PrinterAsBackend, GoesOnWhenNobodyReadsItsMessagesAndCallsThatNoCancellation) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    startBackend(jobArguments, test::Descriptor{ends[1]});
    close(ends[1]);
    close(ends[0]);
    StreamOptions options;
    options.pages = 3;
    options.bandsPerPage = 8;
    options.planeSizes = {1'000'000, 0, 0, 0};
    startFilter({.stream = makeStream(options)});
    awaitLog("DriverFilter checkHeaderSize: Printer not ready...");
    filter->send(SIGKILL); // a broken job, which a cancelled one is not called
    finishFilter();
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 1);
}

TEST_F(PrinterAsBackend, WritesItsMessagesTogetherTenTimesASecondAtMost) {
    CountingPipe pipe;
    startBackend(jobArguments, pipe.input());
    startFilter({.stream = streamOfManyBlocks()});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 0);
    pipe.finish();
    const std::vector<std::string> lines = test::linesOf(pipe.text);
    EXPECT_THAT(lines, testing::Each(testing::StartsWith("DEBUG: ")));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "DEBUG: < writePipe, 64 bytes"), 2 * (800 + 1));
}

TEST_F(PrinterAsBackend, TakesACancelledJobToItsEnd) {
    startBackend();
    ASSERT_TRUE(says("listening"));
    startFilter();
    ASSERT_TRUE(says("> readPipe"));
    // As the scheduler does: to both at once.
    printer->send(SIGTERM);
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 1);
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("command GDIC CANCEL"));
    EXPECT_THAT(result.errors, HasSubstr("job 1 cancelled"));
    EXPECT_THAT(result.errors, HasSubstr("< frontend-byebye"));
}

TEST_F(PrinterAsBackend, FailsWithABrokenJob) {
    startBackend();
    ASSERT_TRUE(says("listening"));
    startFilter({.stream = makeStream(StreamOptions()).substr(0, 2000)});
    EXPECT_EQ(finishFilter().exitStatus, 1);
    // The filter sends the cancel record, so the printer is not left with half a job.
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("job 1 cancelled"));

    startBackend();
    ASSERT_TRUE(says("listening"));
    startFilter();
    ASSERT_TRUE(says("> readPipe"));
    filter->send(SIGKILL);
    EXPECT_EQ(finishFilter().signal, SIGKILL);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_THAT(printer->errors(), HasSubstr("ERROR: job 1 broken"));
}

TEST_F(PrinterAsBackend, TakesWhatComesOnStandardInput) {
    startBackend();
    printer->write(streamForPrinter());
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("job 1 whole: 1 page for 1 sheet"));
}

TEST_F(PrinterAsBackend, FailsWhenNothingComesAtAll) {
    startBackend();
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_THAT(printer->errors(), HasSubstr("ERROR: Nothing has come to be printed.\n"));

    startBackend({"7", "user", "title", "1", "", "/tmp"});
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_EQ(printer->errors(), "ERROR: /tmp: Is a directory\n");
}

TEST_F(PrinterAsBackend, TakesItsNameForTheUriWhereThatIsEmpty) {
    uri.clear();
    startBackend();
    ASSERT_TRUE(says("listening"));
    uri = "veltrin-printer:/lx-520n"; // its name
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 0);
}

TEST_F(PrinterAsBackend, TakesAFileAsOftenAsCopiesAreWanted) {
    test::writeFile("/tmp/raw", streamForPrinter());
    startBackend({"7", "user", "title", "2", "", "/tmp/raw"});
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(test::linesOf(result.errors),
                ElementsAre("DEBUG: job 1 whole: 1 page for 1 sheet, 1 copy, 4564 bytes",
                            "DEBUG: job 2 whole: 1 page for 1 sheet, 1 copy, 4564 bytes"));

    test::writeFile("/tmp/raw", "no page stream");
    startBackend({"7", "user", "title", "1", "", "/tmp/raw"});
    EXPECT_EQ(printer->finish().exitStatus, 1);
    startBackend({"7", "user", "title", "1", "", "/tmp/none"});
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_EQ(printer->errors(), "ERROR: /tmp/none: No such file or directory\n");
    startBackend({"7", "user", "title", "0", "", "/tmp/raw"});
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_EQ(printer->errors(), "ERROR: the number of copies is \"0\"\n");
}

TEST_F(PrinterAsBackend, TakesAllDocumentsOfAJob) {
    startBackend();
    ASSERT_TRUE(says("listening"));
    for (int document = 0; document < 2; ++document) {
        startFilter();
        EXPECT_EQ(finishFilter().exitStatus, 0);
    }
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("job 1 whole"));
    EXPECT_THAT(result.errors, HasSubstr("job 2 whole"));
}

TEST_F(PrinterAsBackend, FailsWhereOneDocumentWasBroken) {
    startBackend();
    ASSERT_TRUE(says("listening"));
    startFilter();
    ASSERT_TRUE(says("> readPipe"));
    filter->send(SIGKILL);
    finishFilter();
    ASSERT_TRUE(says("job 1 broken"));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 1);
}

TEST_F(PrinterAsBackend, WaitsWhileAnotherJobHasThePrinter) {
    test::Process first(backendCommand());
    startBackendBehind(first);
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0) << "the first job's";
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 0);
    ASSERT_TRUE(says("INFO: Printing.\n"));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("job 1 whole"));
}

TEST_F(PrinterAsBackend, AsksForAnotherTryWhereItsFilterGaveUpAsThePrinterBecameFree) {
    constexpr int backendRetryCurrent = 7;
    test::Process first(backendCommand());
    startBackendBehind(first);
    first.send(SIGTERM);
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 0);
    ASSERT_TRUE(says("INFO: Printing"));
    printer->closeInput();
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, backendRetryCurrent);
    EXPECT_THAT(result.errors, HasSubstr("INFO: Still waiting for another job to leave the printer.\n"));
}

TEST_F(PrinterAsBackend, AsksForAnotherTryWhereThePrinterWasBusyAllTheTime) {
    constexpr int backendRetryCurrent = 7;
    test::Process first(backendCommand());
    startBackendBehind(first);
    printer->closeInput(); // its filter has given up
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, backendRetryCurrent);
    EXPECT_EQ(test::linesOf(result.errors).back(),
              "INFO: Still waiting for another job to leave the printer.");

    startBackend();
    ASSERT_TRUE(says("INFO: Waiting for another job"));
    printer->send(SIGTERM);
    EXPECT_EQ(printer->finish().exitStatus, 0) << "cancelled";
    first.send(SIGTERM);
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 0);
}

TEST_F(PrinterAsBackend, LeavesTheFilterOfAnotherJobToItsOwnBackend) {
    test::Process first(backendCommand());
    ASSERT_TRUE(first.waitUntil([&] { return first.errors().find("listening") != std::string::npos; }));
    startBackend({"8", "user", "title", "1", ""});
    ASSERT_TRUE(says("INFO: Waiting for another job"));
    startFilter({.id = "8"});
    ASSERT_TRUE(first.waitUntil(
        [&] { return first.errors().find(": it works for job 8, not 7\n") != std::string::npos; }));
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 1) << "there was no filter of its own";
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 0);
    EXPECT_THAT(printer->errors(), HasSubstr("job 1 whole"));
}

TEST_F(PrinterAsBackend, IsNotHeardByTheFilterOfAnotherJob) {
    startFilter({.id = "8"});
    awaitLog("FrontendIPC sendData: waiting for backend alive...");
    test::Process first(backendCommand());
    const auto isRefused = [] {
        const std::vector<std::string> messages = logMessages();
        return std::any_of(messages.begin(), messages.end(), [](const std::string &message) {
            return message.starts_with("FrontendIPC: refused ") &&
                   message.ends_with(": it works for job 7, not 8");
        });
    };
    ASSERT_TRUE(filter->waitUntil(isRefused));
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 1) << "there was no filter of its own";
    startBackend({"8", "user", "title", "1", ""});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 0);
}

TEST_F(PrinterAsBackend, LeavesTheFilesAloneWhileItWaits) {
    uri = std::string("veltrin-printer:/lx-520n?output=") + outputFile + "&report=" + reportFile;
    test::writeFile(reportFile, "the report before");
    test::Process first(backendCommand());
    ASSERT_TRUE(first.waitUntil([&] { return first.errors().find("listening") != std::string::npos; }));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    const std::string printed = readFile(outputFile);
    EXPECT_THAT(Bytes(printed), BytesAre(resetRecord() + streamForPrinter()));
    EXPECT_EQ(readFile(reportFile), "");

    startBackend({"8", "user", "title", "1", ""});
    ASSERT_TRUE(says("INFO: Waiting for another job"));
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(printed));
    first.closeInput();
    EXPECT_EQ(first.finish().exitStatus, 0);
    ASSERT_TRUE(says("INFO: Printing.\n"));
    EXPECT_EQ(readFile(outputFile), "");

    test::Process third(backendCommand({"9", "user", "title", "1", ""}));
    ASSERT_TRUE(third.waitUntil([&] { return third.errors().find("INFO: Waiting") != std::string::npos; }));
    test::writeFile(reportFile, "the report of another");
    third.closeInput();
    EXPECT_FALSE(third.finish().timedOut);
    EXPECT_EQ(readFile(reportFile), "the report of another");
    printer->closeInput(); // its filter did not wait so long
    constexpr int backendRetryCurrent = 7;
    EXPECT_EQ(printer->finish().exitStatus, backendRetryCurrent);
}

TEST_F(PrinterAsBackend, TakesScenarioAndFilesFromItsUri) {
    uri = std::string("veltrin-printer:/lx-520n?scenario=empty-tray&output=") + outputFile +
          "&report=%2Ftmp%2Freport.json";
    startBackend();
    ASSERT_TRUE(says("listening"));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    printer->closeInput();
    EXPECT_EQ(printer->finish().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + streamForPrinter()));
    EXPECT_EQ(reportedJob()["outcome"], "whole");
    EXPECT_EQ(nlohmann::json::parse(readFile(reportFile))["uri"], uri);
}

TEST_F(PrinterAsBackend, RefusesMistakesInItsUri) {
    std::filesystem::create_symlink("/tmp/elsewhere", "/tmp/link");
    for (const auto &[query, message] : std::vector<std::pair<std::string, std::string>>{
             {"scenrio=fast",
              "the device URI has \"scenrio\", but only scenario, output and report mean anything"},
             {"scenario=/tmp/none.json", "/tmp/none.json: No such file or directory"},
             {"output=/tmp/none/file", "/tmp/none/file: No such file or directory"},
             {"report=/tmp/link", "/tmp/link: Too many levels of symbolic links"}}) {
        uri = "veltrin-printer:/lx-520n?" + query;
        startBackend();
        const ProcessResult result = printer->finish();
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.errors, "ERROR: " + message + "\n");
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));
}

TEST_F(PrinterAsBackend, PrintsAFileToItsEnd) {
    test::writeFile("/tmp/raw", streamForPrinter());
    uri = std::string("veltrin-printer:/lx-410n?report=") + reportFile;
    startBackend({"7", "user", "title", "1", "", "/tmp/raw"});
    EXPECT_EQ(printer->finish().exitStatus, 0);
    EXPECT_EQ(reportedJob()["printed"], 1);
}

TEST_F(PrinterAsBackend, FailsWithoutABus) {
    bus.kill();
    startBackend();
    EXPECT_EQ(printer->finish().exitStatus, 1);
    EXPECT_THAT(printer->errors(), HasSubstr("ERROR: cannot connect to the system bus"));
}

} // namespace
} // namespace veltrin
