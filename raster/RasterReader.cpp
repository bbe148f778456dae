#include "raster/RasterReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace veltrin::raster {

RasterReader::RasterReader(int fd) : input(fd), room(roomSize) {}

/// Hands the CUPS library the bytes that it asks for.
///
/// Of compressed raster it asks for more than it needs, and so takes the beginning of the next page away; if
/// the input ends there, it then tells the same as where the raster ends as it should. No line and no header
/// is that long: such a request is given a single byte, and nothing is ever taken of a page that has not been
/// asked for.
ssize_t RasterReader::handOut(void *reader, unsigned char *buffer, std::size_t size) {
    auto *self = static_cast<RasterReader *>(reader);
    const std::size_t longest =
        std::max(sizeof(cups_page_header2_t), static_cast<std::size_t>(self->current.bytesPerLine));
    const std::size_t wanted = size > longest ? 1 : size;
    // Lines of plain raster need not be copied twice.
    constexpr std::size_t worthACall = 4096;
    std::size_t taken = 0;
    if (self->kept.empty() && wanted >= worthACall) {
        taken = self->readInto({buffer, wanted});
    } else if (!self->kept.empty() || self->keepMore()) {
        taken = std::min(wanted, self->kept.size());
        std::copy_n(self->kept.begin(), taken, buffer);
        self->kept = self->kept.subspan(taken);
    }
    self->bytesTaken += taken;
    return self->error != 0 ? -1 : static_cast<ssize_t>(taken);
}

/// Reads what there is, and waits for it; nothing where the input has ended or failed.
std::size_t RasterReader::readInto(std::span<unsigned char> bytes) {
    ssize_t got = 0;
    do {
        got = read(input, bytes.data(), bytes.size());
    } while (got == -1 && errno == EINTR);
    if (got == -1) {
        error = errno;
    }
    ended = ended || got == 0;
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

/// Reads more into the room, behind what is kept there.
bool RasterReader::keepMore() {
    std::copy(kept.begin(), kept.end(), room.begin());
    const std::size_t got = readInto(std::span(room).subspan(kept.size()));
    kept = std::span(room).first(kept.size() + got);
    return got != 0;
}

/// The library understands that, too; but it says nothing of the paper, nor of where the raster lies on it.
bool RasterReader::isAppleRaster() {
    constexpr std::string_view sync = "UNIR";
    while (kept.size() < sync.size() && keepMore()) {
    }
    return std::string_view(reinterpret_cast<const char *>(kept.data()), kept.size()).starts_with(sync);
}

RasterReader::Result RasterReader::open() {
    if (!isAppleRaster()) {
        raster.reset(cupsRasterOpenIO(handOut, this, CUPS_RASTER_READ));
    }
    if (raster != nullptr) {
        return Result::page;
    }
    if (ended && kept.empty() && bytesTaken == 0 && error == 0) {
        return Result::end;
    }
    return fail(error != 0 ? whyNothingCame("") : "The document is no CUPS raster.");
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
    if (const Result opened = raster != nullptr ? Result::page : open(); opened != Result::page) {
        return opened;
    }
    const std::uint64_t before = bytesTaken;
    cups_page_header2_t header;
    if (cupsRasterReadHeader2(raster.get(), &header) == 0) {
        if (ended && bytesTaken == before && error == 0) {
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
