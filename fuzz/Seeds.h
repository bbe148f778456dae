#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace veltrin::fuzz {

/// The folder of one target's seeds.
class SeedFolder {
  public:
    SeedFolder(const std::filesystem::path &seeds, std::string_view target);

    void add(const std::string &name, std::string_view contents) const;

    /// All files below `folder` of this ending, as they are with `lead` in front of each.
    void addFiles(const std::filesystem::path &folder, std::string_view ending,
                  std::string_view lead = {}) const;

  private:
    std::filesystem::path path;
};

/// Where the project's own files lie that seeds are made of.
struct SeedSources {
    std::filesystem::path tree;  ///< the source tree
    std::filesystem::path build; ///< the build tree
};

} // namespace veltrin::fuzz
