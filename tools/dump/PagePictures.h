#pragma once

#include "driver/stream/StreamReader.h"
#include "raster/PagePlanes.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace veltrin {

/// A picture that has been written.
struct PictureWritten {
    std::uint64_t offset; ///< of the page header
    std::string file;     ///< its name in the folder
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t resolution; ///< dots per inch; 0 where it is not known
};

/// Writes a picture of each page of a stream while it is read: page-0001.png for the first one, and so on.
class PagePictures {
  public:
    struct Wishes {
        std::string folder;
        std::optional<std::uint32_t> dotsPerInch; ///< at most
    };

    /// Who wants to know what happens.
    struct Listener {
        std::function<void(const raster::PageProblemFound &)> problemFound;
        std::function<void(const PictureWritten &)> pictureWritten;
    };

    PagePictures(Wishes wishes, Listener listener);
    PagePictures(const PagePictures &) = delete;
    PagePictures &operator=(const PagePictures &) = delete;

    /// Takes what the reader reports, bands and their data included. Nothing more is written after a failure.
    void take(const StreamEvent &event);

    [[nodiscard]] std::uint64_t written() const { return pictures; }

    [[nodiscard]] std::uint64_t problems() const { return problemsFound; }

    /// The file that could not be written, and the system's number of what went wrong, or 0.
    [[nodiscard]] const std::string &failedFile() const { return failed; }

    [[nodiscard]] int error() const { return failure; }

  private:
    void endPage(const PageRead &page);

    Wishes wishes;
    Listener listener;
    raster::PagePlanes planes;
    std::uint64_t pages = 0;
    std::uint64_t pictures = 0;
    std::uint64_t problemsFound = 0;
    std::string failed;
    int failure = 0;
};

} // namespace veltrin
