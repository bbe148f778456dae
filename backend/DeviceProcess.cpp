#include "backend/DeviceProcess.h"

#include "platform/PipeCapacity.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace veltrin::backend {

namespace {

constexpr int backChannelNumber = 3; // as backend(7) has it
constexpr std::size_t readSize = 8192;

/// What the input may hold, so that the two processes wait for each other less often.
constexpr std::size_t inputCapacity = std::size_t{1024} * 1024;

} // namespace

DeviceProcess::~DeviceProcess() {
    if (!hasEnded()) {
        send(SIGKILL);
        awaitEnd(process);
    }
}

int DeviceProcess::start(const Command &command) {
    OwnDescriptor theirInput;
    OwnDescriptor theirBackChannel;
    OwnDescriptor theirMessages;
    int error = makePipe(theirInput, inputEnd, inputEnd);
    error = error != 0 ? error : makePipe(backChannelEnd, theirBackChannel, backChannelEnd);
    error = error != 0 ? error : makePipe(messagesEnd, theirMessages, messagesEnd);
    if (error != 0) {
        return error;
    }
    platform::widenPipe(inputEnd.get(), inputCapacity);
    return spawn({.program = command.program,
                  .arguments = command.arguments,
                  .environment = environmentWith("DEVICE_URI", command.deviceUri),
                  .descriptors = {{&theirInput, STDIN_FILENO},
                                  {&theirMessages, STDERR_FILENO},
                                  {&theirBackChannel, backChannelNumber}}},
                 process);
}

std::size_t DeviceProcess::write(platform::HeldNotification &block, std::size_t from) {
    while (inputEnd.get() != -1) {
        const ssize_t written = block.writeTo(inputEnd.get(), from);
        if (written >= 0) {
            return static_cast<std::size_t>(written);
        }
        if (errno == EAGAIN) {
            return 0;
        }
        if (errno != EINTR) {
            closeInput();
        }
    }
    return 0;
}

std::span<const std::byte> DeviceProcess::readFrom(OwnDescriptor &source) {
    buffer.resize(readSize);
    while (source.get() != -1) {
        const ssize_t got = read(source.get(), buffer.data(), buffer.size());
        if (got > 0) {
            return std::span(buffer).first(static_cast<std::size_t>(got));
        }
        if (got == -1 && errno == EAGAIN) {
            return {};
        }
        if (got == 0 || errno != EINTR) {
            source.reset();
        }
    }
    return {};
}

void DeviceProcess::send(int signal) const {
    if (process != -1) {
        kill(process, signal);
    }
}

bool DeviceProcess::hasEnded() {
    if (process != -1 && waitpid(process, &status, WNOHANG) == process) {
        process = -1;
    }
    return process == -1;
}

std::optional<int> DeviceProcess::exitStatus() const {
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

std::optional<int> DeviceProcess::fatalSignal() const {
    return WIFSIGNALED(status) ? std::optional(WTERMSIG(status)) : std::nullopt;
}

} // namespace veltrin::backend
