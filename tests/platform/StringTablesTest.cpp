#include "platform/linux/PropertyListBundle.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/capability.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string tableStart = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                               "<plist version=\"1.0\">\n<dict>\n";
const std::string tableEnd = "</dict>\n</plist>\n";

std::string textEntry(const std::string &key, const std::string &text) {
    return "<key>" + key + "</key><string>" + text + "</string>\n";
}

/// A table whose document type is `declaration`: a name of one kept elsewhere, or entities in brackets.
std::string tableWith(const std::string &declaration, const std::string &entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist " + declaration +
           ">\n<plist version=\"1.0\">\n<dict>\n" + entries + tableEnd;
}

/// In bytes.
constexpr std::size_t largestTable = std::size_t{64} * 1024;

void onSmallStack(std::function<void()> function) {
    constexpr std::size_t size = std::size_t{2} * 1024 * 1024;
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
    const auto run = [](void *argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &function), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

/// While it lives, file modes count for the calling thread, even if it is root's.
class WithoutPrivileges {
  public:
    WithoutPrivileges() {
        EXPECT_EQ(syscall(SYS_capget, &header, before.data()), 0);
        auto without = before;
        without[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
        EXPECT_EQ(syscall(SYS_capset, &header, without.data()), 0);
    }

    WithoutPrivileges(const WithoutPrivileges &) = delete;
    WithoutPrivileges &operator=(const WithoutPrivileges &) = delete;

    ~WithoutPrivileges() { EXPECT_EQ(syscall(SYS_capset, &header, before.data()), 0); }

  private:
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> before{};
};

/// Sees every opening of a file.
class OpenWatch {
  public:
    explicit OpenWatch(const std::string &path) {
        EXPECT_GE(inotify_add_watch(fd, path.c_str(), IN_OPEN), 0);
    }

    OpenWatch(const OpenWatch &) = delete;
    OpenWatch &operator=(const OpenWatch &) = delete;

    ~OpenWatch() { close(fd); }

    [[nodiscard]] bool wasOpened() const {
        std::array<char, 4096> events{};
        return read(fd, events.data(), events.size()) > 0;
    }

  private:
    int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

class StringTablesTest : public testing::Test {
  protected:
    void TearDown() override {
        std::filesystem::remove_all(first);
        std::filesystem::remove_all(second);
    }

    static std::filesystem::path tablePath(const std::filesystem::path &directory,
                                           const std::string &language) {
        return directory / (language + ".lproj") / "Localizable.strings";
    }

    void writeTable(const std::string &language, const std::string &entries) {
        writeFile(tablePath(first, language), tableStart + entries + tableEnd);
    }

    /// The text under "Ready", by default "default", for somebody with this LANG.
    std::string ready(const std::string &language) {
        reports.clear();
        PropertyListBundle bundle({first, second},
                                  [this](const std::string &line) { reports.push_back(line); });
        bundle.setPreferredLanguage(language);
        return bundle.localizedStringForKey("Ready", "default");
    }

    const std::filesystem::path first = "/tmp/first";
    const std::filesystem::path second = "/tmp/second";
    std::vector<std::string> reports; // of the last bundle that was asked
};

TEST_F(StringTablesTest, TheNearestLanguageThatHasTheKeyWins) {
    writeTable("en", textEntry("Ready", "English"));
    EXPECT_EQ(ready("de_DE.UTF-8"), "English");
    writeTable("de", textEntry("Ready", "bare language"));
    EXPECT_EQ(ready("de_DE.UTF-8"), "bare language");
    writeTable("de_DE", textEntry("Ready", "without encoding"));
    EXPECT_EQ(ready("de_DE.UTF-8"), "without encoding");
    writeTable("de_DE.UTF-8", textEntry("Ready", "raw"));
    EXPECT_EQ(ready("de_DE.UTF-8"), "raw");

    EXPECT_EQ(ready("de_DE"), "without encoding");
    EXPECT_EQ(ready("de_DE@euro"), "without encoding");
    EXPECT_EQ(ready("de_AT.UTF-8"), "bare language");
    EXPECT_EQ(ready("de"), "bare language");
    EXPECT_EQ(ready("fr_FR.UTF-8"), "English");
    EXPECT_EQ(ready("C"), "English");
    EXPECT_EQ(ready(""), "English");
}

TEST_F(StringTablesTest, ALanguageOfSeveralPartsIsFoundByFewerAndWithEitherSeparator) {
    writeTable("zh", textEntry("Ready", "zh"));
    EXPECT_EQ(ready("zh_Hant_TW.UTF-8"), "zh");
    writeTable("zh-Hant", textEntry("Ready", "zh-Hant"));
    EXPECT_EQ(ready("zh_Hant_TW.UTF-8"), "zh-Hant");
    EXPECT_EQ(ready("zh_Hans_CN.UTF-8"), "zh");
    writeTable("pt-BR", textEntry("Ready", "pt-BR"));
    EXPECT_EQ(ready("pt_BR"), "pt-BR");
}

TEST_F(StringTablesTest, AKeyMissingFromTheNearestTableIsLookedUpInTheNext) {
    writeTable("de_DE", textEntry("Other", "anders"));
    writeTable("de", textEntry("Another", "noch anders"));
    writeTable("en", textEntry("Ready", "English"));
    EXPECT_EQ(ready("de_DE.UTF-8"), "English");
}

TEST_F(StringTablesTest, AMissingKeyGivesTheDefaultAndTheKeyWhereThatIsEmpty) {
    writeTable("en", textEntry("Other", "other"));
    PropertyListBundle bundle({first});
    EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "default");
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "Ready");
    EXPECT_EQ(bundle.localizedStringForKey("", ""), "");
    EXPECT_EQ(bundle.localizedStringForKey("Other", ""), "other");
}

TEST_F(StringTablesTest, WithoutAnyTableTheDefaultsHold) {
    EXPECT_EQ(ready("de_DE.UTF-8"), "default");
    PropertyListBundle nowhere({});
    EXPECT_EQ(nowhere.localizedStringForKey("Ready", "default"), "default");
    EXPECT_EQ(nowhere.localizedStringForKey("Ready", ""), "Ready");
}

TEST_F(StringTablesTest, WithoutALanguageTheTextsAreEnglish) {
    writeTable("en", textEntry("Ready", "English"));
    PropertyListBundle bundle({first});
    EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "English");
}

