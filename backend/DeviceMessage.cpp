#include "backend/DeviceMessage.h"

#include <algorithm>

namespace veltrin::backend {

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view separators = ", \t";

void skip(std::string_view &text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

bool names(std::string_view list, std::string_view keyword) {
    for (skip(list, separators); !list.empty(); skip(list, separators)) {
        const std::string_view word = list.substr(0, list.find_first_of(separators));
        if (word == keyword) {
            return true;
        }
        list.remove_prefix(word.size());
    }
    return false;
}

} // namespace

std::optional<bool> keywordIn(std::string_view line, std::string_view keyword) {
    constexpr std::string_view beginning = "STATE:";
    if (!line.starts_with(beginning)) {
        return std::nullopt;
    }
    line.remove_prefix(beginning.size());
    skip(line, blanks);
    const char sign = line.empty() ? ' ' : line.front();
    const bool isWhole = sign != '+' && sign != '-';
    const bool isNamed = names(line.substr(isWhole ? 0 : 1), keyword);
    if (isWhole) {
        return isNamed;
    }
    return isNamed ? std::optional(sign == '+') : std::nullopt;
}

std::optional<bool> connectingIn(std::string_view line) {
    // "socket" takes the keyword away when it knows the address, and once more when it is connected.
    if (line.starts_with("DEBUG: Connecting to ")) {
        return true;
    }
    return keywordIn(line, "connecting-to-device");
}

bool isAboutMarkers(std::string_view line) {
    constexpr std::string_view beginning = "ATTR:";
    if (!line.starts_with(beginning)) {
        return false;
    }
    line.remove_prefix(beginning.size());
    skip(line, blanks);
    return line.starts_with("marker-");
}

} // namespace veltrin::backend
