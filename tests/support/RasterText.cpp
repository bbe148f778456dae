#include "tests/support/RasterText.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace veltrin::test {

namespace {

ssize_t appendTo(void *text, unsigned char *buffer, std::size_t size) {
    static_cast<std::string *>(text)->append(reinterpret_cast<const char *>(buffer), size);
    return static_cast<ssize_t>(size);
}

} // namespace

std::string rasterText(const std::vector<RasterSheet> &pages, cups_mode_t mode) {
    std::string text;
    cups_raster_t *raster = cupsRasterOpenIO(appendTo, &text, mode);
    EXPECT_NE(raster, nullptr);
    for (const RasterSheet &page : pages) {
        cups_page_header2_t header = page.header;
        EXPECT_TRUE(cupsRasterWriteHeader2(raster, &header)) << cupsRasterErrorString();
        std::vector<std::uint8_t> line(page.header.cupsBytesPerLine);
        for (std::uint32_t y = 0; y < page.header.cupsHeight; ++y) {
            page.paint(y, line);
            EXPECT_EQ(cupsRasterWritePixels(raster, line.data(), page.header.cupsBytesPerLine),
                      page.header.cupsBytesPerLine);
        }
    }
    cupsRasterClose(raster);
    return text;
}

Paint noise() {
    return [](std::uint32_t line, std::span<std::uint8_t> dots) {
        std::uint32_t random = line + 1;
        for (std::uint8_t &dot : dots) {
            random = random * 1664525 + 1013904223;
            dot = static_cast<std::uint8_t>(random >> 24);
        }
    };
}

Paint numbered(std::uint32_t number, std::uint32_t bytesPerDot) {
    return [number, bytesPerDot](std::uint32_t line, std::span<std::uint8_t> dots) {
        std::fill(dots.begin(), dots.end(), std::uint8_t{255});
        if (line < 8) {
            std::fill_n(dots.begin(), 8 * number * bytesPerDot, std::uint8_t{0});
        }
    };
}

} // namespace veltrin::test
