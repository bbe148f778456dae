#include "raster/Separation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <random>
#include <vector>

namespace veltrin::raster {

void PrintTo(const Ink &ink, std::ostream *os);

void PrintTo(const Ink &ink, std::ostream *os) {
    *os << 'K' << int{ink.black} << " Y" << int{ink.yellow} << " M" << int{ink.magenta} << " C"
        << int{ink.cyan};
}

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Lines of ink of so many dots, filled with something that must not stay.
struct Lines {
    explicit Lines(std::size_t dots) : bytes(planeCount, Bytes(dots, 0x77)) {}

    InkLines spans() { return {bytes[black], bytes[yellow], bytes[magenta], bytes[cyan]}; }

    [[nodiscard]] Ink at(std::size_t dot) const {
        return {bytes[black][dot], bytes[yellow][dot], bytes[magenta][dot], bytes[cyan][dot]};
    }

    std::vector<Bytes> bytes;
};

/// All shades in steps of 5, 0 and 255 among them.
template <typename Check>
void forColours(const Check &check) {
    for (int red = 0; red <= 255; red += 5) {
        for (int green = 0; green <= 255; green += 5) {
            for (int blue = 0; blue <= 255; blue += 5) {
                check(static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green),
                      static_cast<std::uint8_t>(blue));
            }
        }
    }
}

TEST(Separation, Colours) {
    EXPECT_EQ(inkFor(255, 255, 255), (Ink{0, 0, 0, 0}));
    EXPECT_EQ(inkFor(0, 0, 0), (Ink{255, 0, 0, 0}));
    EXPECT_EQ(inkFor(128, 128, 128), (Ink{127, 0, 0, 0}));
    EXPECT_EQ(inkFor(255, 0, 0), (Ink{0, 255, 255, 0}));
    EXPECT_EQ(inkFor(0, 255, 0), (Ink{0, 255, 0, 255}));
    EXPECT_EQ(inkFor(0, 0, 255), (Ink{0, 0, 255, 255}));
    EXPECT_EQ(inkFor(0, 255, 255), (Ink{0, 0, 0, 255}));
    EXPECT_EQ(inkFor(255, 0, 255), (Ink{0, 0, 255, 0}));
    EXPECT_EQ(inkFor(255, 255, 0), (Ink{0, 255, 0, 0}));
    // 127^3 / 255^2 is 31.5; with that much black, 1 + k + k^2 is 1.136.
    EXPECT_EQ(inkFor(0, 128, 128), (Ink{31, 109, 109, 255}));
    // Nearly neutral is nearly black alone: 55^3 / 57^2 is 51.2, and 1 + k + k^2 is 1.24.
    EXPECT_EQ(inkFor(198, 199, 200), (Ink{51, 5, 6, 7}));
    EXPECT_EQ(inkFor(0, 0, 1), (Ink{252, 6, 9, 9}));
}

TEST(Separation, NeutralIsBlackAlone) {
    for (int shade = 0; shade <= 255; ++shade) {
        const auto gray = static_cast<std::uint8_t>(shade);
        EXPECT_EQ(inkFor(gray, gray, gray), (Ink{static_cast<std::uint8_t>(255 - shade), 0, 0, 0}));
    }
}

/// The light that is left by black and another ink whose dots lie where they may.
double lightLeft(std::uint8_t black, std::uint8_t ink) {
    return (255.0 - black) * (255.0 - ink) / 255;
}

TEST(Separation, BlackAndInkLeaveTheColoursLight) {
    forColours([](std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
        const Ink ink = inkFor(red, green, blue);
        const auto expectLight = [&](std::uint8_t light, std::uint8_t with) {
            const double share = ink.black / 255.0;
            // What the next power of black would take.
            const double more = (255 - light - ink.black) * share * share * share;
            ASSERT_NEAR(lightLeft(ink.black, with), light + more, 0.6);
        };
        expectLight(red, ink.cyan);
        expectLight(green, ink.magenta);
        expectLight(blue, ink.yellow);
    });
}

