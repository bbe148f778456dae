#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace veltrin::fuzz {

/// A file in memory, to read or to write.
class MemoryFile {
  public:
    explicit MemoryFile(std::span<const std::byte> contents = {});
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile();

    [[nodiscard]] int descriptor() const { return fd; }

    /// Under which it can be opened anew, from its beginning.
    [[nodiscard]] std::string path() const;

    [[nodiscard]] std::string contents() const;

  private:
    int fd;
};

/// Puts a memory file in the place of a standard descriptor for as long as it lives.
class Caught {
  public:
    explicit Caught(int theNumber);
    Caught(const Caught &) = delete;
    Caught &operator=(const Caught &) = delete;
    ~Caught();

    [[nodiscard]] std::string text() const { return file.contents(); }

  private:
    MemoryFile file;
    int number;
    int kept;
};

/// How many descriptors the process has open.
[[nodiscard]] std::size_t openDescriptors();

} // namespace veltrin::fuzz
