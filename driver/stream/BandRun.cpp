#include "driver/stream/BandRun.h"

#include "driver/stream/PageStream.h"

#include <cstring>
#include <optional>

namespace veltrin {

namespace {

/// The header of the band with which `stream` begins; nothing unless the band is there whole.
std::optional<BandHeader> wholeBand(std::span<const std::byte> stream) {
    BandHeader header;
    if (stream.size() < sizeof header) {
        return std::nullopt;
    }
    std::memcpy(&header, stream.data(), sizeof header);
    const std::int32_t dataSize = header.dataSize();
    const bool isWhole = header.MagicNumber == bandHeaderTag && dataSize >= 0 &&
                         stream.size() - sizeof header >= static_cast<std::size_t>(dataSize);
    return isWhole ? std::optional(header) : std::nullopt;
}

std::size_t sizeOf(const BandHeader &header) {
    return sizeof header + static_cast<std::size_t>(header.dataSize());
}

} // namespace

BandRun bandRunOf(std::span<const std::byte> stream) {
    BandRun run;
    while (!run.endsPage) {
        const auto header = wholeBand(stream.subspan(run.size));
        if (!header) {
            break;
        }
        run.size += sizeOf(*header);
        ++run.bands;
        run.endsPage = header->isLastOfPage();
    }
    return run;
}

BandExtent bandAround(std::span<const std::byte> stream, std::size_t offset) {
    BandExtent band;
    for (auto header = wholeBand(stream); header && band.dataEnd <= offset;
         header = wholeBand(stream.subspan(band.dataEnd))) {
        band = {.headerEnd = band.dataEnd + sizeof *header, .dataEnd = band.dataEnd + sizeOf(*header)};
    }
    return band;
}

} // namespace veltrin
