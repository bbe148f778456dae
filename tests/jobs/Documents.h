#pragma once

#include "driver/stream/StreamMaker.h"
#include "tests/support/ExpectedOutput.h"

#include <cstdint>
#include <string>

// Documents, and how people ask for them.

namespace veltrin::test {

inline StreamOptions document(std::uint32_t pages) {
    StreamOptions options;
    options.pages = pages;
    return options;
}

inline std::string twoSided(int copies, bool collate, int sides) {
    return JobOptions{.copies = copies,
                      .collate = collate,
                      .duplexing = 2,
                      .sidesImaged = sides,
                      .others = collate ? "" : "nocom.apple.print.PrintSettings.PMCopyCollate..b."}
        .argument();
}

} // namespace veltrin::test
