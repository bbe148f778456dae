#pragma once

#include <optional>
#include <string_view>

// What the messages of CUPS's backends say that concerns the job.

namespace veltrin::backend {

/// Whether the line says of this keyword that it holds from now on; nothing where it does not say. "STATE:"
/// lines name keywords that come ("+") or go ("-"), or all that there are.
[[nodiscard]] std::optional<bool> keywordIn(std::string_view line, std::string_view keyword);

/// Whether the line says that the backend has no connection to the device from now on, or that it has one;
/// nothing where it does not say.
[[nodiscard]] std::optional<bool> connectingIn(std::string_view line);

/// Whether the line tells of toner, which the status records are the authority for.
[[nodiscard]] bool isAboutMarkers(std::string_view line);

} // namespace veltrin::backend
