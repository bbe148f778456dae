#include "driver/stream/StreamMaker.h"

#include "driver/stream/PageStream.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

namespace veltrin {

namespace {

// A4 at 600 dots per inch.
constexpr std::uint16_t resolution = 600;
constexpr std::uint16_t scanLineWidth = 4960;
constexpr std::uint16_t scanLines = 7016;
constexpr std::uint32_t paperWidth = 210;  // millimetres
constexpr std::uint32_t paperHeight = 297; // millimetres

/// The largest data that a band's signed 32-bit size can announce.
constexpr std::uint64_t largestBand = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t largest16Bits = std::numeric_limits<std::uint16_t>::max();

/// Bytes handed to the sink at a time.
constexpr std::size_t pieceSize = 65536;

std::uint32_t lastPageNumber(const StreamOptions &options) {
    return options.pages + (options.blankPage ? 1 : 0);
}

bool isBlankPage(const StreamOptions &options, std::uint32_t page) {
    return page > options.pages;
}

void put(std::array<char, 64> &field, const std::string &text) {
    // The last byte stays 0, so that the field reads as a terminated string.
    text.copy(field.data(), field.size() - 1);
}

template <typename Header>
bool send(const Header &header, const StreamSink &sink) {
    static_assert(std::is_trivially_copyable_v<Header>);
    return sink(std::as_bytes(std::span(&header, 1)));
}

/// A sequence of numbers that look random and depend on `seed` alone (the mixing function of SplitMix64).
class Noise {
  public:
    explicit Noise(std::uint64_t seed) : state(seed) {}

    std::uint64_t next() {
        state += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = state;
        mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31);
    }

  private:
    std::uint64_t state;
};

/// The data of one plane: a line of text that says what it is, then noise.
bool sendPlane(char plane, std::uint32_t size, std::uint32_t page, std::uint32_t band, std::uint64_t seed,
               const StreamSink &sink) {
    std::array<char, 64> label{};
    const int length =
        std::snprintf(label.data(), label.size(), "page %u band %u plane %c\n", page, band, plane);
    const std::size_t labelled = std::min<std::size_t>(static_cast<std::size_t>(length), size);
    if (labelled != 0 && !sink(std::as_bytes(std::span(label).first(labelled)))) {
        return false;
    }

    // The place in the document makes 56 bits, so that no two planes of a document begin alike.
    Noise noise(Noise(seed).next() ^
                (std::uint64_t{page} << 40 | std::uint64_t{band} << 8 | static_cast<std::uint8_t>(plane)));
    std::array<std::byte, pieceSize> piece;
    for (std::size_t left = size - labelled; left != 0;) {
        const std::size_t now = std::min(left, piece.size());
        for (std::size_t at = 0; at < now; at += sizeof(std::uint64_t)) {
            const std::uint64_t number = noise.next();
            for (std::size_t i = 0; i < sizeof number; ++i) {
                piece[at + i] = static_cast<std::byte>(number >> (8 * i));
            }
        }
        if (!sink(std::span(piece).first(now))) {
            return false;
        }
        left -= now;
    }
    return true;
}

bool sendPage(const StreamOptions &options, std::uint32_t page, const StreamSink &sink) {
    // A page without marks has its bands all the same, with nothing in them.
    const PlaneSizes sizes = isBlankPage(options, page) ? PlaneSizes() : options.planeSizes;
    const auto wholePage = [&options](std::uint32_t planeSize) {
        // The field informs only; a page too large for it is no reason to refuse.
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(
            std::uint64_t{planeSize} * options.bandsPerPage, std::numeric_limits<std::uint32_t>::max()));
    };

    PageHeader header{};
    header.MagicNumber = pageHeaderTag;
    header.dwHeaderLen = sizeof header;
    header.bPaperSize = options.paperSize;
    header.bPaperTray = options.paperTray;
    header.bMediaType = options.mediaType;
    header.wScanLineWidth = scanLineWidth;
    header.wHeight = scanLines;
    header.bPlane = 4;
    header.bType = options.pageType;
    header.wPageNumber = static_cast<std::uint16_t>(page);
    header.dwKSize = wholePage(sizes.black);
    header.dwYSize = wholePage(sizes.yellow);
    header.dwMSize = wholePage(sizes.magenta);
    header.dwCSize = wholePage(sizes.cyan);
    header.wBandNo = static_cast<std::uint16_t>(options.bandsPerPage);
    header.wPaperWidthmm = paperWidth;
    header.wPaperHeightmm = paperHeight;
    if (!send(header, sink)) {
        return false;
    }

