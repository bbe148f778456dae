#include "raster/PagePlanes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace veltrin::raster {

namespace {

/// A plane as its rows are, or packed so that it became a little longer.
constexpr std::size_t mostCodedBytes(std::size_t uncoded) {
    return uncoded + uncoded / 128 + 1024;
}

std::string sizeText(std::uint32_t dots, std::uint32_t lines) {
    return std::to_string(dots) + " x " + std::to_string(lines) + " dots";
}

const char *nameOf(std::size_t plane) {
    switch (plane) {
    case black:
        return "black";
    case yellow:
        return "yellow";
    case magenta:
        return "magenta";
    default:
        return "cyan";
    }
}

} // namespace

const char *nameOf(PageProblem problem) {
    switch (problem) {
    case PageProblem::noSize:
        return "page-without-size";
    case PageProblem::tooLarge:
        return "page-too-large";
    case PageProblem::tooManyDots:
        return "too-many-dots";
    case PageProblem::unknownMode:
        return "unknown-compress-mode";
    case PageProblem::bandTooWide:
        return "band-too-wide";
    case PageProblem::bandTooLow:
        return "band-too-low";
    case PageProblem::damagedPlane:
        return "damaged-plane";
    case PageProblem::linesMissing:
        return "lines-missing";
    }
    return "";
}

bool PagePlanes::Room::make(std::size_t wanted) {
    if (size < wanted) {
        bytes.reset(); // before there is more of it
        bytes.reset(static_cast<std::byte *>(std::malloc(wanted)));
        size = bytes != nullptr ? wanted : 0;
    }
    return size >= wanted;
}

/// The system has zeros at hand, and takes no memory for those that nobody touches.
bool PagePlanes::Room::makeZeroed(std::size_t wanted) {
    if (size == wanted && bytes != nullptr) {
        std::memset(bytes.get(), 0, size);
        return true;
    }
    bytes.reset();
    bytes.reset(static_cast<std::byte *>(std::calloc(wanted, 1)));
    size = bytes != nullptr ? wanted : 0;
    return bytes != nullptr;
}

PagePlanes::PagePlanes(ProblemSink problemFound) : sink(std::move(problemFound)) {}

void PagePlanes::take(const StreamEvent &event) {
    if (const auto *job = std::get_if<FileHeaderRead>(&event)) {
        beginJob(job->header);
    } else if (const auto *page = std::get_if<PageBegun>(&event)) {
        beginPage(page->offset, page->header);
    } else if (const auto *band = std::get_if<BandRead>(&event)) {
        beginBand(band->offset, band->header);
    } else if (const auto *piece = std::get_if<BandDataRead>(&event)) {
        takeData(piece->bytes);
    } else if (const auto *read = std::get_if<PageRead>(&event)) {
        endPage(read->complete);
    }
}

void PagePlanes::beginJob(const FileHeader &header) {
    compressMode = header.wCompressMode;
    dotsPerInch = header.wResolution;
}

void PagePlanes::beginPage(std::uint64_t offset, const PageHeader &header) {
    pageOffset = offset;
    inPage = true;
    modeRefused = false;
    dots = header.wScanLineWidth;
    lines = header.wHeight;
    position = 0;
    inked = {};
    plane = planeCount;
    decodable = hasSize(offset);
}

/// Whether the page's size is one to be decoded; says it if not.
bool PagePlanes::hasSize(std::uint64_t offset) {
    const std::uint64_t size = std::uint64_t{dots} * lines;
    if (size == 0) {
        report(offset, PageProblem::noSize, "the page header tells no size: " + sizeText(dots, lines));
        return false;
    }
    if (size > mostDots) {
        report(offset, PageProblem::tooLarge,
               "a page of " + sizeText(dots, lines) + " is too large to be decoded");
        return false;
    }
    if (dotsSoFar + size > mostDotsUntil(offset)) {
        report(offset, PageProblem::tooManyDots,
               "a page of " + sizeText(dots, lines) +
                   " is too much: the pages before it had more dots already than so few bytes tell of");
        return false;
    }
    dotsSoFar += size;
    return true;
}

void PagePlanes::beginBand(std::uint64_t offset, const BandHeader &header) {
    taken = false;
    if (!inPage || !decodable) {
        return;
    }
    bandDots = header.wBandWidth;
    bandHeight = header.wBandHeight;
    top = position;
    position = std::min(lines, position + bandHeight);
    if (bandDots > dots) {
        report(offset, PageProblem::bandTooWide,
               "a band of " + std::to_string(bandDots) + " dots a line, in a page of " +
                   std::to_string(dots));
    } else if (bandHeight > lines - top) {
        report(offset, PageProblem::bandTooLow,
               "a band reaches to line " + std::to_string(top + bandHeight) + " of a page of " +
                   std::to_string(lines));
    } else {
        taken = true;
    }
    std::uint64_t at = offset + sizeof(BandHeader);
    const std::uint32_t sizes[] = {header.dwKSize, header.dwYSize, header.dwMSize, header.dwCSize};
    for (std::size_t i = 0; i < planeCount; ++i) {
        coded[i] = {at, sizes[i]};
        at += sizes[i];
    }
    plane = 0;
    planeBegins();
}

