#include "raster/PagePicture.h"

#include <algorithm>

namespace veltrin::raster {

namespace {

/// For each byte of a plane its 8 dots, 4 bits each of which the lowest tells the ink; the leftmost dot is in
/// the highest bits.
constexpr std::array<std::uint32_t, 256> spreadDots = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        for (std::uint32_t bit = 0; bit < 8; ++bit) {
            table[byte] |= (byte >> bit & 1U) << (4 * bit);
        }
    }
    return table;
}();

/// The bit of each plane in a mix, by its number.
constexpr std::array<unsigned, planeCount> mixBit = [] {
    std::array<unsigned, planeCount> bits{};
    bits[black] = 0;
    bits[yellow] = 1;
    bits[magenta] = 2;
    bits[cyan] = 3;
    return bits;
}();

constexpr std::uint64_t solid = 255;

// Red, green and blue are summed in one number: each sum has 21 bits.
constexpr unsigned lightBits = 21;
constexpr std::uint64_t lightMask = (1U << lightBits) - 1;
constexpr std::uint32_t mostDotsInSum = lightMask / solid;

constexpr std::array<std::uint64_t, inkMixes> lightOf = [] {
    std::array<std::uint64_t, inkMixes> table{};
    for (std::size_t mix = 0; mix < inkMixes; ++mix) {
        const PictureColour colour = colourOf(static_cast<InkMix>(mix));
        table[mix] = std::uint64_t{colour.red} | std::uint64_t{colour.green} << lightBits |
                     std::uint64_t{colour.blue} << (2 * lightBits);
    }
    return table;
}();

std::uint32_t scaled(std::uint32_t size, std::uint32_t from, std::uint32_t to) {
    const auto result = static_cast<std::uint32_t>((std::uint64_t{size} * to + from / 2) / from);
    return std::max(result, 1U);
}

} // namespace

PagePicture::PagePicture(const PagePlanes &thePage, std::optional<std::uint32_t> most)
    : page(thePage), dotsPerInch(page.resolution()),
      isSmaller(most && *most != 0 && *most < page.resolution()), columns(page.width()), rows(page.height()),
      mixes((rowBytes(page.width())) * 4) {
    if (isSmaller) {
        columns = scaled(page.width(), dotsPerInch, *most);
        rows = scaled(page.height(), dotsPerInch, *most);
        dotsPerInch = *most;
        lights.resize(columns);
        colours.resize(std::size_t{columns} * 3);
    }
}

std::span<const std::uint8_t> PagePicture::nextRow() {
    const std::uint32_t row = next++;
    if (!isSmaller) {
        mixLine(row);
        return std::span(mixes).first((std::size_t{columns} + 1) / 2);
    }
    std::fill(lights.begin(), lights.end(), Light());
    const std::uint32_t top = beginOf(row, rows, page.height());
    const std::uint32_t bottom = beginOf(row + 1, rows, page.height());
    for (std::uint32_t line = top; line < bottom; ++line) {
        addLine(line);
    }
    for (std::uint32_t column = 0; column < columns; ++column) {
        const std::uint64_t dots = std::uint64_t{bottom - top} * (beginOf(column + 1, columns, page.width()) -
                                                                  beginOf(column, columns, page.width()));
        const auto mean = [dots](std::uint64_t sum) {
            return static_cast<std::uint8_t>((sum + dots / 2) / dots);
        };
        const Light &light = lights[column];
        std::uint8_t *const colour = &colours[std::size_t{column} * 3];
        colour[0] = mean(light.red);
        colour[1] = mean(light.green);
        colour[2] = mean(light.blue);
    }
    return colours;
}

/// The mixes of a line of the page.
void PagePicture::mixLine(std::uint32_t line) {
    std::array<std::span<const std::byte>, planeCount> inks;
    for (std::size_t ink = 0; ink < planeCount; ++ink) {
        inks[ink] = page.row(static_cast<Plane>(ink), line);
    }
    for (std::size_t at = 0; at < rowBytes(page.width()); ++at) {
        std::uint32_t eight = 0;
        for (std::size_t ink = 0; ink < planeCount; ++ink) {
            if (!inks[ink].empty()) {
                eight |= spreadDots[std::to_integer<std::size_t>(inks[ink][at])] << mixBit[ink];
            }
        }
        for (std::size_t i = 0; i < 4; ++i) {
            mixes[at * 4 + i] = static_cast<std::uint8_t>(eight >> (24 - 8 * i));
        }
    }
}

bool PagePicture::isBlank(std::uint32_t line) const {
    for (std::size_t ink = 0; ink < planeCount; ++ink) {
        if (hasInk(page.row(static_cast<Plane>(ink), line))) {
            return false;
        }
    }
    return true;
}

/// Adds the light of a line of the page.
void PagePicture::addLine(std::uint32_t line) {
    const bool blank = isBlank(line);
    if (!blank) {
        mixLine(line);
    }
    std::uint32_t dot = 0;
    for (std::uint32_t column = 0; column < columns; ++column) {
        const std::uint32_t end = beginOf(column + 1, columns, page.width());
        Light &light = lights[column];
        if (blank) {
            const std::uint64_t white = solid * (end - dot);
            light = {light.red + white, light.green + white, light.blue + white};
            dot = end;
        }
        while (dot < end) {
            std::uint64_t sum = 0;
            for (const std::uint32_t stop = std::min(end, dot + mostDotsInSum); dot < stop; ++dot) {
                sum += lightOf[unsigned{mixes[dot / 2]} >> (dot % 2 == 0 ? 4U : 0U) & 0xFU];
            }
            light.red += sum & lightMask;
            light.green += sum >> lightBits & lightMask;
            light.blue += sum >> (2 * lightBits) & lightMask;
        }
    }
}

} // namespace veltrin::raster
