#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/BusHandles.h"
#include "platform/linux/NotificationMessage.h"

#include <cstddef>
#include <memory>
#include <span>

namespace veltrin::platform {

/// A notification as a message that is not answered yet.
class HeldMessage final : public HeldNotification {
  public:
    /// `count` is one more as long as this object is there.
    HeldMessage(BusMessage theMessage, ReceivedNotification theReceived,
                std::shared_ptr<std::size_t> theCount);
    ~HeldMessage() override;

    [[nodiscard]] std::span<const std::byte> data() const override;
    [[nodiscard]] ssize_t writeTo(int descriptor, std::size_t from) override;
    void acknowledge() override;

  private:
    BusMessage message;
    ReceivedNotification received; // points into the message
    std::shared_ptr<std::size_t> count;
    bool isAnswered = false;
};

} // namespace veltrin::platform
