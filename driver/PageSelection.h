#pragma once

#include "filter/JobSettings.h"

#include <cstdint>
#include <string_view>
#include <vector>

// Which of the spooled pages make up one copy of the document.
//
// The renderer writes every copy of the job into the stream: page after page for an uncollated job (1 1 2 2 3
// 3), document after document for a collated one (1 2 3 1 2 3), and, on newer systems, sheet after sheet for
// an uncollated two-sided one (1 2 1 2 3 4 3 4). One instance of each page is selected; the repetition is the
// send plan's business.
//
// All counts are unsigned 32-bit numbers and wrap as such.

namespace veltrin {

/// The first system version (binary-coded decimal 0xMMmp) whose renderer repeats both sides of a sheet
/// together.
inline constexpr std::uint32_t pairedPagesVersion = 0x1040;

/// The job's settings, adjusted to the number of pages that the stream really held. A job of one page becomes
/// a one-sided single copy.
[[nodiscard]] JobSettings adjustedToPageCount(JobSettings settings, std::uint32_t pageCount);

/// What the numbers of a spooled job say about one copy.
struct CopyCounts {
    /// Pages of one copy.
    std::uint32_t pathCount = 0;

    /// The settings spoke of more pages than were spooled.
    bool exceedsPageCount = false;

    /// The number of sides in one copy is odd, so the renderer has put a blank page at the very end of the
    /// stream.
    bool hasGDIBlankPage = false;
};

/// `settings.copies` is at least 1.
[[nodiscard]] CopyCounts countCopy(const JobSettings &settings, std::uint32_t pageCount);

/// What becomes of the renderer's blank page.
enum class BlankPage { none, appended, discarded };

struct PageSelection {
    /// The two sides of each sheet were taken as a pair.
    bool paired = false;

    /// The chosen pages in document order, as indexes into the spooled pages, without an appended blank page.
    std::vector<std::uint32_t> indexes;

    BlankPage blankPage = BlankPage::none;
};

/// Selects the pages of one copy out of `pageCount` spooled ones. `settings` and `counts` are those of the
/// functions above.
[[nodiscard]] PageSelection selectPages(const JobSettings &settings, const CopyCounts &counts,
                                        std::uint32_t pageCount, std::uint32_t systemVersion);

/// Whether a copy of so many pages needs a blank page more, so that the next one begins on a front side: an
/// odd copy does where sheets are turned by hand, and on paper with a front of its own. Nothing in the filter
/// asks.
[[nodiscard]] bool includeBlankPage(std::uint32_t pathCount, bool duplexInstalled,
                                    std::string_view paperType);

} // namespace veltrin
