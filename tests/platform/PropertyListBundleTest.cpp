#include "platform/linux/PropertyListBundle.h"

#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

using test::writeFile;

constexpr const char *beside = "/tmp/beside";
constexpr const char *installed = "/tmp/installed";

std::string dictionaryOf(const std::string &entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           entries + "</dict>\n</plist>\n";
}

std::string entry(const std::string &key, const std::string &value) {
    return "<key>" + key + "</key><string>" + value + "</string>\n";
}

class PropertyListBundleTest : public testing::Test {
  protected:
    PropertyListBundleTest() {
        std::filesystem::create_directories(beside);
        std::filesystem::create_directories(installed);
    }

    ~PropertyListBundleTest() override {
        std::filesystem::remove_all(beside);
        std::filesystem::remove_all(installed);
    }

    static void writeInfo(const std::string &directory, const std::string &contents) {
        writeFile(directory + "/Info.plist", contents);
    }

    PropertyListBundle bundle{{beside, installed}};
};

TEST_F(PropertyListBundleTest, ReadsStringsAndBooleansOfTheInformationDictionary) {
    writeInfo(beside,
              dictionaryOf(entry("VeltrinDuplexOrder", "642135") + entry("Empty", "") +
                           entry("Escaped", "&lt;&amp;&#228;") +
                           "<key>Yes</key><true/><key>No</key><false/><key>Number</key><integer>3</integer>"
                           "<key>List</key><array><string>x</string></array>"));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinDuplexOrder"), "642135");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("Empty"), "");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("Escaped"), "<&\xc3\xa4");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("Yes"), "true");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("No"), "false");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("Number"), std::nullopt);
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("List"), std::nullopt);
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("veltrinduplexorder"), std::nullopt);
    EXPECT_EQ(bundle.infoDictionaryProblem(), std::nullopt);
}

/// As it is installed. Whoever turns the stack by hand relies on it.
TEST(InformationDictionary, SaysHowTheStackIsTurned) {
    PropertyListBundle bundle{{test::hostPath(VELTRIN_BUILT_RESOURCES)}};
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinDuplexOrder"), "642135");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinManualDuplex"), "true");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("VeltrinDuplexBypass"), "false");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("cupsICCProfile"), std::nullopt);
    EXPECT_EQ(bundle.infoDictionaryProblem(), std::nullopt);
}

TEST_F(PropertyListBundleTest, AByteOrderMarkInFrontIsSkipped) {
    writeInfo(beside, "\xEF\xBB\xBF" + dictionaryOf(entry("a", "x")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "x");
    EXPECT_EQ(bundle.infoDictionaryProblem(), std::nullopt);
}

TEST_F(PropertyListBundleTest, TheDictionaryIsReadOnce) {
    writeInfo(beside, dictionaryOf(entry("a", "first")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "first");
    writeInfo(beside, dictionaryOf(entry("a", "second")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "first");
    std::filesystem::remove(std::filesystem::path(beside) / "Info.plist");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "first");
    EXPECT_EQ(bundle.infoDictionaryProblem(), std::nullopt);
}

TEST_F(PropertyListBundleTest, AMissingDictionaryIsLookedForOnce) {
    const std::string missing = "there is no Info.plist in /tmp/beside or /tmp/installed";
    EXPECT_EQ(bundle.infoDictionaryProblem(), missing);
    writeInfo(beside, dictionaryOf(entry("a", "x")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), std::nullopt);
    EXPECT_EQ(bundle.infoDictionaryProblem(), missing);
}

TEST_F(PropertyListBundleTest, TheDictionaryBesideTheExecutableWinsWhole) {
    writeInfo(beside, dictionaryOf(entry("a", "beside")));
    writeInfo(installed, dictionaryOf(entry("a", "installed") + entry("b", "installed")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "beside");
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("b"), std::nullopt);
}

TEST_F(PropertyListBundleTest, TheInstalledDictionaryServesWhereNoneIsBesideTheExecutable) {
    writeInfo(installed, dictionaryOf(entry("a", "installed")));
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), "installed");
}

