#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What the numbers in a stream mean, in words.

namespace veltrin {

/// What a page header's type bits say, such as {"first side of a sheet", "pause before this page"}; a page
/// without bits is {"plain"}. Bits that mean nothing here are named by their number.
[[nodiscard]] std::vector<std::string> meaningsOfPageType(std::uint8_t bType);

/// What a job file header's setting bits say of duplex, such as {"duplex"}, and the number of the others.
[[nodiscard]] std::vector<std::string> meaningsOfJobSetting(std::uint16_t wJobSetting);

// The names of codes, in English; empty for a code without one.

[[nodiscard]] std::string_view nameOfPaperSize(std::uint8_t code);

[[nodiscard]] std::string_view nameOfMediaType(std::uint8_t code);

/// A page header numbers the trays as the printer's feeder does, from the bypass tray on: not as its status
/// record does.
[[nodiscard]] std::string_view nameOfPageTray(std::uint8_t code);

/// "9 (A4)", or "200 (unknown)" for a code without a name.
[[nodiscard]] std::string withName(std::uint8_t code, std::string_view name);

/// The string in a field of bytes: up to the first zero byte, or all of it.
[[nodiscard]] std::string_view stringIn(std::span<const char> field);

/// A text from the outside between double quotes. Anything but printable ASCII becomes an escape: the
/// result does to a terminal nothing but show.
[[nodiscard]] std::string escaped(std::string_view text);

/// "0x" and `digits` hexadecimal digits.
[[nodiscard]] std::string hexadecimal(std::uint64_t number, int digits);

/// The texts in a row, with ", " between them.
[[nodiscard]] std::string listed(const std::vector<std::string> &texts);

} // namespace veltrin
