#include "printer/PrinterUri.h"

#include <charconv>
#include <cstdint>
#include <string_view>

namespace veltrin::printer {

namespace {

/// The text behind its percent signs; nothing where one of them stands for no byte of a text.
std::optional<std::string> decoded(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        if (text.front() != '%') {
            result += text.front();
            text.remove_prefix(1);
            continue;
        }
        std::uint8_t byte = 0;
        const char *digits = text.data() + 1;
        if (text.size() < 3 || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2 || byte == 0) {
            return std::nullopt;
        }
        result += static_cast<char>(byte);
        text.remove_prefix(3);
    }
    return result;
}

std::string *memberOf(PrinterUri &parsed, std::string_view key) {
    if (key == "scenario") {
        return &parsed.scenario;
    }
    if (key == "output") {
        return &parsed.outputFile;
    }
    return key == "report" ? &parsed.reportFile : nullptr;
}

bool readMember(std::string_view text, PrinterUri &parsed, std::string &problem) {
    const std::size_t equals = text.find('=');
    const std::string_view key = text.substr(0, equals);
    std::string *member = memberOf(parsed, key);
    if (member == nullptr) {
        problem = "the device URI has \"" + std::string(key) +
                  "\", but only scenario, output and report mean anything";
        return false;
    }
    const auto value = equals == std::string_view::npos ? std::nullopt : decoded(text.substr(equals + 1));
    if (!value || value->empty()) {
        problem = "the device URI's \"" + std::string(key) + "\" has no proper value";
        return false;
    }
    if (!member->empty()) {
        problem = "the device URI has \"" + std::string(key) + "\" twice";
        return false;
    }
    *member = *value;
    return true;
}

} // namespace

std::optional<PrinterUri> parsePrinterUri(const std::string &uri, std::string &problem) {
    PrinterUri parsed;
    const std::size_t question = uri.find('?');
    parsed.printer = uri.substr(0, question);
    if (!uri.starts_with("veltrin-printer:") || question == std::string::npos) {
        return parsed;
    }
    std::string_view rest = std::string_view(uri).substr(question + 1);
    while (!rest.empty()) {
        const std::size_t end = rest.find('&');
        if (!readMember(rest.substr(0, end), parsed, problem)) {
            return std::nullopt;
        }
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    return parsed;
}

} // namespace veltrin::printer
