#include "raster/PageEncoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <vector>

namespace veltrin::raster {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Colour = std::array<std::uint8_t, 3>;

constexpr Colour blackDots = {0, 0, 0};
constexpr Colour yellowDots = {255, 255, 0};
constexpr Colour magentaDots = {255, 0, 255};
constexpr Colour cyanDots = {0, 255, 255};
constexpr Colour paper = {255, 255, 255};

constexpr std::uint32_t dotsAcross = 16;
constexpr std::byte full{0xFF};
constexpr std::byte none{0};

using Rows = std::vector<std::byte>; // two bytes each

/// A band of a page whose planes are not compressed.
struct Band {
    BandHeader header;
    Rows black;
    Rows yellow;
    Rows magenta;
    Rows cyan;
};

std::vector<Band> bandsOf(const EncodedPage &page) {
    std::span<const std::byte> rest = page.bands;
    const auto take = [&rest](std::size_t size) {
        const auto taken = rest.first(size);
        rest = rest.subspan(size);
        return Rows(taken.begin(), taken.end());
    };
    std::vector<Band> bands;
    while (!rest.empty()) {
        Band band;
        std::memcpy(&band.header, take(sizeof band.header).data(), sizeof band.header);
        band.black = take(band.header.dwKSize);
        band.yellow = take(band.header.dwYSize);
        band.magenta = take(band.header.dwMSize);
        band.cyan = take(band.header.dwCSize);
        bands.push_back(band);
    }
    return bands;
}

/// Renders raster of so many lines, each of one colour, onto pages.
class PageEncoderTest : public testing::Test {
  protected:
    std::vector<Band> encode(const Extent &down, std::uint32_t lines,
                             const std::function<Colour(std::uint32_t)> &colourOf) {
        RasterPage page;
        page.samples = Samples::rgb;
        page.bytesPerLine = 3 * dotsAcross;
        page.box.lines = lines;
        linesRead = 0;
        const LineSource source = [&](std::span<std::uint8_t> dots) {
            const Colour colour = colourOf(linesRead++);
            for (std::size_t at = 0; at < dots.size(); ++at) {
                dots[at] = colour[at % 3];
            }
            return linesRead <= lines;
        };
        EXPECT_EQ(
            encoder.encode(page, {.across = {dotsAcross, 0, 0, dotsAcross}, .down = down}, source, encoded),
            EncodeResult::done);
        return bandsOf(encoded);
    }

    /// A page that the raster covers.
    std::vector<Band> encode(std::uint32_t lines, const std::function<Colour(std::uint32_t)> &colourOf) {
        return encode({.page = lines, .skip = 0, .place = 0, .used = lines}, lines, colourOf);
    }

    PageEncoder encoder{{.resolution = 600, .colour = true, .compressMode = CompressMode::raw}};
    EncodedPage encoded;
    std::uint32_t linesRead = 0;
};

TEST_F(PageEncoderTest, AllLinesAreInBandsOfWhichTheLastEndsThePage) {
    for (const std::uint32_t lines : {1U, 127U, 128U, 129U, 256U, 257U}) {
        const std::vector<Band> bands = encode(lines, [](std::uint32_t) { return blackDots; });
        ASSERT_EQ(bands.size(), bandCount(lines)) << lines;
        std::uint32_t sum = 0;
        for (const Band &band : bands) {
            EXPECT_EQ(band.header.isLastOfPage(), &band == &bands.back()) << lines;
            EXPECT_EQ(band.black.size(), 2U * band.header.wBandHeight) << lines;
            EXPECT_THAT(band.black, Each(full)) << lines;
            sum += band.header.wBandHeight;
        }
        EXPECT_EQ(sum, lines);
    }
}

TEST_F(PageEncoderTest, InkStaysInItsBand) {
    const std::vector<Band> bands =
        encode(256, [](std::uint32_t line) { return line == 0 || line == 128 + 1 ? magentaDots : paper; });
    ASSERT_EQ(bands.size(), 2U);
    ASSERT_EQ(bands[0].magenta.size(), 2U * 128);
    ASSERT_EQ(bands[1].magenta.size(), 2U * 128);
    EXPECT_THAT(Rows(bands[0].magenta.begin(), bands[0].magenta.begin() + 4),
                ElementsAre(full, full, none, none));
    EXPECT_THAT(Rows(bands[1].magenta.begin(), bands[1].magenta.begin() + 4),
                ElementsAre(none, none, full, full));
}

TEST_F(PageEncoderTest, PlanesComeInTheirOrderWithTheirSizes) {
    const auto colourOf = [](std::uint32_t line) {
        constexpr std::array<Colour, 4> colours = {blackDots, yellowDots, magentaDots, cyanDots};
        return colours[line / 128];
    };
    const std::vector<Band> bands = encode(3 * 128 + 10, colourOf);
    ASSERT_EQ(bands.size(), 4U);
    for (std::size_t at = 0; at < 4; ++at) {
        const std::array<const Rows *, 4> planes = {&bands[at].black, &bands[at].yellow, &bands[at].magenta,
                                                    &bands[at].cyan};
        for (std::size_t plane = 0; plane < 4; ++plane) {
            EXPECT_EQ(planes[plane]->empty(), plane != at) << at;
        }
    }
    EXPECT_EQ(encoded.planes.black, 2U * 128);
    EXPECT_EQ(encoded.planes.yellow, 2U * 128);
    EXPECT_EQ(encoded.planes.magenta, 2U * 128);
    EXPECT_EQ(encoded.planes.cyan, 2U * 10);
}

/// The next page begins behind them.
TEST_F(PageEncoderTest, LinesThatDoNotLieOnThePageAreReadAllTheSame) {
    const auto blackFromThirdOn = [](std::uint32_t line) { return line < 3 ? paper : blackDots; };
    const auto above = encode({.page = 2, .skip = 3, .place = 0, .used = 2}, 9, blackFromThirdOn);
    EXPECT_EQ(linesRead, 9U);
    EXPECT_THAT(above.at(0).black, ElementsAre(full, full, full, full));

    const auto below = encode({.page = 4, .skip = 0, .place = 1, .used = 3}, 9, blackFromThirdOn);
    EXPECT_EQ(linesRead, 9U);
    EXPECT_THAT(below.at(0).black, IsEmpty());

    const auto inside = encode({.page = 4, .skip = 3, .place = 1, .used = 2}, 5, blackFromThirdOn);
    EXPECT_EQ(linesRead, 5U);
    EXPECT_THAT(inside.at(0).black, ElementsAre(none, none, full, full, full, full, none, none));
}

} // namespace
} // namespace veltrin::raster
