#pragma once

#include <cstdint>
#include <string_view>

// What the text of a job option or of a configuration key means as a number or as a switch.

namespace veltrin {

/// Whether two names or values of options differ in nothing but the case of Latin letters, as CUPS compares
/// them.
[[nodiscard]] bool equalIgnoringCase(std::string_view one, std::string_view other);

/// The decimal number that a text begins with: leading white space is skipped, a sign is allowed, digits are
/// read up to the first non-digit; 0 where there are none, the nearest 32-bit limit where the number lies
/// beyond it.
[[nodiscard]] std::int32_t integerValue(std::string_view text);

/// True exactly for "true" and "yes", in any case.
[[nodiscard]] bool booleanValue(std::string_view text);

} // namespace veltrin
