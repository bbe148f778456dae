#include "tests/support/NoMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> isThereMemory{true};

} // namespace

// The program's own, in place of the standard library's or a sanitizer's.
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return isThereMemory ? std::malloc(size != 0 ? size : 1) : nullptr;
}

void *operator new(std::size_t size) {
    void *memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept {
    return operator new(size, tag);
}

void *operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void *memory) noexcept {
    std::free(memory);
}

void operator delete(void *memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void *memory) noexcept {
    std::free(memory);
}

void operator delete[](void *memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace veltrin::test {

NoMemory::NoMemory() {
    isThereMemory = false;
}

NoMemory::~NoMemory() {
    isThereMemory = true;
}

} // namespace veltrin::test
