#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace veltrin::test {

/// A pipe to or from the test. Input is written with `Process::write()` and ended with
/// `Process::closeInput()`; output and errors are captured.
struct Pipe {};

/// The descriptor does not exist in the process.
struct Closed {};

/// Input: these bytes, then the end of the input.
struct Text {
    std::string bytes;
};

/// Input is read from this file; output and errors are written over it.
struct File {
    std::string path;
};

/// An open descriptor of the test, which stays the test's to close.
struct Descriptor {
    int number;
};

/// A program to be run, with everything it is given.
struct Command {
    std::string program;                ///< path of the executable file; PATH is not searched
    std::vector<std::string> arguments; ///< argv, the name in argv[0] included
    std::optional<std::map<std::string, std::string>> environment = std::nullopt; ///< without: the test's own

    std::variant<Text, File, Descriptor, Pipe, Closed> input = Text();
    std::variant<Pipe, File, Descriptor, Closed> output = Pipe();
    std::variant<Pipe, File, Descriptor, Closed> errors = Pipe();
};

/// How a process ended and what it wrote to the captured descriptors.
struct ProcessResult {
    std::optional<int> exitStatus; ///< nothing where a signal ended it
    std::optional<int> signal;     ///< nothing where it exited
    bool timedOut = false;         ///< it was killed, because it was still running at the deadline
    std::string output;
    std::string errors;
};

inline constexpr std::chrono::seconds processDeadline{30};

/// A running program. It is started with the signals' default dispositions, none of them blocked, and no
/// descriptor beyond standard error. It does not outlive the object.
///
/// Its pipes are served only inside `waitUntil()` and `finish()`.
class Process {
  public:
    /// Starts the program; a program that cannot be started fails the running test.
    explicit Process(const Command &command);
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Kills the program where `finish()` has not been called.
    ~Process();

    [[nodiscard]] bool started() const { return pid != noProcess; }

    /// The process id, -1 where the program could not be started.
    [[nodiscard]] pid_t id() const { return pid; }

    /// Queues bytes for the input, which must be a `Pipe`. They are dropped when the program closes it.
    void write(std::string_view bytes);

    /// Ends the input once the bytes queued so far are written.
    void closeInput();

    /// Sends a signal to the program if it is still running.
    void send(int signal) const;

    /// Serves the pipes until `predicate` holds, the program has ended, or the deadline is reached. Returns
    /// whether the predicate holds.
    [[nodiscard]] bool waitUntil(const std::function<bool()> &predicate,
                                 std::chrono::milliseconds deadline = processDeadline);

    /// Waits for the program's end, killing it at the deadline; a `Pipe` that was not closed is left open.
    ProcessResult finish(std::chrono::milliseconds deadline = processDeadline);

    /// What was captured so far.
    [[nodiscard]] const std::string &output() const { return captured.output; }

    [[nodiscard]] const std::string &errors() const { return captured.errors; }

    [[nodiscard]] bool hasEnded() const { return ended; }

  private:
    static constexpr pid_t noProcess = -1;

    void start(const Command &command);
    void servePipes(std::chrono::milliseconds atMost);
    void writeQueued();
    void reap(bool wait);

    pid_t pid = noProcess;
    bool ended = true;
    int inputPipe = -1;
    int outputPipe = -1;
    int errorPipe = -1;
    std::string queued;
    bool inputEnds = false;
    ProcessResult captured;
};

/// Runs a program to its end.
[[nodiscard]] ProcessResult run(const Command &command, std::chrono::milliseconds deadline = processDeadline);

} // namespace veltrin::test