    for (std::uint32_t band = 1; band <= options.bandsPerPage; ++band) {
        BandHeader bandHeader{};
        bandHeader.MagicNumber = bandHeaderTag;
        bandHeader.dwBandSetting = band == options.bandsPerPage ? bandSettingLastOfPage : 0;
        bandHeader.dwKSize = sizes.black;
        bandHeader.dwYSize = sizes.yellow;
        bandHeader.dwMSize = sizes.magenta;
        bandHeader.dwCSize = sizes.cyan;
        bandHeader.wBandWidth = scanLineWidth;
        bandHeader.wBandHeight =
            static_cast<std::uint16_t>((scanLines + options.bandsPerPage - 1) / options.bandsPerPage);
        if (!send(bandHeader, sink) || !sendPlane('K', sizes.black, page, band, options.seed, sink) ||
            !sendPlane('Y', sizes.yellow, page, band, options.seed, sink) ||
            !sendPlane('M', sizes.magenta, page, band, options.seed, sink) ||
            !sendPlane('C', sizes.cyan, page, band, options.seed, sink)) {
            return false;
        }
    }
    return true;
}

bool sendJobHeaders(const StreamOptions &options, const StreamSink &sink) {
    FileHeader header{};
    header.MagicNumber = fileHeaderTag;
    header.dwJobHeaderLen = sizeof header;
    header.Version = 1;
    header.wCopyCount = 1; // the copies are in the stream; the printer is not to multiply them
    header.wJobSetting = options.jobSetting;
    header.wResolution = resolution;
    put(header.szFileName, options.fileName);

    FileHeaderEx headerEx{};
    headerEx.MagicNumber = fileHeaderExTag;
    headerEx.dwJobHeaderLen = sizeof headerEx;
    put(headerEx.szHostName, options.hostName);
    put(headerEx.szUserName, options.userName);

    return send(header, sink) && send(headerEx, sink);
}

StreamSink appendTo(std::string &text) {
    return [&text](std::span<const std::byte> bytes) {
        const std::size_t before = text.size();
        text.resize(before + bytes.size());
        std::memcpy(text.data() + before, bytes.data(), bytes.size());
        return true;
    };
}

} // namespace

std::optional<std::string> problemWith(const StreamOptions &options) {
    const std::string upTo16Bits = std::to_string(largest16Bits);
    if (lastPageNumber(options) > largest16Bits) {
        return "the pages, a blank page included, are numbered up to " + upTo16Bits;
    }
    if (options.copies < 1 || options.copies > largest16Bits) {
        return "the number of copies is 1 to " + upTo16Bits;
    }
    if (options.bandsPerPage < 1 || options.bandsPerPage > largest16Bits) {
        return "a page has 1 to " + upTo16Bits + " bands";
    }
    if (options.planeSizes.total() > largestBand) {
        return "the planes of a band hold at most " + std::to_string(largestBand) + " bytes together";
    }
    if (options.identifier && options.identifier->size() != identifierSize) {
        return "the identifier is " + std::to_string(identifierSize) + " bytes long, not " +
               std::to_string(options.identifier->size());
    }
    return std::nullopt;
}

std::uint64_t pagesInStream(const StreamOptions &options) {
    return std::uint64_t{lastPageNumber(options)} * options.copies;
}

std::uint32_t pageAt(const StreamOptions &options, std::uint64_t place) {
    // The blank page is each copy's last.
    const std::uint64_t pages = lastPageNumber(options);
    const std::uint64_t copies = options.copies;
    switch (options.order) {
    case CopyOrder::collated:
        return static_cast<std::uint32_t>(place % pages + 1);
    case CopyOrder::uncollated:
        return static_cast<std::uint32_t>(place / copies + 1);
    case CopyOrder::pairs: {
        const std::uint64_t front = place / (2 * copies) * 2;                  // of this sheet, from 0
        const std::uint64_t sides = std::min<std::uint64_t>(2, pages - front); // the last sheet may have one
        return static_cast<std::uint32_t>(front + (place - front * copies) % sides + 1);
    }
    }
    return 0;
}

std::vector<std::uint32_t> pageOrder(const StreamOptions &options) {
    std::vector<std::uint32_t> order;
    for (std::uint64_t place = 0; place < pagesInStream(options); ++place) {
        order.push_back(pageAt(options, place));
    }
    return order;
}

bool makeStream(const StreamOptions &options, const StreamSink &sink) {
    if (problemWith(options)) {
        return false;
    }
    if (options.identifier && !sink(std::as_bytes(std::span(*options.identifier)))) {
        return false;
    }
    if (!sendJobHeaders(options, sink)) {
        return false;
    }
    for (std::uint64_t place = 0; place < pagesInStream(options); ++place) {
        if (!sendPage(options, pageAt(options, place), sink)) {
            return false;
        }
    }
    return send(WireTag(endOfJobTag), sink);
}

std::string makeStream(const StreamOptions &options) {
    std::string stream;
    return makeStream(options, appendTo(stream)) ? stream : std::string();
}

std::string makeJobHeaders(const StreamOptions &options) {
    std::string headers;
    static_cast<void>(sendJobHeaders(options, appendTo(headers))); // a string takes everything
    return headers;
}

std::string makePage(const StreamOptions &options, std::uint32_t page) {
    std::string bytes;
    static_cast<void>(sendPage(options, page, appendTo(bytes))); // a string takes everything
    return bytes;
}

} // namespace veltrin
