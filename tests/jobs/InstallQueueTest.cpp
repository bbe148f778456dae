// The program that adds queues, as people and scripts run it, with a real scheduler.

#include "tests/jobs/PrintedDocumentFixture.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin {
namespace {

using test::Command;
using test::MeanColour;
using test::Patch;
using test::PrivateScheduler;
using test::Process;
using test::ProcessResult;
using test::Text;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A terminal with somebody in front of it.
class Terminal {
  public:
    Terminal() {
        if (openpty(&keyboard, &programEnd, nullptr, nullptr, nullptr) != 0) {
            ADD_FAILURE() << "openpty: " << std::strerror(errno);
        }
    }

    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    ~Terminal() {
        close(keyboard);
        close(programEnd);
    }

    /// A program's end.
    [[nodiscard]] test::Descriptor line() const { return {programEnd}; }

    void type(std::string_view text) const {
        EXPECT_EQ(write(keyboard, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /// All that has been shown up to now, what was typed included; lines end with a line feed alone.
    const std::string &screen() {
        for (pollfd end{keyboard, POLLIN, 0}; poll(&end, 1, 0) > 0;) {
            std::array<char, 4096> bytes{};
            const ssize_t length = read(keyboard, bytes.data(), bytes.size());
            if (length <= 0) {
                break;
            }
            std::remove_copy(bytes.begin(), bytes.begin() + length, std::back_inserter(shown), '\r');
        }
        return shown;
    }

  private:
    int keyboard = -1;
    int programEnd = -1;
    std::string shown;
};

/// What is typed in answer to a question.
struct Typed {
    std::string question;
    std::string answer;
};

class InstallQueueTest : public test::PrintedDocumentFixture {
  protected:
    ProcessResult install(const std::vector<std::string> &options, const std::string &answers = {}) {
        Command command = scheduler.clientCommand(test::hostPath(VELTRIN_INSTALL_QUEUE), options);
        command.input = Text{answers};
        return test::run(command, std::chrono::seconds(60));
    }

    /// The same at a terminal, where each answer is typed once its question stands there; what is on the
    /// screen then.
    std::string installAtTerminal(const std::vector<std::string> &options,
                                  const std::vector<Typed> &answers) {
        Terminal terminal;
        Command command = scheduler.clientCommand(test::hostPath(VELTRIN_INSTALL_QUEUE), options);
        command.input = terminal.line();
        command.output = terminal.line();
        command.errors = terminal.line();
        Process program(command);
        for (const Typed &typed : answers) {
            EXPECT_TRUE(program.waitUntil([&] { return terminal.screen().ends_with(typed.question); }))
                << terminal.screen();
            terminal.type(typed.answer);
        }
        EXPECT_EQ(program.finish(std::chrono::seconds(60)).exitStatus, 0);
        return terminal.screen();
    }

    /// What the scheduler prints to by each of its queues.
    [[nodiscard]] std::string queues() const {
        return test::run(scheduler.clientCommand(LPSTAT, {"-v"})).output;
    }

    /// Lets printers be found in the network, at these addresses.
    void letBeFound(const std::vector<std::string> &addresses) {
        std::string script = "#!/bin/sh\ntest $# -eq 0 || exit 1\ncat <<'END'\n";
        for (const std::string &address : addresses) {
            script.append("network socket://").append(address);
            script += R"( "Morvex QM7-K2b" "QM7-K2b of the office" "MFG:Morvex;MDL:QM7-K2b;CLS:PRINTER;" "")";
            script += '\n';
        }
        test::writeFile("/tmp/finder", script + "END\n");
        scheduler.installBackend("snmp", "/tmp/finder");
    }

    /// The command with which the program says that all can be undone.
    static std::string undoingCommand(const std::string &output) {
        const std::string words = "To undo it: ";
        const std::size_t at = output.find(words);
        if (at == std::string::npos) {
            ADD_FAILURE() << "no way back is told: " << output;
            return "false";
        }
        return output.substr(at + words.size(), output.find('\n', at) - at - words.size());
    }

    void undo(const std::string &output) {
        const ProcessResult result = test::run(
            scheduler.clientCommand("/bin/sh", {"-c", "PATH=$PATH:/usr/sbin; " + undoingCommand(output)}));
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
    }

    const std::string onlyQueue = "device for Test_Queue: " + uri + "\n";
};

/// Where on the test page a colour is.
struct ColourCase {
    const char *name;
    Patch patch;
    bool red;
    bool green;
    bool blue;
};

TEST_F(InstallQueueTest, AnswersLeadToAQueueWithATestPageAndOneCommandTakesAllBack) {
    Process printer(printerCommand(R"({"description": "x", "printer": {"pagesPerMinute": 6000}})",
                                   {"--jobs=1", "--dpi=" + std::to_string(coarse)}));
    awaitPrinter(printer);
    const std::vector<std::string> before = scheduler.keptFiles();
    // Some of them are wrong, and asked for again.
    const ProcessResult result =
        install({}, "7\n" + uri + "\n4\nlx-520n\ntest_queue\noffice\nperhaps\n\nYES\n");
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("There is no number 7."));
    EXPECT_THAT(result.output, HasSubstr("\"4\" is none of the models. They are: lx-410n lx-520n qm7-k2b"));
    EXPECT_THAT(result.output, HasSubstr("There is a queue Test_Queue already, which prints to " + uri));
    EXPECT_THAT(result.output, HasSubstr("\"yes\" or \"no\", please."));
    EXPECT_THAT(result.output, HasSubstr("$ lpadmin -p office -E -v " + uri +
                                         " -m veltrin/lx-520n.ppd -D 'Morvex LX 520N'\n"));
    EXPECT_THAT(result.output, HasSubstr("$ lp -d office -t 'Veltrin test page' "));
    EXPECT_THAT(result.output, EndsWith("\nThe queue office has been added. To undo it: lpadmin -x office\n"
                                        "The test page has left the queue, and lies in the printer.\n"));
    EXPECT_EQ(printer.finish().exitStatus, 0);
    EXPECT_EQ(jobsIn(reportFile).at(0)["outcome"], "whole");

    const std::vector<test::PrintedSheet> sheets = test::printedSheets(sheetFolder);
    ASSERT_EQ(sheets.size(), 1U);
    for (const ColourCase &colour : {ColourCase{"Cyan", {72, 212, 90, 90}, false, true, true},
                                     ColourCase{"Magenta", {180, 212, 90, 90}, true, false, true},
                                     ColourCase{"Yellow", {288, 212, 90, 90}, true, true, false},
                                     ColourCase{"Black", {396, 212, 90, 90}, false, false, false},
                                     ColourCase{"Red", {72, 332, 90, 90}, true, false, false},
                                     ColourCase{"Green", {180, 332, 90, 90}, false, true, false},
                                     ColourCase{"Blue", {288, 332, 90, 90}, false, false, true}}) {
        constexpr double middle = 128;
        const MeanColour mean = sheets.front().front->meanIn(colour.patch);
        EXPECT_EQ(mean.red > middle, colour.red) << colour.name << ' ' << mean.red;
        EXPECT_EQ(mean.green > middle, colour.green) << colour.name << ' ' << mean.green;
        EXPECT_EQ(mean.blue > middle, colour.blue) << colour.name << ' ' << mean.blue;
    }

    EXPECT_THAT(queues(), HasSubstr("device for office: " + uri));
    undo(result.output);
    EXPECT_EQ(queues(), onlyQueue);
    EXPECT_EQ(scheduler.keptFiles(), before);
}

TEST_F(InstallQueueTest, WhatIsProposedIsTakenWithoutAQuestion) {
    letBeFound({"10.0.0.9"});
    const ProcessResult result = install({"--yes", "--no-test-page"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(queues(), HasSubstr("device for qm7-k2b: veltrin:socket://10.0.0.9\n"));
    EXPECT_THAT(result.output, HasSubstr(" -m veltrin/qm7-k2b.ppd "));
    EXPECT_THAT(result.output, Not(HasSubstr("$ lp ")));
    const ProcessResult again = install({"--yes", "--no-test-page"});
    EXPECT_EQ(again.exitStatus, 0) << again.errors;
    EXPECT_THAT(queues(), HasSubstr("device for qm7-k2b-2: veltrin:socket://10.0.0.9\n"));
    undo(result.output);
    undo(again.output);
    EXPECT_EQ(queues(), onlyQueue);
}

TEST_F(InstallQueueTest, TheReturnKeyAloneLeadsToAVirtualPrinterWhereNoneIsFound) {
    const ProcessResult result = install({"--no-test-page"}, "\n\n\n\n");
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("No printer is found.\n"));
    EXPECT_THAT(queues(), HasSubstr("device for virtual-lx-410n: veltrin-printer:/lx-410n\n"));
    EXPECT_THAT(result.output, HasSubstr(" -m veltrin/lx-410n.ppd "));
}

TEST_F(InstallQueueTest, AnAddressIsThatOfAPrinterInTheNetwork) {
    letBeFound({"printer.example", "10.0.0.9"});
    const ProcessResult result = install({"--no-test-page", "--name=a"}, "printer.example\n\n\n");
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(queues(), HasSubstr("device for a: veltrin:socket://printer.example:9100\n"));
    EXPECT_THAT(result.output, HasSubstr(" -m veltrin/qm7-k2b.ppd ")) << "as it says when it is looked for";
    const ProcessResult listed = install({"--no-test-page", "--name=b"}, "2\n1\ny\n");
    EXPECT_EQ(listed.exitStatus, 0) << listed.errors;
    EXPECT_THAT(queues(), AnyOf(HasSubstr("device for b: veltrin:socket://10.0.0.9\n"),
                                HasSubstr("device for b: veltrin:socket://printer.example\n")));
    EXPECT_THAT(listed.output, HasSubstr(" -m veltrin/lx-410n.ppd "));
}

TEST_F(InstallQueueTest, ATerminalShowsWhatIsShownWhereTheAnswersAreReadFromAFile) {
    const std::vector<std::string> options = {"--device=veltrin-printer:/lx-520n", "--no-test-page"};
    const ProcessResult read = install(options, "2\noffice\n\n");
    EXPECT_EQ(read.exitStatus, 0) << read.errors;
    undo(read.output);
    EXPECT_EQ(installAtTerminal(options, {{"Which model is it? [lx-520n] ", "2\n"},
                                          {"What is the queue to be called? [virtual-lx-520n] ", "office\n"},
                                          {"Add it? [yes] ", "\n"}}),
              read.output);
    EXPECT_THAT(queues(), HasSubstr("device for office: veltrin-printer:/lx-520n\n"));
}

TEST_F(InstallQueueTest, NothingIsDoneWhereThatIsNotAgreedTo) {
    const ProcessResult result =
        install({"--device=veltrin-printer:/lx-520n", "--model=lx-520n", "--name=office"}, "no\n");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-install-queue: Nothing has been done.\n");
    EXPECT_EQ(queues(), onlyQueue);
}

// ---- What may go wrong

struct ErrorCase {
    const char *name;
    std::vector<std::string> options;
    int exitStatus;
    const char *errors;
    const char *answers = "";
};

class InstallQueueError : public InstallQueueTest, public testing::WithParamInterface<ErrorCase> {};

TEST_P(InstallQueueError, TellsWhatToDoAndLeavesNothing) {
    const ProcessResult result = install(GetParam().options, GetParam().answers);
    EXPECT_EQ(result.exitStatus, GetParam().exitStatus);
    EXPECT_EQ(result.errors, std::string("veltrin-install-queue: ") + GetParam().errors);
    EXPECT_EQ(queues(), onlyQueue);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, InstallQueueError,
    testing::Values(
        ErrorCase{"NoValue",
                  {"--name"},
                  2,
                  "option '--name' requires an argument\nTry 'veltrin-install-queue --help'.\n"},
        ErrorCase{"EmptyValue",
                  {"--device="},
                  2,
                  "option '--device' requires an argument\nTry 'veltrin-install-queue --help'.\n"},
        ErrorCase{"NoNumber",
                  {"--wait=soon"},
                  2,
                  "--wait takes a number of seconds, not 'soon\'\nTry 'veltrin-install-queue --help'.\n"},
        ErrorCase{
            "NoPrinter",
            {"--yes"},
            1,
            "No printer is found.\n"
            "  Is it switched on, and is its cable plugged in or its network the one of this machine?\n"
            "  One in the network may be found by its address: --device printer.example\n"
            "  Printers on the USB, and some in the network, are found only with the backend as root's own:\n"
            "    chmod 0700 " CUPS_SERVERBIN "/backend/veltrin\n"
            "  To try it without a printer: --device veltrin-printer:/lx-520n\n"},
        ErrorCase{"NumberAsDevice", {"--device=1"}, 1, "1 is no device.\n"},
        ErrorCase{"NoDevice",
                  {"--device=a b"},
                  1,
                  "\"a b\" is neither an address such as printer.example nor a device URI such as "
                  "veltrin:socket://printer.example:9100.\n"},
        ErrorCase{"CupsOwnDevice",
                  {"--device=socket://printer.example"},
                  1,
                  "socket: alone does not know Veltrin. Put veltrin: in front of it: "
                  "veltrin:socket://printer.example\n"},
        ErrorCase{"NoBackend",
                  {"--device=nobody:/x", "--model=lx-410n", "--yes"},
                  1,
                  "CUPS has no backend for nobody:/x.\n"
                  "  The device URI begins with the name of one; \"lpinfo -v\" lists them.\n"},
        ErrorCase{"UnknownModel",
                  {"--model=lx-9000"},
                  1,
                  "\"lx-9000\" is none of the models. They are: lx-410n lx-520n qm7-k2b\n"},
        ErrorCase{"ModelNotToBeKnown",
                  {"--device=printer.example", "--yes"},
                  1,
                  "veltrin:socket://printer.example:9100 does not tell which model it is; --model has to.\n"
                  "  One of: lx-410n lx-520n qm7-k2b\n"},
        ErrorCase{"TakenName",
                  {"--name=test_QUEUE"},
                  1,
                  "There is a queue Test_Queue already, which prints to elsewhere://printer.example/.\n"
                  "  Take another name, or remove that queue first: lpadmin -x Test_Queue\n"},
        ErrorCase{
            "WrongName",
            {"--name=my queue"},
            1,
            "\"my queue\" is no name for a queue. Take letters, digits, \"-\", \"_\" and \".\", without "
            "blanks.\n"},
        ErrorCase{"NoAnswer",
                  {"--model=lx-520n"},
                  1,
                  "The answers have ended.\n  With --yes it asks nothing and takes what it proposes.\n"}),
    test::nameOfCase<ErrorCase>);

TEST_F(InstallQueueTest, SeveralPrintersAreNotChosenFromByAProgram) {
    letBeFound({"10.0.0.9", "10.0.0.8"});
    const ProcessResult result = install({"--yes"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors,
                StartsWith("veltrin-install-queue: 2 printers are found; --device has to say which:\n"));
    EXPECT_THAT(result.errors, HasSubstr("  veltrin:socket://10.0.0.8\n"));
    EXPECT_THAT(result.errors, HasSubstr("  veltrin:socket://10.0.0.9\n"));
    EXPECT_EQ(queues(), onlyQueue);
}

TEST_F(InstallQueueTest, WhoMayNotAdministerCupsIsToldWhoMay) {
    scheduler.guardAdministration();
    // Where a stranger comes to it as well.
    const std::string program = "/tmp/veltrin-install-queue";
    test::writeFile(program, test::readFile(test::hostPath(VELTRIN_INSTALL_QUEUE)));
    std::filesystem::permissions(program, std::filesystem::perms(0755));
    const auto errorsOf = [&](const std::vector<std::string> &options) {
        return test::run(PrivateScheduler::asStranger(scheduler.clientCommand(program, options))).errors;
    };
    const std::string who =
        "  Root may, and who is in a group that SystemGroup in cups-files.conf names: try it with sudo.\n";
    EXPECT_EQ(errorsOf({}), "veltrin-install-queue: You may not do this (lpinfo: Forbidden).\n" + who);
    EXPECT_EQ(errorsOf({"--device=veltrin-printer:/lx-520n", "--model=lx-520n", "--yes"}),
              "veltrin-install-queue: You may not do this (lpadmin: Forbidden).\n" + who);
}

TEST_F(InstallQueueTest, WithoutASchedulerItSaysHowToStartIt) {
    Command command = scheduler.clientCommand(test::hostPath(VELTRIN_INSTALL_QUEUE), {"--yes"});
    command.environment->at("CUPS_SERVER") = test::noScheduler;
    const ProcessResult result = test::run(command);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-install-queue: The CUPS scheduler is not running.\n"
                             "  Start it: systemctl start cups\n"
                             "  Where it is somewhere else, CUPS_SERVER or client.conf has to say so.\n");
}

TEST_F(InstallQueueTest, WithoutOurPpdsItSaysWhereTheyBelong) {
    scheduler.withdrawModels();
    EXPECT_EQ(install({"--yes"}).errors,
              "veltrin-install-queue: CUPS does not offer Veltrin's printers.\n"
              "  Their PPDs belong where this scheduler looks for them: " CUPS_DATADIR "/model/veltrin\n");
}

TEST_F(InstallQueueTest, WithoutFiltersForPdfItSaysWhatToInstall) {
    scheduler.withdrawDocumentFilters();
    const ProcessResult result = install({"--device=" + uri, "--model=lx-520n", "--name=office", "--yes"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors,
              "veltrin-install-queue: CUPS cannot make raster of the test page, nor of any other PDF.\n"
              "  Install cups-filters and Ghostscript: apt install cups-filters ghostscript\n");
    undo(result.output);
    EXPECT_EQ(queues(), onlyQueue);
}

TEST_F(InstallQueueTest, AQueueThatDoesNotPrintIsThereAllTheSameAndCanBeUndone) {
    const std::vector<std::string> before = scheduler.keptFiles();
    // Nobody is there to take the page.
    const ProcessResult result =
        install({"--device=" + uri, "--model=lx-520n", "--name=office", "--yes", "--wait=0"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(
        result.errors,
        "veltrin-install-queue: The test page has not been printed within 0 seconds; it waits in the queue.\n"
        "  Is the printer switched on, and can it be reached? It is to be at " +
            uri + "\n  What the queue says: lpstat -l -p office\n  To take the page back: cancel office-1\n");
    EXPECT_THAT(queues(), HasSubstr("device for office: " + uri));
    undo(result.output);
    EXPECT_EQ(queues(), onlyQueue);
    EXPECT_TRUE(scheduler.waitUntil([&] { return scheduler.keptFiles() == before; })) << scheduler.log();
}

TEST_F(InstallQueueTest, AQueueThatCupsStopsIsToldOf) {
    test::writeFile("/tmp/stopping", "#!/bin/sh\nexec cupsdisable \"$PRINTER\"\n");
    scheduler.installBackend("stopping", "/tmp/stopping");
    const ProcessResult result =
        install({"--device=stopping:/x", "--model=lx-520n", "--name=office", "--yes"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors, StartsWith("veltrin-install-queue: CUPS has stopped the queue: "));
    EXPECT_THAT(result.errors,
                EndsWith("\n  Once that is mended, it is to print again: cupsenable office\n"));
    undo(result.output);
    EXPECT_EQ(queues(), onlyQueue);
}

} // namespace
} // namespace veltrin
