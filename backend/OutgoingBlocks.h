#pragma once

#include "platform/NotificationCenter.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

namespace veltrin::backend {

/// The filter's blocks on their way to the device, in order. Each is acknowledged when it has gone there
/// whole, which is what lets the filter send another one; those that are dropped have failed.
class OutgoingBlocks {
  public:
    using Block = std::unique_ptr<platform::HeldNotification>;

    /// Takes bytes of the block from this one on, of which there are some, perhaps not all of them, and
    /// returns how many.
    using Writer = std::function<std::size_t(platform::HeldNotification &block, std::size_t from)>;

    void add(Block block) { blocks.push_back(std::move(block)); }

    [[nodiscard]] bool isEmpty() const { return blocks.empty(); }

    /// Writes until the writer takes no more.
    void write(const Writer &writer);

    void drop();

  private:
    std::deque<Block> blocks;
    std::size_t written = 0; // of the first one
};

} // namespace veltrin::backend
