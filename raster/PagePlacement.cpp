#include "raster/PagePlacement.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace veltrin::raster {

namespace {

constexpr double millimetresPerInch = 25.4;
constexpr double mostDotsAcross = std::numeric_limits<std::uint16_t>::max();

/// Such a length makes one dot at least, and not more than can be counted; not so a length that is no number.
bool canBePage(double dots) {
    return dots >= 1 && dots <= mostDotsAcross;
}

Extent extentOf(std::uint32_t pageDots, double startDots, std::uint32_t rasterDots) {
    Extent extent;
    extent.page = pageDots;
    // A place that no page reaches, or that is no number, counts as the nearest one that makes no difference.
    const double reach = mostDotsAcross + std::numeric_limits<std::uint32_t>::max();
    const double start = std::isnan(startDots) ? 0 : std::clamp(std::round(startDots), -reach, reach);
    const double end = std::min<double>(start + rasterDots, pageDots);
    const double first = std::max(start, 0.0);
    if (end > first) {
        extent.skip = static_cast<std::uint32_t>(first - start);
        extent.place = static_cast<std::uint32_t>(first);
        extent.used = static_cast<std::uint32_t>(end - first);
    }
    return extent;
}

} // namespace

std::optional<PagePlacement> placeOnPage(const RasterBox &box) {
    const double dotsPerPoint = box.resolution / pointsPerInch;
    const double width = std::round(box.pageWidth * dotsPerPoint);
    const double height = std::round(box.pageHeight * dotsPerPoint);
    if (!canBePage(width) || !canBePage(height)) {
        return std::nullopt;
    }
    PagePlacement placement;
    placement.across = extentOf(static_cast<std::uint32_t>(width), box.left * dotsPerPoint, box.columns);
    placement.down = extentOf(static_cast<std::uint32_t>(height), box.top * dotsPerPoint, box.lines);
    placement.widthMillimetres =
        static_cast<std::uint32_t>(std::round(box.pageWidth / pointsPerInch * millimetresPerInch));
    placement.heightMillimetres =
        static_cast<std::uint32_t>(std::round(box.pageHeight / pointsPerInch * millimetresPerInch));
    return placement;
}

} // namespace veltrin::raster
