#include "printer/ListenAddress.h"

#include "platform/CommandLine.h"

namespace veltrin::printer {

namespace {

/// What stands in front of the port's colon; nothing where that is no host. The colons of an IPv6 address
/// would be taken for the port's if there were no brackets.
std::optional<std::string> hostIn(std::string_view text) {
    const bool isBracketed = text.starts_with('[') && text.ends_with(']');
    if (isBracketed) {
        text = text.substr(1, text.size() - 2);
    }
    const bool hasColons = text.find(':') != std::string_view::npos;
    if (text.empty() || hasColons != isBracketed || text.find_first_of("[]") != std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(text);
}

} // namespace

std::optional<ListenAddress> parseListenAddress(std::string_view text) {
    ListenAddress address;
    const std::size_t colon = text.rfind(':');
    if (colon != std::string_view::npos) {
        const auto host = hostIn(text.substr(0, colon));
        if (!host) {
            return std::nullopt;
        }
        address.host = *host;
        text.remove_prefix(colon + 1);
    }
    const auto port = parseNumber(text, UINT16_MAX);
    if (!port) {
        return std::nullopt;
    }
    address.port = static_cast<std::uint16_t>(*port);
    return address;
}

std::string textOf(const ListenAddress &address) {
    const bool isIPv6 = address.host.find(':') != std::string::npos;
    return (isIPv6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

} // namespace veltrin::printer
