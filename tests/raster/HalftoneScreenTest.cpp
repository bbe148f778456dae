#include "raster/HalftoneScreen.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

namespace veltrin::raster {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr Plane everyPlane[] = {black, yellow, magenta, cyan};

std::vector<std::byte> screened(const HalftoneScreen &screen, const Bytes &ink, std::uint32_t line) {
    std::vector<std::byte> bits(ink.size() / 8, std::byte{0x77});
    screen.screenLine(ink, line, bits);
    return bits;
}

bool bitAt(const std::vector<std::byte> &bits, std::size_t dot) {
    return (bits[dot / 8] & static_cast<std::byte>(0x80U >> dot % 8)) != std::byte{0};
}

/// The dots with ink of a tile of one shade, by line.
std::vector<std::vector<std::byte>> tileOf(const HalftoneScreen &screen, std::uint8_t shade) {
    std::vector<std::vector<std::byte>> lines;
    for (std::uint32_t line = 0; line < screen.tileSide(); ++line) {
        lines.push_back(screened(screen, Bytes(screen.tileSide(), shade), line));
    }
    return lines;
}

int dotsIn(const std::vector<std::vector<std::byte>> &tile) {
    int dots = 0;
    for (const auto &line : tile) {
        for (const std::byte bits : line) {
            dots += std::popcount(std::to_integer<unsigned>(bits));
        }
    }
    return dots;
}

TEST(HalftoneScreen, NoInkStaysNoneAndSolidStaysSolid) {
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        EXPECT_EQ(dotsIn(tileOf(screen, 0)), 0);
        EXPECT_EQ(dotsIn(tileOf(screen, 255)), static_cast<int>(screen.tileDots()));
    }
}

TEST(HalftoneScreen, AShadeCoversItsPart) {
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        for (int shade = 0; shade <= 255; ++shade) {
            const double expected = shade / 255.0 * screen.tileDots();
            EXPECT_NEAR(dotsIn(tileOf(screen, static_cast<std::uint8_t>(shade))), expected, 1)
                << "plane " << plane << ", shade " << shade;
        }
    }
}

TEST(HalftoneScreen, EveryShadeHasMoreDotsThanTheOneBelow) {
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        auto before = tileOf(screen, 0);
        for (int shade = 1; shade <= 255; ++shade) {
            const auto tile = tileOf(screen, static_cast<std::uint8_t>(shade));
            EXPECT_GT(dotsIn(tile), dotsIn(before)) << "plane " << plane << ", shade " << shade;
            for (std::size_t line = 0; line < tile.size(); ++line) {
                for (std::size_t at = 0; at < tile[line].size(); ++at) {
                    EXPECT_EQ(before[line][at] & ~tile[line][at], std::byte{0})
                        << "a dot loses its ink again";
                }
            }
            before = tile;
        }
    }
}

TEST(HalftoneScreen, DotsAreClustered) {
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        // A quarter of ink: most dots with ink have a neighbour with ink on the right.
        const auto tile = tileOf(screen, 64);
        int dots = 0;
        int withNeighbour = 0;
        for (const auto &line : tile) {
            for (std::uint32_t dot = 0; dot < screen.tileSide(); ++dot) {
                if (bitAt(line, dot)) {
                    ++dots;
                    withNeighbour += bitAt(line, (dot + 1) % screen.tileSide()) ? 1 : 0;
                }
            }
        }
        EXPECT_GT(withNeighbour, dots / 2) << "plane " << plane;
    }
}

TEST(HalftoneScreen, TheTileRepeatsItself) {
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        const std::uint32_t side = screen.tileSide();
        for (std::uint32_t line = 0; line < side; ++line) {
            const auto wide = screened(screen, Bytes(std::size_t{3} * side, 100), line + 5 * side);
            const auto narrow = screened(screen, Bytes(side, 100), line);
            for (std::size_t at = 0; at < wide.size(); ++at) {
                ASSERT_EQ(wide[at], narrow[at % narrow.size()]);
            }
        }
    }
}

TEST(HalftoneScreen, EachColourHasAScreenOfItsOwn) {
    std::set<std::vector<std::vector<std::byte>>> patterns;
    for (const Plane plane : everyPlane) {
        std::vector<std::vector<std::byte>> pattern;
        for (std::uint32_t line = 0; line < 240; ++line) {
            pattern.push_back(screened(screenOf(plane), Bytes(240, 80), line));
        }
        patterns.insert(pattern);
    }
    EXPECT_EQ(patterns.size(), planeCount);
}

TEST(HalftoneScreen, TheGridStandsAtItsAngle) {
    // A single shade's pattern comes back where the grid has a corner, and only there.
    struct Grid {
        Plane plane;
        std::uint32_t across;
        std::uint32_t down;
    };

    for (const Grid &grid : {Grid{black, 4, 4}, Grid{yellow, 6, 0}, Grid{magenta, 2, 6}, Grid{cyan, 6, 2}}) {
        const HalftoneScreen &screen = screenOf(grid.plane);
        const std::uint32_t side = screen.tileSide();
        const auto tile = tileOf(screen, 128);
        const auto shifted = [&](std::uint32_t across, std::uint32_t down) {
            int different = 0;
            for (std::uint32_t y = 0; y < side; ++y) {
                for (std::uint32_t x = 0; x < side; ++x) {
                    different +=
                        bitAt(tile[y], x) != bitAt(tile[(y + down) % side], (x + across) % side) ? 1 : 0;
                }
            }
            return different * 100 / static_cast<int>(screen.tileDots());
        };
        EXPECT_LT(shifted(grid.across, grid.down), 4) << grid.plane;
        EXPECT_LT(shifted(side - grid.down, grid.across), 4) << grid.plane;
        EXPECT_GT(shifted(grid.across / 2 + 1, grid.down / 2), 20) << grid.plane;
    }
}

TEST(HalftoneScreen, EightDotsAtATimeAreEightDots) {
    std::mt19937 random(1);
    for (const Plane plane : everyPlane) {
        const HalftoneScreen &screen = screenOf(plane);
        // The threshold of every dot, found by trying all shades.
        const std::uint32_t side = screen.tileSide();
        for (std::uint32_t line = 0; line < side; line += 3) {
            std::vector<int> least(side, 256);
            for (int shade = 255; shade >= 0; --shade) {
                const auto bits = screened(screen, Bytes(side, static_cast<std::uint8_t>(shade)), line);
                for (std::uint32_t dot = 0; dot < side; ++dot) {
                    least[dot] = bitAt(bits, dot) ? shade : least[dot];
                }
            }
            for (int round = 0; round < 20; ++round) {
                Bytes ink(side);
                for (std::uint8_t &shade : ink) {
                    shade = static_cast<std::uint8_t>(random() % 3 == 0 ? 0 : random());
                }
                const auto bits = screened(screen, ink, line);
                for (std::uint32_t dot = 0; dot < side; ++dot) {
                    ASSERT_EQ(bitAt(bits, dot), ink[dot] >= least[dot]) << dot;
                }
            }
        }
    }
}

} // namespace
} // namespace veltrin::raster
