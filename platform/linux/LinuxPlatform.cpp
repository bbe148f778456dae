#include "platform/Platform.h"
#include "platform/linux/DBusNotificationCenter.h"
#include "platform/linux/PropertyListBundle.h"

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace veltrin::platform {

namespace {

/// The first version whose renderer repeats both sides of a sheet together, as every renderer here does.
constexpr std::uint32_t pairedPageOrderVersion = 0x1040;

/// Where the bundle's files may be: beside the executable (a build tree, a private copy), else where they are
/// installed. The executable is found through the system, since CUPS passes the queue's name as argv[0].
std::vector<std::filesystem::path> bundleDirectories() {
    std::vector<std::filesystem::path> directories;
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        directories.push_back(executable.parent_path());
    }
    directories.emplace_back(VELTRIN_INSTALLED_RESOURCES);
    return directories;
}

class LinuxPlatform final : public Platform {
  public:
    explicit LinuxPlatform(std::function<void(const std::string &line)> report)
        : mainBundle(bundleDirectories(), std::move(report)) {}

    [[nodiscard]] Clock &clock() override { return systemClock(); }

    [[nodiscard]] Bundle &bundle() override { return mainBundle; }

    [[nodiscard]] std::int32_t systemVersion(std::uint32_t &version) override {
        version = pairedPageOrderVersion;
        return 0;
    }

    [[nodiscard]] std::unique_ptr<NotificationCenter> makeNotificationCenter(NotificationCenterClient client,
                                                                             std::string &problem) override {
        return DBusNotificationCenter::connect(std::move(client), problem);
    }

  private:
    PropertyListBundle mainBundle;
};

} // namespace

std::unique_ptr<Platform> makePlatform(std::function<void(const std::string &line)> report) {
    return std::make_unique<LinuxPlatform>(std::move(report));
}

} // namespace veltrin::platform
