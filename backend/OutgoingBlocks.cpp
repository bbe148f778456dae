#include "backend/OutgoingBlocks.h"

namespace veltrin::backend {

void OutgoingBlocks::write(const Writer &writer) {
    while (!blocks.empty()) {
        const std::span<const std::byte> rest = blocks.front()->data().subspan(written);
        const std::size_t taken = rest.empty() ? 0 : writer(rest);
        written += taken;
        if (taken == rest.size()) {
            blocks.front()->acknowledge();
            blocks.pop_front();
            written = 0;
        } else if (taken == 0) {
            return;
        }
    }
}

void OutgoingBlocks::drop() {
    blocks.clear();
    written = 0;
}

} // namespace veltrin::backend
