#pragma once

#include <cstdint>
#include <string>

namespace veltrin::test {

/// A PDF of A4 pages, each with its number as a bar code that can be read from the printed dots, and a red
/// patch below it.
[[nodiscard]] std::string numberedPdf(std::uint32_t pages);

/// A place on the page, in points from its upper left corner.
struct Patch {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
};

/// The bar that stands for this bit (from 0) of the number; there are `numberBits`.
inline constexpr std::uint32_t numberBits = 6;
[[nodiscard]] Patch barOf(std::uint32_t bit);

inline constexpr Patch redPatch = {.left = 100, .top = 500, .width = 100, .height = 100};

} // namespace veltrin::test
