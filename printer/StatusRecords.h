#pragma once

#include "printer/Scenario.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// The status records that a printer on a wire sends of its own accord: when, and what they look like.

namespace veltrin::printer {

/// Records that say something new are no closer together.
inline constexpr PrinterTime closestRecords = std::chrono::milliseconds(100);

/// When the next record is due: at once after the reset record, soon when something has changed since the
/// last one, and else after the interval.
[[nodiscard]] PrinterTime recordDue(const std::optional<PrinterTime> &last, bool changed,
                                    PrinterTime interval, PrinterTime now);

/// The bytes of the record of this number (from 1, of a connection); none where the rules leave it out.
[[nodiscard]] std::vector<std::byte> recordBytes(const std::vector<RecordRule> &rules, std::uint64_t number,
                                                 const ReverseRecord &record);

} // namespace veltrin::printer
