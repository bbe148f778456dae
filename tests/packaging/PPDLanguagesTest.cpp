// The PPDs' texts in every language that the filter speaks.

#include "platform/linux/PropertyListBundle.h"
#include "status/MediaNames.h"
#include "tests/packaging/MadePPD.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace veltrin {
namespace {

namespace fs = std::filesystem;

using test::MadePPD;
using test::openPPDs;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::UnorderedElementsAreArray;

/// Of the string tables, but for English, as PPDs write them.
std::vector<std::string> translations() {
    std::vector<std::string> languages;
    for (const auto &entry : fs::directory_iterator(test::hostPath(VELTRIN_RESOURCES))) {
        if (entry.path().extension() == ".lproj" && entry.path().stem() != "en") {
            languages.push_back(entry.path().stem().string());
            std::replace(languages.back().begin(), languages.back().end(), '-', '_');
        }
    }
    EXPECT_FALSE(languages.empty());
    return languages;
}

/// The environment's language, until the end of the block.
class Language {
  public:
    explicit Language(const std::string &language) {
        for (const char *name : {"LANG", "LC_ALL", "LC_MESSAGES", "LANGUAGE"}) {
            const char *value = std::getenv(name);
            before[name] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
            unsetenv(name);
        }
        setenv("LANG", (language + ".UTF-8").c_str(), 1);
    }

    Language(const Language &) = delete;
    Language &operator=(const Language &) = delete;

    ~Language() {
        for (const auto &[name, value] : before) {
            unsetenv(name.c_str());
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            }
        }
    }

  private:
    std::map<std::string, std::optional<std::string>> before;
};

/// Opens the PPDs where people speak this language; the library reads the translations into no other.
void openWhereSpoken(const std::string &language, const std::function<void(const MadePPD &)> &look) {
    const Language spoken(language);
    // The library keeps its language for each thread.
    std::thread([&look] {
        for (const MadePPD &ppd : openPPDs()) {
            look(ppd);
        }
    }).join();
}

/// A text of a PPD, with the attribute in which its translation stands.
struct Text {
    std::string english;
    std::string keyword; ///< behind the language; "Translation" for groups and options themselves
    std::string option;

    [[nodiscard]] std::optional<std::string> in(const MadePPD &ppd, const std::string &language) const {
        return ppd.attributeText(language + "." + keyword, option);
    }
};

/// Those that people see in a dialogue. The page region has no text of its own, and what people call a custom
/// size is the dialogue's affair.
std::vector<Text> textsOf(const MadePPD &ppd) {
    std::vector<Text> texts;
    for (const ppd_option_t *option : ppd.options()) {
        if (std::string(option->keyword) == "PageRegion") {
            continue;
        }
        texts.push_back({option->text, "Translation", option->keyword});
        for (int place = 0; place < option->num_choices; ++place) {
            const ppd_choice_t &choice = option->choices[place];
            if (std::string(choice.choice) != "Custom") {
                texts.push_back({choice.text, option->keyword, choice.choice});
            }
        }
    }
    for (int group = 0; group < ppd->num_groups; ++group) {
        // The standard group is made by the library; it has no line in the file.
        if (std::string(ppd->groups[group].name) != "General") {
            texts.push_back({ppd->groups[group].text, "Translation", ppd->groups[group].name});
        }
    }
    return texts;
}

/// English texts and their translations, as they stand in a catalogue.
std::map<std::string, std::string> catalogueOf(const std::string &language) {
    const std::string file = test::readFile(test::hostPath(VELTRIN_PACKAGING) + "/po/" + language + ".po");
    const std::regex entry("msgid \"([^\"\n]+)\"\nmsgstr \"([^\"\n]*)\"\n");
    std::map<std::string, std::string> catalogue;
    for (std::sregex_iterator found(file.begin(), file.end(), entry), end; found != end; ++found) {
        EXPECT_TRUE(catalogue.emplace((*found)[1], (*found)[2]).second)
            << (*found)[1] << " stands there twice";
    }
    return catalogue;
}

TEST(PPDLanguages, AreThoseOfTheStringTables) {
    for (const MadePPD &ppd : openPPDs()) {
        std::istringstream value(ppd.attribute("cupsLanguages").value_or(""));
        const std::vector<std::string> languages{std::istream_iterator<std::string>(value), {}};
        std::vector<std::string> expected = translations();
        expected.emplace_back("en");
        EXPECT_THAT(languages, UnorderedElementsAreArray(expected)) << ppd.path();
    }
}

