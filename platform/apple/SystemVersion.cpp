#include "platform/apple/SystemVersion.h"

#include <algorithm>

namespace veltrin::platform {

std::uint32_t versionAsDecimalDigits(std::int64_t major, std::int64_t minor, std::int64_t patch) {
    const auto upTo = [](std::int64_t largest, std::int64_t part) {
        return static_cast<std::uint32_t>(std::clamp<std::int64_t>(part, 0, largest));
    };
    const std::uint32_t first = upTo(99, major);
    return (first / 10) << 12 | (first % 10) << 8 | upTo(9, minor) << 4 | upTo(9, patch);
}

} // namespace veltrin::platform
