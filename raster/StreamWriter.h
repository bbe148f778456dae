#pragma once

#include <cstddef>
#include <span>

namespace veltrin::raster {

/// Writes to a descriptor, which stays the caller's to close, as much as it is given.
class StreamWriter {
  public:
    explicit StreamWriter(int fd) : output(fd) {}

    /// False with `errno` set where the rest cannot be written.
    [[nodiscard]] bool write(std::span<const std::byte> bytes) const;

    /// A header as it stands on the wire.
    template <typename Header>
    [[nodiscard]] bool writeHeader(const Header &header) const {
        return write(std::as_bytes(std::span(&header, 1)));
    }

  private:
    int output;
};

} // namespace veltrin::raster
