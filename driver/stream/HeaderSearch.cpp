#include "driver/stream/HeaderSearch.h"

#include "driver/stream/CommandRecord.h"
#include "driver/stream/PageStream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace veltrin {

namespace {

using Bytes = std::span<const std::byte>;

static_assert(searchAhead >= largestHeaderSize + tagSize);
static_assert(searchAhead >= tagSize + identifierSize + tagSize);

/// The header at the beginning of `bytes`, which are as many.
template <typename Header>
Header read(Bytes bytes) {
    Header header;
    std::memcpy(&header, bytes.data(), sizeof header);
    return header;
}

std::optional<Tag> tagAt(Bytes bytes, std::size_t at) {
    if (bytes.size() < at + tagSize) {
        return std::nullopt;
    }
    return read<WireTag>(bytes.subspan(at));
}

bool isTagAt(Bytes bytes, std::size_t at) {
    const auto tag = tagAt(bytes, at);
    return tag && (headerSizeOf(*tag) || *tag == commandTag);
}

/// Whether the stream can go on at this place.
bool goesOn(Bytes bytes, std::size_t at, bool isAll) {
    return isTagAt(bytes, at) || (isAll && bytes.size() == at);
}

/// Headers of all kinds that have a length have it behind their tag.
bool headerMakesSense(Bytes bytes, bool isAll, std::size_t size) {
    if (bytes.size() < size) {
        return false;
    }
    return read<BigEndian32>(bytes.subspan(tagSize)) == size || goesOn(bytes, size, isAll);
}

bool bandMakesSense(Bytes bytes, bool isAll) {
    if (bytes.size() < sizeof(BandHeader)) {
        return false;
    }
    const auto band = read<BandHeader>(bytes);
    const std::uint64_t size = std::uint64_t{band.dwKSize} + band.dwYSize + band.dwMSize + band.dwCSize;
    if (size > std::numeric_limits<std::int32_t>::max()) {
        return false;
    }
    const std::uint64_t end = sizeof(BandHeader) + size;
    if (end + tagSize <= bytes.size() || (isAll && end <= bytes.size())) {
        return goesOn(bytes, static_cast<std::size_t>(end), isAll);
    }
    return band.dwBandSetting <= std::numeric_limits<std::uint8_t>::max();
}

bool commandMakesSense(Bytes bytes) {
    if (bytes.size() < sizeof(CommandRecord)) {
        return false;
    }
    const auto record = read<CommandRecord>(bytes);
    return record == reverseDataReset || record == cancelCommand;
}

bool endOfJobMakesSense(Bytes bytes, bool isAll) {
    const Bytes rest = bytes.subspan(tagSize);
    const auto next = tagAt(rest, 0);
    return (isAll && rest.empty()) || next == fileHeaderTag || tagAt(rest, identifierSize) == fileHeaderTag ||
           (next == commandTag && commandMakesSense(rest));
}

} // namespace

bool makesSense(Bytes bytes, bool isAll, SearchPlace place) {
    const bool insideJob = place == SearchPlace::job || place == SearchPlace::page;
    const auto tag = tagAt(bytes, 0);
    if (!tag) {
        return false;
    }
    switch (*tag) {
    case fileHeaderTag:
        return headerMakesSense(bytes, isAll, sizeof(FileHeader));
    case fileHeaderExTag:
        return headerMakesSense(bytes, isAll, sizeof(FileHeaderEx));
    case pageHeaderTag:
        return insideJob && headerMakesSense(bytes, isAll, sizeof(PageHeader));
    case bandHeaderTag:
        return place == SearchPlace::page && bandMakesSense(bytes, isAll);
    case endOfJobTag:
        return insideJob && endOfJobMakesSense(bytes, isAll);
    case commandTag:
        return place != SearchPlace::afterCancel && commandMakesSense(bytes);
    default:
        return false;
    }
}

std::optional<std::size_t> findHeader(Bytes bytes, std::size_t from, bool isAll, SearchPlace place) {
    // Every tag begins with one of these; most bytes do not.
    const auto mayBegin = [](std::byte byte) { return byte == std::byte{'G'} || byte == std::byte{'J'}; };
    const std::size_t needed = isAll ? tagSize : searchAhead;
    if (bytes.size() < needed) {
        return std::nullopt;
    }
    for (std::size_t at = from; at <= bytes.size() - needed; ++at) {
        if (!mayBegin(bytes[at])) {
            continue;
        }
        // Never more than that, or the answer would depend on how the input is cut.
        const Bytes rest = bytes.subspan(at);
        const bool isEnd = rest.size() < searchAhead;
        if (makesSense(isEnd ? rest : rest.first(searchAhead), isEnd, place)) {
            return at;
        }
    }
    return std::nullopt;
}

} // namespace veltrin
