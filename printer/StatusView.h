#pragma once

#include "printer/PrinterModel.h"

#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::printer {

/// Status codes with what they mean in English, such as "35/1/0 Tray 1 empty".
[[nodiscard]] std::string describe(const StatusCodes &codes);

/// A time as "12.345".
[[nodiscard]] std::string secondsText(PrinterTime time);

/// What a terminal shows of the printer: status, memory, pages, trays, and the lines told last.
class StatusView {
  public:
    static constexpr std::size_t lineLimit = 10;

    /// `printerName` is what it is reached by.
    explicit StatusView(std::string theName) : name(std::move(theName)) {}

    void addLine(const std::string &line);

    /// What there is to say of the present job or the last one.
    void setJob(std::string text) { job = std::move(text); }

    /// The view's lines, each cut to `width` characters, and no more of them than `height`: the printer's
    /// name (unless there is room for two only), status and job first, of the lines told last as many as
    /// there is room for.
    [[nodiscard]] std::vector<std::string> lines(const PrinterModel &printer, std::size_t width,
                                                 std::size_t height) const;

  private:
    std::string name;
    std::string job;
    std::deque<std::string> last;
};

} // namespace veltrin::printer