TEST(PPDLanguages, EveryTextIsTranslated) {
    for (const std::string &language : translations()) {
        const std::map<std::string, std::string> catalogue = catalogueOf(language);
        openWhereSpoken(language, [&](const MadePPD &ppd) {
            for (const Text &text : textsOf(ppd)) {
                // From our catalogue: ppdc would take a text from CUPS's own as well.
                const auto entry = catalogue.find(text.english);
                ASSERT_NE(entry, catalogue.end()) << language << ": " << text.english;
                EXPECT_EQ(text.in(ppd, language), entry->second) << ppd.path() << ": " << text.english;
                EXPECT_NE(entry->second, "") << text.english;
                // As much as the library keeps.
                EXPECT_LT(entry->second.size(), PPD_MAX_TEXT) << text.english;
            }
        });
    }
}

TEST(PPDLanguages, NothingIsTranslatedThatNobodySees) {
    std::set<std::string> texts;
    for (const MadePPD &ppd : openPPDs()) {
        for (const Text &text : textsOf(ppd)) {
            texts.insert(text.english);
        }
    }
    for (const std::string &language : translations()) {
        for (const auto &[english, translated] : catalogueOf(language)) {
            EXPECT_TRUE(texts.contains(english)) << language << ": " << english;
        }
    }
}

TEST(PPDLanguages, OnlyNamesOfSizesAreTheSameInGerman) {
    const std::set<std::string> same = {"US Letter", "US Legal", "Half Letter", "Executive",
                                        "A4",        "A5",       "A6",          "B5 (JIS)",
                                        "B6 (JIS)",  "Folio",    "16K",         "600 dpi"};
    std::set<std::string> found;
    for (const auto &[english, german] : catalogueOf("de")) {
        if (german == english) {
            found.insert(english);
        }
    }
    EXPECT_EQ(found, same);
}

/// What a status message says, in the language of the bundle.
std::string inStatus(platform::Bundle &bundle, const LocalizedText &text) {
    return bundle.localizedStringForKey(std::string(text.key), std::string(text.english));
}

TEST(PPDLanguages, TraysAndPaperBearTheNamesOfTheStatusMessages) {
    std::map<std::string, std::uint32_t> trays = {{"Tray1", 1}, {"Tray2", 2}, {"Bypass", 5}};
    for (const std::string &language : translations()) {
        platform::PropertyListBundle bundle({test::hostPath(VELTRIN_RESOURCES)});
        bundle.setPreferredLanguage(language);
        openWhereSpoken(language, [&](const MadePPD &ppd) {
            const auto text = [&](const std::string &option, const std::string &choice) {
                return ppd.attributeText(language + "." + option, choice);
            };
            for (const std::string &tray : ppd.choices("InputSlot")) {
                EXPECT_EQ(text("InputSlot", tray), inStatus(bundle, paperTrayName(trays[tray])));
            }
            for (const std::string &type : ppd.choices("PaperType")) {
                const std::uint8_t code = mediaTypeCode(type).value_or(0);
                EXPECT_EQ(text("PaperType", type), inStatus(bundle, paperTypeName(code)));
            }
            for (const std::string &size : ppd.choices("PageSize")) {
                if (const auto code = paperSizeCode(size); size != "Custom") {
                    EXPECT_THAT(text("PageSize", size).value_or(""),
                                HasSubstr(inStatus(bundle, paperSizeName(code.value_or(0)))));
                }
            }
        });
    }
}

TEST(PPDLanguages, AGermanDialogueIsGerman) {
    openWhereSpoken("de_DE", [](const MadePPD &ppd) {
        ppd.localize();
        std::set<std::string> options;
        for (const ppd_option_t *option : ppd.options()) {
            options.insert(option->text);
        }
        EXPECT_THAT(options, IsSupersetOf({"Papierformat", "Papierart", "Beidseitiger Druck"}));
        EXPECT_EQ(ppd.text("PaperType", "Thick"), "Dickes Papier (105–160 g/m²)");
        EXPECT_EQ(ppd.text("InputSlot", "Bypass"), "Zusatzfach");
    });
}

} // namespace
} // namespace veltrin
