#include "raster/RasterPage.h"

#include "tests/raster/RasterHeaders.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using test::grayRasterHeader;
using test::rasterHeader;

RasterPage pageOf(const cups_page_header2_t &header) {
    std::string problem;
    const auto page = rasterPageFrom(header, problem);
    EXPECT_TRUE(page) << problem;
    EXPECT_EQ(problem, "");
    return page.value_or(RasterPage());
}

std::string problemOf(const cups_page_header2_t &header) {
    std::string problem;
    EXPECT_FALSE(rasterPageFrom(header, problem));
    return problem;
}

TEST(RasterPage, AColourPage) {
    cups_page_header2_t header = rasterHeader();
    std::strcpy(header.MediaType, "Labels");
    const RasterPage page = pageOf(header);
    EXPECT_EQ(page.samples, Samples::rgb);
    EXPECT_EQ(page.bytesPerLine, 14283U);
    EXPECT_EQ(page.box.resolution, 600U);
    EXPECT_EQ(page.box.columns, 4761U);
    EXPECT_EQ(page.box.lines, 6816U);
    EXPECT_NEAR(page.box.pageWidth, 595.28, 0.001);
    EXPECT_NEAR(page.box.pageHeight, 841.89, 0.001);
    EXPECT_NEAR(page.box.left, 12, 0.001);
    EXPECT_NEAR(page.box.top, 12, 0.001);
    EXPECT_FALSE(page.duplex);
    EXPECT_EQ(page.pageSizeName, "A4");
    EXPECT_EQ(page.mediaType, "Labels");
}

TEST(RasterPage, TheColourSpacesThatArePrinted) {
    cups_page_header2_t rgb = rasterHeader();
    rgb.cupsColorSpace = CUPS_CSPACE_RGB;
    EXPECT_EQ(pageOf(rgb).samples, Samples::rgb);
    EXPECT_EQ(pageOf(grayRasterHeader(600, CUPS_CSPACE_SW)).samples, Samples::lightness);
    EXPECT_EQ(pageOf(grayRasterHeader(600, CUPS_CSPACE_W)).samples, Samples::lightness);
    EXPECT_EQ(pageOf(grayRasterHeader(600, CUPS_CSPACE_K)).samples, Samples::blackness);
    cups_page_header2_t planar = grayRasterHeader();
    planar.cupsColorOrder = CUPS_ORDER_PLANAR;
    EXPECT_EQ(pageOf(planar).samples, Samples::lightness) << "there is nothing to be ordered";
}

TEST(RasterPage, SidesOfTheSheet) {
    cups_page_header2_t header = rasterHeader();
    header.Tumble = CUPS_TRUE;
    EXPECT_FALSE(pageOf(header).duplex);
    header.Duplex = CUPS_TRUE;
    EXPECT_TRUE(pageOf(header).duplex);
    EXPECT_TRUE(pageOf(header).tumble);
    header.Tumble = CUPS_FALSE;
    EXPECT_FALSE(pageOf(header).tumble);
}

TEST(RasterPage, TheBoxComesFromWhicheverFieldsAreThere) {
    cups_page_header2_t header = rasterHeader();
    std::memset(header.cupsImagingBBox, 0, sizeof header.cupsImagingBBox);
    header.ImagingBoundingBox[0] = 20;
    header.ImagingBoundingBox[3] = 800;
    EXPECT_NEAR(pageOf(header).box.left, 20, 0.001);
    EXPECT_NEAR(pageOf(header).box.top, 41.89, 0.001);
    std::memset(header.ImagingBoundingBox, 0, sizeof header.ImagingBoundingBox);
    header.Margins[0] = 12;
    header.Margins[1] = 18;
    EXPECT_NEAR(pageOf(header).box.left, 12, 0.001);
    EXPECT_NEAR(pageOf(header).box.top, 841.89 - 18 - 6816 / 600.0 * 72, 0.001);
    header.cupsPageSize[0] = 0;
    header.cupsPageSize[1] = 0;
    EXPECT_EQ(pageOf(header).box.pageWidth, 595);
    EXPECT_EQ(pageOf(header).box.pageHeight, 842);
}

TEST(RasterPage, NamesNeedNoTerminator) {
    cups_page_header2_t header = rasterHeader();
    std::memset(header.cupsPageSizeName, 'x', sizeof header.cupsPageSizeName);
    std::memset(header.MediaType, 'y', sizeof header.MediaType);
    EXPECT_EQ(pageOf(header).pageSizeName, std::string(64, 'x'));
    EXPECT_EQ(pageOf(header).mediaType, std::string(64, 'y'));
}

struct RefusedCase {
    std::function<void(cups_page_header2_t &)> damage;
    const char *problem;
};

