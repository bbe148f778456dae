#pragma once

#include "tests/raster/RasterHeaders.h"

#include <cups/raster.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::test {

/// Gives the dots of a line their colours.
using Paint = std::function<void(std::uint32_t line, std::span<std::uint8_t> dots)>;

struct RasterSheet {
    cups_page_header2_t header;
    Paint paint;
};

/// The pages as CUPS raster, in one of the library's forms.
[[nodiscard]] std::string rasterText(const std::vector<RasterSheet> &pages,
                                     cups_mode_t mode = CUPS_RASTER_WRITE);

/// White paper with a black bar from the left upper corner, eight dots wide for each number, and eight dots
/// high.
[[nodiscard]] Paint numbered(std::uint32_t number, std::uint32_t bytesPerDot = 3);

/// Dots of all colours without a pattern, which no compression makes small.
[[nodiscard]] Paint noise();

/// The pages of a `numberedPdf()`, as CUPS raster of this kind.
[[nodiscard]] std::string numberedRaster(std::uint32_t pages, const cups_page_header2_t &header,
                                         cups_mode_t mode = CUPS_RASTER_WRITE);

} // namespace veltrin::test
