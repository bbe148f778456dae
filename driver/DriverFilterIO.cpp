// DriverFilter: reading and writing the page stream.

#include "driver/DriverFilter.h"
#include "log/DebugLog.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <span>

namespace veltrin {

namespace {

/// Writes until everything is written or a write fails, and returns the number of bytes written.
std::size_t writeUntilFailure(int fd, std::span<const std::byte> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t put = write(fd, &bytes[written], bytes.size() - written);
        if (put < 0) {
            break;
        }
        written += static_cast<std::size_t>(put);
    }
    return written;
}

/// Reports that a write has failed with this many bytes of a header or of its data still missing.
void reportFailedWrite(std::size_t missing) {
    CPSDebugAssert_("DriverFilter writeToFD: Unable to write all of data. Wanted %d bytes, got %d bytes",
                    static_cast<std::int32_t>(missing), -1);
}

} // namespace

bool DriverFilter::readFromFD(int fd, void *buffer, std::int32_t size) {
    auto *position = static_cast<std::byte *>(buffer);
    std::int32_t missing = size;
    while (true) {
        const auto got =
            static_cast<std::int32_t>(readAhead.read(fd, position, static_cast<std::size_t>(missing)));
        if (got == 0) {
            CPSDebugAssert_("DriverFilter readFromFD: Wanted %d bytes, got %d bytes. EOF hit", missing, got);
            return false;
        }
        if (got < 0) {
            CPSDebugAssert_("DriverFilter readFromFD: Wanted %d bytes, got %d bytes. Error: %s", missing, got,
                            std::strerror(errno));
            return false;
        }
        position += got;
        missing -= got;
        if (missing == 0) {
            return true;
        }
    }
}

bool DriverFilter::goesToChannel(int fd) const {
    return fd == STDOUT_FILENO && ipc != nullptr;
}

bool DriverFilter::writeToFD(int fd, const void *buffer, std::int32_t size) {
    const std::span<const std::byte> bytes(static_cast<const std::byte *>(buffer),
                                           static_cast<std::size_t>(size));
    if (goesToChannel(fd)) {
        // Nothing goes to standard output then, not even what the channel refuses.
        if (ipc->sendData(bytes)) {
            return true;
        }
    } else {
        const std::size_t written = writeUntilFailure(fd, bytes);
        if (written == bytes.size()) {
            return true;
        }
        reportFailedWrite(bytes.size() - written);
    }
    postCommunicationError();
    return false;
}

Written DriverFilter::writeHeaderAndData(int fd, const StreamHeader &header, std::int32_t headerSize,
                                         std::int32_t dataSize) {
    if (headerSize != 0 && !writeToFD(fd, header.data(), headerSize)) {
        return Written::headerFailed;
    }
    if (dataSize != 0 && !writeToFD(fd, dataBuffer.get(), dataSize)) {
        return Written::dataFailed;
    }
    return Written::all;
}

Written DriverFilter::writeBandRun(int fd, const BandRun &run, std::span<const std::byte> stream) {
    const std::size_t written = writeUntilFailure(fd, stream.first(run.size));
    if (written == run.size) {
        return Written::all;
    }
    const BandExtent struck = bandAround(stream, written);
    const bool inHeader = written < struck.headerEnd;
    reportFailedWrite((inHeader ? struck.headerEnd : struck.dataEnd) - written);
    postCommunicationError();
    return inHeader ? Written::headerFailed : Written::dataFailed;
}

void DriverFilter::postCommunicationError() {
    postCUPSStatus(
        2, platform.bundle().localizedStringForKey("DriverCommError", "Unable to communicate with printer"));
}

bool DriverFilter::readHeader(StreamHeader &header, std::int32_t &size, int fromFD) {
    size = 0;
    if (!readFromFD(fromFD, header.data(), tagSize)) {
        CPSDebugAssert_("DriverFilter readHeader: Unable to read header tag");
        return false;
    }
    const Tag tag = header.tag();
    const std::optional<std::size_t> headerSize = headerSizeOf(tag);
    if (!headerSize) {
        const std::byte *bytes = header.data();
        CPSDebugAssert_("DriverFilter readHeader: Unknown header tag (%c%c%c%c)",
                        std::to_integer<int>(bytes[0]), std::to_integer<int>(bytes[1]),
                        std::to_integer<int>(bytes[2]), std::to_integer<int>(bytes[3]));
        return false;
    }
    size = static_cast<std::int32_t>(*headerSize);
    if (tag == endOfJobTag) {
        return true;
    }
    if (!readFromFD(fromFD, header.data() + tagSize, size - static_cast<std::int32_t>(tagSize))) {
        CPSDebugAssert_("DriverFilter readHeader: Unable to read rest of header");
        return false;
    }
    return true;
}

/// Replaces the data buffer by one of `size` bytes. A failure leaves none, under the new size.
bool DriverFilter::allocateDataBuffer(std::int32_t size) {
    const auto bytes = static_cast<std::size_t>(size);
    dataBufferSize = size;
    dataBuffer.reset(); // first, so that the old and the new one are never held together
    dataBuffer.reset(new (std::nothrow) std::byte[bytes]);
    return dataBuffer != nullptr;
}

bool DriverFilter::readHeaderData(const StreamHeader &header, std::int32_t &size, int fromFD) {
    size = 0;
    const std::int32_t length = header.tag() == bandHeaderTag ? header.as<BandHeader>().dataSize() : 0;
    if (length < 0) {
        CPSDebugAssert_("DriverFilter readHeaderData: Impossible data size %d", length);
        return false;
    }
    if (length == 0) {
        return true;
    }
    // After a failed allocation there is no buffer, whatever its size says; a later page may need a smaller
    // one.
    if (length > dataBufferSize || dataBuffer == nullptr) {
        if (!allocateDataBuffer(length)) {
            CPSDebugAssert_("DriverFilter readHeaderData: Unable to allocate larger buffer");
            return false;
        }
    }
    if (!readFromFD(fromFD, dataBuffer.get(), length)) {
        return false;
    }
    size = length;
    return true;
}

} // namespace veltrin
