#include "platform/apple/SystemVersion.h"

#include <algorithm>

namespace veltrin::platform {

std::uint32_t versionAsDecimalDigits(std::int64_t major, std::int64_t minor, std::int64_t patch) {
    bool hasNoRoom = false;
    const auto upTo = [&hasNoRoom](std::int64_t largest, std::int64_t part) {
        hasNoRoom = hasNoRoom || part > largest;
        return static_cast<std::uint32_t>(hasNoRoom ? largest : std::max<std::int64_t>(part, 0));
    };
    const std::uint32_t first = upTo(99, major);
    const std::uint32_t second = upTo(9, minor);
    const std::uint32_t third = upTo(9, patch);
    return (first / 10) << 12 | (first % 10) << 8 | second << 4 | third;
}

} // namespace veltrin::platform
