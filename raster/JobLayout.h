#pragma once

#include <cstdint>
#include <functional>

// Which pages and blank sides the stream consists of.
//
// The renderer writes every copy into the stream and the filter picks its pages from there. Each two-sided
// copy is filled up to whole sheets, so that none begins on another one's back:
//
//   one-sided       collated 1 2 3 1 2 3        uncollated 1 1 2 2 3 3
//   two-sided       collated 1 2 3 B 1 2 3 B    uncollated 1 2 1 2 3 B 3 B
//
// A single page in a single copy has no back; the filter prints it one-sided.

namespace veltrin::raster {

struct JobLayout {
    std::uint32_t copies = 1; ///< at least 1
    bool collate = false;
    bool twoSided = false;

    bool operator==(const JobLayout &) const = default;
};

/// One side in the stream.
struct Side {
    /// Within its copy, from 1. A blank side has the number after the document's last page.
    std::uint32_t number = 0;
    bool blank = false;

    bool operator==(const Side &) const = default;
};

/// Takes the next side; false where it cannot be taken, which ends the sequence.
using SideSink = std::function<bool(const Side &)>;

/// The sides that can be written as soon as page `page` (from 1) of the document is there, without knowing
/// whether another one follows. Together, the calls for every page and the one of `sidesAtEnd()` make the
/// stream. False where the sink refused.
[[nodiscard]] bool sidesOnArrival(const JobLayout &layout, std::uint32_t page, const SideSink &sink);

/// The sides that are left when the document has ended after `pages` pages. False where the sink refused.
[[nodiscard]] bool sidesAtEnd(const JobLayout &layout, std::uint32_t pages, const SideSink &sink);

/// Whether pages are written more than once, so that they have to be kept.
[[nodiscard]] bool repeatsPages(const JobLayout &layout);

/// Whether the pages kept so far will not be written again once page `page` has been dealt with.
[[nodiscard]] bool isDoneWithPages(const JobLayout &layout, std::uint32_t page);

} // namespace veltrin::raster
