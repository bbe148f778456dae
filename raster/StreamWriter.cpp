#include "raster/StreamWriter.h"

#include <unistd.h>

#include <cerrno>

namespace veltrin::raster {

bool StreamWriter::write(std::span<const std::byte> bytes) const {
    while (!bytes.empty()) {
        const ssize_t wrote = ::write(output, bytes.data(), bytes.size());
        if (wrote == -1 && errno != EINTR) {
            return false;
        }
        if (wrote > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(wrote));
        }
    }
    return true;
}

} // namespace veltrin::raster