TEST_F(PropertyListBundleTest, AMissingDictionaryIsNone) {
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), std::nullopt);
    EXPECT_EQ(bundle.infoDictionaryProblem(), "there is no Info.plist in /tmp/beside or /tmp/installed");
}

TEST_F(PropertyListBundleTest, ABrokenDictionaryIsNoneEvenWhereAnotherIsInstalled) {
    writeInfo(installed, dictionaryOf(entry("a", "installed")));
    const std::vector<std::string> broken = {
        "",
        std::string(4, '\0'),
        "VeltrinDuplexOrder = 642135\n",
        "<?xml version=\"1.0\"?>",
        "<plist version=\"1.0\"><array><string>x</string></array></plist>",
        "<plist version=\"1.0\"><string>x</string></plist>",
        "<plist version=\"1.0\"><dict><key>a</key><string>x",
        std::string(1000, '<'),
        "bplist00",
    };
    for (const std::string &contents : broken) {
        writeInfo(beside, contents);
        PropertyListBundle fresh{{beside, installed}};
        EXPECT_EQ(fresh.objectForInfoDictionaryKey("a"), std::nullopt) << contents;
        EXPECT_EQ(fresh.infoDictionaryProblem(),
                  "/tmp/beside/Info.plist is not an XML property list with a dictionary")
            << contents;
    }
}

TEST_F(PropertyListBundleTest, WhatIsNoFileIsNoDictionaryAndIsNotWaitedFor) {
    ASSERT_EQ(mkfifo("/tmp/beside/Info.plist", 0600), 0);
    EXPECT_EQ(bundle.objectForInfoDictionaryKey("a"), std::nullopt);
    EXPECT_EQ(bundle.infoDictionaryProblem(), "/tmp/beside/Info.plist is not a file");
}

TEST_F(PropertyListBundleTest, AnEntryThatIsNotUTF8IsMissingAndReportedOnce) {
    writeInfo(beside, dictionaryOf(entry("First", "x") + entry("VeltrinDuplexOrder", "f\xFCr") +
                                   "<key>f\xFCr</key><true/>" + entry("Last", "y")));
    std::vector<std::string> reports;
    PropertyListBundle reporting({beside}, [&reports](const std::string &line) { reports.push_back(line); });
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(reporting.objectForInfoDictionaryKey("VeltrinDuplexOrder"), std::nullopt);
        EXPECT_EQ(reporting.objectForInfoDictionaryKey("f\xFCr"), std::nullopt);
        EXPECT_EQ(reporting.objectForInfoDictionaryKey("First"), "x");
        EXPECT_EQ(reporting.objectForInfoDictionaryKey("Last"), "y");
        EXPECT_EQ(reporting.infoDictionaryProblem(), std::nullopt);
    }
    const std::string rest = "\": /tmp/beside/Info.plist holds text there that is not UTF-8";
    EXPECT_THAT(reports, testing::UnorderedElementsAre("no entry \"VeltrinDuplexOrder" + rest,
                                                       "no entry \"f?r" + rest));
}

TEST_F(PropertyListBundleTest, AFileBeyondReasonIsNotRead) {
    writeInfo(beside, dictionaryOf(entry("a", "x")));
    const std::string largest = dictionaryOf(entry("a", "x"));
    writeInfo(beside, largest + std::string(std::size_t{64} * 1024 - largest.size(), ' '));
    EXPECT_EQ((PropertyListBundle{{beside}}.infoDictionaryProblem()), std::nullopt);
    writeInfo(beside, largest + std::string(std::size_t{64} * 1024 - largest.size() + 1, ' '));
    EXPECT_EQ(bundle.infoDictionaryProblem(), "/tmp/beside/Info.plist is larger than 64 KiB");
}

} // namespace
} // namespace veltrin::platform
