#pragma once

#include "raster/Separation.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veltrin::raster {

/// A clustered-dot screen: which of the printer's dots get ink for a shade of one colour. The dots grow from
/// the corners of a square grid that is turned by the screen's own angle, so that the colours' grids do not
/// beat with each other. No ink stays no ink and solid stays solid; of a shade v, v / 255 of the dots get
/// ink, to within one dot of the screen's tile (see `tileDots()`).
class HalftoneScreen {
  public:
    /// A grid with a corner `across` dots to the right and `down` dots below each corner, and one as far
    /// again at a right angle to it. Neither is negative, and not both are 0.
    HalftoneScreen(std::uint32_t across, std::uint32_t down);

    /// Screens one line of the page, its `line`th: `ink` has a byte for each dot and a multiple of 8 of them,
    /// `bits` a byte for each 8, the leftmost dot in the most significant bit.
    void screenLine(std::span<const std::uint8_t> ink, std::uint32_t line, std::span<std::byte> bits) const;

    /// The screen repeats itself after so many dots in either direction.
    [[nodiscard]] std::uint32_t tileSide() const { return side; }

    [[nodiscard]] std::uint32_t tileDots() const { return side * side; }

  private:
    std::uint32_t side;
    /// By line and column: the least shade, from 1, that gives this dot ink.
    std::vector<std::uint8_t> thresholds;
};

/// The plane's own screen, for 600 dots per inch: about 100 lines per inch, black at 45 degrees, cyan at 18,
/// magenta at 72, yellow at 0.
[[nodiscard]] const HalftoneScreen &screenOf(Plane plane);

} // namespace veltrin::raster
