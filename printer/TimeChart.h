#pragma once

#include "printer/JobReport.h"
#include "printer/PrinterModel.h"

#include <cstdint>
#include <string>
#include <vector>

// What the printer's time was spent on, as a picture.

namespace veltrin::printer {

/// The printer at a moment.
struct Moment {
    PrinterTime when{};
    std::uint32_t freeImageMemory = 0;
    std::uint64_t printed = 0;
    StatusCodes status;
};

/// The printer's time, in moments at which something was different.
class Course {
  public:
    /// Adds a moment. What is kept is no more than can be seen.
    void add(const Moment &moment);

    [[nodiscard]] const std::vector<Moment> &moments() const { return kept; }

  private:
    std::vector<Moment> kept;
};

/// Image memory in use, sides printed and status over the time, as a section of an HTML document; empty where
/// no time has passed. `overruns` are marked where they happened.
[[nodiscard]] std::string timeChart(const Course &course, const std::vector<MemoryOverrun> &overruns);

/// The rules that the section wants in the document's style.
[[nodiscard]] const char *timeChartStyle();

} // namespace veltrin::printer
