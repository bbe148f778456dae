#include "tests/support/StreamPages.h"

#include "driver/stream/StreamReader.h"
#include "raster/PlaneCoding.h"

#include <algorithm>
#include <span>
#include <variant>

namespace veltrin::test {

bool StreamPage::isBlank() const {
    return std::all_of(planes.begin(), planes.end(), [](const auto &plane) { return plane.empty(); });
}

bool StreamPage::hasInk(raster::Plane plane, std::uint32_t column, std::uint32_t line) const {
    if (planes[plane].empty()) {
        return false;
    }
    const std::size_t at = line * raster::rowBytes(header.wScanLineWidth) + column / 8;
    return (planes[plane][at] & static_cast<std::byte>(0x80U >> column % 8)) != std::byte{0};
}

std::uint32_t StreamPage::inkIn(raster::Plane plane, std::uint32_t column, std::uint32_t line,
                                std::uint32_t columns, std::uint32_t lines) const {
    std::uint32_t dots = 0;
    for (std::uint32_t y = line; y < line + lines; ++y) {
        for (std::uint32_t x = column; x < column + columns; ++x) {
            dots += hasInk(plane, x, y) ? 1U : 0U;
        }
    }
    return dots;
}

StreamContents contentsOf(const std::string &stream) {
    StreamContents contents;
    StreamPage page;
    std::uint32_t line = 0;
    const auto takeBand = [&](const BandRead &band) {
        const auto bytes = std::as_bytes(std::span(stream));
        std::size_t at = band.offset + sizeof(BandHeader);
        const std::array<std::uint32_t, raster::planeCount> sizes = {
            band.header.dwKSize, band.header.dwYSize, band.header.dwMSize, band.header.dwCSize};
        const std::size_t row = raster::rowBytes(page.header.wScanLineWidth);
        if (band.header.wBandWidth != page.header.wScanLineWidth ||
            line + band.header.wBandHeight > page.header.wHeight) {
            contents.problems.emplace_back("a band does not fit its page");
            return;
        }
        for (std::size_t plane = 0; plane < sizes.size(); ++plane) {
            if (sizes[plane] == 0 || at + sizes[plane] > bytes.size()) {
                continue;
            }
            page.planes[plane].resize(row * page.header.wHeight);
            const auto room =
                std::span(page.planes[plane]).subspan(line * row, row * band.header.wBandHeight);
            if (const auto problem = raster::decodePlane(bytes.subspan(at, sizes[plane]),
                                                         contents.header.wCompressMode, room)) {
                contents.problems.emplace_back(raster::textOf(*problem));
            }
            at += sizes[plane];
        }
        line += band.header.wBandHeight;
    };
    StreamReader reader(
        [&](const StreamEvent &event) {
            if (const auto *identifier = std::get_if<IdentifierRead>(&event)) {
                contents.identifier.assign(identifier->text.begin(), identifier->text.end());
            } else if (const auto *fileHeader = std::get_if<FileHeaderRead>(&event)) {
                contents.header = fileHeader->header;
            } else if (const auto *fileHeaderEx = std::get_if<FileHeaderExRead>(&event)) {
                contents.headerEx = fileHeaderEx->header;
            } else if (const auto *begun = std::get_if<PageBegun>(&event)) {
                page = {};
                page.header = begun->header;
                line = 0;
            } else if (const auto *band = std::get_if<BandRead>(&event)) {
                takeBand(*band);
                ++page.bands;
            } else if (const auto *read = std::get_if<PageRead>(&event)) {
                if (read->complete) {
                    if (line != page.header.wHeight || page.bands != page.header.wBandNo) {
                        contents.problems.emplace_back("the bands do not make the page");
                    }
                    contents.pages.push_back(page);
                }
            } else if (const auto *problem = std::get_if<ProblemFound>(&event)) {
                contents.problems.push_back(problem->text);
            }
        },
        IdentifierRule::detect, {.bands = true});
    reader.feed(std::as_bytes(std::span(stream)));
    reader.finish();
    contents.wellFormed = reader.isWellFormed();
    contents.endOfJob = reader.totals().endOfJob;
    return contents;
}

} // namespace veltrin::test
