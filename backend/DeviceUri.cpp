#include "backend/DeviceUri.h"

#include <algorithm>

namespace veltrin::backend {

namespace {

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view othersInScheme = "0123456789+-.";

bool isLetter(char c) {
    return letters.find(c) != std::string_view::npos;
}

/// A scheme becomes a file's name, so that nothing else may be in it.
bool isScheme(std::string_view text) {
    return !text.empty() && isLetter(text.front()) && std::all_of(text.begin(), text.end(), [](char c) {
        return isLetter(c) || othersInScheme.find(c) != std::string_view::npos;
    });
}

} // namespace

std::optional<DeviceUri> parseDeviceUri(std::string_view uri, std::string &problem) {
    const std::string prefix = uriForDevice("");
    if (!uri.starts_with(prefix)) {
        problem = "The device URI does not begin with \"" + prefix + "\".";
        return std::nullopt;
    }
    const std::string_view device = uri.substr(prefix.size());
    const std::size_t colon = device.find(':');
    const std::string_view scheme = device.substr(0, colon);
    if (colon == std::string_view::npos || !isScheme(scheme)) {
        problem = "The device URI names no device. Give the queue one like \"" +
                  uriForDevice("socket://printer.example:9100") + "\".";
        return std::nullopt;
    }
    if (scheme == ownScheme) {
        problem = "The device URI has \"" + prefix + "\" twice.";
        return std::nullopt;
    }
    return DeviceUri{std::string(scheme), std::string(device)};
}

std::string uriForDevice(std::string_view device) {
    return std::string(ownScheme) + ":" + std::string(device);
}

std::string withoutCredentials(std::string_view uri) {
    constexpr std::string_view authorityMark = "://";
    const std::size_t mark = uri.find(authorityMark);
    if (mark == std::string_view::npos) {
        return std::string(uri);
    }
    const std::size_t authority = mark + authorityMark.size();
    const std::size_t end = std::min(uri.find_first_of("/?#", authority), uri.size());
    const std::size_t at = uri.substr(0, end).rfind('@');
    if (at == std::string_view::npos || at < authority) {
        return std::string(uri);
    }
    return std::string(uri.substr(0, authority)) + std::string(uri.substr(at + 1));
}

} // namespace veltrin::backend