TEST_F(StringTablesTest, AnotherLanguageMayBeChosenLater) {
    writeTable("de", textEntry("Ready", "Bereit"));
    writeTable("en", textEntry("Ready", "English"));
    PropertyListBundle bundle({first});
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "English");
    bundle.setPreferredLanguage("de_DE.UTF-8");
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "Bereit");
    bundle.setPreferredLanguage("C");
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "English");
}

TEST_F(StringTablesTest, TheTablesAreReadOnce) {
    writeTable("en", textEntry("Ready", "first"));
    PropertyListBundle bundle({first});
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "first");
    writeTable("en", textEntry("Ready", "second"));
    EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "first");
}

TEST_F(StringTablesTest, TheFirstDirectoryThatHasTheLanguageWins) {
    writeFile(tablePath(second, "de"), tableStart + textEntry("Ready", "installed") + tableEnd);
    writeTable("en", textEntry("Ready", "English"));
    EXPECT_EQ(ready("de"), "installed");
    writeTable("de", textEntry("Ready", "beside the program"));
    EXPECT_EQ(ready("de"), "beside the program");
}

TEST_F(StringTablesTest, TextsComeOutAsTheyAreWritten) {
    writeTable("en", textEntry("blank", "with a blank at its end ") +
                         textEntry("escaped", "a &amp; b &lt;c&gt; &quot;d&quot;") +
                         textEntry("six characters", "firmware\\U2026") +
                         textEntry("UTF-8", "Größe … 用紙 😀") + textEntry("percent", "%@ %1$@ %%"));
    PropertyListBundle bundle({first});
    EXPECT_EQ(bundle.localizedStringForKey("blank", ""), "with a blank at its end ");
    EXPECT_EQ(bundle.localizedStringForKey("escaped", ""), "a & b <c> \"d\"");
    EXPECT_EQ(bundle.localizedStringForKey("six characters", ""), "firmware\\U2026");
    EXPECT_EQ(bundle.localizedStringForKey("UTF-8", ""), "Größe … 用紙 😀");
    EXPECT_EQ(bundle.localizedStringForKey("percent", ""), "%@ %1$@ %%");
}

