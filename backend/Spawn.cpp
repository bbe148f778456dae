#include "backend/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace veltrin::backend {

namespace {

/// The back channel and the side channel, as backend(7) has them.
constexpr std::array backendDescriptors = {3, 4};

class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&fileActions);
        posix_spawnattr_init(&attributes);
    }

    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&fileActions);
        posix_spawnattr_destroy(&attributes);
    }

    posix_spawn_file_actions_t fileActions{};
    posix_spawnattr_t attributes{};
};

void restoreSignals(posix_spawnattr_t &attributes) {
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int signal : {SIGTERM, SIGINT, SIGPIPE}) {
        sigaddset(&signals, signal);
    }
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

void OwnDescriptor::reset(int other) {
    if (number != -1) {
        close(number);
    }
    number = other;
}

int makePipe(OwnDescriptor &readEnd, OwnDescriptor &writeEnd, const OwnDescriptor &ownEnd) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return errno;
    }
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    // The other end is a description of its own, which this does not show at.
    return fcntl(ownEnd.get(), F_SETFL, fcntl(ownEnd.get(), F_GETFL) | O_NONBLOCK) == 0 ? 0 : errno;
}

void reserveBackendDescriptors() {
    for (const int number : backendDescriptors) {
        if (fcntl(number, F_GETFD) == -1) {
            static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC)); // takes the first number that is free
        }
    }
}

int spawn(const ChildStart &start, pid_t &process) {
    SpawnSettings settings;
    restoreSignals(settings.attributes);
    for (const auto &[descriptor, number] : start.descriptors) {
        posix_spawn_file_actions_adddup2(&settings.fileActions, descriptor->get(), number);
    }
    posix_spawn_file_actions_addclosefrom_np(&settings.fileActions, backendDescriptors.back() + 1);
    std::vector<std::string> arguments = start.arguments;
    std::vector<std::string> environment = start.environment;
    return posix_spawn(&process, start.program.c_str(), &settings.fileActions, &settings.attributes,
                       pointersTo(arguments).data(), pointersTo(environment).data());
}

void awaitEnd(pid_t process) {
    while (waitpid(process, nullptr, 0) == -1 && errno == EINTR) {
    }
}

std::vector<std::string> environmentWith(const std::string &name, const std::string &value) {
    const std::string beginning = name + "=";
    std::vector<std::string> variables = {beginning + value};
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with(beginning)) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

} // namespace veltrin::backend
