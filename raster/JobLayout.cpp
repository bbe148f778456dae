#include "raster/JobLayout.h"

namespace veltrin::raster {

namespace {

Side pageSide(std::uint32_t page) {
    return {.number = page, .blank = false};
}

Side blankAfter(std::uint32_t pages) {
    return {.number = pages + 1, .blank = true};
}

bool isOdd(std::uint32_t number) {
    return number % 2 == 1;
}

/// Sheet by sheet, so that both sides of a sheet come together.
bool writesSheets(const JobLayout &layout) {
    return layout.twoSided && !layout.collate && layout.copies > 1;
}

bool repeatSide(const Side &side, std::uint32_t times, const SideSink &sink) {
    for (std::uint32_t time = 0; time < times; ++time) {
        if (!sink(side)) {
            return false;
        }
    }
    return true;
}

bool repeatSheet(const Side &front, const Side &back, std::uint32_t times, const SideSink &sink) {
    for (std::uint32_t time = 0; time < times; ++time) {
        if (!sink(front) || !sink(back)) {
            return false;
        }
    }
    return true;
}

bool laterCopies(const JobLayout &layout, std::uint32_t pages, bool endBlank, const SideSink &sink) {
    for (std::uint32_t copy = 1; copy < layout.copies; ++copy) {
        for (std::uint32_t page = 1; page <= pages; ++page) {
            if (!sink(pageSide(page))) {
                return false;
            }
        }
        if (endBlank && !sink(blankAfter(pages))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool sidesOnArrival(const JobLayout &layout, std::uint32_t page, const SideSink &sink) {
    if (writesSheets(layout)) {
        return isOdd(page) || repeatSheet(pageSide(page - 1), pageSide(page), layout.copies, sink);
    }
    return repeatSide(pageSide(page), layout.collate ? 1 : layout.copies, sink);
}

bool sidesAtEnd(const JobLayout &layout, std::uint32_t pages, const SideSink &sink) {
    if (pages == 0) {
        return true;
    }
    const bool oddSheet = layout.twoSided && isOdd(pages);
    if (writesSheets(layout)) {
        return !oddSheet || repeatSheet(pageSide(pages), blankAfter(pages), layout.copies, sink);
    }
    const bool endBlank = oddSheet && (pages > 1 || layout.copies > 1);
    if (endBlank && !sink(blankAfter(pages))) {
        return false;
    }
    return !layout.collate || laterCopies(layout, pages, endBlank, sink);
}

bool repeatsPages(const JobLayout &layout) {
    return layout.copies > 1;
}

bool isDoneWithPages(const JobLayout &layout, std::uint32_t page) {
    return !repeatsPages(layout) || (!layout.collate && !(writesSheets(layout) && isOdd(page)));
}

} // namespace veltrin::raster
