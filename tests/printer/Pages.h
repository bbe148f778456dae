#pragma once

#include "driver/stream/PageStream.h"
#include "driver/stream/StreamReader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

inline PageHeader pageHeader(std::uint8_t type, std::uint8_t tray = 2, std::uint16_t number = 1) {
    PageHeader header{};
    header.MagicNumber = pageHeaderTag;
    header.bType = type;
    header.bPaperTray = tray;
    header.wPageNumber = number;
    return header;
}

/// Pages written as the printer gets them: the page number, then "!" for 0x0C, "," for 0x04, "*" for 0x10.
inline std::vector<PageRead> pagesFrom(const std::vector<std::string> &texts) {
    std::vector<PageRead> pages;
    for (const std::string &text : texts) {
        const char mark = text.back();
        const std::uint8_t type = mark == '!' ? 0x0C : mark == ',' ? 0x04 : mark == '*' ? 0x10 : 0;
        pages.push_back(
            {0, pageHeader(type, 2, static_cast<std::uint16_t>(std::stoi(text))), 1, {}, 0, true});
    }
    return pages;
}

} // namespace veltrin::test
