#include "backend/OutgoingBlocks.h"

namespace veltrin::backend {

void OutgoingBlocks::write(const Writer &writer) {
    while (!blocks.empty()) {
        platform::HeldNotification &block = *blocks.front();
        const std::size_t rest = block.data().size() - written;
        const std::size_t taken = rest == 0 ? 0 : writer(block, written);
        written += taken;
        if (taken == rest) {
            block.acknowledge();
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
