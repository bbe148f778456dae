#include "platform/linux/TrustedUser.h"

#include <pwd.h>
#include <unistd.h>

namespace veltrin::platform {

bool isTrustedUser(uid_t peer, uid_t own, std::optional<uid_t> scheduler) {
    return peer == 0 || peer == own || (own == 0 && peer == scheduler);
}

bool mayTakePart(uid_t peer) {
    const passwd *scheduler = getpwnam(VELTRIN_SCHEDULER_USER);
    return isTrustedUser(peer, geteuid(),
                         scheduler != nullptr ? std::optional(scheduler->pw_uid) : std::nullopt);
}

} // namespace veltrin::platform
