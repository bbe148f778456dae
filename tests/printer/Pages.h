#pragma once

#include "driver/stream/PageStream.h"
#include "driver/stream/StreamReader.h"
#include "tests/support/PageNotation.h"

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

inline PageHeader printerPageHeader(std::uint8_t type, std::uint8_t tray = 2, std::uint16_t number = 1) {
    PageHeader header{};
    header.MagicNumber = pageHeaderTag;
    header.bType = type;
    header.bPaperTray = tray;
    header.wPageNumber = number;
    return header;
}

/// Pages as a printer gets them, in the notation of pages.
inline std::vector<PageRead> pagesFrom(const std::string &notation) {
    std::vector<PageRead> pages;
    for (const MarkedPage &page : markedPages(notation)) {
        const std::uint8_t tray = page.fromBypass ? 1 : 2;
        pages.push_back({0,
                         printerPageHeader(page.typeBits, tray, static_cast<std::uint16_t>(page.number)),
                         1,
                         {},
                         0,
                         true});
    }
    return pages;
}

} // namespace veltrin::test
