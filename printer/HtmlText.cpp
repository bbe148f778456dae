#include "printer/HtmlText.h"

#include <nlohmann/json.hpp>

namespace veltrin::printer {

namespace {

/// The library writes nothing but UTF-8, and reads back what it wrote.
std::string validText(std::string_view text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

} // namespace

std::string htmlText(std::string_view text) {
    std::string result;
    for (const char character : validText(text)) {
        const auto number = static_cast<unsigned char>(character);
        if (number < 0x20 || number == 0x7F) {
            result += '.';
        } else if (std::string_view("<>&\"'").find(character) != std::string_view::npos) {
            result += "&#" + std::to_string(number) + ";";
        } else {
            result += character;
        }
    }
    return result;
}

} // namespace veltrin::printer
