#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace veltrin::test {

namespace {

using Clock = std::chrono::steady_clock;

/// How long a predicate or the program's end may go unnoticed.
constexpr std::chrono::milliseconds tick{5};

template <typename... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};

template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

void closeAndForget(int &fd) {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
}

/// Descriptors of the test that the program's own are made from, closed when the program has its copies.
class Descriptors {
  public:
    Descriptors() = default;
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    ~Descriptors() {
        for (int fd : open) {
            closeAndForget(fd);
        }
    }

    /// Takes a descriptor over, under a number that no standard descriptor of the program has; so none is
    /// overwritten before it is copied.
    int keep(int fd) {
        const int kept = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        EXPECT_NE(kept, -1) << "cannot give the program a descriptor: " << std::strerror(errno);
        closeAndForget(fd);
        open.push_back(kept);
        return kept;
    }

    /// Opens a pipe; keeps the program's end and returns it, and gives the test's end.
    int keepPipe(int programsEnd, int &testsEnd) {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0) << std::strerror(errno);
        testsEnd = fcntl(ends[1U - static_cast<unsigned>(programsEnd)], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(ends[1U - static_cast<unsigned>(programsEnd)]);
        fcntl(testsEnd, F_SETFL, O_NONBLOCK);
        return keep(ends[static_cast<unsigned>(programsEnd)]);
    }

  private:
    std::vector<int> open;
};

constexpr int readEnd = 0;
constexpr int writeEnd = 1;

/// Descriptors and signals as a scheduler hands them to the programs that it starts.
class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }

    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    /// Gives the program this descriptor of the test as its `number`, or none where it is -1.
    void give(int number, int fd) {
        if (fd == -1) {
            posix_spawn_file_actions_addclose(&actions, number);
        } else {
            posix_spawn_file_actions_adddup2(&actions, fd, number);
        }
    }

    int spawn(pid_t &pid, const char *program, char *const *arguments, char *const *environment) {
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        return posix_spawn(&pid, program, &actions, &attributes, arguments, environment);
    }

  private:
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentOf(const Command &command) {
    std::vector<std::string> entries;
    if (command.environment) {
        for (const auto &[name, value] : *command.environment) {
            entries.push_back(name + "=" + value);
        }
    } else {
        for (char **entry = environ; *entry != nullptr; ++entry) {
            entries.emplace_back(*entry);
        }
    }
    return entries;
}

/// Reads what there is; false once there will be nothing more.
bool readAvailable(int fd, std::string &text) {
    std::array<char, 65536> block;
    for (;;) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got > 0) {
            text.append(block.data(), static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            return got == -1 && errno == EAGAIN;
        }
    }
}

/// write() that reports a closed pipe by EPIPE alone. The signal is kept from this thread and taken back,
/// because its disposition may be what the test is about.
ssize_t writeWithoutSignal(int fd, const std::string &bytes) {
    sigset_t brokenPipe;
    sigset_t before;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    const int error = errno;
    if (written == -1 && error == EPIPE) {
        const timespec now{};
        sigtimedwait(&brokenPipe, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

} // namespace

Process::Process(const Command &command) {
    start(command);
}

Process::~Process() {
    send(SIGKILL);
    reap(true);
    closeAndForget(inputPipe);
    closeAndForget(outputPipe);
    closeAndForget(errorPipe);
}

void Process::start(const Command &command) {
    Descriptors descriptors;
    const auto given = [&descriptors](const Descriptor &descriptor) {
        return descriptors.keep(fcntl(descriptor.number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    };
    const auto none = [](const Closed &) { return -1; };
    const auto writtenTo = [&](int &pipe) {
        return Overloaded{[&](const Pipe &) { return descriptors.keepPipe(writeEnd, pipe); },
                          [&](const File &file) {
                              return descriptors.keep(
                                  open(file.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
                          },
                          given, none};
    };
    const auto input = Overloaded{
        [&](const Text &text) {
            queued = text.bytes;
            inputEnds = true;
            return descriptors.keepPipe(readEnd, inputPipe);
        },
        [&](const Pipe &) { return descriptors.keepPipe(readEnd, inputPipe); },
        [&](const File &file) { return descriptors.keep(open(file.path.c_str(), O_RDONLY | O_CLOEXEC)); },
        given, none};

    SpawnSettings settings;
    settings.give(STDIN_FILENO, std::visit(input, command.input));
    settings.give(STDOUT_FILENO, std::visit(writtenTo(outputPipe), command.output));
    settings.give(STDERR_FILENO, std::visit(writtenTo(errorPipe), command.errors));

    std::vector<std::string> arguments = command.arguments;
    std::vector<std::string> environment = environmentOf(command);
    const int error = settings.spawn(pid, command.program.c_str(), pointersTo(arguments).data(),
                                     pointersTo(environment).data());
    if (error != 0) {
        pid = noProcess;
        ADD_FAILURE() << "cannot run " << command.program << ": " << std::strerror(error);
        return;
    }
    ended = false;
}

void Process::write(std::string_view bytes) {
    queued += bytes;
}

void Process::closeInput() {
    inputEnds = true;
}

void Process::send(int signal) const {
    // An ended program is not waited for before `ended` is set, so its id cannot be another's by now.
    if (!ended) {
        kill(pid, signal);
    }
}

bool Process::waitUntil(const std::function<bool()> &predicate, std::chrono::milliseconds deadline) {
    const auto end = Clock::now() + deadline;
    for (;;) {
        const bool last = ended || Clock::now() >= end;
        if (predicate()) {
            return true;
        }
        if (last) {
            return false;
        }
        // The end is looked for first: what the program wrote before it is then read for certain.
        reap(false);
        servePipes(ended ? std::chrono::milliseconds(0) : tick);
    }
}

ProcessResult Process::finish(std::chrono::milliseconds deadline) {
    if (started() && !waitUntil([this] { return ended; }, deadline)) {
        captured.timedOut = true;
        send(SIGKILL);
        reap(true);
    }
    servePipes(std::chrono::milliseconds(0));
    return captured;
}

void Process::servePipes(std::chrono::milliseconds atMost) {
    writeQueued();
    std::array<pollfd, 3> pipes{
        {{queued.empty() ? -1 : inputPipe, POLLOUT, 0}, {outputPipe, POLLIN, 0}, {errorPipe, POLLIN, 0}}};
    poll(pipes.data(), pipes.size(), static_cast<int>(atMost.count()));
    if (outputPipe != -1 && !readAvailable(outputPipe, captured.output)) {
        closeAndForget(outputPipe);
    }
    if (errorPipe != -1 && !readAvailable(errorPipe, captured.errors)) {
        closeAndForget(errorPipe);
    }
}

void Process::writeQueued() {
    while (inputPipe != -1 && !queued.empty()) {
        const ssize_t written = writeWithoutSignal(inputPipe, queued);
        if (written >= 0) {
            queued.erase(0, static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            closeAndForget(inputPipe);
        }
    }
    if (inputEnds) {
        closeAndForget(inputPipe);
    }
}

void Process::reap(bool wait) {
    int status = 0;
    if (ended || waitpid(pid, &status, wait ? 0 : WNOHANG) != pid) {
        return;
    }
    ended = true;
    if (WIFEXITED(status)) {
        captured.exitStatus = WEXITSTATUS(status);
    } else {
        captured.signal = WTERMSIG(status);
    }
}

ProcessResult run(const Command &command, std::chrono::milliseconds deadline) {
    return Process(command).finish(deadline);
}

} // namespace veltrin::test
