#include "platform/linux/PropertyListBundle.h"

#include "platform/posix/LanguageFallback.h"

#include <plist/plist.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <locale>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace veltrin::platform {

namespace {

using PropertyList = std::unique_ptr<void, decltype(&plist_free)>;

/// Far more than any real table needs. It also bounds how deep a file can nest: the parser's recursion takes
/// some 50 bytes of stack for each 7 of a file that does nothing else, half a mebibyte in all.
constexpr std::uintmax_t largestFile = std::uintmax_t{64} * 1024;

std::optional<std::string> readSmallFile(const std::filesystem::path &path, std::string &problem) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (error) {
        problem = "cannot be read: " + error.message();
        return std::nullopt;
    }
    // A pipe or a device at the name would be waited for; only plain files hold tables.
    if (!std::filesystem::is_regular_file(status)) {
        problem = "is not a file";
        return std::nullopt;
    }
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        problem = "cannot be read: " + error.message();
        return std::nullopt;
    }
    if (size > largestFile) {
        problem = "is larger than 64 KiB";
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string contents(static_cast<std::size_t>(size), '\0');
    file.read(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!file.is_open() || file.bad()) {
        problem = "cannot be read: " + std::generic_category().message(errno);
        return std::nullopt;
    }
    contents.resize(static_cast<std::size_t>(file.gcount()));
    return contents;
}

/// Null where the document is not well-formed.
PropertyList parse(std::string_view document) {
    // Some editors put one in front of UTF-8; the parser takes it for text before the first tag.
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (document.starts_with(byteOrderMark)) {
        document.remove_prefix(byteOrderMark.size());
    }
    plist_t root = nullptr;
    plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &root);
    return {root, plist_free};
}

/// The text form of a value in a dictionary; nothing where it has none.
using TextForm = std::optional<std::string> (*)(plist_t value);

std::optional<std::string> stringIn(plist_t value) {
    if (plist_get_node_type(value) != PLIST_STRING) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(value, &length);
    return text != nullptr ? std::string(text, length) : std::string();
}

/// A configuration value: a string as it stands, a boolean as "true" or "false".
std::optional<std::string> configurationValue(plist_t value) {
    if (plist_get_node_type(value) != PLIST_BOOLEAN) {
        return stringIn(value);
    }
    std::uint8_t flag = 0;
    plist_get_bool_val(value, &flag);
    return flag != 0 ? "true" : "false";
}

/// A text for people: a string that shows something. An empty one would be a status line that says nothing.
std::optional<std::string> visibleText(plist_t value) {
    std::optional<std::string> text = stringIn(value);
    if (text && text->find_first_not_of(" \t\r\n") == std::string::npos) {
        text.reset();
    }
    return text;
}

/// Whether a text may be passed on as UTF-8 and as a C string, which the parser leaves to its caller:
/// well-formed and without a zero byte.
bool isPlainUtf8(std::string_view text) {
    using Decoder = std::codecvt<char32_t, char8_t, std::mbstate_t>;
    const std::u8string bytes(text.begin(), text.end());
    std::u32string characters(bytes.size(), U'\0'); // no more of them than bytes
    const char8_t *read = nullptr;
    char32_t *decoded = nullptr;
    std::mbstate_t state{};
    const auto result = std::use_facet<Decoder>(std::locale::classic())
                            .in(state, bytes.data(), bytes.data() + bytes.size(), read, characters.data(),
                                characters.data() + characters.size(), decoded);
    // Not every version of the standard library takes half of a surrogate pair for an error.
    const auto isNoText = [](char32_t character) {
        return character == 0 || (character >= 0xD800 && character <= 0xDFFF);
    };
    return result == Decoder::ok && std::none_of(characters.data(), decoded, isNoText);
}

/// A key as the log can show it, for it may be no text.
std::string shown(std::string_view key) {
    std::string text(key);
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
    return text;
}

/// The entries of a dictionary whose values have a text form, and the keys, in a form for the log, of those
/// whose text is none.
struct Dictionary {
    std::map<std::string, std::string> table;
    std::vector<std::string> unusable;
};

