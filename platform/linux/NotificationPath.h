#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace veltrin::platform {

/// The 64-bit FNV-1a hash of the text's bytes.
[[nodiscard]] constexpr std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char character : text) {
        hash ^= static_cast<std::uint8_t>(character);
        hash *= 0x100000001b3U;
    }
    return hash;
}

/// The D-Bus object path that stands for notifications of this name. A match rule can carry it, which is not
/// so for every name: apostrophes, commas and backslashes are quoted differently by buses and libraries, and
/// a rule is limited to 1024 bytes.
[[nodiscard]] inline std::string notificationPath(std::string_view name) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string path = "/org/veltrin/Notifications/n";
    const std::uint64_t hash = fnv1a(name);
    for (int shift = 60; shift >= 0; shift -= 4) {
        path += digits[(hash >> shift) & 0xFU];
    }
    return path;
}

} // namespace veltrin::platform
