#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace veltrin {

/// What the printer is thought to have free in its two memories, in bytes: as its last status record said,
/// less what has been sent since. All arithmetic is modulo 2^32, as the printer's own numbers are.
struct MemoryEstimate {
    std::uint32_t headerMemory = 0;
    std::uint32_t imageMemory = 0;

    /// The printer can take a header and its data, with a margin to spare in each memory.
    [[nodiscard]] bool hasRoomFor(std::uint32_t headerSize, std::uint32_t dataSize) const;

    /// A header and its data have been sent.
    void subtract(std::uint32_t headerSize, std::uint32_t dataSize);
};

/// Whether an estimate made at `then` still holds at `now`. Never where one of the times is unknown; a clock
/// that was set back counts like one that went on.
[[nodiscard]] bool isFresh(std::optional<std::chrono::microseconds> then,
                           std::optional<std::chrono::microseconds> now);

} // namespace veltrin
