#include "tests/support/Process.h"

#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

namespace veltrin::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

Command shell(const std::string &script) {
    return {"/bin/sh", {"sh", "-c", script}};
}

Command cat() {
    return {"/bin/cat", {"cat"}};
}

TEST(Process, ReportsTheExitStatusAndBothOutputs) {
    const ProcessResult result = run(shell("echo out; echo err >&2; exit 3"));
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.signal, std::nullopt);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errors, "err\n");
}

TEST(Process, ReportsTheSignalThatEndedIt) {
    const ProcessResult result = run(shell("kill -TERM $$"));
    EXPECT_EQ(result.exitStatus, std::nullopt);
    EXPECT_EQ(result.signal, SIGTERM);
    EXPECT_FALSE(result.timedOut);
}

TEST(Process, ChoosesEveryArgumentFromTheNameOn) {
    Command command = shell(R"(printf '%s|' "$0" "$@")");
    command.arguments.insert(command.arguments.end(), {"queue name", "", "a'b\"c$d"});
    EXPECT_EQ(run(command).output, "queue name||a'b\"c$d|");
    command = {"/bin/cat", {"a name of its own", "/no/such/file"}};
    EXPECT_THAT(run(command).errors, testing::HasSubstr("a name of its own: /no/such/file"));
}

TEST(Process, HasExactlyTheEnvironmentItIsGiven) {
    Command command = {"/usr/bin/env", {"env"}};
    command.environment = {{"LANG", "C"}, {"PPD", "/tmp/a b.ppd"}};
    EXPECT_THAT(linesOf(run(command).output), ElementsAre("LANG=C", "PPD=/tmp/a b.ppd"));
    command.environment.reset();
    setenv("VELTRIN_PROCESS_TEST", "inherited", 1);
    EXPECT_THAT(linesOf(run(command).output), testing::Contains("VELTRIN_PROCESS_TEST=inherited"));
}

TEST(Process, PumpsMoreThanAPipeHoldsBothWays) {
    Command command = cat();
    const std::string text(5'000'000, 'x');
    command.input = Text{text};
    const ProcessResult result = run(command);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Bytes(result.output), BytesAre(text));
}

TEST(Process, SurvivesAProgramThatReadsNothing) {
    Command command = shell("exec <&-; exit 4");
    command.input = Text{std::string(1'000'000, 'x')};
    EXPECT_EQ(run(command).exitStatus, 4);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(Process, ReadsAndWritesFiles) {
    writeFile("/tmp/input", "from a file");
    writeFile("/tmp/output", "something longer that goes");
    Command command = cat();
    command.input = File{"/tmp/input"};
    command.output = File{"/tmp/output"};
    const ProcessResult result = run(command);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(readFile("/tmp/output"), "from a file");
}

TEST(Process, TakesDescriptorsAndLeavesThemOpen) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    Command command = cat();
    command.input = Text{"lost"};
    command.output = Descriptor{full};
    EXPECT_EQ(run(command).exitStatus, 1);
    EXPECT_EQ(close(full), 0);
}

TEST(Process, StartsWithoutTheDescriptorsThatAreClosed) {
    Command command = shell("for fd in 0 1 2; do [ -e /proc/$$/fd/$fd ] || echo no $fd >&2; done");
    command.input = Closed();
    command.output = Closed();
    EXPECT_THAT(linesOf(run(command).errors), ElementsAre("no 0", "no 1"));
    command = shell("[ -e /proc/$$/fd/2 ] || echo no 2");
    command.errors = Closed();
    EXPECT_THAT(linesOf(run(command).output), ElementsAre("no 2"));
}

TEST(Process, InheritsNothingBeyondStandardError) {
    const int leaked = open("/dev/null", O_RDONLY); // no O_CLOEXEC on purpose
    ASSERT_GE(leaked, 3);
    const std::string number = std::to_string(leaked);
    EXPECT_EQ(run(shell("[ -e /proc/$$/fd/" + number + " ] && echo leaked")).output, "");
    close(leaked);
}

TEST(Process, StartsWithDefaultSignals) {
    signal(SIGPIPE, SIG_IGN);
    const ProcessResult result = run(shell("kill -PIPE $$; exit 0"));
    signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ(result.signal, SIGPIPE);
}

TEST(Process, KillsWhatIsStillRunningAtTheDeadline) {
    const auto begin = std::chrono::steady_clock::now();
    const ProcessResult result = run(shell("echo here; exec sleep 60"), 300ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.output, "here\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(Process, DoesNotWaitForWhoeverElseHoldsItsOutput) {
    const ProcessResult result = run(shell("sleep 60 & echo $!"), 20s);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(kill(std::stoi(result.output), SIGKILL), 0);
}

TEST(Process, CanBeTalkedTo) {
    Command command = cat();
    command.input = Pipe();
    Process process(command);
    process.write("one\n");
    EXPECT_TRUE(process.waitUntil([&] { return process.output() == "one\n"; }));
    process.write("two\n");
    EXPECT_TRUE(process.waitUntil([&] { return process.output() == "one\ntwo\n"; }));
    EXPECT_FALSE(process.hasEnded());
    EXPECT_FALSE(process.waitUntil([] { return false; }, 20ms));
    process.write("three\n");
    process.closeInput();
    const ProcessResult result = process.finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "one\ntwo\nthree\n");
}

TEST(Process, CanBeSentSignals) {
    Command command = shell("trap 'echo caught; exit 5' TERM; echo ready; while :; do sleep 0.01; done");
    Process process(command);
    ASSERT_TRUE(process.waitUntil([&] { return process.output() == "ready\n"; }));
    process.send(SIGTERM);
    const ProcessResult result = process.finish();
    EXPECT_EQ(result.exitStatus, 5);
    EXPECT_EQ(result.output, "ready\ncaught\n");
}

TEST(Process, EndsAWaitWhenTheProgramEnds) {
    const auto begin = std::chrono::steady_clock::now();
    Process process(shell("echo last words"));
    EXPECT_TRUE(process.waitUntil([&] { return process.hasEnded(); }));
    EXPECT_FALSE(process.waitUntil([] { return false; }));
    EXPECT_EQ(process.output(), "last words\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST(Process, DoesNotOutliveItsObject) {
    pid_t id = -1;
    {
        Process process({"/bin/sleep", {"sleep", "60"}});
        id = process.id();
        ASSERT_EQ(kill(id, 0), 0);
    }
    EXPECT_EQ(kill(id, 0), -1);
}

TEST(Process, FailsTheTestWhenTheProgramCannotBeRun) {
    EXPECT_NONFATAL_FAILURE(static_cast<void>(run({"/no/such/program", {"program"}})), "/no/such/program");
}

TEST(Process, FailsTheTestWhenAFileCannotBeOpened) {
    EXPECT_NONFATAL_FAILURE(
        {
            Command command = cat();
            command.input = File{"/no/such/file"};
            static_cast<void>(run(command));
        },
        "cannot give the program a descriptor");
}

TEST(Process, LeavesNoDescriptorBehind) {
    const auto openDescriptors = [] { return namesIn("/proc/self/fd").size(); };
    const std::size_t before = openDescriptors();
    static_cast<void>(run(shell("echo out")));
    { Process unfinished({"/bin/sleep", {"sleep", "60"}}); }
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace veltrin::test
