#pragma once

#include "printer/PrinterModel.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace veltrin::printer {

/// Lets no more over a line than it carries.
class LinePace {
  public:
    /// Without a number: as much as comes.
    void carry(std::optional<std::uint32_t> bytesPerSecond) {
        rate = bytesPerSecond;
        freeAt = PrinterTime(0);
    }

    /// How many bytes may be taken now: what the line carries in a tenth of a second, or none yet.
    [[nodiscard]] std::size_t allowance(PrinterTime now) const {
        if (!rate) {
            return std::numeric_limits<std::size_t>::max();
        }
        return now < freeAt ? 0 : std::max<std::size_t>(*rate / 10, 1);
    }

    void took(std::size_t bytes, PrinterTime now) {
        if (rate) {
            freeAt = std::max(now, freeAt) + PrinterTime(std::chrono::seconds(bytes)) / *rate;
        }
    }

    /// When something may be taken again, if not now.
    [[nodiscard]] std::optional<PrinterTime> nextDue(PrinterTime now) const {
        return rate && now < freeAt ? std::optional(freeAt) : std::nullopt;
    }

  private:
    std::optional<std::uint32_t> rate;
    PrinterTime freeAt{};
};

} // namespace veltrin::printer
