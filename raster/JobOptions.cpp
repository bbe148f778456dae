#include "raster/JobOptions.h"

#include "filter/OptionValues.h"

#include <cups/cups.h>

#include <algorithm>

namespace veltrin::raster {

namespace {

/// Characters that mean nothing to the parser; any other one stands behind a backslash.
bool isPlain(char character) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.:/_-+@%";
    return plain.find(character) != std::string_view::npos || static_cast<unsigned char>(character) >= 0x80;
}

std::string quoted(const std::string &value) {
    std::string text;
    for (const char character : value) {
        if (!isPlain(character)) {
            text += '\\';
        }
        text += character;
    }
    return text;
}

} // namespace

JobOptions::JobOptions(const std::string &text) {
    cups_option_t *parsed = nullptr;
    const int count = cupsParseOptions(text.c_str(), 0, &parsed);
    for (int i = 0; i < count; ++i) {
        options.emplace_back(parsed[i].name, parsed[i].value != nullptr ? parsed[i].value : "");
    }
    cupsFreeOptions(count, parsed);
}

std::optional<std::string> JobOptions::find(std::string_view name) const {
    const auto found = std::find_if(options.begin(), options.end(), [name](const auto &option) {
        return equalIgnoringCase(option.first, name);
    });
    return found != options.end() ? std::optional(found->second) : std::nullopt;
}

void JobOptions::set(std::string_view name, std::string_view value) {
    // Not in its place: the name has to be written in the case in which the filter looks for it.
    remove(name);
    options.emplace_back(name, value);
}

void JobOptions::remove(std::string_view name) {
    std::erase_if(options, [name](const auto &option) { return equalIgnoringCase(option.first, name); });
}

std::string JobOptions::text() const {
    std::string text;
    for (const auto &[name, value] : options) {
        text += (text.empty() ? "" : " ") + name + "=" + quoted(value);
    }
    // A brace at the very beginning would make all of it one collection.
    return text.starts_with('{') ? " " + text : text;
}

} // namespace veltrin::raster
