#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace veltrin::printer {

/// A file that is written piece by piece; the first failure is kept.
class OutputFile {
  public:
    enum class Links { followed, refused };

    /// Opens the file, or makes it. Without a name there is nothing to write, and nothing fails. What is in
    /// it may be somebody else's until `drop()`.
    explicit OutputFile(const std::string &path, Links links = Links::followed);

    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    ~OutputFile() { close(); }

    /// Empties it.
    void drop();

    void write(std::span<const std::byte> bytes);
    void close();

    /// The system's number of what went wrong, or 0.
    [[nodiscard]] int error() const { return failure; }

  private:
    int fd = -1;
    int failure = 0;
};

} // namespace veltrin::printer
