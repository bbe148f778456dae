#pragma once

#include <optional>
#include <string>

namespace veltrin::platform {

/// What is installed with the program besides its code: the information dictionary (configuration keys of the
/// printer model) and the string tables (translations).
class Bundle {
  public:
    Bundle() = default;
    Bundle(const Bundle &) = delete;
    Bundle &operator=(const Bundle &) = delete;
    virtual ~Bundle() = default;

    /// The text under `key` in the information dictionary. Nothing where there is no dictionary, no such key,
    /// or a value that has no text form; a boolean reads "true" or "false".
    [[nodiscard]] virtual std::optional<std::string> objectForInfoDictionaryKey(const std::string &key) = 0;

    /// Why there is no information dictionary, in words for the log; nothing where there is one.
    [[nodiscard]] virtual std::optional<std::string> infoDictionaryProblem() = 0;

    /// Chooses the language of the texts that are looked up from now on, in the form of the environment
    /// variable LANG ("de_DE.UTF-8").
    virtual void setPreferredLanguage(const std::string &language) = 0;

    /// The text under `key` in the string table of the preferred language, else in the English one, else
    /// `defaultText`, else (where that is empty) the key itself. A value that is not a text, or one that
    /// shows nothing, is none.
    [[nodiscard]] virtual std::string localizedStringForKey(const std::string &key,
                                                            const std::string &defaultText) = 0;
};

} // namespace veltrin::platform
