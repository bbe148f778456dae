#pragma once

#include "raster/PagePlacement.h"

#include <cups/raster.h>

#include <cstdint>
#include <optional>
#include <string>

namespace veltrin::raster {

/// What the raster's samples mean; 8 bits each, all of a dot together.
enum class Samples : std::uint8_t {
    rgb,       ///< red, green, blue
    lightness, ///< one sample, 255 is white
    blackness, ///< one sample, 255 is black
};

/// What the renderer makes use of in the header of a page of CUPS raster.
struct RasterPage {
    RasterBox box;
    Samples samples = Samples::rgb;
    std::uint32_t bytesPerLine = 0;
    std::uint32_t copies = 1; ///< that are left to be made of each page; some renderers always say 1
    bool duplex = false;
    bool tumble = false;
    std::string pageSizeName; ///< the PPD's name of the page size; may be empty
    std::string mediaType;    ///< may be empty

    bool operator==(const RasterPage &) const = default;
};

/// Bytes for one dot.
[[nodiscard]] std::uint32_t bytesPerDot(Samples samples);

/// Reads a header. Nothing where this is no raster that the renderer prints; `problem` then tells people why,
/// as a sentence. No size that comes out of it is beyond 16 bits of dots either way.
[[nodiscard]] std::optional<RasterPage> rasterPageFrom(const cups_page_header2_t &header,
                                                       std::string &problem);

/// Why `page` cannot follow `first` in one job, as a sentence; nothing where it can. What the job's own
/// headers say, or what was decided for all its sheets, cannot change from page to page.
[[nodiscard]] std::optional<std::string> problemWithChange(const RasterPage &first, const RasterPage &page,
                                                           bool twoSided);

} // namespace veltrin::raster
