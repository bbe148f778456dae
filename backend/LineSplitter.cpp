#include "backend/LineSplitter.h"

#include <utility>

namespace veltrin::backend {

void LineSplitter::take(std::span<const std::byte> bytes) {
    for (const std::byte byte : bytes) {
        const char c = static_cast<char>(byte);
        if (c == '\n') {
            taker(std::exchange(line, {}));
            continue;
        }
        line += c;
        if (line.size() == longestLine) {
            finish();
        }
    }
}

void LineSplitter::finish() {
    if (!line.empty()) {
        taker(std::exchange(line, {}));
    }
}

} // namespace veltrin::backend
