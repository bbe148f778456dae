#include "tests/support/FakePlatform.h"

namespace veltrin::test {

void FakeClock::sleepFor(std::chrono::microseconds duration) {
    now += duration;
    sleeps.push_back(duration);
    afterSleep();
}

std::optional<std::string> FakeBundle::objectForInfoDictionaryKey(const std::string &key) {
    const auto entry = infoDictionary.find(key);
    return entry != infoDictionary.end() ? std::optional(entry->second) : std::nullopt;
}

std::string FakeBundle::localizedStringForKey(const std::string &key, const std::string &defaultText) {
    if (const auto entry = strings.find(key); entry != strings.end()) {
        return entry->second;
    }
    return defaultText.empty() ? key : defaultText;
}

std::int32_t FakePlatform::systemVersion(std::uint32_t &version) {
    beforeSystemVersion();
    if (systemVersionError == 0) {
        version = fakeSystemVersion;
    }
    return systemVersionError;
}

} // namespace veltrin::test
