#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

// The project's own information dictionary and string tables, which lie beside these tests as they do in a
// bundle.

namespace veltrin::platform {
namespace {

class FoundationBundleTest : public testing::Test {
  protected:
    ~FoundationBundleTest() override { EXPECT_EQ(reports, std::vector<std::string>{}); }

    /// What the printer says, in the language of LANG.
    std::string textIn(const std::string &language) {
        bundle.setPreferredLanguage(language);
        return bundle.localizedStringForKey("DriverCommError", "default");
    }

    const std::string english = "Unable to communicate with printer";
    const std::string german = "Kommunikation mit dem Drucker nicht möglich";

    std::vector<std::string> reports;
    std::unique_ptr<Platform> system =
        makePlatform([this](const std::string &line) { reports.push_back(line); });
    Bundle &bundle = system->bundle();
};

TEST_F(FoundationBundleTest, HasTheInformationDictionary) {
    EXPECT_EQ(bundle.infoDictionaryProblem(), std::nullopt);
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinDuplexOrder"), "642135");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinManualDuplex"), "true");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinDuplexBypass"), "false");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("no such key"), std::nullopt);
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("\xFF"), std::nullopt);
}

TEST_F(FoundationBundleTest, SpeaksTheLanguageOfLang) {
    EXPECT_EQ(bundle.localizedStringForKey("DriverCommError", "default"), english) << "before it is set";
    EXPECT_EQ(textIn("de_DE.UTF-8"), german);
    EXPECT_EQ(textIn("en.UTF-8"), english);
    EXPECT_EQ(textIn("de-AT"), german);
    EXPECT_EQ(textIn("de"), german);
}

TEST_F(FoundationBundleTest, SpeaksEnglishWhereALanguageHasNoTable) {
    for (const char *language : {"fr_FR.UTF-8", "C", "", "POSIX", "../de", "\xFF"}) {
        EXPECT_EQ(textIn(language), english) << language;
    }
}

TEST_F(FoundationBundleTest, FallsBackToTheDefaultAndThenToTheKey) {
    bundle.setPreferredLanguage("de");
    EXPECT_EQ(bundle.localizedStringForKey("no such key", "default"), "default");
    EXPECT_EQ(bundle.localizedStringForKey("no such key", ""), "no such key");
    EXPECT_EQ(bundle.localizedStringForKey("\xFF", "default"), "default");
}

} // namespace
} // namespace veltrin::platform
