#pragma once

#include "printer/Scenario.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::printer {

/// The answer to a status request as a notification, and how late it is.
struct StatusReply {
    std::string object;
    std::optional<std::vector<std::byte>> data;
    PrinterTime delay{};
};

/// The answer to the status request of this number (from 1); nothing where the rules leave it out.
[[nodiscard]] std::optional<StatusReply> statusReply(const std::vector<ReplyRule> &rules,
                                                     std::uint64_t request, const ReverseRecord &record);

} // namespace veltrin::printer
