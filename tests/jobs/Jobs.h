#pragma once

#include "driver/stream/StreamMaker.h"
#include "tests/jobs/PrivateScheduler.h"

#include <string>
#include <vector>

// Jobs as people submit them.

namespace veltrin::test {

/// A four-page document in two collated copies, as the renderer writes it.
inline StreamOptions document() {
    StreamOptions stream;
    stream.pages = 4;
    stream.copies = 2;
    return stream;
}

inline const std::vector<std::string> twoSidedTwoCopies = {
    "media=A4",
    "com.apple.print.PrintSettings.PMCopies..n.=2",
    "com.apple.print.PrintSettings.PMCopyCollate..b.=true",
    "com.apple.print.PrintSettings.PMDuplexing..n.=2",
    "com.apple.print.PrintSettings.PMTotalSidesImaged..n.=8",
};

/// The options as lp takes them, with the stream's MIME type.
inline std::vector<std::string> forLp(std::vector<std::string> options) {
    options.push_back(std::string("document-format=") + PrivateScheduler::mimeType);
    std::vector<std::string> arguments;
    for (const std::string &option : options) {
        arguments.insert(arguments.end(), {"-o", option});
    }
    return arguments;
}

/// The options as the filter gets them.
inline std::string forFilter(const std::vector<std::string> &options) {
    std::string text;
    for (const std::string &option : options) {
        text += option + " ";
    }
    return text;
}

} // namespace veltrin::test
