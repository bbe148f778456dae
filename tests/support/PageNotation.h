#pragma once

#include <cstdint>
#include <string>
#include <vector>

// How the tests write which pages a printer gets: "2(12) 1(4)", "4 2 1*b 3b".

namespace veltrin::test {

/// A page by the number of its document page and its marks: "*" pauses before it, "(12)" and "(4)" are the
/// bits of a duplex unit, "b" is the bypass tray.
struct MarkedPage {
    std::uint32_t number = 1;
    std::uint8_t typeBits = 0;
    bool fromBypass = false;
};

/// The pages that a text describes, with blanks between them. What is no page fails the running test.
[[nodiscard]] std::vector<MarkedPage> markedPages(const std::string &notation);

[[nodiscard]] std::string notationOf(const std::vector<MarkedPage> &pages);

} // namespace veltrin::test
