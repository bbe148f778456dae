#pragma once

#include "platform/Bundle.h"

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace veltrin::platform {

/// A bundle kept as XML property lists in plain directories: `Info.plist` and
/// `<language>.lproj/Localizable.strings`. The first directory that has an `Info.plist` wins, even if it is
/// damaged; of each string table the first that can be used. Files are read when first asked for and kept,
/// string tables until a language is chosen again.
class PropertyListBundle final : public Bundle {
  public:
    /// Takes one line for the diagnostic log.
    using Report = std::function<void(const std::string &line)>;

    /// `report` is told once of each string table that is there and cannot be used, and of each entry of a
    /// file whose key or text is not UTF-8. Such an entry counts as missing.
    explicit PropertyListBundle(
        std::vector<std::filesystem::path> directories, Report report = [](const std::string &) {});

    [[nodiscard]] std::optional<std::string> objectForInfoDictionaryKey(const std::string &key) override;
    [[nodiscard]] std::optional<std::string> infoDictionaryProblem() override;
    void setPreferredLanguage(const std::string &language) override;
    [[nodiscard]] std::string localizedStringForKey(const std::string &key,
                                                    const std::string &defaultText) override;

  private:
    using Table = std::map<std::string, std::string>;

    void loadInfoDictionary();
    void loadStringTables();
    bool loadStringTable(const std::filesystem::path &path);
    void reportUnusable(const std::filesystem::path &path, const std::vector<std::string> &keys);
    void reportOnce(const std::string &line);

    std::vector<std::filesystem::path> directories;
    Report report;
    std::set<std::string> reported;
    std::string preferredLanguage;

    bool infoDictionaryLoaded = false;
    Table infoDictionary;
    std::optional<std::string> infoProblem;

    bool stringTablesLoaded = false;
    std::vector<Table> stringTables; // in the order they are asked
};

} // namespace veltrin::platform