TEST_F(StringTablesTest, AValueThatIsNoTextOrAnEmptyOneIsAMissingKey) {
    for (const std::string value :
         {"<true/>", "<false/>", "<integer>3</integer>", "<real>3.0</real>",
          "<date>2026-11-15T21:33:05Z</date>", "<data>UmVhZHk=</data>",
          "<array><string>Bereit</string></array>", "<dict><key>Ready</key><string>Bereit</string></dict>",
          "<string/>", "<string></string>", "<string> </string>", "<string>\n\t</string>"}) {
        writeTable("de", "<key>Ready</key>" + value + textEntry("Other", "anderes"));
        writeTable("en", "<key>Ready</key>" + value);
        EXPECT_EQ(ready("de"), "default") << value;
        PropertyListBundle bundle({first});
        bundle.setPreferredLanguage("de");
        EXPECT_EQ(bundle.localizedStringForKey("Ready", ""), "Ready") << value;
        EXPECT_EQ(bundle.localizedStringForKey("Other", ""), "anderes") << value;
        writeTable("en", textEntry("Ready", "English"));
        EXPECT_EQ(ready("de"), "English") << value;
    }
}

TEST_F(StringTablesTest, AByteOrderMarkInFrontIsSkipped) {
    const std::string mark = "\xEF\xBB\xBF";
    const std::string good = tableStart + textEntry("Ready", "Bereit") + tableEnd;
    writeFile(tablePath(first, "de"), mark + good);
    EXPECT_EQ(ready("de"), "Bereit");
    for (const std::string &front : {mark + mark, mark.substr(0, 2), mark.substr(1)}) {
        writeFile(tablePath(first, "de"), front + good);
        EXPECT_EQ(ready("de"), "default");
    }
}

TEST_F(StringTablesTest, ADamagedTableIsNoTable) {
    const std::string good =
        tableStart + textEntry("Ready", "Bereit") + textEntry("Last", "zuletzt") + tableEnd;
    const auto inPlaceOf = [&good](const std::string &old, const std::string &text) {
        std::string damaged = good;
        return damaged.replace(damaged.find(old), old.size(), text);
    };
    const std::vector<std::pair<std::string, std::string>> damages = {
        {"empty", ""},
        {"cut within a key", good.substr(0, good.find("Last") + 2)},
        {"cut between entries", good.substr(0, good.find("<key>Last"))},
        {"cut before the end of the dictionary", good.substr(0, good.find("</dict>"))},
        {"not a property list", "Ready = Bereit\n"},
        {"a table in the older notation", "\"Ready\" = \"Bereit\";\n"},
        {"a binary property list", "bplist00\xD1\x01\x02" + good},
        {"a list in place of the dictionary",
         "<plist version=\"1.0\"><array><string>Ready</string></array></plist>"},
        {"tags that do not match", inPlaceOf("</string>", "</strin>")},
        {"a key without a text", inPlaceOf("<string>Bereit</string>", "")},
        {"an unknown entity", inPlaceOf("Bereit", "&bereit;")},
        {"an unknown element", inPlaceOf("<string>Bereit</string>", "<text>Bereit</text>")},
    };
    const std::string refused = "no string table: " + tablePath(first, "de").string() +
                                " is not an XML property list with a dictionary";
    writeTable("en", textEntry("Ready", "English"));
    for (const auto &[name, contents] : damages) {
        writeFile(tablePath(first, "de"), contents);
        EXPECT_EQ(ready("de"), "English") << name;
        EXPECT_THAT(reports, ElementsAre(refused)) << name;
    }
    writeFile(tablePath(first, "de"), good);
    EXPECT_EQ(ready("de"), "Bereit");
    EXPECT_THAT(reports, IsEmpty());
}

