#pragma once

#include "platform/Bundle.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace veltrin::platform {

/// A bundle kept as XML property lists in plain directories: `Info.plist` and
/// `<language>.lproj/Localizable.strings`. The first directory that has a file wins. Files are read when
/// first asked for and kept.
class PropertyListBundle final : public Bundle {
  public:
    explicit PropertyListBundle(std::vector<std::filesystem::path> directories);

    [[nodiscard]] std::optional<std::string> objectForInfoDictionaryKey(const std::string &key) override;
    [[nodiscard]] std::optional<std::string> infoDictionaryProblem() override;
    void setPreferredLanguage(const std::string &language) override;
    [[nodiscard]] std::string localizedStringForKey(const std::string &key,
                                                    const std::string &defaultText) override;

  private:
    using Table = std::map<std::string, std::string>;

    void loadInfoDictionary();
    void loadStringTables();

    std::vector<std::filesystem::path> directories;
    std::string preferredLanguage;

    bool infoDictionaryLoaded = false;
    Table infoDictionary;
    std::optional<std::string> infoProblem;

    bool stringTablesLoaded = false;
    std::vector<Table> stringTables; // in the order they are asked
};

} // namespace veltrin::platform
