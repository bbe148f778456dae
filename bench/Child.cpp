#include "bench/Child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

extern char **environ;

namespace veltrin::bench {

namespace {

[[noreturn]] void give(const std::string &program, const char *problem) {
    std::fprintf(stderr, "%s: %s\n", program.c_str(), problem);
    std::exit(EXIT_FAILURE);
}

void drain(int fd) {
    static std::array<char, std::size_t{1024} * 1024> buffer;
    while (read(fd, buffer.data(), buffer.size()) > 0) {
    }
}

} // namespace

Measurement runChild(const std::string &program, const std::vector<std::string> &arguments, Sink sink,
                     const std::string &sinkPath) {
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
    if (sink == Sink::pipe) {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            give(program, "no pipe");
        }
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, sinkPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }

    const auto start = std::chrono::steady_clock::now();
    pid_t child = -1;
    if (posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
        give(program, "cannot be started");
    }
    if (sink == Sink::pipe) {
        close(ends[1]);
        drain(ends[0]);
        close(ends[0]);
    }
    int status = -1;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const auto end = std::chrono::steady_clock::now();
    posix_spawn_file_actions_destroy(&actions);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        give(program, "failed");
    }
    return {end - start, usage.ru_maxrss};
}

} // namespace veltrin::bench
