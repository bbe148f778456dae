#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace veltrin::test {

/// Compares what comes out of a pipe with what is expected, byte by byte, while it comes: none of it is kept,
/// so that a stream may have any length.
class StreamCheck {
  public:
    /// Reads from the descriptor, which stays the caller's to close.
    explicit StreamCheck(int theDescriptor) : descriptor(theDescriptor) {}

    /// Takes as many bytes as are expected. False where others come, or fewer; nothing more is read then.
    [[nodiscard]] bool expect(std::span<const std::byte> bytes);

    /// Takes the end. False where anything else comes.
    [[nodiscard]] bool expectEnd();

    /// The bytes so far that were as expected. May be asked while another thread reads.
    [[nodiscard]] std::uint64_t count() const { return taken; }

    /// What was wrong; empty where nothing was.
    [[nodiscard]] const std::string &problem() const { return trouble; }

  private:
    [[nodiscard]] std::size_t read(std::span<std::byte> bytes) const;

    int descriptor;
    std::atomic<std::uint64_t> taken = 0;
    std::string trouble;
    std::vector<std::byte> buffer;
};

} // namespace veltrin::test
