#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace veltrin::printer {

/// Where a printer on a wire is to be reached: a host's address or name, and a port.
struct ListenAddress {
    /// Without an address of one's own choice only this machine's programs come in.
    static constexpr const char *loopback = "127.0.0.1";

    std::string host = loopback;
    std::uint16_t port = 0; ///< 0: any that is free

    bool operator==(const ListenAddress &) const = default;
};

/// Reads "PORT", "ADDRESS:PORT" or, for IPv6, "[ADDRESS]:PORT". Nothing for any other text.
[[nodiscard]] std::optional<ListenAddress> parseListenAddress(std::string_view text);

/// "127.0.0.1:9100", "[::1]:9100"
[[nodiscard]] std::string textOf(const ListenAddress &address);

} // namespace veltrin::printer
