#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::test {

/// The whole file; a file that cannot be read fails the running test and reads as empty.
[[nodiscard]] std::string readFile(const std::filesystem::path &path);

/// Writes the whole file, with the directories on its way; fails the running test where that cannot be done.
void writeFile(const std::filesystem::path &path, const std::string &contents);

/// The names in a directory, sorted; none where there is no such directory.
[[nodiscard]] std::vector<std::string> namesIn(const std::filesystem::path &directory);

/// The lines of a text, each without its newline.
[[nodiscard]] std::vector<std::string> linesOf(const std::string &text);

} // namespace veltrin::test
