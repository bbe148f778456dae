#pragma once

#include <cups/raster.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

// Raster headers as the renderers in front make them.

namespace veltrin::test {

/// A page of A4 in sRGB with margins of 12 points.
[[nodiscard]] inline cups_page_header2_t rasterHeader(std::uint32_t resolution = 600) {
    cups_page_header2_t header{};
    header.HWResolution[0] = resolution;
    header.HWResolution[1] = resolution;
    header.PageSize[0] = 595;
    header.PageSize[1] = 842;
    header.cupsPageSize[0] = 595.28F;
    header.cupsPageSize[1] = 841.89F;
    header.cupsImagingBBox[0] = 12;
    header.cupsImagingBBox[1] = 12;
    header.cupsImagingBBox[2] = 583.28F;
    header.cupsImagingBBox[3] = 829.89F;
    header.cupsWidth = static_cast<unsigned>(std::lround(571.28 * resolution / 72));
    header.cupsHeight = static_cast<unsigned>(std::lround(817.89 * resolution / 72));
    header.cupsBitsPerColor = 8;
    header.cupsBitsPerPixel = 24;
    header.cupsBytesPerLine = 3 * header.cupsWidth;
    header.cupsNumColors = 3;
    header.cupsColorOrder = CUPS_ORDER_CHUNKED;
    header.cupsColorSpace = CUPS_CSPACE_SRGB;
    header.NumCopies = 1;
    std::snprintf(header.cupsPageSizeName, sizeof header.cupsPageSizeName, "A4");
    return header;
}

/// The same in 8 bits of gray.
[[nodiscard]] inline cups_page_header2_t grayRasterHeader(std::uint32_t resolution = 600,
                                                          cups_cspace_t space = CUPS_CSPACE_SW) {
    cups_page_header2_t header = rasterHeader(resolution);
    header.cupsBitsPerPixel = 8;
    header.cupsBytesPerLine = header.cupsWidth;
    header.cupsNumColors = 1;
    header.cupsColorSpace = space;
    return header;
}

} // namespace veltrin::test
