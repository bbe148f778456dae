#pragma once

#include <functional>

namespace veltrin::fuzz {

/// Decides, while it lives, which of the allocations succeed that the product makes prepared for none (those
/// with std::nothrow). Linked into a target, this file refuses those of more than 64 MiB in any case: what a
/// stream announces is not what a machine has to have.
class Allocations {
  public:
    explicit Allocations(std::function<bool()> succeeds);
    Allocations(const Allocations &) = delete;
    Allocations &operator=(const Allocations &) = delete;
    ~Allocations();
};

} // namespace veltrin::fuzz