const std::vector<std::pair<std::string, std::string>> notUTF8 = {
    {"Latin-1", "f\xFCr"},
    {"a stray continuation byte", "a\x80z"},
    {"an overlong form of two bytes", "\xC1\x81"},
    {"an overlong form of three bytes", "\xE0\x81\x81"},
    {"an overlong form of four bytes", "\xF0\x80\x81\x81"},
    {"half of a surrogate pair", "\xED\xA0\x80"},
    {"a surrogate pair", "\xED\xA0\xBD\xED\xB8\x80"},
    {"half of a surrogate pair by its number", "&#xD800;"},
    {"above the last character", "\xF4\x90\x80\x80"},
    {"a lead byte without a meaning", "\xF8\x88\x80\x80"},
    {"two bytes that break off", "zuletzt \xC3"},
    {"three bytes that break off", "zuletzt \xE2\x82"},
    {"four bytes that break off", "zuletzt \xF0\x9F\x98"},
    {"a character that breaks off before another", "\xE2\x82z"},
    {"a zero byte", std::string("zu\0letzt", 8)},
};

TEST_F(StringTablesTest, TextThatIsNotUTF8CostsItsEntryAlone) {
    writeTable("en", textEntry("Ready", "English"));
    const std::string path = tablePath(first, "de").string();
    for (const auto &[name, bytes] : notUTF8) {
        writeTable("de",
                   textEntry("First", "zuerst") + textEntry("Other", bytes) + textEntry("Ready", "Bereit"));
        EXPECT_EQ(ready("de"), "Bereit") << name;
        EXPECT_THAT(reports,
                    ElementsAre("no entry \"Other\": " + path + " holds text there that is not UTF-8"))
            << name;

        writeTable("de", textEntry("Ready", bytes) + textEntry("Last", "zuletzt"));
        EXPECT_EQ(ready("de"), "English") << name;
        EXPECT_THAT(reports,
                    ElementsAre("no entry \"Ready\": " + path + " holds text there that is not UTF-8"))
            << name;
        PropertyListBundle bundle({first});
        bundle.setPreferredLanguage("de");
        EXPECT_EQ(bundle.localizedStringForKey("Last", ""), "zuletzt") << name;
    }
}

TEST_F(StringTablesTest, AKeyThatIsNotUTF8CostsItsEntryAlone) {
    writeTable("de", textEntry("f\xFCr", "Bereit") + textEntry("Ready", "Bereit") +
                         textEntry("\xE2\x82", "zuletzt"));
    EXPECT_EQ(ready("de"), "Bereit");
    const std::string rest = "\": " + tablePath(first, "de").string() + " holds text there that is not UTF-8";
    EXPECT_THAT(reports, testing::UnorderedElementsAre("no entry \"f?r" + rest, "no entry \"\?\?" + rest));
    PropertyListBundle bundle({first});
    bundle.setPreferredLanguage("de");
    EXPECT_EQ(bundle.localizedStringForKey("f\xFCr", "default"), "default");
}

TEST_F(StringTablesTest, CharactersAtTheEdgesOfUTF8Count) {
    for (const std::string text :
         {"\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xEF\xBB\xBF"}) {
        writeTable("de", textEntry("Ready", text));
        EXPECT_EQ(ready("de"), text);
        EXPECT_THAT(reports, IsEmpty());
    }
}

