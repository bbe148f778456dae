#pragma once

#include "driver/stream/StreamReader.h"

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

    /// The sums, when the stream has been read; completes the document.
    void showTotals(const StreamTotals &totals);

  private:
    std::ostream &out;
    bool first = true;
};

} // namespace veltrin
