#pragma once

#include "driver/stream/StreamReader.h"
#include "printer/JobReport.h"
#include "printer/SheetPage.h"
#include "raster/PagePlanes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::printer {

/// What came out of the printer, as a folder to look at: a PNG of each side, sheet-0001-front.png and so on,
/// and a page, index.html, that shows them.
class SheetPictures {
  public:
    struct Wishes {
        std::string folder;                       ///< empty: nothing is wanted and nothing done
        std::optional<std::uint32_t> dotsPerInch; ///< at most
    };

    explicit SheetPictures(Wishes wishes);
    SheetPictures(const SheetPictures &) = delete;
    SheetPictures &operator=(const SheetPictures &) = delete;

    /// Makes the folder, if it is not there; takes an earlier printer's pictures out of it.
    void start();

    /// What the printer receives.
    void take(std::span<const std::byte> bytes);

    /// The job whose data these were has ended: its sides become sheets.
    void endJob(const JobReport &report);

    /// What is on paper by now, and what the printer looks like.
    void note(PrinterTime now, const PrinterModel &printer);

    /// Writes the page. `jobs` are those that have ended, with what was printed of each.
    void end(const std::vector<JobReport> &jobs);

    /// The file that could not be written, and the system's number of what went wrong, or 0.
    [[nodiscard]] const std::string &failedFile() const { return failed; }

    [[nodiscard]] int error() const { return failure; }

  private:
    void removeOldPictures();
    void listen();
    void readPart(const StreamEvent &event);
    void endPage();
    void fail(const std::string &path, int error);

    [[nodiscard]] std::string pathOf(const std::string &name) const { return wishes.folder + "/" + name; }

    [[nodiscard]] bool isWanted() const { return !wishes.folder.empty() && failure == 0; }

    Wishes wishes;
    raster::PagePlanes planes;
    std::optional<StreamReader> reader; ///< of the present job
    ShownJob job;                       ///< likewise
    std::vector<ShownJob> shown;
    Course course;
    std::size_t sheets = 0;
    std::string failed;
    int failure = 0;
};

} // namespace veltrin::printer
