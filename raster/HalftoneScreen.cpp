#include "raster/HalftoneScreen.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace veltrin::raster {

namespace {

/// Dots to a byte.
constexpr std::uint32_t runDots = 8;

/// Large enough for as many different shades as there are: one shade more gives ink to a few dots more.
constexpr std::uint32_t leastTileDots = 512;

/// How high the screen's hills are at a distance from a corner of the grid along one side of a cell, which is
/// `cellSide` long: a cosine, near enough, in whole numbers, so that the screen is the same on every machine.
std::int64_t heightAt(std::int64_t along, std::int64_t cellSide) {
    const std::int64_t twice = 2 * std::min(along, cellSide - along); // 0 at the corner, cellSide half way
    if (2 * twice <= cellSide) {
        return cellSide * cellSide - 4 * twice * twice;
    }
    const std::int64_t left = cellSide - twice;
    return 4 * left * left - cellSide * cellSide;
}

/// One dot of the tile, and what decides when it gets ink.
struct Dot {
    std::uint32_t index;    ///< in the tile
    std::int64_t height;    ///< the highest dots of all cells come first
    std::int64_t inCell;    ///< tells dots of one cell from each other; the same in every cell
    std::uint32_t cellTurn; ///< whose turn it is among the cells: not one row of them after the other
};

std::int64_t floorDivide(std::int64_t number, std::int64_t by) {
    return number >= 0 ? number / by : -((-number + by - 1) / by);
}

std::uint64_t eightBytes(const std::uint8_t *from) {
    std::uint64_t word = 0;
    for (unsigned i = 0; i < runDots; ++i) {
        word |= std::uint64_t{from[i]} << (8 * i);
    }
    return word;
}

/// A bit for each of eight pairs of bytes, the first in the most significant bit: whether the shade reaches
/// the threshold.
std::byte reached(std::uint64_t shades, std::uint64_t thresholds) {
    constexpr std::uint64_t high = 0x8080808080808080U;
    // The byte-wise difference; its upper bits tell which is larger where those of both are equal.
    const std::uint64_t difference = (shades | high) - (thresholds & ~high);
    const std::uint64_t larger = ((shades & ~thresholds) | (~(shades ^ thresholds) & difference)) & high;
    // Each byte's bit is shifted to its place in the uppermost byte.
    return static_cast<std::byte>(((larger >> 7) * 0x8040201008040201U) >> 56);
}

} // namespace

HalftoneScreen::HalftoneScreen(std::uint32_t across, std::uint32_t down) {
    const std::int64_t a = across;
    const std::int64_t b = down;
    const std::int64_t cellDots = a * a + b * b;
    const auto period = static_cast<std::uint32_t>(cellDots / std::gcd(a, b));
    const std::uint32_t smallest = std::lcm(period, runDots);
    side = smallest;
    while (side * side < leastTileDots) {
        side += smallest;
    }

    std::vector<Dot> dots;
    dots.reserve(std::size_t{side} * side);
    for (std::uint32_t index = 0; index < side * side; ++index) {
        const std::int64_t x = index % side;
        const std::int64_t y = index / side;
        // The place in the turned grid, in units of which a cell's side has `cellDots`.
        const std::int64_t u = a * x + b * y;
        const std::int64_t v = a * y - b * x;
        const std::int64_t row = floorDivide(v, cellDots);
        const std::int64_t column = floorDivide(u, cellDots);
        const std::int64_t alongU = u - column * cellDots;
        const std::int64_t alongV = v - row * cellDots;
        dots.push_back({.index = index,
                        .height = heightAt(alongU, cellDots) + heightAt(alongV, cellDots),
                        .inCell = alongV * cellDots + alongU,
                        // Multiples of irrational numbers, to 16 bits: as evenly spread as it goes.
                        .cellTurn = static_cast<std::uint32_t>(column * 49471 + row * 37345) & 0xFFFFU});
    }
    std::sort(dots.begin(), dots.end(), [](const Dot &one, const Dot &other) {
        return std::tuple(-one.height, one.inCell, one.cellTurn, one.index) <
               std::tuple(-other.height, other.inCell, other.cellTurn, other.index);
    });

    thresholds.resize(dots.size());
    for (std::size_t rank = 0; rank < dots.size(); ++rank) {
        thresholds[dots[rank].index] = static_cast<std::uint8_t>(1 + rank * 255 / dots.size());
    }
}

void HalftoneScreen::screenLine(std::span<const std::uint8_t> ink, std::uint32_t line,
                                std::span<std::byte> bits) const {
    const std::uint8_t *row = thresholds.data() + std::size_t{line % side} * side;
    std::uint32_t column = 0;
    for (std::size_t at = 0; at < bits.size(); ++at) {
        const std::uint64_t shades = eightBytes(ink.data() + at * runDots);
        bits[at] = shades == 0 ? std::byte{0} : reached(shades, eightBytes(row + column));
        column += runDots;
        if (column == side) {
            column = 0;
        }
    }
}

const HalftoneScreen &screenOf(Plane plane) {
    static const HalftoneScreen blackScreen(4, 4);
    static const HalftoneScreen yellowScreen(6, 0);
    static const HalftoneScreen magentaScreen(2, 6);
    static const HalftoneScreen cyanScreen(6, 2);
    switch (plane) {
    case yellow:
        return yellowScreen;
    case magenta:
        return magentaScreen;
    case cyan:
        return cyanScreen;
    case black:
        break;
    }
    return blackScreen;
}

} // namespace veltrin::raster
