#include "tests/support/ColourDocument.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <random>

namespace veltrin::test {

namespace {

constexpr double pageHeight = 842;

using raster::PictureColour;
using Colours = std::function<PictureColour(std::uint32_t x, std::uint32_t y)>;

/// A picture as an object of the format.
std::string imageObject(std::uint32_t width, std::uint32_t height, const Colours &colours) {
    std::string dots;
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const PictureColour colour = colours(x, y);
            for (const std::uint8_t light : {colour.red, colour.green, colour.blue}) {
                dots += static_cast<char>(light);
            }
        }
    }
    return "<< /Type /XObject /Subtype /Image /Width " + std::to_string(width) + " /Height " +
           std::to_string(height) + " /ColorSpace /DeviceRGB /BitsPerComponent 8 /Length " +
           std::to_string(dots.size()) + " >>\nstream\n" + dots + "\nendstream";
}

/// Draws the image named I over the patch.
std::string imageIn(const Patch &patch) {
    return "q " + std::to_string(patch.width) + " 0 0 " + std::to_string(patch.height) + " " +
           std::to_string(patch.left) + " " + std::to_string(pageHeight - patch.top - patch.height) +
           " cm /I Do Q\n";
}

constexpr const char *imageResource = "/XObject << /I 3 0 R >>";

std::uint8_t lightOf(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

constexpr std::uint32_t photoWidth = 192;
constexpr std::uint32_t photoHeight = 96;

/// A sky over a hill, with grain everywhere.
PictureColour inPhoto(std::uint32_t x, std::uint32_t y, double grain) {
    const double across = static_cast<double>(x) / photoWidth;
    const double down = static_cast<double>(y) / photoHeight;
    const double hill = 0.6 + 0.2 * std::sin(across * 7);
    if (down < hill) {
        return {lightOf(90 + 150 * down + grain), lightOf(140 + 100 * down + grain),
                lightOf(250 - 40 * across + grain)};
    }
    const double shade = 1.2 - down + 0.15 * std::sin(x * 1.3) * std::sin(y * 0.9);
    return {lightOf(150 * shade * across + grain), lightOf(190 * shade + grain), lightOf(60 * shade + grain)};
}

} // namespace

std::vector<ColourPatch> colourPatches() {
    constexpr std::uint32_t columns = 11;
    constexpr double size = 38;
    constexpr std::uint8_t lights[] = {0, 64, 128, 191, 255};
    std::vector<ColourPatch> patches;
    for (const std::uint8_t red : lights) {
        for (const std::uint8_t green : lights) {
            for (const std::uint8_t blue : lights) {
                const auto column = static_cast<double>(patches.size() % columns);
                const double row = std::floor(static_cast<double>(patches.size()) / columns);
                patches.push_back({{60 + column * size, 60 + row * size, size, size}, {red, green, blue}});
            }
        }
    }
    return patches;
}

std::string colourPdf() {
    std::string drawing;
    for (const ColourPatch &patch : colourPatches()) {
        for (const std::uint8_t light : {patch.colour.red, patch.colour.green, patch.colour.blue}) {
            drawing += std::to_string(light / 255.0) + " ";
        }
        drawing += "rg " + rectangle(patch.place);
    }
    drawing += "0 g BT /F 9 Tf 11 TL " + std::to_string(blackText.left) + " " +
               std::to_string(pageHeight - blackText.top - 10) + " Td\n";
    for (int line = 0; line < 6; ++line) {
        drawing +=
            "(Black text is printed in black alone, without a fringe of colour around its letters.) ' \n";
    }
    drawing += "ET\n" + imageIn(photo);
    std::mt19937 random(1);
    PdfParts parts;
    parts.resources = std::string(imageResource) +
                      " /Font << /F << /Type /Font /Subtype /Type1 /BaseFont /Times-Roman >> >>";
    parts.objects = {imageObject(photoWidth, photoHeight, [&](std::uint32_t x, std::uint32_t y) {
        return inPhoto(x, y, static_cast<double>(random() % 41) - 20);
    })};
    return pdfOf({drawing}, parts);
}

std::string noisePdf(std::uint32_t pages) {
    std::mt19937 random(1);
    const auto light = [&] { return static_cast<std::uint8_t>(random()); };
    PdfParts parts;
    parts.resources = imageResource;
    parts.objects = {imageObject(400, 300, [&](std::uint32_t /*x*/, std::uint32_t /*y*/) {
        return PictureColour{light(), light(), light()};
    })};
    const std::string page = imageIn({.left = 20, .top = 20, .width = 555, .height = 400});
    return pdfOf(std::vector<std::string>(pages, page), parts);
}

} // namespace veltrin::test
