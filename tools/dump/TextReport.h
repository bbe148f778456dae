#pragma once

#include "tools/StreamReader.h"

#include <ostream>
#include <string>

namespace veltrin {

/// Shows a stream to a person, each part as soon as it has been read.
class TextReport {
  public:
    explicit TextReport(std::ostream &output) : out(output) {}

    void show(const StreamEvent &event);

    /// The sums, when the stream has been read.
    void showTotals(const StreamTotals &totals);

  private:
    void showPart(const IdentifierRead &identifier);
    void showPart(const FileHeaderRead &read);
    void showPart(const FileHeaderExRead &read);
    void showPart(const PageRead &page);
    void showPart(const EndOfJobRead &end);
    void showPart(const CommandRead &command);
    void showPart(const ProblemFound &problem);

    void beginPart(std::uint64_t offset, const std::string &name);
    void line(const char *name, const std::string &value);

    std::ostream &out;
    bool inPageTable = false;
};

} // namespace veltrin
