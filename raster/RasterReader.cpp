#include "raster/RasterReader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace veltrin::raster {

RasterReader::RasterReader(int fd) : input(fd) {}

/// Reads on the CUPS library's behalf, to know afterwards whether the input ended or failed.
ssize_t RasterReader::readSome(void *reader, unsigned char *buffer, std::size_t size) {
    auto *self = static_cast<RasterReader *>(reader);
    ssize_t got = 0;
    do {
        got = read(self->input, buffer, size);
    } while (got == -1 && errno == EINTR);
    if (got > 0) {
        self->bytesRead += static_cast<std::uint64_t>(got);
    } else if (got == 0) {
        self->ended = true;
    } else {
        self->error = errno;
    }
    return got;
}

RasterReader::Result RasterReader::fail(const std::string &sentence) {
    failure = sentence;
    return Result::failed;
}

std::string RasterReader::whyNothingCame(const char *where) const {
    if (error != 0) {
        return std::string("The raster cannot be read: ") + std::strerror(error) + ".";
    }
    return std::string("The raster ") + (ended ? "ends " : "is damaged ") + where +
           (pages > 0 ? " of page " + std::to_string(pages) : "") + ".";
}

RasterReader::Result RasterReader::nextPage() {
    const std::uint64_t before = bytesRead;
    if (raster == nullptr) {
        raster.reset(cupsRasterOpenIO(readSome, this, CUPS_RASTER_READ));
        if (raster == nullptr) {
            if (ended && bytesRead == 0) {
                return Result::end;
            }
            return fail(error != 0 ? whyNothingCame("") : "The document is no CUPS raster.");
        }
    }
    const std::uint64_t beforeHeader = pages == 0 ? bytesRead : before;
    cups_page_header2_t header;
    if (cupsRasterReadHeader2(raster.get(), &header) == 0) {
        if (ended && bytesRead == beforeHeader && error == 0) {
            return Result::end;
        }
        ++pages;
        return fail(whyNothingCame("in the header"));
    }
    ++pages;
    std::string problem;
    const std::optional<RasterPage> page = rasterPageFrom(header, problem);
    if (!page) {
        return fail(problem);
    }
    current = *page;
    return Result::page;
}

bool RasterReader::readLine(std::span<std::uint8_t> line) {
    const auto size = static_cast<unsigned>(line.size());
    if (cupsRasterReadPixels(raster.get(), line.data(), size) != size) {
        failure = whyNothingCame("in the middle");
        return false;
    }
    return true;
}

} // namespace veltrin::raster
