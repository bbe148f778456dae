#pragma once

#include <sys/types.h>

#include <optional>

namespace veltrin::platform {

/// Whether an end takes part with a peer of this user: root, or the end's own user; an end of root also takes
/// the user that the scheduler runs filters as. Nothing stands for a scheduler's user that does not exist.
[[nodiscard]] bool isTrustedUser(uid_t peer, uid_t own, std::optional<uid_t> scheduler);

/// The same where the end is this process.
[[nodiscard]] bool mayTakePart(uid_t peer);

} // namespace veltrin::platform
