#include "driver/stream/ReadAhead.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace veltrin {

ssize_t ReadAhead::read(int fd, void *buffer, std::size_t size) {
    if (fd != source) {
        forget();
        source = fd;
    }
    if (storage == nullptr) {
        storage.reset(new (std::nothrow) std::byte[capacity]);
    }
    if (storage == nullptr) {
        return ::read(fd, buffer, size);
    }
    if (begin == end) {
        const std::array<iovec, 2> rooms = {iovec{buffer, size}, iovec{storage.get(), capacity}};
        const ssize_t result = readv(fd, rooms.data(), rooms.size());
        if (result <= 0 || static_cast<std::size_t>(result) <= size) {
            return result;
        }
        begin = 0;
        end = static_cast<std::size_t>(result) - size;
        return static_cast<ssize_t>(size);
    }
    const std::size_t count = std::min(size, end - begin);
    std::memcpy(buffer, storage.get() + begin, count);
    begin += count;
    return static_cast<ssize_t>(count);
}

std::span<const std::byte> ReadAhead::kept(int fd) const {
    return fd == source ? std::span(storage.get() + begin, end - begin) : std::span<const std::byte>();
}

void ReadAhead::forget() {
    begin = 0;
    end = 0;
    source = -1;
}

} // namespace veltrin
