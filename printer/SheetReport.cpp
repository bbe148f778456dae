#include "printer/SheetReport.h"

#include <algorithm>
#include <iterator>

namespace veltrin::printer {

namespace {

unsigned sheetBits(const PageRead &page) {
    return page.header.bType & pageTypeFirstOfSheet;
}

unsigned numberOf(const std::vector<PageRead> &pages, std::size_t place) {
    return pages[place].header.wPageNumber;
}

/// Whether every front from `pause` on is followed by the page on its back, when the backs are taken in this
/// order.
template <typename Backs>
bool areSheetsOfADocument(const std::vector<PageRead> &pages, std::size_t pause, Backs backOf) {
    for (std::size_t place = pause; place < pages.size() && place - pause < pause; ++place) {
        if (numberOf(pages, backOf(place - pause)) != numberOf(pages, place) + 1) {
            return false;
        }
    }
    return true;
}

std::vector<Sheet> turnedByHand(const std::vector<PageRead> &pages, std::size_t pause) {
    const auto fromBottom = [](std::size_t i) { return i; };
    const auto fromTop = [pause](std::size_t i) { return pause - 1 - i; };
    const bool top =
        areSheetsOfADocument(pages, pause, fromTop) || !areSheetsOfADocument(pages, pause, fromBottom);

    std::vector<Sheet> sheets;
    for (std::size_t place = 0; place < pause; ++place) {
        sheets.push_back({.front = std::nullopt, .back = place});
    }
    for (std::size_t place = pause; place < pages.size(); ++place) {
        const std::size_t i = place - pause;
        if (i < pause) {
            sheets[top ? fromTop(i) : fromBottom(i)].front = place;
        } else {
            sheets.push_back({.front = place, .back = std::nullopt});
        }
    }
    return sheets;
}

} // namespace

std::vector<Sheet> sheetsOf(const std::vector<PageRead> &pages) {
    if (const std::vector<std::size_t> pauses = pausesOf(pages); !pauses.empty()) {
        return turnedByHand(pages, pauses.front());
    }
    std::vector<Sheet> sheets;
    for (std::size_t place = 0; place < pages.size(); ++place) {
        const bool isSecond = sheetBits(pages[place]) == pageTypeSecondOfSheet;
        if (isSecond && place > 0 && sheetBits(pages[place - 1]) == pageTypeFirstOfSheet) {
            sheets.back() = {.front = place, .back = place - 1};
        } else {
            sheets.push_back({.front = place, .back = std::nullopt});
        }
    }
    return sheets;
}

std::vector<std::size_t> pausesOf(const std::vector<PageRead> &pages) {
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place < pages.size(); ++place) {
        if ((pages[place].header.bType & pageTypePause) != 0) {
            places.push_back(place);
        }
    }
    return places;
}

std::size_t copiesOf(const std::vector<PageRead> &pages) {
    return static_cast<std::size_t>(std::count_if(pages.begin(), pages.end(), [&pages](const PageRead &page) {
        return page.header.wPageNumber.value() == pages.front().header.wPageNumber.value();
    }));
}

} // namespace veltrin::printer
