#pragma once

#include "backend/Spawn.h"
#include "platform/NotificationCenter.h"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::backend {

/// CUPS's backend for a device, as a child: started as the scheduler starts it, but with its standard input,
/// back channel and messages at this end. Nothing here waits.
class DeviceProcess {
  public:
    struct Command {
        std::string program;
        std::vector<std::string> arguments; ///< argv
        std::string deviceUri;              ///< DEVICE_URI
    };

    DeviceProcess() = default;
    DeviceProcess(const DeviceProcess &) = delete;
    DeviceProcess &operator=(const DeviceProcess &) = delete;

    /// Kills it where it has not ended.
    ~DeviceProcess();

    /// Returns 0, or the system's number of what went wrong.
    [[nodiscard]] int start(const Command &command);

    /// What to watch; -1 once it is closed.
    [[nodiscard]] int input() const { return inputEnd.get(); }

    [[nodiscard]] int backChannel() const { return backChannelEnd.get(); }

    [[nodiscard]] int messages() const { return messagesEnd.get(); }

    /// Writes as much of the block from this byte on as there is room for. Returns how much that was. Closes
    /// the input when nobody reads it.
    std::size_t write(platform::HeldNotification &block, std::size_t from);

    void closeInput() { inputEnd.reset(); }

    /// What has come in, which is valid until the next call; nothing where there is nothing yet, and at the
    /// end, when the descriptor is closed.
    std::span<const std::byte> readBackChannel() { return readFrom(backChannelEnd); }

    std::span<const std::byte> readMessages() { return readFrom(messagesEnd); }

    void send(int signal) const;

    /// Whether it has ended.
    [[nodiscard]] bool hasEnded();

    /// Nothing where a signal ended it.
    [[nodiscard]] std::optional<int> exitStatus() const;

    /// Nothing where it ended by itself.
    [[nodiscard]] std::optional<int> fatalSignal() const;

  private:
    std::span<const std::byte> readFrom(OwnDescriptor &source);

    pid_t process = -1; // none, or it has ended
    int status = 0;
    OwnDescriptor inputEnd;
    OwnDescriptor backChannelEnd;
    OwnDescriptor messagesEnd;
    std::vector<std::byte> buffer;
};

} // namespace veltrin::backend
