#pragma once

#include "raster/PagePicture.h"

#include <string>

namespace veltrin::raster {

/// Writes the picture as a PNG: with a palette of 16 colours, an entry for each `InkMix`, or as RGB of 8
/// bits; with its physical size where the resolution is known. A file that is there is overwritten; one that
/// could not be written whole is removed. Returns 0, or the system's number of what went wrong.
[[nodiscard]] int writePicture(const std::string &path, PagePicture picture);

} // namespace veltrin::raster