TEST(RasterPage, WhatCannotBePrintedIsRefused) {
    using Header = cups_page_header2_t;
    constexpr unsigned most = std::numeric_limits<unsigned>::max();
    const std::vector<RefusedCase> cases = {
        {[](Header &header) {
             header.cupsColorSpace = CUPS_CSPACE_CMYK;
             header.cupsBitsPerPixel = 32;
         },
         "The raster has colour space 6; only sRGB (19 or 1) and gray (18, 0 or 3) can be printed."},
        {[](Header &header) { std::memset(&header.cupsColorSpace, 0xFF, sizeof header.cupsColorSpace); },
         "The raster has colour space 4294967295; only sRGB (19 or 1) and gray (18, 0 or 3) can be printed."},
        {[](Header &header) { header.cupsBitsPerColor = 1; },
         "The raster has 1 bits per colour and 24 per pixel; only 8 bits per colour can be printed."},
        {[](Header &header) { header.cupsBitsPerPixel = 32; },
         "The raster has 8 bits per colour and 32 per pixel; only 8 bits per colour can be printed."},
        {[](Header &header) { header.cupsColorOrder = CUPS_ORDER_BANDED; },
         "The raster has its colours one after the other; only chunky pixels can be printed."},
        {[](Header &header) { header.cupsWidth = 0; }, "The raster has 0x6816 pixels, which is no page."},
        {[](Header &header) { header.cupsHeight = 0; }, "The raster has 4761x0 pixels, which is no page."},
        {[](Header &header) { header.cupsWidth = most; },
         "The raster has 4294967295x6816 pixels, which is no page."},
        {[](Header &header) { header.cupsHeight = 65536; },
         "The raster has 4761x65536 pixels, which is no page."},
        {[](Header &header) { header.cupsBytesPerLine = 4761; },
         "The raster has 4761 bytes per line for 4761x6816 pixels."},
        {[](Header &header) { header.cupsBytesPerLine = most; },
         "The raster has 4294967295 bytes per line for 4761x6816 pixels."},
        {[](Header &header) { header.HWResolution[1] = 1200; },
         "The raster has a resolution of 600x1200 dpi, which cannot be printed."},
        {[](Header &header) { header.HWResolution[0] = header.HWResolution[1] = 0; },
         "The raster has a resolution of 0x0 dpi, which cannot be printed."},
        {[](Header &header) { header.HWResolution[0] = header.HWResolution[1] = 65536; },
         "The raster has a resolution of 65536x65536 dpi, which cannot be printed."},
        {[](Header &header) { header.cupsPageSize[0] = 8000; },
         "The raster's page of 8000x842 points cannot be printed."},
        {[](Header &header) {
             header.cupsPageSize[1] = 0;
             header.PageSize[1] = 0;
         },
         "The raster's page of 595x0 points cannot be printed."},
    };
    for (const RefusedCase &each : cases) {
        cups_page_header2_t header = rasterHeader();
        each.damage(header);
        EXPECT_EQ(problemOf(header), each.problem);
    }
}

TEST(RasterPage, NoisyHeadersNeverMakeAnAbsurdPage) {
    std::mt19937 random(1);
    int taken = 0;
    for (int round = 0; round < 20000; ++round) {
        cups_page_header2_t header = rasterHeader();
        for (int changes = static_cast<int>(random() % 4); changes >= 0; --changes) {
            const std::size_t at = random() % (sizeof header - 4);
            const auto value = static_cast<std::uint32_t>(random() >> random() % 32);
            std::memcpy(reinterpret_cast<unsigned char *>(&header) + at, &value, sizeof value);
        }
        std::string problem;
        if (const auto page = rasterPageFrom(header, problem)) {
            ++taken;
            EXPECT_EQ(problem, "");
            EXPECT_TRUE(page->box.columns - 1 < 65535 && page->box.lines - 1 < 65535);
            EXPECT_EQ(page->bytesPerLine, page->box.columns * bytesPerDot(page->samples));
            EXPECT_TRUE(placeOnPage(page->box));
        } else {
            EXPECT_NE(problem, "");
        }
    }
    EXPECT_GT(taken, 1000);
}

TEST(RasterPage, WhatMayChangeWithinAJob) {
    const RasterPage first = pageOf(rasterHeader());
    EXPECT_EQ(problemWithChange(first, first, true), std::nullopt);
    EXPECT_EQ(problemWithChange(first, pageOf(rasterHeader(300)), false),
              "The raster's resolution changes from 600 to 300 dpi within the job.");
    EXPECT_EQ(problemWithChange(first, pageOf(grayRasterHeader()), false),
              "The raster's colour space changes within the job.");
    // A picture may be cut to another box.
    cups_page_header2_t smaller = rasterHeader();
    smaller.cupsWidth = 100;
    smaller.cupsBytesPerLine = 300;
    smaller.cupsImagingBBox[0] = 100;
    EXPECT_EQ(problemWithChange(first, pageOf(smaller), true), std::nullopt);
    cups_page_header2_t otherSize = rasterHeader();
    otherSize.cupsPageSize[0] = 612;
    EXPECT_EQ(problemWithChange(first, pageOf(otherSize), false), std::nullopt);
    EXPECT_EQ(problemWithChange(first, pageOf(otherSize), true),
              "The raster's page size changes within a two-sided job.");
    cups_page_header2_t otherName = rasterHeader();
    std::strcpy(otherName.cupsPageSizeName, "Env10");
    EXPECT_EQ(problemWithChange(first, pageOf(otherName), true),
              "The raster's page size changes within a two-sided job.");
}

} // namespace
} // namespace veltrin::raster
