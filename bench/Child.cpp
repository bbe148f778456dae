#include "bench/Child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

extern char **environ;

namespace veltrin::bench {

namespace {

constexpr int widePipeSize = 256 * 1024;

[[noreturn]] void give(const std::string &program, const char *problem) {
    throw std::runtime_error(program + ": " + problem);
}

void drain(int fd) {
    std::vector<char> buffer(std::size_t{1024} * 1024);
    while (read(fd, buffer.data(), buffer.size()) > 0) {
    }
}

} // namespace

Child::Child(std::string theProgram, const std::vector<std::string> &arguments, Sink sink,
             const std::string &sinkPath)
    : program(std::move(theProgram)) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str())); // posix_spawn changes none of them
    }
    argv.push_back(nullptr);

    std::array<int, 2> ends = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (sink != Sink::file) {
        if (pipe2(ends.data(), O_CLOEXEC) != 0 ||
            (sink == Sink::widePipe && fcntl(ends[1], F_SETPIPE_SZ, widePipeSize) < 0)) {
            give(program, "no pipe");
        }
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, sinkPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }

    start = std::chrono::steady_clock::now();
    if (posix_spawn(&process, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
        give(program, "cannot be started");
    }
    posix_spawn_file_actions_destroy(&actions);
    if (sink != Sink::file) {
        close(ends[1]);
        output = ends[0];
    }
}

Child::~Child() {
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    if (drainer.joinable()) {
        drainer.join();
    }
    if (output != -1) {
        close(output);
    }
}

void Child::awaitOutput() {
    char first = '\0';
    if (read(output, &first, 1) != 1) {
        give(program, "ended too early");
    }
    drainer = std::thread(drain, output);
}

Measurement Child::finish() {
    if (drainer.joinable()) {
        drainer.join();
    } else if (output != -1) {
        drain(output);
    }
    int status = -1;
    rusage usage{};
    wait4(std::exchange(process, -1), &status, 0, &usage);
    const auto end = std::chrono::steady_clock::now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        give(program, "failed");
    }
    return {end - start, usage.ru_maxrss};
}

Measurement runChild(const std::string &program, const std::vector<std::string> &arguments, Sink sink,
                     const std::string &sinkPath) {
    return Child(program, arguments, sink, sinkPath).finish();
}

} // namespace veltrin::bench
