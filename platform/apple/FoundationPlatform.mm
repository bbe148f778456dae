#include "platform/Platform.h"
#include "platform/apple/FoundationBundle.h"
#include "platform/apple/FoundationNotificationCenter.h"
#include "platform/apple/SystemMessages.h"
#include "platform/apple/SystemVersion.h"

#include <utility>

namespace veltrin::platform {

namespace {

class FoundationPlatform final : public Platform {
  public:
    explicit FoundationPlatform(std::function<void(const std::string &line)> report)
        : mainBundle(std::move(report)) {}

    [[nodiscard]] Clock &clock() override { return systemClock(); }

    [[nodiscard]] Bundle &bundle() override { return mainBundle; }

    [[nodiscard]] std::int32_t systemVersion(std::uint32_t &version) override {
#ifdef __APPLE__
        const ReleasePool pool;
        constexpr std::int32_t notTold = -1;
        return send(
            [&version] {
                const NSOperatingSystemVersion system = [[NSProcessInfo processInfo] operatingSystemVersion];
                version =
                    versionAsDecimalDigits(system.majorVersion, system.minorVersion, system.patchVersion);
                return std::int32_t{0};
            },
            [] { return notTold; });
#else
        // GNUstep stands on systems with versions of other kinds; their renderers repeat both sides of a
        // sheet together.
        version = versionAsDecimalDigits(10, 4, 0);
        return 0;
#endif
    }

    [[nodiscard]] std::unique_ptr<NotificationCenter> makeNotificationCenter(NotificationCenterClient client,
                                                                             std::string &problem) override {
        return connectToFoundation(std::move(client), problem);
    }

  private:
    FoundationBundle mainBundle;
};

} // namespace

std::unique_ptr<Platform> makePlatform(std::function<void(const std::string &line)> report) {
    return std::make_unique<FoundationPlatform>(std::move(report));
}

} // namespace veltrin::platform
