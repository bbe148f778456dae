#pragma once

#include "driver/stream/StreamReader.h"
#include "tools/dump/PagePictures.h"

#include <ostream>
#include <string>

namespace veltrin {

/// Shows a stream to a program, as one JSON document that is written while the stream is read:
/// {"input": name, "records": [part, ...], "totals": {...}}, one part to a line.
class JsonReport {
  public:
    /// Bands are shown where the reader reports them.
    JsonReport(std::ostream &output, const std::string &inputName);

    void show(const StreamEvent &event);

    // What the pictures of pages are about, where they are wanted.
    void show(const raster::PageProblemFound &found);
    void show(const PictureWritten &picture);

    /// The sums, when the stream has been read; completes the document.
    void showTotals(const StreamTotals &totals);

  private:
    /// The next line of the document.
    void add(const std::string &record);

    std::ostream &out;
    bool first = true;
};

} // namespace veltrin
