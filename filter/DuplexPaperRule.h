#pragma once

#include <optional>
#include <string_view>

namespace veltrin {

/// Whether paper of this size and type can be printed on both sides. `media` and `paperType` are the job's
/// options of these names; an absent one forbids nothing.
///
/// The names are compared with the whole value, so a `media` that lists several keywords ("A5,Tray1") matches
/// none of them; only custom sizes are recognised by their beginning.
[[nodiscard]] bool canDuplexPaper(std::optional<std::string_view> media,
                                  std::optional<std::string_view> paperType);

} // namespace veltrin
