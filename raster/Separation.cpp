#include "raster/Separation.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace veltrin::raster {

namespace {

constexpr unsigned full = 255;

unsigned blackOf(unsigned least, unsigned most) {
    return most == 0 ? 0 : least * least * least / (most * most);
}

/// `blackOf()` of all numbers, by the least and the most ink: a division for each dot of a photo takes longer
/// than all the rest.
class BlackTable {
  public:
    BlackTable() {
        for (unsigned least = 0; least <= full; ++least) {
            for (unsigned most = least; most <= full; ++most) {
                values[least * shades + most] = static_cast<std::uint8_t>(blackOf(least, most));
            }
        }
    }

    [[nodiscard]] unsigned of(unsigned least, unsigned most) const { return values[least * shades + most]; }

  private:
    static constexpr std::size_t shades = full + 1;
    std::array<std::uint8_t, shades * shades> values{};
};

/// 1 + k + k^2 for a share k of black, in units of `one`.
class OverlapTable {
  public:
    static constexpr std::uint32_t one = 1U << 16;

    constexpr OverlapTable() {
        constexpr std::uint64_t square = std::uint64_t{full} * full;
        for (std::uint64_t black = 0; black <= full; ++black) {
            values[black] =
                static_cast<std::uint32_t>(one * (square + full * black + black * black) / square);
        }
    }

    [[nodiscard]] constexpr std::uint32_t of(unsigned black) const { return values[black]; }

  private:
    std::array<std::uint32_t, full + 1> values{};
};

constexpr OverlapTable overlapTable;

const BlackTable &blackTable() {
    static const BlackTable table;
    return table;
}

/// Dots that are looked at together.
constexpr std::size_t whiteRunDots = 8;
constexpr std::size_t runBytes = 3 * whiteRunDots;

bool isWhite(const std::uint8_t *run) {
    std::array<std::uint64_t, 3> words;
    static_assert(sizeof words == runBytes);
    std::memcpy(words.data(), run, sizeof words);
    return (words[0] & words[1] & words[2]) == ~std::uint64_t{0};
}

Ink inkFrom(const BlackTable &table, const std::uint8_t *rgb) {
    const unsigned c = full - rgb[0];
    const unsigned m = full - rgb[1];
    const unsigned y = full - rgb[2];
    const unsigned k = table.of(std::min({c, m, y}), std::max({c, m, y}));
    const std::uint32_t more = overlapTable.of(k);
    const auto beside = [k, more](unsigned ink) {
        return static_cast<std::uint8_t>(((ink - k) * more + OverlapTable::one / 2) / OverlapTable::one);
    };
    return {
        .black = static_cast<std::uint8_t>(k), .yellow = beside(y), .magenta = beside(m), .cyan = beside(c)};
}

} // namespace

Ink inkFor(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
    const std::array<std::uint8_t, 3> rgb = {red, green, blue};
    return inkFrom(blackTable(), rgb.data());
}

PlaneSet separateColours(std::span<const std::uint8_t> rgb, const InkLines &lines) {
    const BlackTable &table = blackTable();
    const std::size_t dots = lines[black].size();
    Ink any;
    for (std::size_t at = 0; at < dots;) {
        const std::uint8_t *run = rgb.data() + 3 * at;
        const std::size_t now = std::min(whiteRunDots, dots - at);
        // Most of a page is paper.
        if (now == whiteRunDots && isWhite(run)) {
            for (const std::span<std::uint8_t> line : lines) {
                std::memset(line.data() + at, 0, whiteRunDots);
            }
        } else {
            for (std::size_t i = 0; i < now; ++i) {
                const Ink ink = inkFrom(table, run + 3 * i);
                lines[black][at + i] = ink.black;
                lines[yellow][at + i] = ink.yellow;
                lines[magenta][at + i] = ink.magenta;
                lines[cyan][at + i] = ink.cyan;
                any.black |= ink.black;
                any.yellow |= ink.yellow;
                any.magenta |= ink.magenta;
                any.cyan |= ink.cyan;
            }
        }
        at += now;
    }
    return static_cast<PlaneSet>(
        (any.black != 0 ? setOf(black) : 0U) | (any.yellow != 0 ? setOf(yellow) : 0U) |
        (any.magenta != 0 ? setOf(magenta) : 0U) | (any.cyan != 0 ? setOf(cyan) : 0U));
}

PlaneSet separateGray(std::span<const std::uint8_t> gray, const InkLines &lines) {
    std::uint8_t any = 0;
    for (std::size_t at = 0; at < lines[black].size(); ++at) {
        const auto ink = static_cast<std::uint8_t>(full - gray[at]);
        lines[black][at] = ink;
        any |= ink;
    }
    return any != 0 ? setOf(black) : PlaneSet{0};
}

PlaneSet separateBlack(std::span<const std::uint8_t> darkness, const InkLines &lines) {
    std::uint8_t any = 0;
    for (std::size_t at = 0; at < lines[black].size(); ++at) {
        lines[black][at] = darkness[at];
        any |= darkness[at];
    }
    return any != 0 ? setOf(black) : PlaneSet{0};
}

} // namespace veltrin::raster
