// CUPSFilter: the job's options, the printer model's configuration keys, and the language of its texts.

#include "filter/CUPSFilter.h"
#include "filter/DuplexPaperRule.h"
#include "filter/OptionValues.h"
#include "log/DebugLog.h"

#include <cups/cups.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace veltrin {

void CUPSFilter::setupCFLanguage() {
    const char *language = std::getenv("LANG");
    if (language == nullptr) {
        CPSDebugLog("LANG environment variable missing.");
        return;
    }
    platform.bundle().setPreferredLanguage(language);
    CPSDebugLog("AppleLanguages = \"%s\"", language);
}

void CUPSFilter::loadOptions() {
    constexpr int optionsArgument = 5;
    optionsDict.clear();
    // argv ends with a null pointer at argc; nothing behind that may be looked at.
    if (argc < optionsArgument) {
        return;
    }
    cups_option_t *options = nullptr;
    const int count = cupsParseOptions(argv[optionsArgument], 0, &options);
    const auto release = [count](cups_option_t *parsed) { cupsFreeOptions(count, parsed); };
    const std::unique_ptr<cups_option_t, decltype(release)> owner(options, release);
    for (int i = 0; i < count; ++i) {
        const char *name = options[i].name;
        const char *value = options[i].value != nullptr ? options[i].value : "";
        optionsDict.insert_or_assign(name, value);
        CPSDebugLog("Option %s = %s", name, value);
    }
}

std::optional<std::string> CUPSFilter::stringForOption(const std::string &name) const {
    const auto option = optionsDict.find(name);
    return option != optionsDict.end() ? std::optional(option->second) : std::nullopt;
}

std::int32_t CUPSFilter::intForOption(const std::string &name) const {
    return integerValue(stringForOption(name).value_or(""));
}

bool CUPSFilter::boolForOption(const std::string &name) const {
    return booleanValue(stringForOption(name).value_or(""));
}

bool CUPSFilter::canDuplexPaperSize() const {
    return canDuplexPaper(stringForOption("media"), stringForOption("PaperType"));
}

std::optional<std::string> CUPSFilter::objectForInfoDictionaryKey(const char *key) {
    if (!std::exchange(dictionaryProblemLogged, true)) {
        if (const std::optional<std::string> problem = platform.bundle().infoDictionaryProblem()) {
            CPSDebugAssert_("CUPSFilter: no information dictionary: %s", problem->c_str());
        }
    }
    return platform.bundle().objectForInfoDictionaryKey(key);
}

std::optional<std::string> CUPSFilter::stringForPPDAttr(const char *key) {
    std::optional<std::string> value = objectForInfoDictionaryKey(key);
    if (!value) {
        CPSDebugAssert_("CUPSFilter stringForPPDAttr: failed to get value for PPD attr %s", key);
    }
    return value;
}

bool CUPSFilter::boolForPPDAttr(const char *key) {
    return booleanValue(stringForPPDAttr(key).value_or(""));
}

} // namespace veltrin
