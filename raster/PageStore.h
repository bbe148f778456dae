#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace veltrin::raster {

/// Takes bytes; false where it cannot, with `errno` set.
using ByteSink = std::function<bool(std::span<const std::byte>)>;

/// Keeps encoded pages that are written again, in one temporary file. The file has no name from the moment it
/// is opened, so nothing is left behind however the process ends.
class PageStore {
  public:
    PageStore() = default;
    PageStore(const PageStore &) = delete;
    PageStore &operator=(const PageStore &) = delete;
    ~PageStore();

    /// Keeps a page, which comes in two parts, behind the others. False with `errno` set where the system
    /// refuses.
    [[nodiscard]] bool add(std::span<const std::byte> header, std::span<const std::byte> bands);

    /// The page that was added as the `index`th (from 0) since the last `clear()`, handed over in pieces.
    /// False where it cannot be read or the sink refused, with `errno` set.
    [[nodiscard]] bool copy(std::size_t index, const ByteSink &sink) const;

    [[nodiscard]] std::size_t size() const { return ends.size(); }

    /// Forgets all pages and gives their room back.
    void clear();

  private:
    [[nodiscard]] bool open();
    [[nodiscard]] bool append(std::span<const std::byte> bytes, std::uint64_t &at) const;

    int file = -1;
    std::vector<std::uint64_t> ends; ///< of each page, in bytes from the beginning of the file
};

} // namespace veltrin::raster