/// Reads a property list whose root is a dictionary. Nothing with `problem` set where there is none to be
/// had.
std::optional<Dictionary> readDictionary(const std::filesystem::path &path, TextForm textOf,
                                         std::string &problem) {
    const std::optional<std::string> contents = readSmallFile(path, problem);
    if (!contents) {
        return std::nullopt;
    }
    const PropertyList owner = parse(*contents);
    plist_t root = owner.get();
    if (root == nullptr || plist_get_node_type(root) != PLIST_DICT) {
        problem = "is not an XML property list with a dictionary";
        return std::nullopt;
    }

    Dictionary dictionary;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root, &iterator);
    const std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, std::free);
    while (true) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(root, iterator, &key, &value);
        const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, std::free);
        if (key == nullptr || value == nullptr) {
            return dictionary;
        }
        std::optional<std::string> text = textOf(value);
        if (!text) {
            continue;
        }
        if (isPlainUtf8(key) && isPlainUtf8(*text)) {
            dictionary.table.insert_or_assign(key, std::move(*text));
        } else {
            dictionary.unusable.push_back(shown(key));
        }
    }
}

} // namespace

PropertyListBundle::PropertyListBundle(std::vector<std::filesystem::path> theDirectories, Report theReport)
    : directories(std::move(theDirectories)), report(std::move(theReport)) {}

void PropertyListBundle::loadInfoDictionary() {
    if (std::exchange(infoDictionaryLoaded, true)) {
        return;
    }
    for (const std::filesystem::path &directory : directories) {
        const std::filesystem::path path = directory / "Info.plist";
        std::error_code error;
        if (!std::filesystem::exists(path, error)) {
            continue;
        }
        std::string problem;
        if (auto dictionary = readDictionary(path, configurationValue, problem)) {
            infoDictionary = std::move(dictionary->table);
            reportUnusable(path, dictionary->unusable);
        } else {
            infoProblem = path.string() + " " + problem;
        }
        return;
    }
    infoProblem = "there is no Info.plist";
    for (const std::filesystem::path &directory : directories) {
        *infoProblem += (&directory == &directories.front() ? " in " : " or ") + directory.string();
    }
}

std::optional<std::string> PropertyListBundle::objectForInfoDictionaryKey(const std::string &key) {
    loadInfoDictionary();
    const auto entry = infoDictionary.find(key);
    return entry != infoDictionary.end() ? std::optional(entry->second) : std::nullopt;
}

std::optional<std::string> PropertyListBundle::infoDictionaryProblem() {
    loadInfoDictionary();
    return infoProblem;
}

void PropertyListBundle::setPreferredLanguage(const std::string &language) {
    preferredLanguage = language;
    stringTablesLoaded = false;
    stringTables.clear();
}

void PropertyListBundle::loadStringTables() {
    if (std::exchange(stringTablesLoaded, true)) {
        return;
    }
    for (const std::string &language : languagesToTry(preferredLanguage)) {
        for (const std::filesystem::path &directory : directories) {
            if (loadStringTable(directory / (language + ".lproj") / "Localizable.strings")) {
                break;
            }
        }
    }
}

/// Adds one table to those that are asked. False where there is none, or none that can be used.
bool PropertyListBundle::loadStringTable(const std::filesystem::path &path) {
    std::error_code error;
    if (std::filesystem::status(path, error).type() == std::filesystem::file_type::not_found) {
        return false;
    }
    std::string problem;
    auto dictionary = readDictionary(path, visibleText, problem);
    if (!dictionary) {
        reportOnce("no string table: " + path.string() + " " + problem);
        return false;
    }
    stringTables.push_back(std::move(dictionary->table));
    reportUnusable(path, dictionary->unusable);
    return true;
}

void PropertyListBundle::reportUnusable(const std::filesystem::path &path,
                                        const std::vector<std::string> &keys) {
    for (const std::string &key : keys) {
        reportOnce("no entry \"" + key + "\": " + path.string() + " holds text there that is not UTF-8");
    }
}

void PropertyListBundle::reportOnce(const std::string &line) {
    if (reported.insert(line).second) {
        report(line);
    }
}

std::string PropertyListBundle::localizedStringForKey(const std::string &key,
                                                      const std::string &defaultText) {
    loadStringTables();
    for (const Table &table : stringTables) {
        if (const auto entry = table.find(key); entry != table.end()) {
            return entry->second;
        }
    }
    return defaultText.empty() ? key : defaultText;
}

} // namespace veltrin::platform
