#pragma once

#include <cstdint>

namespace veltrin {

class FrontendIPC;

/// What the channel tells its owner.
class FrontendIPCDelegate {
  public:
    FrontendIPCDelegate() = default;
    FrontendIPCDelegate(const FrontendIPCDelegate &) = delete;
    FrontendIPCDelegate &operator=(const FrontendIPCDelegate &) = delete;
    virtual ~FrontendIPCDelegate() = default;

    /// The backend has announced itself, as often as it does so. Optional; runs at a later turn of the run
    /// loop than the one that brought the announcement.
    virtual void ipcReady(FrontendIPC & /*ipc*/) {}

    /// Optional, and never sent: see `FrontendIPC::stop`.
    virtual void ipcClosed(FrontendIPC & /*ipc*/) {}

    /// How often a read is to be tried again. Part of the protocol, though the channel never asks: all its
    /// waits have counts of their own.
    [[nodiscard]] virtual std::int32_t readRetryCount() = 0;
};

} // namespace veltrin
