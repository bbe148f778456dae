#include "tests/support/PageNotation.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace veltrin::test {

namespace {

constexpr std::uint8_t pause = 0x10;

} // namespace

std::vector<MarkedPage> markedPages(const std::string &notation) {
    static const std::regex form(R"((\d+)(?:\((\d+)\)|(\*))?(b)?)");
    std::vector<MarkedPage> pages;
    std::istringstream words(notation);
    for (std::string word; words >> word;) {
        std::smatch parts;
        if (!std::regex_match(word, parts, form)) {
            ADD_FAILURE() << "\"" << word << "\" describes no page";
            continue;
        }
        const unsigned long bits = parts[2].matched ? std::stoul(parts[2]) : parts[3].matched ? pause : 0;
        pages.push_back({.number = static_cast<std::uint32_t>(std::stoul(parts[1])),
                         .typeBits = static_cast<std::uint8_t>(bits),
                         .fromBypass = parts[4].matched});
    }
    return pages;
}

std::string notationOf(const std::vector<MarkedPage> &pages) {
    std::string text;
    for (const MarkedPage &page : pages) {
        text += (text.empty() ? "" : " ") + std::to_string(page.number);
        if (page.typeBits == pause) {
            text += "*";
        } else if (page.typeBits != 0) {
            text += "(" + std::to_string(page.typeBits) + ")";
        }
        text += page.fromBypass ? "b" : "";
    }
    return text;
}

} // namespace veltrin::test
