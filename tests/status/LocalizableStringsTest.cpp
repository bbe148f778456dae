// The string tables that are installed, against the texts in the code and against each other.

#include "platform/linux/PropertyListBundle.h"
#include "status/MediaNames.h"
#include "status/StatusCatalogue.h"
#include "status/VeltrinReverseData.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace veltrin {
namespace {

using Table = std::map<std::string, std::string>;

/// The key that stands for two English texts, so that the English table cannot hold it. A translation may.
const std::string sharedKey = "TypeMismatchUnknown";

std::filesystem::path resources() {
    return test::hostPath(VELTRIN_RESOURCES);
}

std::filesystem::path tableOf(const std::string &language) {
    return resources() / (language + ".lproj") / "Localizable.strings";
}

/// Everything in a string table; a file that is none, or that has a key twice, fails the running test.
Table readTable(const std::filesystem::path &path) {
    const std::string contents = test::readFile(path);
    plist_t root = nullptr;
    plist_from_xml(contents.data(), static_cast<std::uint32_t>(contents.size()), &root);
    const std::unique_ptr<void, decltype(&plist_free)> owner(root, plist_free);
    Table table;
    if (root == nullptr || plist_get_node_type(root) != PLIST_DICT) {
        ADD_FAILURE() << path << " is not an XML property list with a dictionary";
        return table;
    }
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root, &iterator);
    const std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, std::free);
    while (true) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(root, iterator, &key, &value);
        const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, std::free);
        if (key == nullptr) {
            break;
        }
        EXPECT_EQ(plist_get_node_type(value), PLIST_STRING) << key << " in " << path << " is no text";
        std::uint64_t length = 0;
        const char *text = plist_get_string_ptr(value, &length);
        table[key] = text != nullptr ? std::string(text, length) : std::string();
    }
    std::size_t keys = 0;
    for (std::size_t at = contents.find("<key>"); at != std::string::npos;
         at = contents.find("<key>", at + 1)) {
        ++keys;
    }
    EXPECT_EQ(keys, table.size()) << path << " has a key twice";
    return table;
}

