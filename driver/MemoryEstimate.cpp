#include "driver/MemoryEstimate.h"

namespace veltrin {

namespace {

// Must be exceeded, not merely reached: the printer needs some of each memory for itself.
constexpr std::uint32_t headerMargin = 1024;
constexpr std::uint32_t imageMargin = 1024 * 1024;

// A status reading costs several turns of the channel; one for every header would slow the page stream down.
constexpr std::chrono::seconds longestUse{3};

} // namespace

bool MemoryEstimate::hasRoomFor(std::uint32_t headerSize, std::uint32_t dataSize) const {
    return headerMemory > headerSize + headerMargin && imageMemory > dataSize + imageMargin;
}

void MemoryEstimate::subtract(std::uint32_t headerSize, std::uint32_t dataSize) {
    headerMemory -= headerSize;
    imageMemory -= dataSize;
}

bool isFresh(std::optional<std::chrono::microseconds> then, std::optional<std::chrono::microseconds> now) {
    return then && now && std::chrono::abs(*now - *then) <= longestUse;
}

} // namespace veltrin
