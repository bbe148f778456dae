#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

/// A place on the page, in points from its upper left corner.
struct Patch {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
};

/// Fills it, in the operators of a PDF's page.
[[nodiscard]] std::string rectangle(const Patch &patch);

/// What the pages of a PDF have in common.
struct PdfParts {
    std::string resources;            ///< of each page
    std::vector<std::string> objects; ///< more of them, of which the first has the number 3
    std::string mediaBox = "0 0 595 842";
};

/// A PDF of pages with these contents in the operators of the format, of A4 where nothing else is said.
[[nodiscard]] std::string pdfOf(const std::vector<std::string> &pages, const PdfParts &parts = {});

/// A PDF of pages, each with its number as a bar code that can be read from the printed dots, and a red patch
/// below it.
[[nodiscard]] std::string numberedPdf(std::uint32_t pages, const PdfParts &parts = {});

/// Pages of US Letter, whose upper left corner is that of the others.
[[nodiscard]] std::string numberedLetters(std::uint32_t pages);

/// What is on one of its pages.
[[nodiscard]] std::string numberedDrawing(std::uint32_t number);

/// The bar that stands for this bit (from 0) of the number; there are `numberBits`.
inline constexpr std::uint32_t numberBits = 6;
[[nodiscard]] Patch barOf(std::uint32_t bit);

inline constexpr Patch redPatch = {.left = 100, .top = 500, .width = 100, .height = 100};

} // namespace veltrin::test
