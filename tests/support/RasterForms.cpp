#include "tests/support/RasterForms.h"

#include <algorithm>
#include <array>
#include <functional>

namespace veltrin::test {

namespace {

constexpr std::size_t syncSize = 4;
constexpr std::size_t headerSize = sizeof(cups_page_header2_t);
constexpr std::size_t shortHeaderSize = sizeof(cups_page_header_t);

/// The header's numbers stand between its texts.
constexpr std::size_t numbersBegin = offsetof(cups_page_header2_t, AdvanceDistance);
constexpr std::size_t numbersEnd = offsetof(cups_page_header2_t, cupsString);

std::string turned(std::string text, std::size_t begin, std::size_t end) {
    for (std::size_t at = begin; at < end; at += 4) {
        std::reverse(text.begin() + static_cast<std::ptrdiff_t>(at),
                     text.begin() + static_cast<std::ptrdiff_t>(at) + 4);
    }
    return text;
}

std::string inOtherOrder(const std::string &header) {
    return turned(header, numbersBegin, std::min(header.size(), numbersEnd));
}

std::string inShort(const std::string &header) {
    return header.substr(0, shortHeaderSize);
}

std::string asItIs(const std::string &header) {
    return header;
}

struct Form {
    const char *name;
    cups_mode_t mode; ///< in which the library writes the lines
    const char *sync; ///< as a machine writes it that has the lowest byte first
    std::string (*header)(const std::string &);
};

constexpr auto forms = std::to_array<Form>({
    {"version 1", CUPS_RASTER_WRITE, "tSaR", inShort},
    {"version 1, other byte order", CUPS_RASTER_WRITE, "RaSt",
     [](const std::string &header) { return inOtherOrder(inShort(header)); }},
    {"version 2", CUPS_RASTER_WRITE_COMPRESSED, "2SaR", asItIs},
    {"version 2, other byte order", CUPS_RASTER_WRITE_COMPRESSED, "RaS2", inOtherOrder},
    {"PWG", CUPS_RASTER_WRITE_PWG, "RaS2", asItIs},
    {"version 3", CUPS_RASTER_WRITE, "3SaR", asItIs},
    {"version 3, other byte order", CUPS_RASTER_WRITE, "RaS3", inOtherOrder},
});

FormedRaster formed(const std::vector<RasterSheet> &pages, const Form &form) {
    FormedRaster raster = {form.name, form.sync, {syncSize}};
    for (const RasterSheet &page : pages) {
        const std::string text = rasterText({page}, form.mode);
        raster.text += form.header(text.substr(syncSize, headerSize)) + text.substr(syncSize + headerSize);
        raster.pageEnds.push_back(raster.text.size());
    }
    return raster;
}

} // namespace

std::size_t FormedRaster::wholePages(std::size_t size) const {
    const auto whole =
        std::count_if(pageEnds.begin(), pageEnds.end(), [size](std::size_t end) { return end <= size; });
    return whole == 0 ? 0 : static_cast<std::size_t>(whole) - 1;
}

bool FormedRaster::isBetweenPages(std::size_t size) const {
    return std::find(pageEnds.begin(), pageEnds.end(), size) != pageEnds.end();
}

std::vector<FormedRaster> everyForm(const std::vector<RasterSheet> &pages) {
    std::vector<FormedRaster> rasters;
    for (const Form &form : forms) {
        rasters.push_back(formed(pages, form));
    }
    return rasters;
}

} // namespace veltrin::test
