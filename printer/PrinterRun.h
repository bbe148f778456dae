#pragma once

#include "printer/Plug.h"
#include "printer/VirtualPrinter.h"

#include <functional>
#include <string>

namespace veltrin::printer {

/// Called at every turn, about ten times a second and more while something happens. Returns whether to go on.
using GoOn = std::function<bool(VirtualPrinter &printer, PrinterTime now)>;

/// Serves whoever comes to the plug until it is told not to go on, or the printer has vanished for good.
/// Returns false, with `problem` set, where the printer cannot be reached, or not any more.
[[nodiscard]] bool runPrinter(VirtualPrinter &printer, Plug &plug, const PrinterClock &clock,
                              const GoOn &goOn, std::string &problem);

} // namespace veltrin::printer
