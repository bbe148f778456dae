#pragma once

#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/NotificationCenter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace veltrin::platform {

/// What differs between operating systems and what the filter's behaviour depends on from outside, handed to
/// the filter once, at the process entry. Tests hand in their own.
class Platform {
  public:
    Platform() = default;
    Platform(const Platform &) = delete;
    Platform &operator=(const Platform &) = delete;
    virtual ~Platform() = default;

    [[nodiscard]] virtual Clock &clock() = 0;
    [[nodiscard]] virtual Bundle &bundle() = 0;

    /// Stores the system version as binary-coded decimal 0xMMmp (10.4.0 is 0x1040) and returns 0, or returns
    /// the system's error number and leaves `version` alone. A system without such a version of its own gives
    /// one whose renderer repeats both sides of a sheet together (0x1040 or later), as today's renderers do.
    [[nodiscard]] virtual std::int32_t systemVersion(std::uint32_t &version) = 0;

    /// Connects to the system's notification service for one channel. Null, with `problem` saying why, where
    /// it cannot be reached or does not let us in; that takes a few seconds at most.
    [[nodiscard]] virtual std::unique_ptr<NotificationCenter>
    makeNotificationCenter(NotificationCenterClient client, std::string &problem) = 0;
};

/// The platform that this build is made for. `report` takes one line for the diagnostic log: why a file of
/// the bundle, or an entry of one, cannot be used.
[[nodiscard]] std::unique_ptr<Platform> makePlatform(std::function<void(const std::string &line)> report =
                                                         [](const std::string &) {});

} // namespace veltrin::platform
