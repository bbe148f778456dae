#include "tests/load/StreamCheck.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace veltrin::test {

bool StreamCheck::expect(std::span<const std::byte> bytes) {
    if (!trouble.empty()) {
        return false;
    }
    buffer.resize(std::max(buffer.size(), bytes.size()));
    const auto come = std::span(buffer).first(read(std::span(buffer).first(bytes.size())));
    const auto difference = std::mismatch(come.begin(), come.end(), bytes.begin()).first;
    taken += static_cast<std::uint64_t>(difference - come.begin());
    if (difference != come.end()) {
        trouble = "another byte came at " + std::to_string(count());
    } else if (come.size() < bytes.size()) {
        trouble = "it ended after " + std::to_string(count()) + " bytes";
    }
    return trouble.empty();
}

bool StreamCheck::expectEnd() {
    std::array<std::byte, 1> more{};
    if (trouble.empty() && read(more) != 0) {
        trouble = "more came behind " + std::to_string(count()) + " bytes";
    }
    return trouble.empty();
}

/// Reads so many bytes, less where the stream ends.
std::size_t StreamCheck::read(std::span<std::byte> bytes) const {
    std::size_t count = 0;
    while (count < bytes.size()) {
        const ssize_t got = ::read(descriptor, bytes.data() + count, bytes.size() - count);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            break;
        }
        count += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    return count;
}

} // namespace veltrin::test
