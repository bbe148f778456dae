// What the filter reads of its bundle. The input: a line with the language, and a file that is information
// dictionary, table of that language and English table at once.

#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "platform/linux/PropertyListBundle.h"
#include "platform/posix/LanguageFallback.h"
#include "tests/support/Files.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::fuzz {

namespace {

constexpr const char *directory = "/tmp/bundle";

/// By another way than the product's own: no more than the shape of the bytes.
bool isUtf8(std::string_view text) {
    std::size_t following = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool follows = (byte & 0xC0U) == 0x80;
        if (byte == 0 || follows != (following > 0) || byte >= 0xF5 || byte == 0xC0 || byte == 0xC1) {
            return false;
        }
        following = follows ? following - 1 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
    }
    return following == 0;
}

bool isLine(const std::string &text) {
    return text.find('\n') == std::string::npos;
}

/// Keys that the product asks for, and those that stand in the file.
std::vector<std::string> keysIn(const std::string &file) {
    std::vector<std::string> keys = {"VeltrinDuplexOrder", "VeltrinManualDuplex", "CUPSFileHeader",
                                     "DriverCommError"};
    constexpr std::string_view tag = "<key>";
    for (auto at = file.find(tag); at != std::string::npos && keys.size() < 40; at = file.find(tag, at + 1)) {
        const auto begin = at + tag.size();
        keys.push_back(file.substr(begin, file.find('<', begin) - begin));
    }
    return keys;
}

void requireTexts(platform::PropertyListBundle &bundle, const std::vector<std::string> &keys) {
    const bool hasDictionary = !bundle.infoDictionaryProblem();
    for (const std::string &key : keys) {
        const auto value = bundle.objectForInfoDictionaryKey(key);
        require(!value || hasDictionary, "what there is no dictionary for has no value");
        require(!value || isUtf8(*value), "a value is text");
        const std::string text = bundle.localizedStringForKey(key, "default");
        require(text == "default" || isUtf8(text), "a translation is text");
        require(text.find_first_not_of(" \t\r\n") != std::string::npos, "a translation shows something");
        require(bundle.objectForInfoDictionaryKey(key) == value, "a value stays as it is");
    }
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::string language = input.line();
    const std::string file = input.remainingText();
    if (language.find('\0') != std::string::npos) {
        return 0; // no variable of an environment holds one
    }
    const std::vector<std::string> languages = platform::languagesToTry(language);
    require(std::set<std::string>(languages.begin(), languages.end()).size() == languages.size() &&
                std::find(languages.begin(), languages.end(), "en") != languages.end(),
            "every language is tried once, and English is among them");
    for (const std::string &one : languages) {
        require(!one.empty() && one.find('/') == std::string::npos && one.front() != '.' && one.size() < 250,
                "no language leads out of the bundle");
    }

    const std::filesystem::path folder(directory);
    test::writeFile(folder / "Info.plist", file);
    test::writeFile(folder / "en.lproj" / "Localizable.strings", file);
    const std::size_t descriptors = openDescriptors();
    std::vector<std::string> reports;
    {
        platform::PropertyListBundle bundle({folder},
                                            [&reports](const std::string &line) { reports.push_back(line); });
        bundle.setPreferredLanguage(language);
        requireTexts(bundle, keysIn(file));
        const bool isUsable = !bundle.infoDictionaryProblem();
        require(isUsable || !reports.empty(), "a table that cannot be used is reported");
        require(isLine(bundle.infoDictionaryProblem().value_or("")), "a problem is told of in one line");
    }
    require(std::all_of(reports.begin(), reports.end(), isLine), "a report is one line");
    require(std::set<std::string>(reports.begin(), reports.end()).size() == reports.size(),
            "nothing is reported twice");
    require(openDescriptors() == descriptors, "every file is closed");
    return 0;
}
