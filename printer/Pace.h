#pragma once

#include "printer/PrinterModel.h"

#include <chrono>
#include <optional>

namespace veltrin::printer {

/// Tells when it is time for what is worth doing ten times a second, but not for every block of a job.
class Pace {
  public:
    static constexpr PrinterTime interval = std::chrono::milliseconds(100);

    /// True at first, and from then on when the last true is an interval ago.
    [[nodiscard]] bool isDue(PrinterTime now) {
        if (last && now - *last < interval) {
            return false;
        }
        last = now;
        return true;
    }

  private:
    std::optional<PrinterTime> last;
};

} // namespace veltrin::printer
