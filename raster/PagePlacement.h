#pragma once

#include <cstdint>
#include <optional>

// Where the raster lies on the page. CUPS hands over the imageable area only (or less: a picture's own box);
// the printer is given the whole page.

namespace veltrin::raster {

inline constexpr double pointsPerInch = 72;

/// What the raster's header says; lengths in points (1/72 inch).
struct RasterBox {
    double pageWidth = 0;
    double pageHeight = 0;
    double left = 0;              ///< of the raster's first column, from the left edge of the page
    double top = 0;               ///< of the raster's first line, from the upper edge of the page
    std::uint32_t resolution = 0; ///< dots per inch, both ways
    std::uint32_t columns = 0;
    std::uint32_t lines = 0;

    bool operator==(const RasterBox &) const = default;
};

/// One direction of the placement, in dots.
struct Extent {
    std::uint32_t page = 0;  ///< length of the page
    std::uint32_t skip = 0;  ///< dots of the raster that lie in front of the page
    std::uint32_t place = 0; ///< of the first dot that lies on the page
    std::uint32_t used = 0;  ///< dots of the raster that lie on the page; 0 where it lies beside it

    bool operator==(const Extent &) const = default;
};

struct PagePlacement {
    Extent across;
    Extent down;
    std::uint32_t widthMillimetres = 0;
    std::uint32_t heightMillimetres = 0;

    bool operator==(const PagePlacement &) const = default;
};

/// The raster on its page, cut where it would stick out; nothing where the page's size cannot be (none, or
/// more dots than the 16 bits of the page header's fields count).
[[nodiscard]] std::optional<PagePlacement> placeOnPage(const RasterBox &box);

} // namespace veltrin::raster
