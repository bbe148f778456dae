#include "raster/PictureFile.h"

#include "tests/raster/DecodedPages.h"
#include "tests/raster/DrawnPage.h"
#include "tests/raster/ReadPicture.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

namespace veltrin::raster {
namespace {

using test::DrawnPage;
using test::markedPage;
using test::ReadPicture;

/// Writes the picture of a drawn page. Returns what writing it returns.
int writeDrawn(const std::string &path, const DrawnPage &drawn, std::uint16_t resolution,
               std::optional<std::uint32_t> dotsPerInch) {
    int error = -1;
    PagePlanes planes([](const PageProblemFound &found) { FAIL() << found.text; });
    test::decodePages(
        test::jobHeaders(CompressMode::zstd, resolution) + drawn.page(CompressMode::zstd), planes,
        [&](const PageRead &) { error = writePicture(path, PagePicture(planes, dotsPerInch)); });
    return error;
}

TEST(PictureFile, HasAPaletteOfTheMixes) {
    const DrawnPage drawn = markedPage(101, 60);
    ASSERT_EQ(writeDrawn("/tmp/page.png", drawn, 600, std::nullopt), 0);
    const ReadPicture picture = test::readPicture("/tmp/page.png");
    EXPECT_EQ(picture.width, 101U);
    EXPECT_EQ(picture.height, 60U);
    EXPECT_EQ(picture.bitDepth, 4U);
    EXPECT_TRUE(picture.hasPalette);
    EXPECT_EQ(picture.dotsPerMetre, 23622U);
    for (unsigned y = 0; y < 60; ++y) {
        for (unsigned x = 0; x < 101; ++x) {
            ASSERT_EQ(picture.at(x, y), colourOf(static_cast<InkMix>(drawn.mixAt(x, y)))) << x << ' ' << y;
        }
    }
}

TEST(PictureFile, HasTrueColoursWhereItIsSmaller) {
    DrawnPage drawn(60, 30);
    drawn.draw(cyan, 0, 0, 6, 6);
    drawn.draw(magenta, 54, 24, 6, 3);
    ASSERT_EQ(writeDrawn("/tmp/page.png", drawn, 600, 100), 0);
    const ReadPicture picture = test::readPicture("/tmp/page.png");
    EXPECT_EQ(picture.width, 10U);
    EXPECT_EQ(picture.height, 5U);
    EXPECT_EQ(picture.bitDepth, 8U);
    EXPECT_FALSE(picture.hasPalette);
    EXPECT_EQ(picture.dotsPerMetre, 3937U);
    EXPECT_EQ(picture.at(0, 0), (PictureColour{0, 255, 255}));
    EXPECT_EQ(picture.at(9, 4), (PictureColour{255, 128, 255}));
    EXPECT_EQ(picture.at(9, 0), (PictureColour{255, 255, 255}));
}

TEST(PictureFile, TellsNoSizeThatItDoesNotKnow) {
    ASSERT_EQ(writeDrawn("/tmp/page.png", markedPage(40, 20), 0, std::nullopt), 0);
    EXPECT_EQ(test::readPicture("/tmp/page.png").dotsPerMetre, 0U);
}

TEST(PictureFile, OverwritesWhatWasThere) {
    test::writeFile("/tmp/page.png", std::string(100'000, 'x'));
    ASSERT_EQ(writeDrawn("/tmp/page.png", markedPage(40, 20), 600, std::nullopt), 0);
    EXPECT_EQ(test::readPicture("/tmp/page.png").width, 40U);
    EXPECT_LT(std::filesystem::file_size("/tmp/page.png"), 1000U);
}

TEST(PictureFile, TellsWhyItCannotBeWritten) {
    const DrawnPage drawn = markedPage(40, 20);
    EXPECT_EQ(writeDrawn("/tmp/no/such/folder/page.png", drawn, 600, std::nullopt), ENOENT);
    std::filesystem::create_symlink("/dev/full", "/tmp/full.png");
    EXPECT_EQ(writeDrawn("/tmp/full.png", drawn, 600, std::nullopt), ENOSPC);
    EXPECT_FALSE(std::filesystem::is_symlink("/tmp/full.png"));
}

} // namespace
} // namespace veltrin::raster