TEST_F(StringTablesTest, AnEntryThatIsNotUTF8IsReportedOnce) {
    writeTable("de", textEntry("Ready", "\xFF"));
    PropertyListBundle bundle({first}, [this](const std::string &line) { reports.push_back(line); });
    for (int i = 0; i < 3; ++i) {
        bundle.setPreferredLanguage("de_DE.UTF-8");
        EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "default");
        EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "default");
    }
    EXPECT_EQ(reports.size(), 1U);
}

TEST_F(StringTablesTest, BehindADamagedTableTheInstalledOneCounts) {
    writeFile(tablePath(first, "de"), "damaged");
    writeFile(tablePath(second, "de"), tableStart + textEntry("Ready", "installed") + tableEnd);
    EXPECT_EQ(ready("de"), "installed");
    EXPECT_THAT(reports, ElementsAre("no string table: " + tablePath(first, "de").string() +
                                     " is not an XML property list with a dictionary"));
}

TEST_F(StringTablesTest, ARefusedTableIsReportedOnce) {
    writeFile(tablePath(first, "de"), "damaged");
    PropertyListBundle bundle({first}, [this](const std::string &line) { reports.push_back(line); });
    bundle.setPreferredLanguage("de_DE.UTF-8");
    EXPECT_THAT(reports, IsEmpty()) << "before anybody asked for a text";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "default");
        bundle.setPreferredLanguage("de_DE.UTF-8");
    }
    EXPECT_EQ(reports.size(), 1U);
    bundle.setPreferredLanguage("fr");
    writeFile(tablePath(first, "fr"), "damaged, too");
    EXPECT_EQ(bundle.localizedStringForKey("Ready", "default"), "default");
    EXPECT_EQ(reports.size(), 2U);
}

