#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// What a printer on a wire makes of the bytes that wait on its line, where nothing but the bytes themselves
// says what they are.

namespace veltrin::printer {

/// What the bytes before have come to.
struct LinePlace {
    std::uint64_t dataToCome = 0; ///< bytes of a band's data; 0: a header comes next
    bool isLost = false;          ///< what came last was no page stream
};

/// Memory that is free.
struct LineRoom {
    std::uint64_t header = 0;
    std::uint64_t image = 0;
};

/// Whether more may follow what waits.
enum class LineState {
    open,  ///< at any moment
    quiet, ///< nothing has come for a while
    ended, ///< never
};

struct LinePart {
    enum class Kind {
        none,    ///< nothing can be taken: more must come, or memory must become free
        command, ///< a reset or a cancel record
        stream,  ///< what the place in the stream makes it: a whole header, data, or what cannot be read
    };

    Kind kind = Kind::none;
    std::size_t size = 0; ///< from the first byte that waits

    bool operator==(const LinePart &) const = default;
};

/// The next part to be taken of the bytes that wait. It never takes more memory than there is.
///
/// Reset and cancel record count wherever they stand but inside a header: the host's stream may break off in
/// the midst of a band, and what then comes is no data of it. What could be the beginning of such a record is
/// left on the line until it has come whole, or the line is quiet. Records need no memory.
[[nodiscard]] LinePart nextLinePart(std::span<const std::byte> waiting, const LinePlace &place,
                                    const LineRoom &room, LineState state);

} // namespace veltrin::printer
