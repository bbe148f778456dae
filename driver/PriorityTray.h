#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace veltrin {

/// The tray that a job's name asks for, in the status record's numbering; nothing for an ordinary name.
///
/// A name that begins with "@" and ends with ")" asks for one. Only its last two characters are looked at:
/// "@letters 3)" gives 3, a two-digit number gives its last digit, and a name that ends in "()" gives 0.
[[nodiscard]] std::optional<std::uint32_t> priorityTrayNamedBy(std::string_view jobName);

} // namespace veltrin
