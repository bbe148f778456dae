#pragma once

#include "driver/stream/PageStream.h"
#include "driver/stream/StreamReader.h"
#include "raster/PlaneCoding.h"
#include "raster/Separation.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <string>

// From the bands of a page to its planes, as far as they came.

namespace veltrin::raster {

/// What keeps some of a page from being decoded.
enum class PageProblem {
    noSize,       ///< the page header tells a width or a height of 0
    tooLarge,     ///< more than `mostDots`
    tooManyDots,  ///< see `mostDotsUntil`
    unknownMode,  ///< the job's `wCompressMode` is not known
    bandTooWide,  ///< a band reaches beyond the page's side
    bandTooLow,   ///< a band reaches below the page's last line
    damagedPlane, ///< see `PlaneProblem`
    linesMissing, ///< the last band is not at the page's end
};

/// The problem's name for programs, such as "band-too-wide".
[[nodiscard]] const char *nameOf(PageProblem problem);

/// How many dots the pages of a stream may have in all, up to the byte at `offset`.
///
/// A header of 64 bytes can announce half a gigabyte of dots, and a stream of nothing else would keep the
/// decoder at work for hours. What a renderer makes never comes near: where its pages have the most dots for
/// their bytes, when they are blank, A3 at 1200 dpi in bands of 128 lines, these are 55 thousand for each
/// byte.
[[nodiscard]] constexpr std::uint64_t mostDotsUntil(std::uint64_t offset) {
    return 8 * mostDots + std::min(offset, UINT64_MAX >> 17) * 65536;
}

struct PageProblemFound {
    std::uint64_t offset; ///< of the header or plane at fault, in the stream
    PageProblem problem;
    std::string text; ///< one line of printable ASCII for people
};

/// Collects one page after the other, from the parts of the stream in their order. Whatever they hold, the
/// memory in use is that of the four planes (those with ink, of at most 64 MiB each), of one plane as it is
/// coded, which is no longer, and the decompressor's.
class PagePlanes {
  public:
    using ProblemSink = std::function<void(const PageProblemFound &)>;

    explicit PagePlanes(ProblemSink problemFound);

    /// Another stream begins: offsets count from 0 again.
    void beginStream() { dotsSoFar = 0; }

    /// Takes a part of the stream; the reader is to tell of bands and of their data. Those outside a page are
    /// nobody's.
    void take(const StreamEvent &event);

    // What there is, from the end of a page to the beginning of the next.

    /// Whether the page has a size of which it can be shown.
    [[nodiscard]] bool isDecodable() const { return decodable; }

    /// In dots.
    [[nodiscard]] std::uint32_t width() const { return dots; }

    /// In lines.
    [[nodiscard]] std::uint32_t height() const { return lines; }

    /// Dots per inch, as the job file header tells; 0 where it does not.
    [[nodiscard]] std::uint32_t resolution() const { return dotsPerInch; }

    /// The lines of the bands that came, whether they could be decoded or not.
    [[nodiscard]] std::uint32_t linesBegun() const { return position; }

    [[nodiscard]] bool hasInk(Plane ink) const { return inked[ink]; }

    /// The dots of a line, packed as `PlaneCoding` tells; empty where the plane is without ink.
    [[nodiscard]] std::span<const std::byte> row(Plane ink, std::uint32_t line) const;

  private:
    [[nodiscard]] bool hasSize(std::uint64_t offset);
    void beginJob(const FileHeader &header);
    void beginPage(std::uint64_t offset, const PageHeader &header);
    void beginBand(std::uint64_t offset, const BandHeader &header);
    void takeData(std::span<const std::byte> bytes);
    void endPage(bool complete); ///< `complete` says that its last band was there

    struct Coded {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
    };

    struct Free {
        void operator()(std::byte *bytes) const { std::free(bytes); }
    };

    /// Bytes that are not there when there is no memory.
    struct Room {
        std::unique_ptr<std::byte, Free> bytes;
        std::size_t size = 0;

        [[nodiscard]] bool make(std::size_t wanted);
        [[nodiscard]] bool makeZeroed(std::size_t wanted);
    };

    void planeBegins();
    void planeArrived();
    void decode(std::span<std::byte> rows);
    [[nodiscard]] std::span<std::byte> bandRows(Plane ink);
    void spreadRows(std::span<std::byte> rows) const;
    void reportPlane(PlaneProblem problem);
    void report(std::uint64_t offset, PageProblem problem, std::string text) const;

    ProblemSink sink;
    std::uint16_t compressMode = 0;
    std::uint32_t dotsPerInch = 0;

    std::uint64_t dotsSoFar = 0; ///< of the stream's pages
    std::uint64_t pageOffset = 0;
    bool inPage = false;
    bool decodable = false;
    bool modeRefused = false; ///< said already of this page
    std::uint32_t dots = 0;
    std::uint32_t lines = 0;
    std::uint32_t position = 0; ///< the first line below the bands so far
    std::array<Room, planeCount> planes;
    std::array<bool, planeCount> inked{};

    // The band: what it holds is taken only where it lies in the page.
    bool taken = false;
    std::uint32_t top = 0;
    std::uint32_t bandDots = 0;
    std::uint32_t bandHeight = 0;
    std::array<Coded, planeCount> coded;
    std::size_t plane = planeCount; ///< whose data come; `planeCount` where all are there
    std::uint64_t have = 0;         ///< bytes of it
    bool kept = false;              ///< or refused before they are all there
    Room data;
};

} // namespace veltrin::raster
