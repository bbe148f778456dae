#pragma once

#include "driver/stream/StreamReader.h"
#include "tools/dump/PagePictures.h"

#include <ostream>
#include <string>
#include <string_view>

namespace veltrin {

/// Shows a stream to a person, each part as soon as it has been read.
class TextReport {
  public:
    /// Bands are shown where the reader reports them.
    explicit TextReport(std::ostream &theOut) : out(theOut) {}

    void show(const StreamEvent &event);

    // What the pictures of pages are about, where they are wanted.
    void show(const raster::PageProblemFound &found);
    void show(const PictureWritten &picture);

    /// The sums, when the stream has been read.
    void showTotals(const StreamTotals &totals);

  private:
    enum class Table { none, pages, bands, ended };

    void showPart(const IdentifierRead &identifier);
    void showPart(const FileHeaderRead &read);
    void showPart(const FileHeaderExRead &read);
    void showPart(const PageBegun &page);
    void showPart(const BandRead &band);
    void showPart(const BandDataRead &data);
    void showPart(const PageRead &page);
    void showPart(const EndOfJobRead &end);
    void showPart(const CommandRead &command);
    void showPart(const ProblemFound &problem);
    void showPart(const SearchEnded &search);

    void showProblem(std::uint64_t offset, const std::string &text);
    void beginPart(std::uint64_t offset, const std::string &name);
    void line(const std::string &name, const std::string &value);
    void paragraph(std::uint64_t offset, std::string_view text);
    void beginTable(Table next);

    std::ostream &out;
    Table table = Table::none;
    bool showsBands = false;
    std::uint64_t pictures = 0;
    std::string paper; ///< of the pages shown last
};

} // namespace veltrin
