#include "platform/CommandLine.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <iostream>

namespace veltrin {

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t largest) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    std::uint64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end || number > largest) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::vector<std::uint64_t>> parseNumbers(std::string_view text, std::uint64_t largest) {
    std::vector<std::uint64_t> numbers;
    for (;;) {
        const std::size_t comma = text.find(',');
        const auto number = parseNumber(text.substr(0, comma), largest);
        if (!number) {
            return std::nullopt;
        }
        numbers.push_back(*number);
        if (comma == std::string_view::npos) {
            return numbers;
        }
        text.remove_prefix(comma + 1);
    }
}

std::optional<int> readOptions(const char *program, int argc, char **argv, const char *shortOptions,
                               const option *longOptions,
                               const std::function<bool(int choice, const char *value)> &take) {
    int choice = 0;
    while ((choice = getopt_long(argc, argv, shortOptions, longOptions, nullptr)) != -1) {
        if (choice == '?') {
            return refuseUsage(program);
        }
        if (!take(choice, optarg)) {
            const option *taken = longOptions;
            while (taken->val != choice) {
                ++taken;
            }
            return refuseUsage(program, std::string("--") + taken->name + " does not take '" + optarg + "'");
        }
    }
    return std::nullopt;
}

int refuseUsage(const char *program, const std::string &problem) {
    std::cerr << program << ": " << problem << '\n';
    return refuseUsage(program);
}

int refuseUsage(const char *program) {
    std::cerr << "Try '" << program << " --help'.\n";
    return exitUsage;
}

int reportFailure(const char *program, const std::string &what, int error) {
    std::cerr << program << ": " << what << ": " << std::strerror(error) << '\n';
    return exitFailure;
}

int printText(const char *program, const std::string &text) {
    std::cout << text;
    if (!std::cout.flush()) {
        return reportFailure(program, "standard output", errno);
    }
    return exitFine;
}

} // namespace veltrin
