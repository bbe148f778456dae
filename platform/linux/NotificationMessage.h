#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/SealedMemory.h"

#include <systemd/sd-bus.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>

// The D-Bus form of a notification: its arguments are the name, the object and the user info ("sva{sv}").

namespace veltrin::platform {

inline constexpr const char *notificationInterface = "org.veltrin.Notifications1";
inline constexpr const char *notificationMember = "Posted";

/// From this size on (in bytes) a block travels in a sealed memory file, else inside the message. From about
/// here a file is faster; above 32 MiB a message would cost its sender the connection.
inline constexpr std::size_t memoryFileThreshold = std::size_t{64} * 1024;

/// A notification as it came in; `notification.data` points into the message or into `memory`.
struct ReceivedNotification {
    std::string name;
    Notification notification;
    std::optional<SealedMemory> memory;
};

/// Whether a message can carry the text: D-Bus wants valid UTF-8 and takes the connection from those who send
/// anything else. Asks the library that reads it at the other end, on a connection that is open.
[[nodiscard]] bool canCarryText(sd_bus *bus, const std::string &text);

/// Appends the arguments to an empty message. Returns 0 or the negative error number.
[[nodiscard]] int appendNotification(sd_bus_message *message, const std::string &name,
                                     const std::string &object,
                                     std::optional<std::span<const std::byte>> data);

/// The object alone; nothing where it is not a text or the message is no notification.
[[nodiscard]] std::optional<std::string> objectOf(sd_bus_message *message);

/// Reads the arguments. Nothing with `problem` set where they are not those of a notification. The message
/// must live as long as the result.
[[nodiscard]] std::optional<ReceivedNotification> readNotification(sd_bus_message *message,
                                                                   std::string &problem);

/// Tells a caller that the notification was taken; whoever has not called needs no answer. Returns 0 or more,
/// or the negative error number.
[[nodiscard]] int answerAsTaken(sd_bus_message *message);

/// Tells a caller, who then knows why.
void answerWithError(sd_bus_message *message, const char *error, const std::string &reason);

} // namespace veltrin::platform
