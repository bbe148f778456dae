#pragma once

#include "ipc/FrontendIPCDelegate.h"
#include "platform/Platform.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veltrin {

/// The filter's end of the channel to the printer backend, a process of its own that holds the connection to
/// the printer. The two talk by notifications named after the device URI.
///
/// The states are: announcing, while it is being made; ready, once the backend has announced itself; waiting,
/// after the backend said goodbye, until it announces itself again; stopped, for good. Everything runs on the
/// thread that calls, and the backend is heard only inside these calls, during their waits.
class FrontendIPC {
  public:
    /// Announces the filter to the backend of `portName` (the device URI, whole) and waits up to 100 turns of
    /// 0.3 seconds for its answer. Null where it never comes, or where the system offers no notifications.
    ///
    /// `delegate` may be null; else it outlives the channel. `timeout` is accepted and ignored. `isCancelled`
    /// says whether the job is cancelled: a backend that takes no more blocks is then not waited for.
    [[nodiscard]] static std::unique_ptr<FrontendIPC>
    initWithPortName(const std::string &portName, FrontendIPCDelegate *delegate, double timeout,
                     platform::Platform &platform, std::function<bool()> isCancelled);

    FrontendIPC(const FrontendIPC &) = delete;
    FrontendIPC &operator=(const FrontendIPC &) = delete;

    /// Posts nothing: the owner calls `stop` before it lets go of the channel.
    ~FrontendIPC();

    /// Sends one block to the printer, whole, as one notification; the block is not kept. While the backend
    /// is away it waits up to 100 turns of 0.3 seconds. False where the backend stays away, the channel is
    /// stopped, or this block or an earlier one could not be delivered.
    [[nodiscard]] bool sendData(std::span<const std::byte> block);

    /// Asks the backend for one status record of the printer and waits up to 20 turns of 0.3 seconds for it.
    /// While the backend is away it first waits for its return as `sendData` does. True with the record in
    /// `record`, or false with nothing in it. Replies are not matched to requests: it is the latest that came
    /// in after this call began.
    [[nodiscard]] bool readData(std::optional<std::vector<std::byte>> &record);

    /// Waits until the backend has taken every block, so that a job is not called printed before; ends early
    /// when the job is cancelled. False where a block turned out to be undelivered. To be called at the end
    /// of a successful job, before `eojAck`.
    [[nodiscard]] bool waitForDelivery();

    /// Stops the channel and says goodbye to the backend. The delegate is not told: the channel counts as
    /// stopped, and a stopped channel sends no `ipcClosed`.
    void stop();

    /// Always true: the backend acknowledges neither blocks nor the end of the job.
    [[nodiscard]] bool sendAck() const;

    /// Always true, also when the backend is gone.
    [[nodiscard]] bool eojAck() const;

  private:
    /// What has become of a post. `no`: it, or an earlier one, is lost. `backendLeft`: nothing was posted
    /// since the backend has left or said goodbye, of which the turns tell.
    enum class Sent { yes, no, backendLeft };

    explicit FrontendIPC(const std::string &portName);

    [[nodiscard]] bool announce(platform::Platform &platform, std::function<bool()> isCancelled);
    [[nodiscard]] bool waitForBackend(const char *line);
    void handleNotification(const platform::Notification &notification);
    void handleCommand(const platform::Notification &notification);
    [[nodiscard]] Sent postNotificationCommand(const std::string &command);
    [[nodiscard]] Sent postNotificationSendData(std::span<const std::byte> block);
    [[nodiscard]] bool awaitReply();

    std::string frontendServerName; // where the filter listens
    std::string backendServerName;  // where it posts
    FrontendIPCDelegate *delegate = nullptr;
    std::vector<std::byte> recvData; // the last reply to "readPipe"
    bool isDataArrived = false;      // a reply has come in since the current `readData` began
    bool isBackendAlive = false;
    bool isStopped = false;
    std::unique_ptr<platform::NotificationCenter> center;
};

} // namespace veltrin
