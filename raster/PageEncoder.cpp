#include "raster/PageEncoder.h"

#include "raster/HalftoneScreen.h"

#include <algorithm>
#include <cstring>

namespace veltrin::raster {

namespace {

constexpr std::size_t byteDots = 8;

template <typename Header>
void append(std::vector<std::byte> &bytes, const Header &header) {
    const auto part = std::as_bytes(std::span(&header, 1));
    bytes.insert(bytes.end(), part.begin(), part.end());
}

} // namespace

PageEncoder::PageEncoder(const JobFormat &ofJob) : format(ofJob), planeEncoder(ofJob.compressMode) {}

EncodeResult PageEncoder::encode(const RasterPage &page, const PagePlacement &placement,
                                 const LineSource &source, EncodedPage &encoded) {
    encoded.bands.clear();
    encoded.planes = {};
    beginPage(page, placement);
    for (std::uint32_t line = 0; line < placement.down.skip; ++line) {
        if (!source(raster)) {
            return EncodeResult::lineMissing;
        }
    }
    const std::uint32_t firstLine = placement.down.place;
    const std::uint32_t endLine = firstLine + placement.down.used;
    for (std::uint32_t line = 0; line < placement.down.page; ++line) {
        if (line >= firstLine && line < endLine) {
            if (!source(raster)) {
                return EncodeResult::lineMissing;
            }
            addLine(page, placement, line);
        }
        if ((line + 1) % bandLines == 0 || line + 1 == placement.down.page) {
            if (!endBand(placement, line / bandLines, encoded)) {
                return EncodeResult::noMemory;
            }
        }
    }
    for (std::uint32_t line = placement.down.skip + placement.down.used; line < page.box.lines; ++line) {
        if (!source(raster)) {
            return EncodeResult::lineMissing;
        }
    }
    return EncodeResult::done;
}

void PageEncoder::beginPage(const RasterPage &page, const PagePlacement &placement) {
    const std::size_t bytes = rowBytes(placement.across.page);
    raster.resize(page.bytesPerLine);
    for (std::size_t plane = 0; plane < planeCount; ++plane) {
        // The dots beside the raster stay without ink, and so do those that fill up the last byte.
        shades[plane].assign(bytes * byteDots, 0);
        planes[plane].bits.assign(bytes * bandLines, std::byte{0});
        planes[plane].hasInk = false;
    }
}

void PageEncoder::addLine(const RasterPage &page, const PagePlacement &placement, std::uint32_t line) {
    const Extent &across = placement.across;
    InkLines ink;
    for (std::size_t plane = 0; plane < planeCount; ++plane) {
        ink[plane] = std::span(shades[plane]).subspan(across.place, across.used);
    }
    const std::size_t dotBytes = bytesPerDot(page.samples);
    const auto samples =
        std::span<const std::uint8_t>(raster).subspan(across.skip * dotBytes, across.used * dotBytes);
    PlaneSet inked = 0;
    switch (page.samples) {
    case Samples::rgb:
        inked = separateColours(samples, ink);
        break;
    case Samples::lightness:
        inked = separateGray(samples, ink);
        break;
    case Samples::blackness:
        inked = separateBlack(samples, ink);
        break;
    }
    const std::size_t bytes = rowBytes(across.page);
    for (const Plane plane : {black, yellow, magenta, cyan}) {
        if ((inked & setOf(plane)) != 0) {
            const auto row = std::span(planes[plane].bits).subspan(line % bandLines * bytes, bytes);
            screenOf(plane).screenLine(shades[plane], line, row);
            planes[plane].hasInk = true;
        }
    }
}

/// Codes the band and leaves its planes without ink.
bool PageEncoder::endBand(const PagePlacement &placement, std::uint32_t band, EncodedPage &encoded) {
    const std::size_t headerAt = encoded.bands.size();
    encoded.bands.resize(headerAt + sizeof(BandHeader));
    const std::uint32_t lines = bandHeaderFor(placement, band, {}).wBandHeight;
    const std::size_t size = planeBytes(placement.across.page, lines);
    std::array<std::uint32_t, planeCount> sizes{};
    for (std::size_t plane = 0; plane < planeCount; ++plane) {
        if (!planes[plane].hasInk) {
            continue;
        }
        const auto coded = planeEncoder.encode(std::span(planes[plane].bits).first(size));
        if (!coded) {
            return false;
        }
        sizes[plane] = static_cast<std::uint32_t>(coded->size());
        encoded.bands.insert(encoded.bands.end(), coded->begin(), coded->end());
        std::memset(planes[plane].bits.data(), 0, size);
        planes[plane].hasInk = false;
    }
    const PlaneSizes planeSizes = {sizes[black], sizes[yellow], sizes[magenta], sizes[cyan]};
    const BandHeader header = bandHeaderFor(placement, band, planeSizes);
    std::memcpy(encoded.bands.data() + headerAt, &header, sizeof header);
    encoded.planes.black += planeSizes.black;
    encoded.planes.yellow += planeSizes.yellow;
    encoded.planes.magenta += planeSizes.magenta;
    encoded.planes.cyan += planeSizes.cyan;
    return true;
}

EncodedPage PageEncoder::blankPage(const PagePlacement &placement) {
    EncodedPage blank;
    for (std::uint32_t band = 0; band < bandCount(placement.down.page); ++band) {
        append(blank.bands, bandHeaderFor(placement, band, {}));
    }
    return blank;
}

} // namespace veltrin::raster
