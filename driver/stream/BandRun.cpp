#include "driver/stream/BandRun.h"

#include "driver/stream/PageStream.h"

#include <cstring>

namespace veltrin {

BandRun bandRunOf(std::span<const std::byte> stream) {
    BandRun run;
    while (!run.endsPage) {
        const std::size_t begin = run.size();
        BandHeader header;
        if (stream.size() - begin < sizeof header) {
            break;
        }
        std::memcpy(&header, &stream[begin], sizeof header);
        const std::int32_t dataSize = header.dataSize();
        if (header.MagicNumber != bandHeaderTag || dataSize < 0 ||
            stream.size() - begin - sizeof header < static_cast<std::size_t>(dataSize)) {
            break;
        }
        run.bands.push_back({begin, begin + sizeof header + static_cast<std::size_t>(dataSize)});
        run.endsPage = header.isLastOfPage();
    }
    return run;
}

} // namespace veltrin