/// Goes to the next plane that has data, from the present one on.
void PagePlanes::planeBegins() {
    while (plane < planeCount && coded[plane].size == 0) {
        ++plane;
    }
    have = 0;
    kept = taken && !modeRefused && plane < planeCount;
    if (!kept) {
        return;
    }
    if (coded[plane].size > mostCodedBytes(planeBytes(bandDots, bandHeight))) {
        reportPlane(PlaneProblem::tooLong);
    } else if (!data.make(static_cast<std::size_t>(coded[plane].size))) {
        reportPlane(PlaneProblem::noMemory);
    }
}

void PagePlanes::takeData(std::span<const std::byte> bytes) {
    while (taken && plane < planeCount && !bytes.empty()) {
        const auto some =
            static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), coded[plane].size - have));
        if (kept) {
            std::memcpy(data.bytes.get() + have, bytes.data(), some);
        }
        have += some;
        bytes = bytes.subspan(some);
        if (have == coded[plane].size) {
            planeArrived();
            ++plane;
            planeBegins();
        }
    }
}

void PagePlanes::planeArrived() {
    if (!kept) {
        return;
    }
    const std::span<std::byte> rows = bandRows(static_cast<Plane>(plane));
    if (rows.empty() && bandHeight != 0) {
        reportPlane(PlaneProblem::noMemory);
    } else {
        decode(rows);
    }
}

/// Decodes the plane that has arrived into its rows of the page.
void PagePlanes::decode(std::span<std::byte> rows) {
    const std::span<const std::byte> all(data.bytes.get(), static_cast<std::size_t>(coded[plane].size));
    if (const auto problem = decodePlane(all, compressMode, rows.first(planeBytes(bandDots, bandHeight)))) {
        reportPlane(*problem);
    } else {
        spreadRows(rows);
    }
}

/// The band's rows in a plane of the page; none where there is no memory.
std::span<std::byte> PagePlanes::bandRows(Plane ink) {
    Room &room = planes[ink];
    const std::size_t size = planeBytes(dots, lines);
    if (!inked[ink]) {
        if (!room.makeZeroed(size)) {
            return {};
        }
        inked[ink] = true;
    }
    return std::span(room.bytes.get(), size).subspan(planeBytes(dots, top), planeBytes(dots, bandHeight));
}

/// Moves rows that are shorter than the page's from the front to where they belong, and clears what fills up
/// the last byte of each.
void PagePlanes::spreadRows(std::span<std::byte> rows) const {
    const std::size_t from = rowBytes(bandDots);
    const std::size_t to = rowBytes(dots);
    const auto lastDots = static_cast<std::byte>(bandDots % 8 == 0 ? 0xFF : 0xFF00U >> bandDots % 8);
    if (bandDots == 0 || (from == to && lastDots == std::byte{0xFF})) {
        return;
    }
    for (std::size_t line = bandHeight; line-- > 0;) {
        const std::span<std::byte> row = rows.subspan(line * to, to);
        std::memmove(row.data(), rows.data() + line * from, from);
        row[from - 1] &= lastDots;
        std::fill(row.begin() + static_cast<std::ptrdiff_t>(from), row.end(), std::byte{0});
    }
}

void PagePlanes::endPage(bool complete) {
    if (inPage && decodable && complete && position < lines) {
        report(pageOffset, PageProblem::linesMissing,
               "the page's bands end at line " + std::to_string(position) + " of " + std::to_string(lines));
    }
    inPage = false;
    taken = false;
}

std::span<const std::byte> PagePlanes::row(Plane ink, std::uint32_t line) const {
    if (!inked[ink]) {
        return {};
    }
    return std::span<const std::byte>(planes[ink].bytes.get(), planes[ink].size)
        .subspan(planeBytes(dots, line), rowBytes(dots));
}

/// The present plane cannot be decoded.
void PagePlanes::reportPlane(PlaneProblem problem) {
    kept = false;
    if (problem == PlaneProblem::unknownMode) {
        modeRefused = true;
        report(coded[plane].offset, PageProblem::unknownMode,
               "planes compressed in an unknown way, " + std::to_string(compressMode));
        return;
    }
    report(coded[plane].offset, PageProblem::damagedPlane,
           "the " + std::string(nameOf(plane)) + " plane of lines " + std::to_string(top) + " to " +
               std::to_string(top + bandHeight) + " " + textOf(problem));
}

void PagePlanes::report(std::uint64_t offset, PageProblem problem, std::string text) const {
    sink({offset, problem, std::move(text)});
}

} // namespace veltrin::raster
