#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// From a line of the raster to the ink of the four planes, 8 bits each: 0 is no ink, 255 solid.

namespace veltrin::raster {

/// The planes in the order in which they stand in the stream.
enum Plane : std::uint8_t { black, yellow, magenta, cyan };

inline constexpr std::size_t planeCount = 4;

/// One line of ink for each plane, all of the same length.
using InkLines = std::array<std::span<std::uint8_t>, planeCount>;

/// Which planes have ink: bit (1 << plane).
using PlaneSet = std::uint8_t;

[[nodiscard]] constexpr PlaneSet setOf(Plane plane) {
    return static_cast<PlaneSet>(1U << plane);
}

/// Ink of one dot.
struct Ink {
    std::uint8_t black = 0;
    std::uint8_t yellow = 0;
    std::uint8_t magenta = 0;
    std::uint8_t cyan = 0;

    bool operator==(const Ink &) const = default;
};

/// The ink for a colour. Cyan, magenta and yellow are what red, green and blue lack; of what they have in
/// common, k of at most `max` in any of them, k^3 / max^2 is printed in black instead (rounded down). So
/// everything neutral is black alone, text has no fringe of colour, and strong colours keep their brilliance.
///
/// Some of the other inks' dots come to lie on black ones, where they are lost, so that there has to be more
/// of them. To take all light that is not black's, of an ink c the share (c - k) / (1 - k) is needed, which
/// makes solid ink of the darkest shades; (c - k) (1 + k + k^2) comes near, and to nothing at black's end.
[[nodiscard]] Ink inkFor(std::uint8_t red, std::uint8_t green, std::uint8_t blue);

/// The ink for red, green and blue of each dot; `rgb` has three bytes for each of the lines' dots. Returns
/// which planes have ink.
PlaneSet separateColours(std::span<const std::uint8_t> rgb, const InkLines &lines);

/// The ink for the lightness of each dot: black alone. The other planes are not touched.
PlaneSet separateGray(std::span<const std::uint8_t> gray, const InkLines &lines);

/// The same for the blackness of each dot.
PlaneSet separateBlack(std::span<const std::uint8_t> darkness, const InkLines &lines);

} // namespace veltrin::raster
