#pragma once

#include "platform/Bundle.h"
#include "platform/apple/ReleasePool.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

// For Objective-C++ alone.

namespace veltrin::platform {

/// The program's own bundle, as the system finds it. A program that lies in none has the files beside it, as
/// in a build tree.
class FoundationBundle final : public Bundle {
  public:
    using Report = std::function<void(const std::string &line)>;

    /// `report` is told once of each string table that is there and cannot be read.
    explicit FoundationBundle(Report theReport);

    [[nodiscard]] std::optional<std::string> objectForInfoDictionaryKey(const std::string &key) override;
    [[nodiscard]] std::optional<std::string> infoDictionaryProblem() override;
    void setPreferredLanguage(const std::string &language) override;
    [[nodiscard]] std::string localizedStringForKey(const std::string &key,
                                                    const std::string &defaultText) override;

  private:
    [[nodiscard]] std::optional<std::string> textFor(const std::string &key);
    [[nodiscard]] NSDictionary *tableIn(const std::string &language);

    Report report;
    NSBundle *bundle; ///< never let go of: GNUstep waits for itself when it frees one that was looked into
    std::string preferredLanguage;
    std::map<std::string, Retained<NSDictionary *>> tables; ///< by language, nil where there is none
};

} // namespace veltrin::platform
