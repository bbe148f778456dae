#pragma once

#include "tests/raster/ReadPicture.h"
#include "tests/support/NumberedDocument.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What lies in the printer's tray, read from the pictures that the virtual printer has made of it.

namespace veltrin::test {

/// How a page of the document has come to lie on the paper, in points from the upper left corner.
struct PlaceOnSheet {
    double scale = 1;
    double left = 0;
    double top = 0;

    /// Where that patch of the document is.
    [[nodiscard]] Patch of(const Patch &patch) const {
        return {left + patch.left * scale, top + patch.top * scale, patch.width * scale,
                patch.height * scale};
    }
};

/// A colour, or the mean of several.
struct MeanColour {
    double red = 0;
    double green = 0;
    double blue = 0;
};

/// One side of the paper. Its picture has to tell its resolution.
class PrintedSide {
  public:
    explicit PrintedSide(const std::string &path) : picture(readPicture(path)) {}

    [[nodiscard]] bool isBlank() const;

    /// The mean of a patch's colours; looked at in its middle half, since pages may be moved by a part of a
    /// point.
    [[nodiscard]] MeanColour meanIn(const Patch &patch) const;

    /// The number that a page of a `numberedPdf()` bears there: "3". "-" for a place without any ink, and
    /// "turned" for a page that does not lie upright.
    [[nodiscard]] std::string number(const PlaceOnSheet &place = {}) const;

    ReadPicture picture;

  private:
    /// The picture's dot at so many points.
    [[nodiscard]] std::uint32_t dotAt(double points) const;
};

struct PrintedSheet {
    std::optional<PrintedSide> front;
    std::optional<PrintedSide> back;

    /// The numbers of its sides: "1/2", "3/-", or "1" where the back was not printed on.
    [[nodiscard]] std::string numbers() const;
};

/// The sheets in the folder, in the order in which they were begun.
[[nodiscard]] std::vector<PrintedSheet> printedSheets(const std::string &folder);

/// The numbers of all of them.
[[nodiscard]] std::vector<std::string> numbersOf(const std::vector<PrintedSheet> &sheets);

/// The same as the report of the job tells it; `pages` is how many the document has.
[[nodiscard]] std::vector<std::string> numbersIn(const nlohmann::json &jobReport, std::uint32_t pages);

} // namespace veltrin::test
