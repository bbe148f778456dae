#pragma once

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

// What everybody shares who deals with the message bus: the library's handles, and who the bus itself is.

namespace veltrin::platform {

struct BusRelease {
    void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); } // drops what is unsent
};

struct BusSlotRelease {
    void operator()(sd_bus_slot *slot) const { sd_bus_slot_unref(slot); }
};

struct BusMessageRelease {
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};

using Bus = std::unique_ptr<sd_bus, BusRelease>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusSlotRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageRelease>;

inline constexpr const char *busName = "org.freedesktop.DBus";
inline constexpr const char *busPath = "/org/freedesktop/DBus";

/// Whether a message comes from the given sender, as the bus itself says. The library hands on whatever has
/// the right form: a signal sent to us alone by somebody else, or a reply to a call that it was not the
/// receiver of.
[[nodiscard]] inline bool isFrom(sd_bus_message *message, const char *expected) {
    const char *sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::strcmp(sender, expected) == 0;
}

/// What an error number says, negative or not.
[[nodiscard]] inline std::string busErrorText(int error) {
    return std::strerror(std::abs(error));
}

/// Runs what a callback of the library has to do. No exception may pass through the library: false where
/// memory has run out.
template <typename Step>
[[nodiscard]] bool withinMemory(Step step) noexcept {
    try {
        step();
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

/// The same, with a line for the diagnostic log where memory has run out, if there is enough for that.
template <typename Step, typename Report>
[[nodiscard]] bool withinMemory(Step step, const Report &report, const char *loss) noexcept {
    return withinMemory(step) ||
           (static_cast<void>(withinMemory([&] { report(std::string(loss) + ": not enough memory"); })),
            false);
}

} // namespace veltrin::platform
