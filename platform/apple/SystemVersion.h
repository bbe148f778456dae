#pragma once

#include <cstdint>

namespace veltrin::platform {

/// A system's version as binary-coded decimal 0xMMmp. Each part has the digits that the form gives it, two
/// and one and one; a part that needs more is carried, with all behind it, as the most that they can say
/// (10.15.7 as 0x1099, 15.10 as 0x1599), so that a later version never comes before an earlier one. A
/// negative part counts as 0.
[[nodiscard]] std::uint32_t versionAsDecimalDigits(std::int64_t major, std::int64_t minor,
                                                   std::int64_t patch);

} // namespace veltrin::platform
