#pragma once

#include "driver/stream/StreamMaker.h"

#include <cstdint>
#include <string>

namespace veltrin::test {

/// The options by which a job asks for things, by short names.
struct JobOptions {
    int copies = 1;
    bool collate = false;
    int duplexing = 0; ///< 2 long edge, 3 short edge
    int sidesImaged = 0;
    std::string jobName = {};
    std::string others = {}; ///< further options, as they stand in the argument

    /// The argument as CUPS passes it to a filter.
    [[nodiscard]] std::string argument() const;
};

/// What the printer gets of a stream: its headers with the job-setting bits `jobSetting`, the pages that
/// `pages` describes (see `markedPages`), and the end-of-job mark.
[[nodiscard]] std::string printed(const StreamOptions &stream, std::uint16_t jobSetting,
                                  const std::string &pages);

/// The cancel record that a failed job ends with.
[[nodiscard]] const std::string &cancelRecord();

/// The record that a job with a channel begins with.
[[nodiscard]] const std::string &resetRecord();

} // namespace veltrin::test
