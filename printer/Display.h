#pragma once

#include "platform/LineOutput.h"
#include "printer/StatusView.h"
#include "printer/VirtualPrinter.h"

#include <cstddef>
#include <string>

namespace veltrin::printer {

/// Draws a view on standard output over the one before, from where the cursor was at first.
class Terminal {
  public:
    void draw(const StatusView &view, const PrinterModel &printer);

  private:
    std::string drawn;
    std::size_t height = 0;
};

/// What people see of the run, on standard output: on a terminal a picture that changes, else a line for each
/// thing that happens.
class Display {
  public:
    explicit Display(std::string name);

    void tell(PrinterTime when, const std::string &line);
    void show(const VirtualPrinter &printer);

    [[nodiscard]] bool isPicture() const { return onTerminal; }

    [[nodiscard]] bool isFine() const;

    /// Says what went wrong, if something did. Returns the exit status.
    [[nodiscard]] int end(const char *program) const;

  private:
    bool onTerminal;
    StatusView view;
    Terminal terminal;
    LineOutput lines;
};

} // namespace veltrin::printer
