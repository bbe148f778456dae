#include "raster/PagePlacement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

constexpr double inchPoints = 72;

RasterBox a4(double left, double top, std::uint32_t columns, std::uint32_t lines) {
    return {595.28, 841.89, left, top, 600, columns, lines};
}

struct PlacementCase {
    const char *name;
    RasterBox box;
    PagePlacement placement;
};

TEST(PagePlacement, LaysTheRasterOnThePage) {
    const std::vector<PlacementCase> cases = {
        {"the imageable area of A4",
         a4(12, 12, 4761, 6816),
         {{4961, 0, 100, 4761}, {7016, 0, 100, 6816}, 210, 297}},
        {"a picture's own box",
         a4(30.12, 200, 4259, 3000),
         {{4961, 0, 251, 4259}, {7016, 0, 1667, 3000}, 210, 297}},
        {"the whole page", a4(0, 0, 4961, 7016), {{4961, 0, 0, 4961}, {7016, 0, 0, 7016}, 210, 297}},
        {"sticks out at the right and below",
         a4(12, 12, 5000, 7000),
         {{4961, 0, 100, 4861}, {7016, 0, 100, 6916}, 210, 297}},
        {"sticks out at the left and above",
         a4(-12, -1.2, 4961, 7016),
         {{4961, 100, 0, 4861}, {7016, 10, 0, 7006}, 210, 297}},
        {"sticks out on all sides",
         a4(-12, -12, 6000, 8000),
         {{4961, 100, 0, 4961}, {7016, 100, 0, 7016}, 210, 297}},
        {"lies beside the page", a4(600, 12, 100, 100), {{4961, 0, 0, 0}, {7016, 0, 100, 100}, 210, 297}},
        {"lies above the page", a4(12, -12, 100, 100), {{4961, 0, 100, 100}, {7016, 0, 0, 0}, 210, 297}},
        {"no raster at all", a4(12, 12, 0, 0), {{4961, 0, 0, 0}, {7016, 0, 0, 0}, 210, 297}},
        {"Letter at 300 dots per inch",
         {612, 792, 18, 12, 300, 2400, 3200},
         {{2550, 0, 75, 2400}, {3300, 0, 50, 3200}, 216, 279}},
        {"a custom size",
         {283, 566, 0, 0, 600, 2358, 4717},
         {{2358, 0, 0, 2358}, {4717, 0, 0, 4717}, 100, 200}},
        {"the largest page",
         {65535, 65535, 0, 0, 72, 1, 1},
         {{65535, 0, 0, 1}, {65535, 0, 0, 1}, 23119, 23119}},
        {"one dot",
         {inchPoints / 600, inchPoints / 600, 0, 0, 600, 1, 1},
         {{1, 0, 0, 1}, {1, 0, 0, 1}, 0, 0}},
        {"a place that is no number",
         a4(std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 10, 10),
         {{4961, 0, 0, 10}, {7016, 0, 0, 0}, 210, 297}},
    };
    for (const PlacementCase &each : cases) {
        const auto placement = placeOnPage(each.box);
        ASSERT_TRUE(placement) << each.name;
        EXPECT_EQ(*placement, each.placement)
            << each.name << ": " << placement->across.skip << ' ' << placement->across.place << ' '
            << placement->across.used << ", " << placement->down.skip << ' ' << placement->down.place << ' '
            << placement->down.used << ", " << placement->widthMillimetres << " x "
            << placement->heightMillimetres;
    }
}

TEST(PagePlacement, APageThatCannotBeIsRefused) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double wrong :
         {0.0, -595.28, 7865.0, 1e30, infinity, -infinity, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_FALSE(placeOnPage({wrong, 841.89, 0, 0, 600, 10, 10})) << wrong;
        EXPECT_FALSE(placeOnPage({595.28, wrong, 0, 0, 600, 10, 10})) << wrong;
    }
    EXPECT_FALSE(placeOnPage({595.28, 841.89, 0, 0, 0, 10, 10}));
    EXPECT_FALSE(placeOnPage({595.28, 841.89, 0, 0, 0xFFFFFFFF, 10, 10}));
}

TEST(PagePlacement, NothingLiesOutsideThePageOrTheRaster) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> place(-2000, 2000);
    std::uniform_real_distribution<double> size(1, 1500);
    for (int round = 0; round < 20000; ++round) {
        const std::uint32_t most = round % 10 == 0 ? 0xFFFFFFFF : 9000;
        const RasterBox box = {size(random),
                               size(random),
                               place(random),
                               place(random),
                               75U << random() % 5,
                               static_cast<std::uint32_t>(random()) % most,
                               static_cast<std::uint32_t>(random()) % most};
        const auto placement = placeOnPage(box);
        ASSERT_TRUE(placement);
        const auto check = [](const Extent &extent, std::uint32_t rasterDots, double start) {
            EXPECT_LE(std::uint64_t{extent.place} + extent.used, extent.page);
            EXPECT_LE(std::uint64_t{extent.skip} + extent.used, rasterDots);
            if (extent.used > 0) {
                // What is used lies where the raster's header puts it.
                EXPECT_NEAR(1.0 * extent.place - extent.skip, start, 0.51);
                // Nothing that fits is cut.
                EXPECT_TRUE(extent.skip == 0 || extent.place == 0);
                EXPECT_TRUE(extent.place + extent.used == extent.page ||
                            extent.skip + extent.used == rasterDots);
            }
        };
        const double dotsPerPoint = box.resolution / inchPoints;
        check(placement->across, box.columns, box.left * dotsPerPoint);
        check(placement->down, box.lines, box.top * dotsPerPoint);
    }
}

} // namespace
} // namespace veltrin::raster
