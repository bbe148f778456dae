#pragma once

#include <optional>
#include <string>
#include <string_view>

// What the messages of CUPS's backends say that concerns the job.

namespace veltrin::backend {

/// Whether the line says of this keyword that it holds from now on; nothing where it does not say. "STATE:"
/// lines name keywords that come ("+") or go ("-"), or all that there are.
[[nodiscard]] std::optional<bool> keywordIn(std::string_view line, std::string_view keyword);

/// Whether the line says that the backend has no connection to the device from now on, or that it has one;
/// nothing where it does not say.
[[nodiscard]] std::optional<bool> connectingIn(std::string_view line);

/// The line as it goes on to the scheduler; nothing where nothing is left of it.
///
/// How paper, covers, toner and the like are is told of from the status records alone: of two sources one
/// would take away what the other has said. What the backend says of itself, the connection and the job goes
/// on.
[[nodiscard]] std::optional<std::string> passedOn(std::string_view line);

} // namespace veltrin::backend
