#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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

/// Writes "program: problem" and how to get help to standard error. Returns `exitUsage`.
[[nodiscard]] int refuseUsage(const char *program, const std::string &problem);

/// The same for a problem that getopt_long() has already written about.
[[nodiscard]] int refuseUsage(const char *program);

/// Writes "program: what: the system's text for `error`" to standard error. Returns `exitFailure`.
[[nodiscard]] int reportFailure(const char *program, const std::string &what, int error);

/// Writes a text, such as the help, to standard output and reports a failure. Returns the exit status.
[[nodiscard]] int printText(const char *program, const std::string &text);

} // namespace veltrin
