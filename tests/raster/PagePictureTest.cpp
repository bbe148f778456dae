#include "raster/PagePicture.h"

#include "tests/raster/DecodedPages.h"
#include "tests/raster/DrawnPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using test::DrawnPage;
using test::markedPage;

/// Looks at the picture of a drawn page of 600 dpi.
void lookAt(const DrawnPage &drawn, std::optional<std::uint32_t> dotsPerInch,
            const std::function<void(PagePicture &)> &look, std::uint16_t resolution = 600) {
    bool looked = false;
    PagePlanes planes([](const PageProblemFound &found) { FAIL() << found.text; });
    test::decodePages(test::jobHeaders(CompressMode::zstd, resolution) + drawn.page(CompressMode::zstd),
                      planes, [&](const PageRead &) {
                          PagePicture picture(planes, dotsPerInch);
                          look(picture);
                          looked = true;
                      });
    EXPECT_TRUE(looked);
}

std::vector<std::vector<PictureColour>> coloursOf(PagePicture &picture) {
    std::vector<std::vector<PictureColour>> rows;
    for (std::uint32_t y = 0; y < picture.height(); ++y) {
        const std::span<const std::uint8_t> row = picture.nextRow();
        rows.emplace_back();
        for (std::uint32_t x = 0; x < picture.width(); ++x) {
            const std::size_t place = std::size_t{x} * 3;
            rows.back().push_back({row[place], row[place + 1], row[place + 2]});
        }
    }
    return rows;
}

TEST(PagePicture, MixesInksAsIdealOnesDo) {
    EXPECT_EQ(colourOf(0), (PictureColour{255, 255, 255}));
    EXPECT_EQ(colourOf(8), (PictureColour{0, 255, 255}));
    EXPECT_EQ(colourOf(4), (PictureColour{255, 0, 255}));
    EXPECT_EQ(colourOf(2), (PictureColour{255, 255, 0}));
    EXPECT_EQ(colourOf(8 | 4), (PictureColour{0, 0, 255}));
    EXPECT_EQ(colourOf(8 | 2), (PictureColour{0, 255, 0}));
    EXPECT_EQ(colourOf(4 | 2), (PictureColour{255, 0, 0}));
    EXPECT_EQ(colourOf(8 | 4 | 2), (PictureColour{0, 0, 0}));
    for (unsigned mix = 1; mix < 16; mix += 2) {
        EXPECT_EQ(colourOf(static_cast<InkMix>(mix)), (PictureColour{0, 0, 0})) << mix;
    }
}

TEST(PagePicture, HasTheMixOfEveryDot) {
    for (const std::uint16_t dots : {std::uint16_t{96}, std::uint16_t{101}, std::uint16_t{47}}) {
        const DrawnPage drawn = markedPage(dots, 30);
        for (const auto resolution :
             {std::optional<std::uint32_t>(), std::optional(600U), std::optional(4000U)}) {
            lookAt(drawn, resolution, [&](PagePicture &picture) {
                EXPECT_TRUE(picture.isOfInkMixes());
                EXPECT_EQ(picture.width(), dots);
                EXPECT_EQ(picture.height(), 30U);
                EXPECT_EQ(picture.resolution(), 600U);
                for (unsigned y = 0; y < 30; ++y) {
                    const std::span<const std::uint8_t> row = picture.nextRow();
                    ASSERT_EQ(row.size(), (dots + 1U) / 2);
                    for (unsigned x = 0; x < dots; ++x) {
                        ASSERT_EQ(row[x / 2] >> (x % 2 == 0 ? 4 : 0) & 15, drawn.mixAt(x, y))
                            << x << ' ' << y;
                    }
                }
            });
        }
    }
}

TEST(PagePicture, HasTheMeanColourWhereItIsSmaller) {
    DrawnPage drawn(40, 20);
    drawn.draw(cyan, 0, 0, 10, 10);     // a whole dot of the picture
    drawn.draw(magenta, 10, 0, 5, 10);  // half of one
    drawn.draw(black, 20, 0, 1, 1);     // a hundredth
    drawn.draw(yellow, 30, 10, 10, 10); // one with two inks, in its left half
    drawn.draw(cyan, 30, 10, 5, 10);
    lookAt(drawn, 60, [](PagePicture &picture) {
        EXPECT_FALSE(picture.isOfInkMixes());
        EXPECT_EQ(picture.resolution(), 60U);
        const std::vector<PictureColour> upper = {
            {0, 255, 255}, {255, 128, 255}, {252, 252, 252}, {255, 255, 255}};
        const std::vector<PictureColour> lower = {
            {255, 255, 255}, {255, 255, 255}, {255, 255, 255}, {128, 255, 0}};
        EXPECT_THAT(coloursOf(picture), testing::ElementsAre(upper, lower));
    });
}

TEST(PagePicture, HasEveryDotOnceWhereTheDivisorIsNotWhole) {
    // A third of all dots, whatever they are put together to.
    DrawnPage drawn(120, 90);
    for (unsigned y = 0; y < 90; ++y) {
        for (unsigned x = 0; x < 120; ++x) {
            if ((x + y) % 3 == 0) {
                drawn.draw(black, x, y);
            }
        }
    }
    lookAt(drawn, 96, [](PagePicture &picture) {
        EXPECT_EQ(picture.width(), 19U);
        EXPECT_EQ(picture.height(), 14U);
        for (const auto &row : coloursOf(picture)) {
            for (const PictureColour &colour : row) {
                EXPECT_NEAR(colour.red, 170, 3);
                EXPECT_EQ(colour.red, colour.green);
                EXPECT_EQ(colour.red, colour.blue);
            }
        }
    });
}

TEST(PagePicture, IsNeverSmallerThanADot) {
    lookAt(markedPage(40, 20), 1, [](PagePicture &picture) {
        EXPECT_EQ(picture.width(), 1U);
        EXPECT_EQ(picture.height(), 1U);
        EXPECT_EQ(picture.nextRow().size(), 3U);
    });
}

TEST(PagePicture, AddsUpLongLines) {
    // More dots than a short sum of their light could hold.
    DrawnPage drawn(65528, 20);
    drawn.draw(magenta, 0, 0, 32764, 20);
    lookAt(
        drawn, 1,
        [](PagePicture &picture) {
            ASSERT_EQ(picture.width(), 1U);
            EXPECT_EQ(coloursOf(picture)[0][0], (PictureColour{255, 128, 255}));
        },
        65535);
}

TEST(PagePicture, KeepsItsSizeWhereTheResolutionIsNotKnown) {
    lookAt(
        markedPage(40, 20), 100,
        [](PagePicture &picture) {
            EXPECT_TRUE(picture.isOfInkMixes());
            EXPECT_EQ(picture.width(), 40U);
            EXPECT_EQ(picture.resolution(), 0U);
        },
        0);
}

} // namespace
} // namespace veltrin::raster
