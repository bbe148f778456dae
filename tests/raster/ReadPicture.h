#pragma once

#include "raster/PagePicture.h"

#include <gtest/gtest.h>

#include <png.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace veltrin::test {

/// A PNG, read back.
struct ReadPicture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    unsigned bitDepth = 0;
    bool hasPalette = false;
    std::uint32_t dotsPerMetre = 0; ///< 0 where it is not told
    std::vector<std::uint8_t> rgb;

    [[nodiscard]] raster::PictureColour at(std::uint32_t x, std::uint32_t y) const {
        const std::size_t place = (std::size_t{y} * width + x) * 3;
        return {rgb.at(place), rgb.at(place + 1), rgb.at(place + 2)};
    }
};

/// Reads a PNG; one that cannot be read ends the running test.
inline ReadPicture readPicture(const std::string &path) {
    ReadPicture picture;
    std::FILE *const file = std::fopen(path.c_str(), "rbe");
    if (file == nullptr) {
        ADD_FAILURE() << path << " cannot be opened";
        return picture;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_info(png, info); // ends the process where it is no PNG
    picture.width = png_get_image_width(png, info);
    picture.height = png_get_image_height(png, info);
    picture.bitDepth = png_get_bit_depth(png, info);
    picture.hasPalette = png_get_color_type(png, info) == PNG_COLOR_TYPE_PALETTE;
    picture.dotsPerMetre = png_get_pixels_per_meter(png, info);
    png_set_expand(png);
    png_read_update_info(png, info);
    picture.rgb.resize(std::size_t{picture.width} * picture.height * 3);
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        png_read_row(png, &picture.rgb[std::size_t{y} * picture.width * 3], nullptr);
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return picture;
}

} // namespace veltrin::test
