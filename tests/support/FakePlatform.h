#pragma once

#include "platform/Platform.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace veltrin::test {

/// A clock that only goes on when somebody sleeps.
class FakeClock final : public platform::Clock {
  public:
    [[nodiscard]] std::optional<std::chrono::microseconds> timeOfDay() const override {
        return fails ? std::nullopt : std::optional(now);
    }

    [[nodiscard]] std::time_t wholeSeconds() const override {
        return static_cast<std::time_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count()) -
               secondsBehind;
    }

    void sleepFor(std::chrono::microseconds duration) override;

    std::chrono::microseconds now{};
    std::time_t secondsBehind = 0;
    bool fails = false;

    /// Every sleep so far, in order.
    std::vector<std::chrono::microseconds> sleeps;

    /// Called after each sleep, so that a test can end a wait.
    std::function<void()> afterSleep = [] {};
};

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

    FakeClock fakeClock;
    FakeBundle fakeBundle;
    std::uint32_t fakeSystemVersion = 0x1040;
    std::int32_t systemVersionError = 0;
};

} // namespace veltrin::test
