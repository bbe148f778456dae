#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <span>

namespace veltrin {

/// Reads a descriptor in large pieces and hands the bytes out in small ones: a page stream is mostly small
/// headers, and a system call for each would cost more than the data.
///
/// It never waits for more than was asked for, of a file, a pipe or a socket: the spare room is only offered
/// to the system along with the request. (For a device whose driver takes one room at a time the system asks
/// it twice, and may wait the second time.) What is left in the room when the reader stops is lost to whoever
/// reads the descriptor after it. The room is taken at the first read; where there is none to be had, it
/// reads as read(2) does.
class ReadAhead {
  public:
    /// Like read(2): stores up to `size` bytes and returns their number, 0 at the end of the input, or -1
    /// with `errno` set. Bytes kept of another descriptor are dropped first.
    [[nodiscard]] ssize_t read(int fd, void *buffer, std::size_t size);

    /// What has been read ahead of `fd` and is still kept.
    [[nodiscard]] std::span<const std::byte> kept(int fd) const;

    /// Takes the first `size` of the bytes kept as read.
    void skip(std::size_t size) { begin += size; }

    /// Drops what is kept; to be called where a descriptor is closed, since its number may be handed out
    /// again.
    void forget();

  private:
    /// Small enough to be still in the processor's cache when it is written.
    static constexpr std::size_t capacity = std::size_t{128} * 1024;

    std::unique_ptr<std::byte[]> storage;
    std::size_t begin = 0;
    std::size_t end = 0;
    int source = -1;
};

} // namespace veltrin
