#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace veltrin {

/// Whole bands that stand one behind the other in a piece of a page stream.
struct BandRun {
    /// Where each band's header begins and where its data ends, in bytes from the beginning of the piece.
    struct Band {
        std::size_t begin = 0;
        std::size_t end = 0;

        bool operator==(const Band &) const = default;
    };

    std::vector<Band> bands;

    /// The last of them ends its page.
    bool endsPage = false;

    [[nodiscard]] std::size_t size() const { return bands.empty() ? 0 : bands.back().end; }
};

/// The bands with which `stream` begins, as far as they are there whole, up to the one that ends the page.
/// Anything that takes a closer look (another header, an impossible size) ends the run before it.
[[nodiscard]] BandRun bandRunOf(std::span<const std::byte> stream);

} // namespace veltrin
