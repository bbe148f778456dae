#pragma once

#include "driver/stream/PageStream.h"
#include "driver/stream/ReadAhead.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace veltrin {

/// The memory that one page input after another reads through, so that thousands of spool files need no more
/// of it than one.
struct InputMemory {
    ReadAhead readAhead;

    /// Room for the data of one band; grows to what the largest needs. Null after an allocation has failed.
    std::unique_ptr<std::byte[]> dataBuffer;
    std::int64_t dataBufferSize = 0; ///< in bytes

    /// Replaces the data buffer by one of `size` bytes. False where they cannot be had; then there is none,
    /// under the new size.
    [[nodiscard]] bool allocateDataBuffer(std::int32_t size);
};

/// An open file with a page stream: the job's input, or one spooled page.
///
/// All methods that return a boolean return true on success; a failure is logged where it is found.
class PageInput {
  public:
    /// Reads a descriptor that is somebody else's to close. What has been read ahead of it stays in the
    /// memory for the next object that reads it.
    PageInput(int theFd, InputMemory &theMemory) : memory(theMemory), fd(theFd) {}

    /// Opens a spooled page's file.
    PageInput(const std::string &path, InputMemory &memory);

    PageInput(const PageInput &) = delete;
    PageInput &operator=(const PageInput &) = delete;

    /// Closes what it has opened.
    ~PageInput();

    [[nodiscard]] bool isOpen() const { return fd != -1; }

    /// Reads exactly `size` bytes.
    [[nodiscard]] bool readFromFD(void *buffer, std::int32_t size);

    /// Reads one header. `size` becomes its size in bytes; 0 where no known tag could be read.
    [[nodiscard]] bool readHeader(StreamHeader &header, std::int32_t &size);

    /// Reads the data that belongs to `header`, which `data` then gives. `size` becomes their size in bytes;
    /// 0 on failure.
    [[nodiscard]] bool readHeaderData(const StreamHeader &header, std::int32_t &size);

    /// What `readHeaderData` has read last, until the next time.
    [[nodiscard]] const std::byte *data() const { return memory.dataBuffer.get(); }

    /// What has been read ahead.
    [[nodiscard]] std::span<const std::byte> kept() const { return memory.readAhead.kept(fd); }

    /// Takes the first `size` of the bytes read ahead as read.
    void skip(std::size_t size) { memory.readAhead.skip(size); }

  private:
    InputMemory &memory;
    int fd;
    bool ownsDescriptor = false;
};

} // namespace veltrin
