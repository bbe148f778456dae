#include "platform/posix/LanguageFallback.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace veltrin::platform {

namespace {

/// In bytes; with ".lproj" behind it a longer name is none that a file system takes. It also keeps a value
/// of thousands of parts from being tried part by part.
constexpr std::size_t longestName = 249;

constexpr std::string_view separators = "_-";

bool canBeFolder(std::string_view name) {
    const std::string_view forbidden("/\0", 2);
    return !name.empty() && name.size() <= longestName && name.front() != '.' &&
           name.find_first_of(forbidden) == std::string_view::npos;
}

std::string withSeparator(std::string_view name, char separator) {
    std::string result(name);
    std::replace_if(
        result.begin(), result.end(),
        [](char character) { return separators.find(character) != std::string_view::npos; }, separator);
    return result;
}

} // namespace

std::vector<std::string> languagesToTry(const std::string &language) {
    std::vector<std::string> names;
    const auto add = [&names](const std::string &name) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    };
    const auto addIfFolder = [&add](std::string_view name) {
        if (canBeFolder(name)) {
            add(std::string(name));
        }
    };

    std::string_view rest = language;
    addIfFolder(rest);
    rest = rest.substr(0, rest.find('@'));
    addIfFolder(rest);
    rest = rest.substr(0, rest.find('.'));
    while (!rest.empty()) {
        if (canBeFolder(rest)) {
            for (const std::string &name :
                 {std::string(rest), withSeparator(rest, '_'), withSeparator(rest, '-')}) {
                add(name);
            }
        }
        const std::size_t lastPart = rest.find_last_of(separators);
        rest = rest.substr(0, lastPart != std::string_view::npos ? lastPart : 0);
    }
    add("en");
    return names;
}

} // namespace veltrin::platform
