#include "backend/DeviceLine.h"

#include "status/MediaNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>

namespace veltrin::backend {

namespace {

/// Takes a word off the front of the text: up to a blank, or between quotation marks, in which a backslash
/// makes the next character an ordinary one. Nothing where there is none, or its end is missing.
std::optional<std::string> takeWord(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    if (text.empty()) {
        return std::nullopt;
    }
    std::string word;
    if (text.front() != '"') {
        const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
        word = text.substr(0, end);
        text.remove_prefix(end);
        return word;
    }
    text.remove_prefix(1);
    while (!text.empty() && text.front() != '"') {
        if (text.front() == '\\' && text.size() > 1) {
            text.remove_prefix(1);
        }
        word += text.front();
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    text.remove_prefix(1);
    return word;
}

bool isSame(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

/// The value under one of the two keys of a device ID, which is "KEY:value;KEY:value;".
std::string_view valueIn(std::string_view id, std::string_view key, std::string_view longKey) {
    while (!id.empty()) {
        const std::string_view field = id.substr(0, id.find(';'));
        id.remove_prefix(std::min(field.size() + 1, id.size()));
        const std::size_t colon = field.find(':');
        std::string_view name = field.substr(0, colon);
        name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
        if (colon != std::string_view::npos && (isSame(name, key) || isSame(name, longKey))) {
            return field.substr(colon + 1);
        }
    }
    return {};
}

} // namespace

std::optional<FoundDevice> parseDeviceLine(std::string_view line) {
    std::array<std::string, 6> words;
    constexpr std::size_t leastWords = 4;
    std::size_t count = 0;
    while (count < words.size()) {
        const auto word = takeWord(line);
        if (!word) {
            break;
        }
        words[count++] = *word;
    }
    if (count < leastWords) {
        return std::nullopt;
    }
    return FoundDevice{words[0], words[1], words[2], words[3], words[4], words[5]};
}

bool isOneOfOurs(std::string_view deviceId) {
    constexpr std::uint32_t models = 3; // the code behind them is for models to come
    const std::string_view model = valueIn(deviceId, "MDL", "MODEL");
    const std::string full = std::string(valueIn(deviceId, "MFG", "MANUFACTURER")) + " " + std::string(model);
    for (std::uint32_t code = 0; code < models; ++code) {
        const std::string_view known = modelDescription(code).english;
        if (isSame(known, model) || isSame(known, full)) { // some repeat the maker's name
            return true;
        }
    }
    return false;
}

bool hasBackChannel(std::string_view uri) {
    if (uri.starts_with("dnssd:")) {
        return uri.find("._pdl-datastream._tcp") != std::string_view::npos; // which "socket" is for
    }
    return uri.starts_with("usb:") || uri.starts_with("socket:");
}

} // namespace veltrin::backend
