#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

// What people feed to the programs instead of a page stream.

namespace veltrin {

/// As many bytes of an input's beginning as `foreignFormat()` needs to be sure.
inline constexpr std::size_t foreignFormatBytes = 256;

/// What an input that is no page stream is, by its beginning, and what to do about it, such as "this is a PDF
/// document, not a page stream: it has to be rendered first"; nothing where it is none of the formats that
/// come instead of a page stream. One line of printable ASCII.
[[nodiscard]] std::optional<std::string> foreignFormat(std::span<const std::byte> beginning);

} // namespace veltrin
