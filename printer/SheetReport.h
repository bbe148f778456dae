#pragma once

#include "driver/stream/StreamReader.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace veltrin::printer {

/// One sheet of paper as it leaves the printer; the pages are places in the list of pages.
struct Sheet {
    std::optional<std::size_t> front;
    std::optional<std::size_t> back;

    bool operator==(const Sheet &) const = default;
};

/// What pages in this order become on paper, sheet by sheet in the order in which the sheets were begun.
///
/// A printer with a duplex unit prints the first side it gets (0x0C) on the back and the second (0x04) on the
/// front. Where the stack is turned by hand (0x10), the pages before the pause are the backs. Which of them
/// comes to lie under which front depends on how the stack is turned: from its top, the last sheet first,
/// unless it is only from its bottom that every front has the page after it on its back.
[[nodiscard]] std::vector<Sheet> sheetsOf(const std::vector<PageRead> &pages);

/// The places of the pages before which the printer waited for the stack to be turned.
[[nodiscard]] std::vector<std::size_t> pausesOf(const std::vector<PageRead> &pages);

/// How often the page that came first came in all; 0 where there is no page.
[[nodiscard]] std::size_t copiesOf(const std::vector<PageRead> &pages);

} // namespace veltrin::printer
