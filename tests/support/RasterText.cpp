#include "tests/support/RasterText.h"

#include "tests/support/NumberedDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace veltrin::test {

namespace {

ssize_t appendTo(void *text, unsigned char *buffer, std::size_t size) {
    static_cast<std::string *>(text)->append(reinterpret_cast<const char *>(buffer), size);
    return static_cast<ssize_t>(size);
}

/// Colours the part of a patch that lies on the line.
void paintPatch(const Patch &patch, const cups_page_header2_t &header, std::uint32_t line,
                const std::array<std::uint8_t, 3> &colour, std::span<std::uint8_t> dots) {
    const double pointsPerDot = 72.0 / header.HWResolution[0];
    const auto top = static_cast<double>(header.cupsPageSize[1] - header.cupsImagingBBox[3]);
    const double y = top + (line + 0.5) * pointsPerDot;
    if (y < patch.top || y >= patch.top + patch.height) {
        return;
    }
    for (std::size_t dot = 0; dot < header.cupsWidth; ++dot) {
        const double x =
            static_cast<double>(header.cupsImagingBBox[0]) + (static_cast<double>(dot) + 0.5) * pointsPerDot;
        if (x >= patch.left && x < patch.left + patch.width) {
            std::copy(colour.begin(), colour.end(), dots.subspan(3 * dot).begin());
        }
    }
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

std::string numberedRaster(std::uint32_t pages, const cups_page_header2_t &header, cups_mode_t mode) {
    std::vector<RasterSheet> sheets;
    for (std::uint32_t number = 1; number <= pages; ++number) {
        sheets.push_back({header, [number, header](std::uint32_t line, std::span<std::uint8_t> dots) {
                              std::fill(dots.begin(), dots.end(), std::uint8_t{255});
                              for (std::uint32_t bit = 0; bit < numberBits; ++bit) {
                                  if ((number >> bit & 1U) != 0) {
                                      paintPatch(barOf(bit), header, line, {0, 0, 0}, dots);
                                  }
                              }
                              paintPatch(redPatch, header, line, {255, 0, 0}, dots);
                          }});
    }
    return rasterText(sheets, mode);
}

} // namespace veltrin::test