std::vector<std::string> languages() {
    std::vector<std::string> names;
    for (const auto &directory : std::filesystem::directory_iterator(resources())) {
        if (directory.path().extension() == ".lproj") {
            names.push_back(directory.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// The English texts that the code may show, by key.
std::map<std::string, std::set<std::string>> textsInCode() {
    std::map<std::string, std::set<std::string>> texts;
    const auto add = [&texts](LocalizedText text) {
        if (!text.key.empty()) {
            texts[std::string(text.key)].emplace(text.english);
        }
    };
    for (unsigned status = 0; status < 256; ++status) {
        for (unsigned subStatus1 = 0; subStatus1 < 256; ++subStatus1) {
            // Only service calls go by the second code, and no family counts beyond 15.
            for (unsigned subStatus2 = 0; subStatus2 < 16; ++subStatus2) {
                add(statusText(static_cast<std::uint8_t>(status), static_cast<std::uint8_t>(subStatus1),
                               static_cast<std::uint8_t>(subStatus2))
                        .text);
            }
        }
    }
    for (std::uint32_t code = 0; code <= 256; ++code) {
        for (const auto nameOf : {paperSizeName, paperTypeName, paperTrayName, modelName, modelDescription}) {
            add(nameOf(code));
        }
    }
    add({"DriverCommError", "Unable to communicate with printer"});
    return texts;
}

/// A text's placeholders in order, "%1$@" counted as "%@", which it is in a text with one of them.
std::vector<std::string> placeholders(const std::string &text) {
    std::vector<std::string> found;
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 2)) {
        if (text.compare(at, 2, "%@") == 0 || text.compare(at, 4, "%1$@") == 0) {
            found.emplace_back("%@");
        } else {
            found.push_back(text.substr(at, 2));
        }
    }
    return found;
}

TEST(LocalizableStrings, TheEnglishTableHoldsTheTextsInTheCode) {
    std::map<std::string, std::set<std::string>> expected = textsInCode();
    EXPECT_EQ(expected[sharedKey],
              (std::set<std::string>{"Paper type %@ mismatch", "Paper size %@ illegal"}));
    expected.erase(sharedKey);

    const Table english = readTable(tableOf("en"));
    for (const auto &[key, texts] : expected) {
        ASSERT_EQ(texts.size(), 1U) << key << " has more than one English text";
        const auto entry = english.find(key);
        if (entry == english.end()) {
            ADD_FAILURE() << key << " is missing";
        } else {
            EXPECT_EQ(entry->second, *texts.begin()) << key;
        }
    }
    for (const auto &[key, text] : english) {
        EXPECT_TRUE(expected.contains(key)) << key << " is used nowhere";
    }
}

TEST(LocalizableStrings, ThereAreEnglishAndGerman) {
    EXPECT_THAT(languages(), testing::IsSupersetOf({"de", "en"}));
}

TEST(LocalizableStrings, EveryTranslationHasTheKeysAndPlaceholdersOfTheEnglishTable) {
    Table english = readTable(tableOf("en"));
    for (const std::string &language : languages()) {
        const Table translation = readTable(tableOf(language));
        for (const auto &[key, text] : english) {
            const auto entry = translation.find(key);
            if (entry == translation.end()) {
                ADD_FAILURE() << language << ": " << key << " is missing";
                continue;
            }
            EXPECT_EQ(placeholders(entry->second), placeholders(text)) << language << ": " << key;
            EXPECT_NE(entry->second, "") << language << ": " << key;
            EXPECT_EQ(entry->second.find_first_of("\n\r\t"), std::string::npos)
                << language << ": " << key << " would break the status line it is shown in";
            if (text.ends_with(" - do not translate")) {
                EXPECT_EQ(entry->second, text) << language << ": " << key;
            }
        }
        for (const auto &[key, text] : translation) {
            EXPECT_TRUE(english.contains(key) || key == sharedKey)
                << language << ": " << key << " is used nowhere";
        }
        if (const auto shared = translation.find(sharedKey); shared != translation.end()) {
            EXPECT_EQ(placeholders(shared->second), placeholders("%@")) << language << ": " << sharedKey;
        }
    }
}

TEST(LocalizableStrings, EveryTableBeginsAsMacOSExpectsIt) {
    for (const std::string &language : languages()) {
        EXPECT_THAT(test::readFile(tableOf(language)),
                    testing::StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                        "<plist version=\"1.0\">\n"))
            << language;
    }
}

TEST(LocalizableStrings, TheProductFindsItsTextsInThem) {
    platform::PropertyListBundle bundle({resources()});
    EXPECT_EQ(bundle.localizedStringForKey("DriverCommError", ""), "Unable to communicate with printer");
    for (const std::string &language : languages()) {
        bundle.setPreferredLanguage(language + "_XX.UTF-8");
        for (const auto &[key, text] : readTable(tableOf(language))) {
            EXPECT_EQ(bundle.localizedStringForKey(key, "default"), text) << language << ": " << key;
        }
    }
}

TEST(LocalizableStrings, AGermanUserReadsGerman) {
    platform::PropertyListBundle bundle({resources()});
    bundle.setPreferredLanguage("de_DE.UTF-8");
    VeltrinReverseData data(bundle);
    std::array<std::byte, 64> record{std::byte{'G'}, std::byte{'D'}, std::byte{'I'}, std::byte{'R'}};
    const auto status = [&](std::uint8_t code, std::uint8_t subStatus1, std::uint8_t subStatus2) {
        record[36] = std::byte{code};
        record[37] = std::byte{subStatus1};
        record[59] = std::byte{subStatus2};
        EXPECT_TRUE(data.setData(record));
        std::int32_t severity = 0;
        return data.statusString(severity);
    };
    EXPECT_EQ(status(17, 2, 20), "Papierformat Umschlag Nr. 10 stimmt nicht mit Fach 2 überein");
    EXPECT_EQ(status(19, 0, 7), "Papier Etiketten stimmt nicht überein oder ist unzulässig");
    EXPECT_EQ(status(26, 0, 9), "Papier A4 stimmt nicht überein oder ist unzulässig");
    EXPECT_EQ(status(49, 6, 3), "Kundendienst rufen – Laser: Fehler LD1");
}

struct GermanText {
    std::string key;
    std::string english; // in small letters, without doubled blanks; empty for the shared key
    std::string german;
};

/// What is translated at all.
std::vector<GermanText> germanTexts() {
    Table english = readTable(tableOf("en"));
    std::vector<GermanText> texts;
    for (const auto &[key, german] : readTable(tableOf("de"))) {
        std::string original;
        for (const char character : english[key]) {
            if (character != ' ' || !original.ends_with(' ')) {
                original += character >= 'A' && character <= 'Z' ? static_cast<char>(character + 'a' - 'A')
                                                                 : character;
            }
        }
        if (!original.ends_with(" - do not translate")) {
            texts.push_back({key, original, german});
        }
    }
    EXPECT_GT(texts.size(), 180U);
    return texts;
}

TEST(GermanStrings, HaveOneWordForEachThing) {
    const std::vector<std::pair<std::string, std::string>> terms = {
        {"tray 1", "Fach 1"},
        {"tray 2", "Fach 2"},
        {"tray 4", "Fach 4"},
        {"mp tray", "Mehrzweckfach"},
        {"bypass tray", "Zusatzfach"},
        {"paper size", "Papierformat"},
        {"paper type", "Papierart"},
        {"mismatch", "stimmt nicht "},
        {"mismatch", "überein"},
        {"illegal", "unzulässig"},
        {"duplex", "Duplex"},
        {"jam", "Papierstau"},
        {"misfeed", "(Einzugsfehler)"},
        {"k toner cartridge", "Tonerkartusche K "},
        {"m toner cartridge", "Tonerkartusche M "},
        {"c toner cartridge", "Tonerkartusche C "},
        {"y toner cartridge", "Tonerkartusche Y "},
        {"toner cartridge at end of life", "verbraucht"},
        {"toner cartridge near end of life", "fast verbraucht"},
        {"waste toner box", "Resttonerbehälter"},
        {"fuser", "Fixiereinheit"},
        {"fuser at end of life", "Lebensdauer der Fixiereinheit erreicht"},
        {"fuser near end of life", "Lebensdauer der Fixiereinheit fast erreicht"},
        {"transfer belt", "Transferband"},
        {"transfer belt at end of life", "Lebensdauer des Transferbands erreicht"},
        {"transfer belt near end of life", "Lebensdauer des Transferbands fast erreicht"},
        {"misinstalled", "falsch eingesetzt"},
        {"empty", "leer"},
        {"engine", "Druckwerk"},
        {"controller firmware", "Controller-Firmware"},
        {"firmware download", "Laden der "},
        {"error", "ehler"},
        {"service call", "Kundendienst rufen – "},
        {"communicat", "ommunikation mit dem "},
        {"envelope", "Umschlag"},
        {"postcard", "ostkarte"},
        {"g/m2", " g/m²)"},
    };
    const std::vector<GermanText> texts = germanTexts();
    for (const auto &[english, german] : terms) {
        std::size_t uses = 0;
        for (const GermanText &text : texts) {
            if (text.english.find(english) != std::string::npos) {
                ++uses;
                EXPECT_NE(text.german.find(german), std::string::npos)
                    << text.key << " has another word for \"" << english << "\": " << text.german;
            }
        }
        EXPECT_GT(uses, 0U) << english;
    }
}

/// A text that has slipped to another key names a part that its English text does not.
TEST(GermanStrings, NameNoPartThatTheEnglishTextDoesNot) {
    const std::vector<std::pair<std::string, std::string>> parts = {
        {"Fach 1", "tray 1"},
        {"Fach 2", "tray 2"},
        {"Fach 4", "tray 4"},
        {"Mehrzweckfach", "mp tray"},
        {"Zusatzfach", "bypass"},
        {"Duplex", "duplex"},
        {"Tonerkartusche K ", "k toner cartridge"},
        {"Tonerkartusche M ", "m toner cartridge"},
        {"Tonerkartusche C ", "c toner cartridge"},
        {"Tonerkartusche Y ", "y toner cartridge"},
        {"Resttonerbehälter", "waste toner box"},
        {"Fixiereinheit", "fuser"},
        {"Transferband", "transfer belt"},
        {"Abdeckung", "cover"},
        {"leer", "empty"},
        {"Papierstau", "jam"},
        {"USB", "usb"},
    };
    const std::vector<GermanText> texts = germanTexts();
    for (const auto &[german, english] : parts) {
        std::size_t uses = 0;
        for (const GermanText &text : texts) {
            if (text.german.find(german) != std::string::npos) {
                ++uses;
                EXPECT_NE(text.english.find(english), std::string::npos)
                    << text.key << " tells of " << german << ": " << text.german;
            }
        }
        EXPECT_GT(uses, 0U) << german;
    }
}

TEST(GermanStrings, EndServiceCallsWithTheCodeOfTheError) {
    const Table english = readTable(tableOf("en"));
    std::size_t calls = 0;
    for (const GermanText &text : germanTexts()) {
        if (text.english.starts_with("service call")) {
            ++calls;
            const std::string &original = english.at(text.key);
            const std::string code = original.substr(original.size() - std::string("FA1 Error").size(), 3);
            EXPECT_TRUE(text.german.ends_with(": Fehler " + code)) << text.key << ": " << text.german;
        }
    }
    EXPECT_EQ(calls, 37U);
}

TEST(GermanStrings, SayWhatThePrinterIsDoingByAnInfinitive) {
    std::size_t states = 0;
    for (const GermanText &text : germanTexts()) {
        const std::string firstWord = text.english.substr(0, text.english.find(' '));
        if (firstWord.ends_with("ing") || text.key == "ResetToDefault") {
            ++states;
            EXPECT_TRUE(text.german.substr(0, text.german.find(' ')).ends_with("en"))
                << text.key << ": " << text.german;
        }
        EXPECT_EQ(text.german.find(" wird "), std::string::npos) << text.key << ": " << text.german;
    }
    EXPECT_EQ(states, 12U);
}

TEST(GermanStrings, AreSetAsInPrint) {
    for (const GermanText &text : germanTexts()) {
        for (const char *wrong : {"\"", "'", "...", " - ", "m2", " x ", "  ", "\\U", "!"}) {
            EXPECT_EQ(text.german.find(wrong), std::string::npos) << text.key << ": " << text.german;
        }
        EXPECT_FALSE(text.german.starts_with(' ') || text.german.ends_with(' ') || text.german.ends_with('.'))
            << text.key << ": " << text.german;
        for (std::size_t at = text.german.find("…"); at != std::string::npos;
             at = text.german.find("…", at + 1)) {
            EXPECT_TRUE(text.german.substr(0, at).ends_with(' ')) << text.key << ": " << text.german;
        }
        EXPECT_THAT(text.german, testing::Not(testing::ContainsRegex("[0-9]-[0-9]"))) << text.key;
        EXPECT_THAT(text.german, testing::Not(testing::ContainsRegex("[0-9]g/"))) << text.key;
    }
}

TEST(GermanStrings, KeepClearOfWordsThatMisled) {
    for (const GermanText &text : germanTexts()) {
        for (const char *wrong : {"Servicefall", "passt nicht", "Registerkarte", "Keine Verbindung", "Bitte",
                                  "bitte", "Sie ", " Ihr"}) {
            EXPECT_EQ(text.german.find(wrong), std::string::npos) << text.key << ": " << text.german;
        }
        // A fuser is worn, not used up.
        if (text.german.find("Fixiereinheit") != std::string::npos ||
            text.german.find("Transferband") != std::string::npos) {
            EXPECT_EQ(text.german.find("verbraucht"), std::string::npos) << text.key << ": " << text.german;
        }
        const std::size_t error = text.german.find("ehler");
        EXPECT_TRUE(error == std::string::npos || text.german.find("ehler", error + 1) == std::string::npos)
            << text.key << " names the error twice: " << text.german;
    }
}

TEST(LocalizableStrings, AnEnglishUserReadsBothTextsOfTheSharedKey) {
    platform::PropertyListBundle bundle({resources()});
    bundle.setPreferredLanguage("en_GB.UTF-8");
    EXPECT_EQ(bundle.localizedStringForKey(sharedKey, "Paper type %@ mismatch"), "Paper type %@ mismatch");
    EXPECT_EQ(bundle.localizedStringForKey(sharedKey, "Paper size %@ illegal"), "Paper size %@ illegal");
}

} // namespace
} // namespace veltrin
