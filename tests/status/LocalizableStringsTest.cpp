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
    EXPECT_EQ(status(17, 2, 20), "Papierformat Umschlag 10 passt nicht zu Fach 2");
    EXPECT_EQ(status(19, 0, 7), "Papier Etiketten passt nicht");
    EXPECT_EQ(status(26, 0, 9), "Papier A4 passt nicht");
    EXPECT_EQ(status(49, 6, 3), "Servicefall - Laserfehler - Fehler LD1");
}

TEST(LocalizableStrings, AnEnglishUserReadsBothTextsOfTheSharedKey) {
    platform::PropertyListBundle bundle({resources()});
    bundle.setPreferredLanguage("en_GB.UTF-8");
    EXPECT_EQ(bundle.localizedStringForKey(sharedKey, "Paper type %@ mismatch"), "Paper type %@ mismatch");
    EXPECT_EQ(bundle.localizedStringForKey(sharedKey, "Paper size %@ illegal"), "Paper size %@ illegal");
}

} // namespace
} // namespace veltrin