TEST_F(StringTablesTest, WhatIsNotThereIsNotReported) {
    EXPECT_EQ(ready("de_DE.UTF-8"), "default");
    EXPECT_THAT(reports, IsEmpty());
    std::filesystem::create_directories(first / "de.lproj");
    writeFile(first / "fr.lproj", "not a directory");
    EXPECT_EQ(ready("de"), "default");
    EXPECT_EQ(ready("fr"), "default");
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(StringTablesTest, AGiantTableIsNoTable) {
    const std::string start = tableStart + textEntry("Ready", "Bereit");
    const std::string largest = start + std::string(largestTable - start.size() - tableEnd.size(), ' ');
    writeFile(tablePath(first, "de"), largest + tableEnd);
    EXPECT_EQ(ready("de"), "Bereit");
    EXPECT_THAT(reports, IsEmpty());
    writeFile(tablePath(first, "de"), largest + " " + tableEnd);
    EXPECT_EQ(ready("de"), "default");
    EXPECT_THAT(reports, ElementsAre("no string table: " + tablePath(first, "de").string() +
                                     " is larger than 64 KiB"));
}

// The parser goes down into itself, as deep as the file does.
TEST_F(StringTablesTest, ATableThatNestsNeedsLittleStack) {
    const std::string start = tableStart + textEntry("Ready", "Bereit") + "<key>deep</key>";

    const std::string down = "<array>";
    const std::string up = "</array>";

    std::string closed = start;
    const std::size_t depth = (largestTable - start.size() - tableEnd.size()) / (down.size() + up.size());
    for (const std::string &tag : {down, up}) {
        for (std::size_t i = 0; i < depth; ++i) {
            closed += tag;
        }
    }
    writeFile(tablePath(first, "de"), closed + tableEnd);
    onSmallStack([this] { EXPECT_EQ(ready("de"), "Bereit"); });

    for (const std::size_t size : {largestTable, 16 * largestTable}) {
        std::string open = start;
        while (open.size() + down.size() <= size) {
            open += down;
        }
        writeFile(tablePath(first, "de"), open);
        onSmallStack([this] { EXPECT_EQ(ready("de"), "default"); });
    }
}

TEST_F(StringTablesTest, ABombOfEntitiesDoesNoHarm) {
    std::string bomb = "<!ENTITY e0 \"Bereit\">\n";
    for (int level = 1; level < 10; ++level) {
        const std::string below = "&e" + std::to_string(level - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i) {
            bomb += below;
        }
        bomb += "\">\n";
    }
    writeTable("en", textEntry("Ready", "English"));
    writeFile(tablePath(first, "de"), tableWith("[" + bomb + "]", textEntry("Ready", "&e9;")));
    EXPECT_EQ(ready("de"), "English");
    writeFile(tablePath(first, "de"), tableWith("[" + bomb + "]", textEntry("Ready", "&e0;")));
    EXPECT_EQ(ready("de"), "English") << "no entity of the table's own counts";
    writeFile(tablePath(first, "de"), tableWith("[" + bomb + "]", textEntry("Ready", "Bereit")));
    EXPECT_EQ(ready("de"), "Bereit") << "one that is not used";
}

TEST_F(StringTablesTest, NoFileIsReadThatATableNames) {
    const std::string secret = "/tmp/first/secret";
    writeFile(secret, "<!ENTITY text \"read from the file\">");
    writeTable("en", textEntry("Ready", "English"));
    const OpenWatch watch(secret);
    for (const std::string &name :
         {secret, "file://" + secret, std::string("secret"), std::string("../secret")}) {
        const std::string system = "SYSTEM \"" + name + "\"";
        writeFile(tablePath(first, "de"),
                  tableWith("[<!ENTITY text " + system + ">]", textEntry("Ready", "&text;")));
        EXPECT_EQ(ready("de"), "English") << name;
        writeFile(tablePath(first, "de"), tableWith(system, textEntry("Ready", "&text;")));
        EXPECT_EQ(ready("de"), "English") << name;
        writeFile(tablePath(first, "de"),
                  tableWith("[<!ENTITY % file " + system + "> %file;]", textEntry("Ready", "&text;")));
        EXPECT_EQ(ready("de"), "English") << name;
        writeFile(tablePath(first, "de"), tableWith(system, textEntry("Ready", "Bereit")));
        EXPECT_EQ(ready("de"), "Bereit") << name;
    }
    EXPECT_FALSE(watch.wasOpened());
    EXPECT_NE(test::readFile(secret), "");
    EXPECT_TRUE(watch.wasOpened()) << "the watch sees nothing";
}

TEST_F(StringTablesTest, WhatIsNoFileIsNoTable) {
    const std::filesystem::path path = tablePath(first, "de");
    std::filesystem::create_directories(path);
    EXPECT_EQ(ready("de"), "default") << "a directory";
    EXPECT_THAT(reports, ElementsAre("no string table: " + path.string() + " is not a file"));
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(ready("de"), "default") << "a pipe, whose writer nobody waits for";
    EXPECT_THAT(reports, ElementsAre("no string table: " + path.string() + " is not a file"));
    std::filesystem::remove(path);
    std::filesystem::create_symlink("Localizable.strings", path);
    EXPECT_EQ(ready("de"), "default") << "a link to itself";
    EXPECT_THAT(reports, ElementsAre("no string table: " + path.string() +
                                     " cannot be read: Too many levels of symbolic links"));
}

TEST_F(StringTablesTest, ATableThatMayNotBeReadIsNoTable) {
    const std::filesystem::path path = tablePath(first, "de");
    writeTable("de", textEntry("Ready", "Bereit"));
    std::filesystem::permissions(path, std::filesystem::perms::none);
    {
        const WithoutPrivileges withoutPrivileges;
        EXPECT_EQ(ready("de"), "default");
    }
    EXPECT_THAT(reports,
                ElementsAre("no string table: " + path.string() + " cannot be read: Permission denied"));
}

TEST_F(StringTablesTest, ALanguageOfAnyLengthIsHarmless) {
    writeTable("en", textEntry("Ready", "English"));
    EXPECT_EQ(ready(std::string(100'000, 'x')), "English");
}

} // namespace
} // namespace veltrin::platform
