#pragma once

#include "tools/printer/PrinterModel.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace veltrin {

/// Status codes with what they mean in English, such as "35/1/0 Tray 1 empty".
[[nodiscard]] std::string describe(const StatusCodes &codes);

/// A time as "12.345".
[[nodiscard]] std::string secondsText(PrinterTime time);

/// What a terminal shows of the printer: status, memory, pages, trays, and the lines told last.
class StatusView {
  public:
    static constexpr std::size_t lineLimit = 10;

    /// `printerName` is what it is reached by.
    explicit StatusView(std::string printerName) : name(std::move(printerName)) {}

    void addLine(const std::string &line);

    /// The view's lines, each cut to `width` characters.
    [[nodiscard]] std::vector<std::string> lines(const PrinterModel &printer, std::size_t width) const;

  private:
    std::string name;
    std::deque<std::string> last;
};

} // namespace veltrin
