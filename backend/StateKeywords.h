#pragma once

#include "status/ReverseRecord.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The printer's status in the words of IPP ("printer-state-reasons"), by which applications and people's
// desktops know it.

namespace veltrin::backend {

using Keywords = std::vector<std::string_view>;

/// The keywords for what the record reports, in alphabetical order.
[[nodiscard]] Keywords stateKeywords(const ReverseRecord &record);

/// Every keyword that a record may stand for, likewise.
[[nodiscard]] Keywords allStateKeywords();

/// The lines that make the scheduler change the queue's reasons. Without `before` nobody knows what an
/// earlier job has left there, so that all the others are taken away.
[[nodiscard]] std::vector<std::string> stateLines(const std::optional<Keywords> &before, const Keywords &now);

} // namespace veltrin::backend
