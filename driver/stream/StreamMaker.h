#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Writes page streams as the renderer in front of the filter does, for people, tests and benchmarks.

namespace veltrin {

/// How the renderer repeats the document's pages for the copies; it writes every copy into the stream.
enum class CopyOrder {
    collated,   ///< document after document: 1 2 3 4 1 2 3 4
    uncollated, ///< page after page: 1 1 2 2 3 3 4 4
    pairs,      ///< both sides of a sheet together: 1 2 1 2 3 4 3 4
};

/// Bytes of each plane's data in one band, in the order in which the planes follow the band header.
struct PlaneSizes {
    std::uint32_t black = 0;
    std::uint32_t yellow = 0;
    std::uint32_t magenta = 0;
    std::uint32_t cyan = 0;

    /// The sum as a number that cannot wrap.
    [[nodiscard]] constexpr std::uint64_t total() const {
        return std::uint64_t{black} + yellow + magenta + cyan;
    }

    bool operator==(const PlaneSizes &) const = default;
};

/// `bytes` dealt out to the four planes as evenly as it goes, black first.
[[nodiscard]] constexpr PlaneSizes dealtOut(std::uint32_t bytes) {
    const auto share = [bytes](std::uint32_t plane) { return bytes / 4 + (bytes % 4 > plane ? 1 : 0); };
    return {share(0), share(1), share(2), share(3)};
}

/// What is in a stream. The defaults make a document of one page, Letter from the bypass tray, of about four
/// thousand bytes.
struct StreamOptions {
    std::uint32_t pages = 1; ///< pages of the document; a document of none is a stream of headers alone
    std::uint32_t copies = 1;
    CopyOrder order = CopyOrder::collated;
    bool blankPage = false; ///< end each copy with the renderer's blank page, for an odd number of sides

    std::uint32_t bandsPerPage = 4;
    PlaneSizes planeSizes = dealtOut(1024);

    std::uint8_t paperSize = 1;
    std::uint8_t paperTray = 1;
    std::uint8_t mediaType = 1;
    std::uint8_t pageType = 0;    ///< the type bits of every page; the renderer sets none
    std::uint16_t jobSetting = 0; ///< the job's duplex bits among others; the renderer sets none of those

    std::string fileName = "document"; ///< the three names are cut where they do not fit their fields
    std::string hostName = "localhost";
    std::string userName = "user";

    /// The 36 bytes in front of the headers; without it, the stream is one as the printer receives it.
    std::optional<std::string> identifier = "00000000-0000-4000-8000-000000000000";

    std::uint64_t seed = 0; ///< another seed makes other data of the same size
};

/// What keeps these options from being a stream, as one line for the user; nothing where they make one.
[[nodiscard]] std::optional<std::string> problemWith(const StreamOptions &options);

/// The pages of a stream, every copy and its blank page counted.
[[nodiscard]] std::uint64_t pagesInStream(const StreamOptions &options);

/// The document page (from 1) at this place (from 0, below `pagesInStream()`). The blank page bears the
/// number after the document's last.
[[nodiscard]] std::uint32_t pageAt(const StreamOptions &options, std::uint64_t place);

/// `pageAt()` of every place, for a stream of few pages.
[[nodiscard]] std::vector<std::uint32_t> pageOrder(const StreamOptions &options);

/// Takes the next bytes of a stream; false where they cannot be taken, which ends the making.
using StreamSink = std::function<bool(std::span<const std::byte>)>;

/// Hands the stream to `sink` piece by piece; the memory in use depends neither on its length nor on the
/// size of a band. Returns false where the options make no stream (see `problemWith()`; nothing is handed
/// over then) or the sink refused.
[[nodiscard]] bool makeStream(const StreamOptions &options, const StreamSink &sink);

/// A small stream in one piece; empty where the options make none.
[[nodiscard]] std::string makeStream(const StreamOptions &options);

/// The two job headers of the stream alone, 272 bytes.
[[nodiscard]] std::string makeJobHeaders(const StreamOptions &options);

/// One page of the stream alone, header and bands, by its document page number (from 1). The number after
/// the document's last gives the blank page.
[[nodiscard]] std::string makePage(const StreamOptions &options, std::uint32_t page);

} // namespace veltrin
