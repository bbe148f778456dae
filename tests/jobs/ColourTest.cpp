// The colours of a document on the sheet, beside those that Ghostscript gives to the same page.

#include "tests/jobs/PrintedDocumentFixture.h"
#include "tests/support/ColourDocument.h"
#include "tests/support/Files.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using raster::PictureColour;
using test::ColourPatch;
using test::MeanColour;
using test::Patch;
using test::PrintedSide;

/// Of 255, in red, green and blue each. Dark shades of strong colours come out lighter: some of their ink is
/// lost under the black.
constexpr double tolerance = 4;
constexpr double toleranceOfDarkShades = 14;
/// Dark means: not even a third of any light.
constexpr std::uint8_t darkest = 85;

double toleranceOf(const PictureColour &colour) {
    const bool isNeutral = colour.red == colour.green && colour.green == colour.blue;
    const bool isDark = std::max({colour.red, colour.green, colour.blue}) <= darkest;
    return isDark && !isNeutral ? toleranceOfDarkShades : tolerance;
}

/// The same for a picture, which is made of shades of both kinds.
constexpr double pictureTolerance = 22;
constexpr double pictureBlock = 16; ///< points

constexpr const char *documentFile = "/tmp/document.pdf";
constexpr const char *shownFile = "/tmp/document.png";

/// The page as Ghostscript shows it: of 600 dots per inch, as on paper, each four by four of them made one.
PrintedSide shownByGhostscript(const std::string &document) {
    test::writeFile(documentFile, document);
    const test::ProcessResult result = test::run(
        {.program = GHOSTSCRIPT,
         .arguments = {"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=png16m", "-r600",
                       "-dDownScaleFactor=4", std::string("-sOutputFile=") + shownFile, documentFile}});
    EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
    return PrintedSide(shownFile);
}

/// The largest difference of red, green or blue.
double difference(const MeanColour &one, const MeanColour &other) {
    return std::max(
        {std::abs(one.red - other.red), std::abs(one.green - other.green), std::abs(one.blue - other.blue)});
}

std::string textOf(const MeanColour &colour) {
    return std::to_string(std::lround(colour.red)) + " " + std::to_string(std::lround(colour.green)) + " " +
           std::to_string(std::lround(colour.blue));
}

/// The patch in pieces, of which only the middles are looked at: that is why they overlap by half.
std::vector<Patch> blocksOf(const Patch &patch) {
    std::vector<Patch> blocks;
    const auto rows = static_cast<unsigned>(patch.height / pictureBlock * 2) - 1;
    const auto columns = static_cast<unsigned>(patch.width / pictureBlock * 2) - 1;
    for (unsigned row = 0; row < rows; ++row) {
        for (unsigned column = 0; column < columns; ++column) {
            blocks.push_back({patch.left + column * pictureBlock / 2, patch.top + row * pictureBlock / 2,
                              pictureBlock, pictureBlock});
        }
    }
    return blocks;
}

struct DotCount {
    std::uint32_t black = 0;
    std::uint32_t white = 0;
    std::uint32_t coloured = 0;
};

/// The dots of a patch, of which a picture of every dot has 600 to an inch.
DotCount dotsIn(const PrintedSide &side, const Patch &patch) {
    const auto dot = [](double points) { return static_cast<std::uint32_t>(points * 600 / 72); };
    DotCount count;
    for (std::uint32_t y = dot(patch.top); y < dot(patch.top + patch.height); ++y) {
        for (std::uint32_t x = dot(patch.left); x < dot(patch.left + patch.width); ++x) {
            const PictureColour colour = side.picture.at(x, y);
            const bool isBlack = colour == PictureColour{0, 0, 0};
            const bool isWhite = colour == PictureColour{255, 255, 255};
            ++(isBlack ? count.black : isWhite ? count.white : count.coloured);
        }
    }
    return count;
}

using ColourTest = test::PrintedDocumentFixture;

TEST_F(ColourTest, APageLooksAsGhostscriptShowsIt) {
    const std::string document = test::colourPdf();
    const Printed printed = print(document, {}, {.dotsPerInch = everyDot});
    ASSERT_THAT(printed.sheets, testing::SizeIs(1));
    const PrintedSide &side = *printed.sheets[0].front;
    const PrintedSide shown = shownByGhostscript(document);

    for (const ColourPatch &patch : test::colourPatches()) {
        const MeanColour onPaper = side.meanIn(patch.place);
        const MeanColour expected = shown.meanIn(patch.place);
        EXPECT_LE(difference(onPaper, expected), toleranceOf(patch.colour))
            << textOf(expected) << " has become " << textOf(onPaper);
    }

    const DotCount text = dotsIn(side, test::blackText);
    EXPECT_EQ(text.coloured, 0U);
    EXPECT_GT(text.black, text.white / 50) << "there is text";

    for (const Patch &block : blocksOf(test::photo)) {
        const MeanColour onPaper = side.meanIn(block);
        const MeanColour expected = shown.meanIn(block);
        EXPECT_LE(difference(onPaper, expected), pictureTolerance)
            << "at " << block.left << ", " << block.top << ", " << textOf(expected) << " has become "
            << textOf(onPaper);
    }
    std::filesystem::remove(documentFile);
    std::filesystem::remove(shownFile);
}

} // namespace
} // namespace veltrin
