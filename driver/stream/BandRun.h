#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace veltrin {

/// Whole bands that stand one behind the other in a piece of a page stream.
struct BandRun {
    std::size_t size = 0;    ///< of all of them, in bytes
    std::uint32_t bands = 0; ///< how many they are
    bool endsPage = false;   ///< the last of them ends its page

    bool operator==(const BandRun &) const = default;
};

/// A piece of a page stream that begins with a whole band: where the band's data begin and end, in bytes.
struct BandExtent {
    std::size_t headerEnd = 0;
    std::size_t dataEnd = 0;
};

/// The bands with which `stream` begins, as far as they are there whole, up to the one that ends the page.
/// Anything that takes a closer look (another header, an impossible size) ends the run before it.
[[nodiscard]] BandRun bandRunOf(std::span<const std::byte> stream);

/// Which band the byte at `offset` belongs to, of a piece that begins with a run of whole bands longer than
/// that; in bytes from the beginning of the piece.
[[nodiscard]] BandExtent bandAround(std::span<const std::byte> stream, std::size_t offset);

} // namespace veltrin
