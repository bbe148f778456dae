#include "printer/LinePart.h"

#include "driver/stream/CommandRecord.h"
#include "driver/stream/PageStream.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace veltrin::printer {

namespace {

constexpr std::array<const CommandRecord *, 2> commandRecords = {&reverseDataReset, &cancelCommand};

/// Whether `bytes` begin with one of the records, or are the beginning of one.
bool mayBeRecord(std::span<const std::byte> bytes) {
    const std::size_t size = std::min(bytes.size(), sizeof(CommandRecord));
    return std::any_of(commandRecords.begin(), commandRecords.end(), [&](const CommandRecord *record) {
        return std::memcmp(record->data(), bytes.data(), size) == 0;
    });
}

static_assert(reverseDataReset.front() == cancelCommand.front());

/// How many bytes stand in front of the first record, the beginning of one at the end included if that
/// `counts`.
std::size_t sizeBeforeRecord(std::span<const std::byte> bytes, bool counts) {
    const auto first = static_cast<std::byte>(reverseDataReset.front());
    for (auto at = std::find(bytes.begin(), bytes.end(), first); at != bytes.end();
         at = std::find(at + 1, bytes.end(), first)) {
        const std::span<const std::byte> rest(at, bytes.end());
        if ((counts || rest.size() >= sizeof(CommandRecord)) && mayBeRecord(rest)) {
            return static_cast<std::size_t>(at - bytes.begin());
        }
    }
    return bytes.size();
}

LinePart stream(std::uint64_t size) {
    return size == 0 ? LinePart{} : LinePart{LinePart::Kind::stream, static_cast<std::size_t>(size)};
}

/// What begins with a tag: a header, the end-of-job mark, or what is no page stream.
LinePart tagged(std::span<const std::byte> waiting, const LineRoom &room, LineState state) {
    if (waiting.size() < tagSize) {
        return stream(state == LineState::ended ? waiting.size() : 0);
    }
    WireTag wireTag;
    std::memcpy(&wireTag, waiting.data(), sizeof wireTag);
    const Tag tag = wireTag;
    if (tag == commandTag) { // one that the printer does not know
        const bool isWhole = waiting.size() >= sizeof(CommandRecord) || state == LineState::ended;
        return stream(isWhole ? std::min(waiting.size(), sizeof(CommandRecord)) : 0);
    }
    const auto size = headerSizeOf(tag);
    if (!size) {
        return stream(tagSize);
    }
    const bool isWhole = waiting.size() >= *size || state == LineState::ended;
    return stream(isWhole && *size <= room.header ? std::min(waiting.size(), *size) : 0);
}

} // namespace

LinePart nextLinePart(std::span<const std::byte> waiting, const LinePlace &place, const LineRoom &room,
                      LineState state) {
    if (waiting.empty()) {
        return {};
    }
    if (waiting.size() >= sizeof(CommandRecord) && mayBeRecord(waiting)) {
        return {LinePart::Kind::command, sizeof(CommandRecord)};
    }
    if (place.dataToCome == 0 && !place.isLost) {
        return tagged(waiting, room, state);
    }
    const std::size_t size = sizeBeforeRecord(waiting, state == LineState::open);
    return stream(place.isLost ? size : std::min({std::uint64_t{size}, place.dataToCome, room.image}));
}

} // namespace veltrin::printer
