#pragma once

#include "raster/RasterPage.h"

#include <cups/raster.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace veltrin::raster {

/// Reads CUPS raster of every version, page by page and line by line, and says what is wrong with it as a
/// sentence for people. Its end is an end only where a page could begin.
class RasterReader {
  public:
    /// Reads from this descriptor, which stays the caller's to close. Nothing is read yet.
    explicit RasterReader(int fd);
    RasterReader(const RasterReader &) = delete;
    RasterReader &operator=(const RasterReader &) = delete;

    enum class Result { page, end, failed };

    /// Goes on to the next page. The lines of the one before must have been read.
    [[nodiscard]] Result nextPage();

    /// Where `nextPage()` has found one.
    [[nodiscard]] const RasterPage &page() const { return current; }

    /// How many pages have begun.
    [[nodiscard]] std::uint32_t pageNumber() const { return pages; }

    /// Reads the page's next line; `line` has its `bytesPerLine`. False where it is not there.
    [[nodiscard]] bool readLine(std::span<std::uint8_t> line);

    /// What is wrong, once something has failed.
    [[nodiscard]] const std::string &problem() const { return failure; }

  private:
    struct Closer {
        void operator()(cups_raster_t *stream) const { cupsRasterClose(stream); }
    };

    static ssize_t handOut(void *reader, unsigned char *buffer, std::size_t size);
    [[nodiscard]] std::size_t readInto(std::span<unsigned char> bytes);
    [[nodiscard]] bool keepMore();
    [[nodiscard]] bool isAppleRaster();
    [[nodiscard]] Result open();
    [[nodiscard]] Result fail(const std::string &sentence);
    [[nodiscard]] std::string whyNothingCame(const char *where) const;

    int input;
    std::unique_ptr<cups_raster_t, Closer> raster;
    RasterPage current;
    std::uint32_t pages = 0;
    std::string failure;

    static constexpr std::size_t roomSize = std::size_t{64} * 1024;
    std::vector<unsigned char> room;
    std::span<unsigned char> kept; ///< what has been read and not yet been handed out, in the room
    std::uint64_t bytesTaken = 0;  ///< by the library
    bool ended = false;            ///< the input has
    int error = 0;                 ///< that of the read that failed
};

} // namespace veltrin::raster
