#pragma once

#include "printer/JobReport.h"
#include "printer/OutputFile.h"
#include "printer/PrinterOptions.h"
#include "printer/SheetPictures.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace veltrin::printer {

/// What is left of the run: the data that the printer received, the report of its jobs, and its sheets. What
/// is in the files is another printer's until it is known that this one can start.
class Results {
  public:
    explicit Results(const PrinterOptions &options);

    void start();

    void add(std::span<const std::byte> bytes);
    void add(const JobReport &job);

    void note(PrinterTime now, const PrinterModel &printer) { sheets.note(now, printer); }

    [[nodiscard]] std::size_t jobCount() const { return jobs.size(); }

    [[nodiscard]] bool takesData() const { return output.error() == 0 && sheets.error() == 0; }

    [[nodiscard]] bool hasBrokenJob() const;

    /// Writes what is written at the end. `uri` is what the printer was reached by.
    void end(const std::string &uri, const PrinterModel &printer);

    /// Says what went wrong with the files, if something did. Returns whether all is well.
    [[nodiscard]] bool areFilesFine(const char *program) const;

  private:
    const PrinterOptions &options;
    OutputFile output;
    OutputFile reportFile;
    SheetPictures sheets;
    bool hasStarted = false;
    std::vector<JobReport> jobs;
};

} // namespace veltrin::printer
