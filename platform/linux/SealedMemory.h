#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <span>

namespace veltrin::platform {

/// Copies the bytes into a new memory file that nobody can change any more. Returns a descriptor that is
/// closed on exec, or the negative error number.
[[nodiscard]] int makeSealedMemory(std::span<const std::byte> bytes);

/// The whole content of a memory file whose maker has given up changing it, so that it can be read in place:
/// it neither changes nor shrinks under the reader's hands.
class SealedMemory {
  public:
    /// Maps the file. Nothing where the descriptor is not one of a memory file sealed against writing,
    /// growing and shrinking. The descriptor remains the caller's; only `writeTo` still needs it.
    [[nodiscard]] static std::optional<SealedMemory> map(int descriptor);

    SealedMemory(SealedMemory &&other) noexcept;
    SealedMemory &operator=(SealedMemory &&) = delete;
    ~SealedMemory();

    [[nodiscard]] std::span<const std::byte> bytes() const { return mapped; }

    /// Writes the bytes from this one on as write(2) does. A pipe gets the memory itself in place of a copy:
    /// it cannot change any more.
    [[nodiscard]] ssize_t writeTo(int destination, std::size_t from) const;

  private:
    SealedMemory(int theDescriptor, std::span<const std::byte> theBytes)
        : descriptor(theDescriptor), mapped(theBytes) {}

    int descriptor;
    std::span<const std::byte> mapped; // empty where there is nothing to unmap
};

} // namespace veltrin::platform
