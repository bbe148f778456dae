#include "platform/posix/LanguageFallback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

struct Case {
    std::string language;
    std::vector<std::string> tried;
};

TEST(LanguageFallback, TakesOffModifierEncodingAndPartAfterPart) {
    const std::vector<Case> cases = {
        {"de", {"de", "en"}},
        {"de_DE.UTF-8", {"de_DE.UTF-8", "de_DE", "de-DE", "de", "en"}},
        {"de_AT@euro", {"de_AT@euro", "de_AT", "de-AT", "de", "en"}},
        {"de_AT.UTF-8@euro", {"de_AT.UTF-8@euro", "de_AT.UTF-8", "de_AT", "de-AT", "de", "en"}},
        {"zh_Hant_TW.UTF-8",
         {"zh_Hant_TW.UTF-8", "zh_Hant_TW", "zh-Hant-TW", "zh_Hant", "zh-Hant", "zh", "en"}},
        {"pt_BR", {"pt_BR", "pt-BR", "pt", "en"}},
        {"pt-BR", {"pt-BR", "pt_BR", "pt", "en"}},
        {"zh-Hant_TW", {"zh-Hant_TW", "zh_Hant_TW", "zh-Hant-TW", "zh-Hant", "zh_Hant", "zh", "en"}},
        {"sr@latin", {"sr@latin", "sr", "en"}},
        {"en", {"en"}},
        {"en.UTF-8", {"en.UTF-8", "en"}},
        {"en_GB.UTF-8", {"en_GB.UTF-8", "en_GB", "en-GB", "en"}},
        {"C", {"C", "en"}},
        {"C.UTF-8", {"C.UTF-8", "C", "en"}},
        {"", {"en"}},
        {"_", {"_", "-", "en"}},
        {"_DE", {"_DE", "-DE", "en"}},
        {"de_", {"de_", "de-", "de", "en"}},
        {"@euro", {"@euro", "en"}},
        {"de@x.y", {"de@x.y", "de", "en"}},
    };
    for (const Case &one : cases) {
        EXPECT_THAT(languagesToTry(one.language), ElementsAreArray(one.tried)) << one.language;
    }
}

TEST(LanguageFallback, NeverLeadsOutOfTheBundle) {
    const std::vector<Case> cases = {
        {"../../etc/de", {"en"}},
        {"/etc", {"en"}},
        {"..", {"en"}},
        {".", {"en"}},
        {".UTF-8", {"en"}},
        {"..@euro", {"en"}},
        {"de.x/y", {"de", "en"}},
        {"de@/../../x", {"de", "en"}},
        {"de_AT/../x", {"de", "en"}},
        {std::string("d\0e", 3), {"en"}},
        {std::string("de_\0", 4), {"de", "en"}},
    };
    for (const Case &one : cases) {
        EXPECT_THAT(languagesToTry(one.language), ElementsAreArray(one.tried)) << one.language;
    }
}

TEST(LanguageFallback, LeavesOutWhatIsTooLongForAName) {
    // With ".lproj" behind it, 255 bytes, which is what file systems take.
    const std::string longest(249, 'x');
    EXPECT_THAT(languagesToTry(longest), ElementsAre(longest, "en"));
    EXPECT_THAT(languagesToTry(longest + "x"), ElementsAre("en"));
    EXPECT_THAT(languagesToTry("de_" + longest), ElementsAre("de", "en"));

    std::string parts = "de";
    while (parts.size() < 10'000) {
        parts += "_x";
    }
    const std::vector<std::string> tried = languagesToTry(parts);
    EXPECT_LT(tried.size(), 1000U);
    EXPECT_THAT(tried, testing::Contains("de"));
}

} // namespace
} // namespace veltrin::platform
