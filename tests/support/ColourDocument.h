#pragma once

#include "raster/PagePicture.h"
#include "tests/support/NumberedDocument.h"

#include <string>
#include <vector>

namespace veltrin::test {

struct ColourPatch {
    Patch place;
    raster::PictureColour colour;
};

/// What is on the page of `colourPdf()`: squares of all mixtures of five lights of red, green and blue,
[[nodiscard]] std::vector<ColourPatch> colourPatches();

/// lines of small black text,
inline constexpr Patch blackText = {.left = 60, .top = 530, .width = 440, .height = 80};

/// and a picture with smooth shades, edges and a fine texture.
inline constexpr Patch photo = {.left = 60, .top = 630, .width = 384, .height = 192};

[[nodiscard]] std::string colourPdf();

/// A document of pages that are covered with dots of every colour, so that they take much room however they
/// are compressed.
[[nodiscard]] std::string noisePdf(std::uint32_t pages);

} // namespace veltrin::test
