#include "raster/RasterPage.h"

#include "raster/PlaneCoding.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <span>

namespace veltrin::raster {

namespace {

constexpr std::uint32_t mostDotsInARow = std::numeric_limits<std::uint16_t>::max();
constexpr std::uint32_t sampleBits = 8;

/// A text of a header, which need not be terminated.
std::string textOf(std::span<const char> field) {
    return {field.data(), strnlen(field.data(), field.size())};
}

/// The number in a field that ought to be one of an enumeration's.
template <typename Enumeration>
std::uint32_t numberIn(const Enumeration &field) {
    static_assert(sizeof field == sizeof(std::uint32_t));
    std::uint32_t number = 0;
    std::memcpy(&number, &field, sizeof number);
    return number;
}

std::optional<Samples> samplesOf(const cups_page_header2_t &header) {
    switch (numberIn(header.cupsColorSpace)) {
    case CUPS_CSPACE_SRGB:
    case CUPS_CSPACE_RGB:
        return Samples::rgb;
    case CUPS_CSPACE_SW:
    case CUPS_CSPACE_W:
        return Samples::lightness;
    case CUPS_CSPACE_K:
        return Samples::blackness;
    default:
        return std::nullopt;
    }
}

std::string problemWithFormat(const cups_page_header2_t &header, const std::optional<Samples> &samples) {
    if (!samples) {
        return "The raster has colour space " + std::to_string(numberIn(header.cupsColorSpace)) +
               "; only sRGB (19 or 1) and gray (18, 0 or 3) can be printed.";
    }
    if (header.cupsBitsPerColor != sampleBits ||
        header.cupsBitsPerPixel != sampleBits * bytesPerDot(*samples)) {
        return "The raster has " + std::to_string(header.cupsBitsPerColor) + " bits per colour and " +
               std::to_string(header.cupsBitsPerPixel) + " per pixel; only 8 bits per colour can be printed.";
    }
    // With one colour there is nothing to be ordered.
    if (numberIn(header.cupsColorOrder) != CUPS_ORDER_CHUNKED && *samples == Samples::rgb) {
        return "The raster has its colours one after the other; only chunky pixels can be printed.";
    }
    return {};
}

std::string problemWithSizes(const cups_page_header2_t &header, Samples samples) {
    const std::string size = std::to_string(header.cupsWidth) + "x" + std::to_string(header.cupsHeight);
    if (header.cupsWidth == 0 || header.cupsHeight == 0 || header.cupsWidth > mostDotsInARow ||
        header.cupsHeight > mostDotsInARow) {
        return "The raster has " + size + " pixels, which is no page.";
    }
    // Both factors fit 16 bits.
    if (header.cupsBytesPerLine != header.cupsWidth * bytesPerDot(samples)) {
        return "The raster has " + std::to_string(header.cupsBytesPerLine) + " bytes per line for " + size +
               " pixels.";
    }
    if (header.HWResolution[0] != header.HWResolution[1] || header.HWResolution[0] == 0 ||
        header.HWResolution[0] > mostDotsInARow) {
        return "The raster has a resolution of " + std::to_string(header.HWResolution[0]) + "x" +
               std::to_string(header.HWResolution[1]) + " dpi, which cannot be printed.";
    }
    return {};
}

/// Fields with fractions are newer than those without; a raster may have either.
double newerOr(float newer, unsigned older) {
    return newer > 0 ? static_cast<double>(newer) : static_cast<double>(older);
}

RasterBox boxOf(const cups_page_header2_t &header) {
    RasterBox box;
    box.resolution = header.HWResolution[0];
    box.columns = header.cupsWidth;
    box.lines = header.cupsHeight;
    box.pageWidth = newerOr(header.cupsPageSize[0], header.PageSize[0]);
    box.pageHeight = newerOr(header.cupsPageSize[1], header.PageSize[1]);
    // Boxes are left, bottom, right and top, from the lower left corner.
    if (header.cupsImagingBBox[3] > 0) {
        box.left = static_cast<double>(header.cupsImagingBBox[0]);
        box.top = box.pageHeight - static_cast<double>(header.cupsImagingBBox[3]);
    } else if (header.ImagingBoundingBox[3] > 0) {
        box.left = header.ImagingBoundingBox[0];
        box.top = box.pageHeight - header.ImagingBoundingBox[3];
    } else {
        box.left = header.Margins[0];
        box.top = box.pageHeight - header.Margins[1] - box.lines * pointsPerInch / box.resolution;
    }
    return box;
}

} // namespace

std::uint32_t bytesPerDot(Samples samples) {
    return samples == Samples::rgb ? 3 : 1;
}

std::optional<RasterPage> rasterPageFrom(const cups_page_header2_t &header, std::string &problem) {
    const std::optional<Samples> samples = samplesOf(header);
    problem = problemWithFormat(header, samples);
    if (problem.empty()) {
        problem = problemWithSizes(header, *samples);
    }
    if (!problem.empty()) {
        return std::nullopt;
    }
    RasterPage page;
    page.box = boxOf(header);
    page.samples = *samples;
    page.bytesPerLine = header.cupsBytesPerLine;
    page.duplex = numberIn(header.Duplex) != CUPS_FALSE;
    page.tumble = numberIn(header.Tumble) != CUPS_FALSE;
    page.pageSizeName = textOf(header.cupsPageSizeName);
    page.mediaType = textOf(header.MediaType);
    page.copies = header.NumCopies;
    const auto placement = placeOnPage(page.box);
    if (!placement || std::uint64_t{placement->across.page} * placement->down.page > mostDots) {
        problem = "The raster's page of " + std::to_string(std::lround(page.box.pageWidth)) + "x" +
                  std::to_string(std::lround(page.box.pageHeight)) + " points cannot be printed.";
        return std::nullopt;
    }
    return page;
}

std::optional<std::string> problemWithChange(const RasterPage &first, const RasterPage &page, bool twoSided) {
    if (page.box.resolution != first.box.resolution) {
        return "The raster's resolution changes from " + std::to_string(first.box.resolution) + " to " +
               std::to_string(page.box.resolution) + " dpi within the job.";
    }
    if (page.samples != first.samples) {
        return "The raster's colour space changes within the job.";
    }
    if (twoSided && (page.pageSizeName != first.pageSizeName || page.box.pageWidth != first.box.pageWidth ||
                     page.box.pageHeight != first.box.pageHeight)) {
        return "The raster's page size changes within a two-sided job.";
    }
    return std::nullopt;
}

} // namespace veltrin::raster
