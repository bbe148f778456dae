#pragma once

#include "platform/NotificationCenter.h"

#include <memory>
#include <string>

namespace veltrin::platform {

/// One end of a channel on the system's distributed notification center; docs/platforms.md says what that
/// gives and takes. Null with `problem` set where there is none.
[[nodiscard]] std::unique_ptr<NotificationCenter> connectToFoundation(NotificationCenterClient client,
                                                                      std::string &problem);

} // namespace veltrin::platform
