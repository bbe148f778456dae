#pragma once

#include "platform/Platform.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeNotificationCenter.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace veltrin::test {

/// A bundle kept in maps. Without an entry a text is its default, else its key.
class FakeBundle final : public platform::Bundle {
  public:
    [[nodiscard]] std::optional<std::string> objectForInfoDictionaryKey(const std::string &key) override;

    [[nodiscard]] std::optional<std::string> infoDictionaryProblem() override { return problem; }

    void setPreferredLanguage(const std::string &value) override { language = value; }

    [[nodiscard]] std::string localizedStringForKey(const std::string &key,
                                                    const std::string &defaultText) override;

    std::map<std::string, std::string> infoDictionary;
    std::optional<std::string> problem;
    std::map<std::string, std::string> strings;
    std::string language;
};

class FakePlatform final : public platform::Platform {
  public:
    [[nodiscard]] FakeClock &clock() override { return fakeClock; }

    [[nodiscard]] FakeBundle &bundle() override { return fakeBundle; }

    [[nodiscard]] std::int32_t systemVersion(std::uint32_t &version) override;

    [[nodiscard]] std::unique_ptr<platform::NotificationCenter>
    makeNotificationCenter(platform::NotificationCenterClient client, std::string &problem) override {
        return fakeNotificationCenter.connect(std::move(client), problem);
    }

    FakeClock fakeClock;
    FakeBundle fakeBundle;
    FakeNotificationCenter fakeNotificationCenter{fakeClock};
    std::uint32_t fakeSystemVersion = 0x1040;
    std::int32_t systemVersionError = 0;

    /// Called each time the system's version is asked for, which a two-sided job does between spooling its
    /// pages and sending them.
    std::function<void()> beforeSystemVersion = [] {};
};

} // namespace veltrin::test
