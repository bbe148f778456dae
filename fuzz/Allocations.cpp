#include "fuzz/Allocations.h"

#include <cstddef>
#include <new>
#include <utility>

namespace veltrin::fuzz {

namespace {

constexpr std::size_t largest = std::size_t{64} * 1024 * 1024;

std::function<bool()> &decision() {
    static std::function<bool()> function;
    return function;
}

} // namespace

Allocations::Allocations(std::function<bool()> succeeds) {
    decision() = std::move(succeeds);
}

Allocations::~Allocations() {
    decision() = nullptr;
}

} // namespace veltrin::fuzz

void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    using namespace veltrin::fuzz;
    if (size > largest || (decision() && !decision()())) {
        return nullptr;
    }
    return ::operator new[](size);
}
