#include "platform/linux/HeldMessage.h"

#include <unistd.h>

#include <utility>

namespace veltrin::platform {

HeldMessage::HeldMessage(BusMessage theMessage, ReceivedNotification theReceived,
                         std::shared_ptr<std::size_t> theCount)
    : message(std::move(theMessage)), received(std::move(theReceived)), count(std::move(theCount)) {
    ++*count;
}

HeldMessage::~HeldMessage() {
    --*count;
    if (!isAnswered) {
        answerWithError(message.get(), SD_BUS_ERROR_FAILED, "it was not taken");
    }
}

std::span<const std::byte> HeldMessage::data() const {
    return received.notification.data.value_or(std::span<const std::byte>());
}

ssize_t HeldMessage::writeTo(int descriptor, std::size_t from) {
    return received.memory ? received.memory->writeTo(descriptor, from)
                           : write(descriptor, data().data() + from, data().size() - from);
}

/// A sender that has left, or a bus that has, hears nothing, and has counted it as lost.
void HeldMessage::acknowledge() {
    static_cast<void>(answerAsTaken(message.get()));
    isAnswered = true;
}

} // namespace veltrin::platform
