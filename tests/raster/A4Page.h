#pragma once

#include "raster/RasterPage.h"

namespace veltrin::test {

inline raster::RasterPage a4Page(bool duplex = false, bool tumble = false) {
    raster::RasterPage page;
    page.pageSizeName = "A4";
    page.duplex = duplex;
    page.tumble = tumble;
    return page;
}

} // namespace veltrin::test
