#pragma once

#include "printer/JobReport.h"
#include "printer/TimeChart.h"
#include "raster/PagePlanes.h"

#include <cstdint>
#include <string>
#include <vector>

// The page that shows what came out of the printer.

namespace veltrin::printer {

/// A side in the order in which it came.
struct ShownSide {
    std::string picture;          ///< its file's name; empty where it could not be decoded at all
    std::uint32_t dots = 0;       ///< of a line
    std::uint32_t lines = 0;      ///< of the page
    std::uint32_t linesBegun = 0; ///< of those that came
};

/// What the pictures add to a job's report.
struct ShownJob {
    std::string name; ///< as the stream has it: any bytes
    std::string user; ///< likewise
    std::vector<ShownSide> sides;
    std::vector<raster::PageProblemFound> problems; ///< the first of them
    std::uint64_t problemCount = 0;
};

/// An HTML document without scripts or anything from elsewhere but the pictures beside it. `shown` belongs to
/// `jobs`, one to one.
[[nodiscard]] std::string sheetPage(const std::vector<JobReport> &jobs, const std::vector<ShownJob> &shown,
                                    const Course &course);

} // namespace veltrin::printer
