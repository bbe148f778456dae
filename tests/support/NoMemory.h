#pragma once

namespace veltrin::test {

/// As long as the object lives, `operator new` has no memory for this process.
class NoMemory {
  public:
    NoMemory();
    NoMemory(const NoMemory &) = delete;
    NoMemory &operator=(const NoMemory &) = delete;
    ~NoMemory();
};

} // namespace veltrin::test
