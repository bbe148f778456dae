#pragma once

#include "tests/support/RasterText.h"

#include <cstddef>
#include <string>
#include <vector>

namespace veltrin::test {

/// A document in one of the forms in which CUPS raster comes.
struct FormedRaster {
    std::string form; ///< for people, such as "version 2, other byte order"
    std::string text;
    std::vector<std::size_t> pageEnds; ///< that of the sync word first: where a page may begin

    /// The pages that are whole, and whether nothing else is there, when the text is cut to `size` bytes.
    [[nodiscard]] std::size_t wholePages(std::size_t size) const;
    [[nodiscard]] bool isBetweenPages(std::size_t size) const;
};

/// The pages in all versions and both byte orders: version 1, whose headers are short; version 2, compressed,
/// and as PWG has it; version 3, the plain one.
[[nodiscard]] std::vector<FormedRaster> everyForm(const std::vector<RasterSheet> &pages);

} // namespace veltrin::test
