#pragma once

#include <cstdint>
#include <string>

namespace veltrin::bench {

inline constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;

/// A directory for inputs, spool files and outputs, removed at the end. Temporary files of the programs that
/// are measured go there as well.
class WorkDirectory {
  public:
    /// Throws std::system_error where there can be none.
    WorkDirectory();
    WorkDirectory(const WorkDirectory &) = delete;
    WorkDirectory &operator=(const WorkDirectory &) = delete;
    ~WorkDirectory();

    [[nodiscard]] std::string file(const std::string &name) const { return path + "/" + name; }

  private:
    std::string path;
};

/// A page stream in a file, removed at the end.
class InputFile {
  public:
    /// Throws std::system_error where the file cannot be written.
    InputFile(const WorkDirectory &directory, std::uint32_t pages, std::uint32_t bandsPerPage,
              std::uint32_t bandSize);
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    ~InputFile();

    [[nodiscard]] const std::string &path() const { return name; }

  private:
    std::string name;
};

} // namespace veltrin::bench
