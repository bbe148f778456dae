#pragma once

#include "status/ReverseRecord.h"

#include <optional>
#include <string>
#include <vector>

namespace veltrin::backend {

/// The lines that tell the scheduler of the toner: which there are, without `before`, and how much is left of
/// each, where that differs.
[[nodiscard]] std::vector<std::string> tonerLines(const std::optional<ReverseRecord> &before,
                                                  const ReverseRecord &now);

} // namespace veltrin::backend
