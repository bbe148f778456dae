#pragma once

#include <getopt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What the programs' command lines have in common.

namespace veltrin {

/// Exit statuses of the programs for people.
enum ExitStatus : int {
    exitFine = 0,
    exitFailure = 1, ///< input or output failed, or the input is not what it should be
    exitUsage = 2,
};

/// A whole number, decimal or with 0x hexadecimal, from 0 to `largest`; nothing for any other text.
[[nodiscard]] std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t largest);

/// The numbers between commas, each as `parseNumber()` takes it; nothing if one of them is not.
[[nodiscard]] std::optional<std::vector<std::uint64_t>> parseNumbers(std::string_view text,
                                                                     std::uint64_t largest);

/// What a word stands for; nothing for one that is not in the table.
template <typename Value, std::size_t count>
[[nodiscard]] std::optional<Value> parseWord(const std::array<std::pair<const char *, Value>, count> &table,
                                             std::string_view word) {
    const auto *found =
        std::find_if(table.begin(), table.end(), [word](const auto &entry) { return word == entry.first; });
    return found != table.end() ? std::optional(found->second) : std::nullopt;
}

/// Hands each option of the command line to `take`, with its value if it has one. `take` returns whether that
/// is a value for the option. Returns `exitUsage` after the first mistake, which has been written about then.
[[nodiscard]] std::optional<int> readOptions(const char *program, int argc, char **argv,
                                             const char *shortOptions, const option *longOptions,
                                             const std::function<bool(int choice, const char *value)> &take);

/// Writes "program: problem" and how to get help to standard error. Returns `exitUsage`.
[[nodiscard]] int refuseUsage(const char *program, const std::string &problem);

/// The same for a problem that getopt_long() has already written about.
[[nodiscard]] int refuseUsage(const char *program);

/// Writes "program: what: the system's text for `error`" to standard error. Returns `exitFailure`.
[[nodiscard]] int reportFailure(const char *program, const std::string &what, int error);

/// Writes a text, such as the help, to standard output and reports a failure. Returns the exit status.
[[nodiscard]] int printText(const char *program, const std::string &text);

} // namespace veltrin
