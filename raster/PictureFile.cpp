#include "raster/PictureFile.h"

#include <fcntl.h>
#include <png.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>

namespace veltrin::raster {

namespace {

constexpr double metresPerInch = 0.0254;

/// More takes much more time than the disk gains by it.
constexpr int compressionLevel = 3;

void describe(png_structp png, png_infop info, const PagePicture &picture) {
    const bool hasPalette = picture.isOfInkMixes();
    png_set_IHDR(png, info, picture.width(), picture.height(), hasPalette ? 4 : 8,
                 hasPalette ? PNG_COLOR_TYPE_PALETTE : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (hasPalette) {
        std::array<png_color, inkMixes> palette{};
        for (std::size_t mix = 0; mix < inkMixes; ++mix) {
            const PictureColour colour = colourOf(static_cast<InkMix>(mix));
            palette[mix] = {colour.red, colour.green, colour.blue};
        }
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
        // The mixes of neighbours do not follow from each other.
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
    }
    if (picture.resolution() != 0) {
        const auto perMetre = static_cast<png_uint_32>(std::lround(picture.resolution() / metresPerInch));
        png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
    }
    png_set_compression_level(png, compressionLevel);
}

/// What the library says of its failures is not for the terminal: the system's number tells enough.
[[noreturn]] void fail(png_structp png, png_const_charp /*text*/) {
    png_longjmp(png, 1);
}

void ignore(png_structp /*png*/, png_const_charp /*text*/) {}

/// Returns whether all of it has been written, with `errno` set where not. The library leaves by a jump:
/// nothing in here has a destructor.
bool write(std::FILE *file, PagePicture &picture) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, ignore);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        errno = ENOMEM;
        return false;
    }
    errno = 0;
    if (setjmp(png_jmpbuf(png)) != 0) { // NOLINT(cert-err52-cpp): it is the library's way to report
        const int error = errno != 0 ? errno : EIO;
        png_destroy_write_struct(&png, &info);
        errno = error;
        return false;
    }
    png_init_io(png, file);
    describe(png, info, picture);
    png_write_info(png, info);
    for (std::uint32_t row = 0; row < picture.height(); ++row) {
        png_write_row(png, picture.nextRow().data());
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

int writePicture(const std::string &path, PagePicture picture) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    std::FILE *const file = fd != -1 ? fdopen(fd, "wb") : nullptr;
    if (file == nullptr) {
        const int error = errno;
        if (fd != -1) {
            close(fd);
        }
        return error;
    }
    int error = write(file, picture) ? 0 : errno;
    if (std::fclose(file) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(path.c_str());
    }
    return error;
}

} // namespace veltrin::raster
