#include "driver/PageInput.h"

#include "log/DebugLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace veltrin {

bool InputMemory::allocateDataBuffer(std::int32_t size) {
    const auto bytes = static_cast<std::size_t>(size);
    dataBufferSize = size;
    dataBuffer.reset(); // first, so that the old and the new one are never held together
    dataBuffer.reset(new (std::nothrow) std::byte[bytes]);
    return dataBuffer != nullptr;
}

PageInput::PageInput(const std::string &path, InputMemory &theMemory)
    : memory(theMemory), fd(open(path.c_str(), O_RDONLY)), ownsDescriptor(true) {}

PageInput::~PageInput() {
    if (ownsDescriptor && isOpen()) {
        memory.readAhead.forget(); // the number may be handed out again
        if (fd != STDOUT_FILENO) { // which is the printer's, whatever was opened there
            close(fd);
        }
    }
}

bool PageInput::readFromFD(void *buffer, std::int32_t size) {
    auto *position = static_cast<std::byte *>(buffer);
    std::int32_t missing = size;
    while (true) {
        const auto got =
            static_cast<std::int32_t>(memory.readAhead.read(fd, position, static_cast<std::size_t>(missing)));
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

bool PageInput::readHeader(StreamHeader &header, std::int32_t &size) {
    size = 0;
    if (!readFromFD(header.data(), tagSize)) {
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
    if (!readFromFD(header.data() + tagSize, size - static_cast<std::int32_t>(tagSize))) {
        CPSDebugAssert_("DriverFilter readHeader: Unable to read rest of header");
        return false;
    }
    return true;
}

bool PageInput::readHeaderData(const StreamHeader &header, std::int32_t &size) {
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
    if (length > memory.dataBufferSize || memory.dataBuffer == nullptr) {
        if (!memory.allocateDataBuffer(length)) {
            CPSDebugAssert_("DriverFilter readHeaderData: Unable to allocate larger buffer");
            return false;
        }
    }
    if (!readFromFD(memory.dataBuffer.get(), length)) {
        return false;
    }
    size = length;
    return true;
}

} // namespace veltrin
