#pragma once

#include "driver/stream/PageStream.h"
#include "raster/PlaneCoding.h"
#include "raster/Separation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

template <typename Header>
std::string bytesOf(const Header &header) {
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

/// The two headers in front of a job's pages.
inline std::string jobHeaders(std::uint16_t compressMode, std::uint16_t resolution = 600) {
    FileHeader header{};
    header.MagicNumber = fileHeaderTag;
    header.dwJobHeaderLen = sizeof header;
    header.wResolution = resolution;
    header.wCompressMode = compressMode;
    FileHeaderEx headerEx{};
    headerEx.MagicNumber = fileHeaderExTag;
    headerEx.dwJobHeaderLen = sizeof headerEx;
    return bytesOf(header) + bytesOf(headerEx);
}

inline std::string jobHeaders(raster::CompressMode mode, std::uint16_t resolution = 600) {
    return jobHeaders(static_cast<std::uint16_t>(mode), resolution);
}

inline std::string pageHeader(std::uint16_t dots, std::uint16_t lines, std::uint16_t number = 1,
                              std::uint8_t type = 0) {
    PageHeader header{};
    header.MagicNumber = pageHeaderTag;
    header.dwHeaderLen = sizeof header;
    header.bPaperSize = 9;
    header.bPaperTray = 2;
    header.bMediaType = 1;
    header.wScanLineWidth = dots;
    header.wHeight = lines;
    header.wPageNumber = number;
    header.bType = type;
    return bytesOf(header);
}

/// Data in the order in which the stream has them: black, yellow, magenta, cyan.
inline std::string bandOf(std::uint16_t dots, std::uint16_t lines, const std::array<std::string, 4> &planes,
                          bool isLast) {
    BandHeader header{};
    header.MagicNumber = bandHeaderTag;
    header.dwBandSetting = isLast ? bandSettingLastOfPage : 0;
    header.dwKSize = static_cast<std::uint32_t>(planes[0].size());
    header.dwYSize = static_cast<std::uint32_t>(planes[1].size());
    header.dwMSize = static_cast<std::uint32_t>(planes[2].size());
    header.dwCSize = static_cast<std::uint32_t>(planes[3].size());
    header.wBandWidth = dots;
    header.wBandHeight = lines;
    return bytesOf(header) + planes[0] + planes[1] + planes[2] + planes[3];
}

inline std::string coded(const std::vector<std::byte> &plane, raster::CompressMode mode) {
    raster::PlaneEncoder encoder(mode);
    const auto result = encoder.encode(plane);
    EXPECT_TRUE(result);
    return result ? std::string(reinterpret_cast<const char *>(result->data()), result->size())
                  : std::string();
}

/// A page to draw on, dot by dot.
class DrawnPage {
  public:
    DrawnPage(std::uint16_t theDots, std::uint16_t theLines) : dots(theDots), lines(theLines) {
        for (auto &plane : planes) {
            plane.resize(raster::planeBytes(dots, lines));
        }
    }

    void draw(raster::Plane plane, unsigned x, unsigned y, unsigned width = 1, unsigned height = 1) {
        for (unsigned line = y; line < y + height; ++line) {
            for (unsigned dot = x; dot < x + width; ++dot) {
                planes[plane][line * raster::rowBytes(dots) + dot / 8] |=
                    static_cast<std::byte>(0x80U >> dot % 8);
            }
        }
    }

    [[nodiscard]] bool at(raster::Plane plane, unsigned x, unsigned y) const {
        return (planes[plane][y * raster::rowBytes(dots) + x / 8] & static_cast<std::byte>(0x80U >> x % 8)) !=
               std::byte{0};
    }

    /// Which inks meet there: cyan 8, magenta 4, yellow 2, black 1.
    [[nodiscard]] unsigned mixAt(unsigned x, unsigned y) const {
        return (at(raster::cyan, x, y) ? 8U : 0U) | (at(raster::magenta, x, y) ? 4U : 0U) |
               (at(raster::yellow, x, y) ? 2U : 0U) | (at(raster::black, x, y) ? 1U : 0U);
    }

    /// The bands of the page, without its header.
    [[nodiscard]] std::vector<std::string> bands(raster::CompressMode mode,
                                                 std::uint16_t bandHeight = 128) const {
        std::vector<std::string> result;
        for (unsigned top = 0; top < lines; top += bandHeight) {
            const auto height = static_cast<std::uint16_t>(std::min<unsigned>(bandHeight, lines - top));
            std::array<std::string, 4> data;
            for (std::size_t plane = 0; plane < planes.size(); ++plane) {
                const auto begin =
                    planes[plane].begin() + static_cast<std::ptrdiff_t>(raster::planeBytes(dots, top));
                data[plane] = coded(
                    {begin, begin + static_cast<std::ptrdiff_t>(raster::planeBytes(dots, height))}, mode);
            }
            result.push_back(bandOf(dots, height, data, top + height == lines));
        }
        return result;
    }

    [[nodiscard]] std::string page(raster::CompressMode mode, std::uint16_t bandHeight = 128,
                                   std::uint16_t number = 1, std::uint8_t type = 0) const {
        std::string result = pageHeader(dots, lines, number, type);
        for (const std::string &band : bands(mode, bandHeight)) {
            result += band;
        }
        return result;
    }

    const std::uint16_t dots;
    const std::uint16_t lines;
    std::array<std::vector<std::byte>, raster::planeCount> planes;
};

/// A page on which every corner, every plane and every mix of inks can be told from the others: black top
/// left, cyan top right, magenta bottom left, yellow bottom right, and the 16 mixes from left to right in a
/// line across the middle. At least 40 dots wide and 20 lines high.
inline DrawnPage markedPage(std::uint16_t dots, std::uint16_t lines) {
    DrawnPage page(dots, lines);
    page.draw(raster::black, 0, 0, 5, 3);
    page.draw(raster::cyan, dots - 6U, 0, 6, 4);
    page.draw(raster::magenta, 0, lines - 5U, 7, 5);
    page.draw(raster::yellow, dots - 8U, lines - 6U, 8, 6);
    for (unsigned mix = 0; mix < 16; ++mix) {
        const unsigned x = mix * dots / 16;
        const unsigned width = (mix + 1) * dots / 16 - x;
        const raster::Plane inks[] = {raster::black, raster::yellow, raster::magenta, raster::cyan};
        for (unsigned bit = 0; bit < 4; ++bit) {
            if ((mix >> bit & 1U) != 0) {
                page.draw(inks[bit], x, lines / 2U, width, 2);
            }
        }
    }
    return page;
}

} // namespace veltrin::test
