#pragma once

#include "raster/RasterPage.h"

#include <cups/raster.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace veltrin::raster {

/// Reads CUPS raster, page by page and line by line, and says what is wrong with it as a sentence for people.
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

    static ssize_t readSome(void *reader, unsigned char *buffer, std::size_t size);
    [[nodiscard]] Result fail(const std::string &sentence);
    [[nodiscard]] std::string whyNothingCame(const char *where) const;

    int input;
    std::unique_ptr<cups_raster_t, Closer> raster;
    RasterPage current;
    std::uint32_t pages = 0;
    std::string failure;

    std::uint64_t bytesRead = 0;
    bool ended = false; ///< the input has
    int error = 0;      ///< that of the read that failed
};

} // namespace veltrin::raster
