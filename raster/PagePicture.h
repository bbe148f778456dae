#pragma once

#include "raster/PagePlanes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// What a page's planes look like.

namespace veltrin::raster {

struct PictureColour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    bool operator==(const PictureColour &) const = default;
};

/// Which inks meet in a dot: cyan 8, magenta 4, yellow 2, black 1.
using InkMix = std::uint8_t;

inline constexpr std::size_t inkMixes = 16;

/// The colour of inks on white paper, as of ideal ones: cyan takes all red, magenta all green, yellow all
/// blue, and black everything. So cyan and magenta make blue, cyan and yellow green, magenta and yellow red.
[[nodiscard]] constexpr PictureColour colourOf(InkMix mix) {
    const auto light = [mix](unsigned ink) {
        return static_cast<std::uint8_t>((mix & (ink | 1U)) != 0 ? 0 : 255);
    };
    return {light(8), light(4), light(2)};
}

/// A page's picture, row by row from its top: the mix of inks of each dot, or smaller.
///
/// A smaller picture's dot has the mean of the colours of the dots that it stands for, taken of their values
/// as they are: a screen that covers half of the paper becomes 128 of 255, as what was printed had been.
class PagePicture {
  public:
    /// Of the page that has just ended, to be read before the next one begins. At most `dotsPerInch`, where
    /// that is given and the page's own resolution is known.
    explicit PagePicture(const PagePlanes &page, std::optional<std::uint32_t> dotsPerInch = std::nullopt);

    [[nodiscard]] std::uint32_t width() const { return columns; }

    [[nodiscard]] std::uint32_t height() const { return rows; }

    /// Dots per inch; 0 where it is not known.
    [[nodiscard]] std::uint32_t resolution() const { return dotsPerInch; }

    /// Whether a row is one of `InkMix`es, 4 bits each with the left one in the higher bits; otherwise it has
    /// red, green and blue, 8 bits each, of each dot.
    [[nodiscard]] bool isOfInkMixes() const { return !isSmaller; }

    /// The next row, to be used until the one after it is asked for; there are `height()` of them.
    [[nodiscard]] std::span<const std::uint8_t> nextRow();

  private:
    struct Light {
        std::uint64_t red = 0;
        std::uint64_t green = 0;
        std::uint64_t blue = 0;
    };

    void mixLine(std::uint32_t line);
    void addLine(std::uint32_t line);
    [[nodiscard]] bool isBlank(std::uint32_t line) const;

    /// Where the picture's column or row begins in the page.
    [[nodiscard]] std::uint32_t beginOf(std::uint32_t place, std::uint32_t places, std::uint32_t size) const {
        return static_cast<std::uint32_t>(std::uint64_t{place} * size / places);
    }

    const PagePlanes &page;
    std::uint32_t dotsPerInch;
    bool isSmaller;
    std::uint32_t columns;
    std::uint32_t rows;
    std::uint32_t next = 0;
    std::vector<std::uint8_t> mixes; ///< of one line
    std::vector<Light> lights;       ///< of one row, of all of its lines together
    std::vector<std::uint8_t> colours;
};

} // namespace veltrin::raster