TEST(Separation, ShadesNearBlackHaveLittleBesideIt) {
    EXPECT_EQ(inkFor(1, 0, 0).black, 252);
    for (const int shade : {0, 1, 2, 3, 4, 5}) {
        const auto light = static_cast<std::uint8_t>(shade);
        const Ink ink = inkFor(0, 0, light);
        EXPECT_LE(ink.cyan, 10 * shade) << shade;
        EXPECT_LE(ink.yellow, ink.cyan) << shade;
    }
}

TEST(Separation, BlackIsTheCubeOfWhatIsCommonByTheSquareOfTheMost) {
    forColours([](std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
        const int least = 255 - std::max({red, green, blue});
        const int most = 255 - std::min({red, green, blue});
        const int expected = most == 0 ? 0 : least * least * least / (most * most);
        ASSERT_EQ(inkFor(red, green, blue).black, expected);
    });
}

TEST(Separation, TheSameColourWithLessLightNeverHasLessBlack) {
    forColours([](std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
        const int lightest = std::min({red, green, blue});
        for (int less = 0; less <= lightest; less += 25) {
            const auto darker = [less](std::uint8_t shade) {
                return static_cast<std::uint8_t>(shade - less);
            };
            ASSERT_GE(inkFor(darker(red), darker(green), darker(blue)).black, inkFor(red, green, blue).black);
        }
    });
}

TEST(Separation, ALineIsItsDots) {
    std::mt19937 random(1);
    for (std::size_t dots = 0; dots <= 70; ++dots) {
        for (int round = 0; round < 20; ++round) {
            Bytes rgb(3 * dots);
            for (std::size_t dot = 0; dot < dots; ++dot) {
                const bool white = random() % 4 != 0;
                for (std::size_t i = 0; i < 3; ++i) {
                    rgb[3 * dot + i] = white ? 255 : static_cast<std::uint8_t>(random());
                }
            }
            Lines lines(dots);
            const PlaneSet planes = separateColours(rgb, lines.spans());
            PlaneSet expected = 0;
            for (std::size_t dot = 0; dot < dots; ++dot) {
                const Ink ink = inkFor(rgb[3 * dot], rgb[3 * dot + 1], rgb[3 * dot + 2]);
                ASSERT_EQ(lines.at(dot), ink) << dot << " of " << dots;
                expected =
                    static_cast<PlaneSet>(expected | (ink.black != 0 ? 1 : 0) | (ink.yellow != 0 ? 2 : 0) |
                                          (ink.magenta != 0 ? 4 : 0) | (ink.cyan != 0 ? 8 : 0));
            }
            ASSERT_EQ(planes, expected);
        }
    }
}

TEST(Separation, OneLastDotThatIsNotWhiteIsSeen) {
    for (std::size_t byte = 0; byte < 24; ++byte) {
        Bytes rgb(24, 255);
        rgb[byte] = 254;
        Lines lines(8);
        EXPECT_EQ(separateColours(rgb, lines.spans()), byte % 3 == 0   ? setOf(cyan)
                                                       : byte % 3 == 1 ? setOf(magenta)
                                                                       : setOf(yellow));
    }
}

TEST(Separation, GrayIsBlackAlone) {
    Bytes gray(256);
    for (std::size_t shade = 0; shade < gray.size(); ++shade) {
        gray[shade] = static_cast<std::uint8_t>(shade);
    }
    Lines lines(gray.size());
    EXPECT_EQ(separateGray(gray, lines.spans()), setOf(black));
    for (std::size_t shade = 0; shade < gray.size(); ++shade) {
        EXPECT_EQ(lines.bytes[black][shade], 255 - shade);
    }
    EXPECT_EQ(lines.bytes[cyan], Bytes(256, 0x77)) << "the other planes are not touched";
    EXPECT_EQ(separateGray(Bytes(256, 255), lines.spans()), 0);
}

} // namespace
} // namespace veltrin::raster
