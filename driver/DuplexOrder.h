#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace veltrin {

/// The order that a printer with a duplex unit needs: the second side of each sheet first.
inline constexpr std::string_view duplexUnitOrder = "214365";

/// In which order the pages of one copy are sent, as indexes into the pages in document order. `pageCount` is
/// even.
///
/// An order is named after what becomes of a document of six pages: "214365" for a duplex unit, "642135" and
/// "246135" for a stack that is turned by hand. Nothing for any other name.
[[nodiscard]] std::optional<std::vector<std::uint32_t>> duplexOrder(std::string_view order,
                                                                    std::uint32_t pageCount);

} // namespace veltrin
