#pragma once

#include "tests/support/Process.h"
#include "tools/StreamMaker.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

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
/// `pages` describes, and the end-of-job mark.
///
/// A page is described by its number and its marks: "*" pauses before it, "(12)" and "(4)" are the bits of a
/// duplex unit, "b" is the bypass tray.
[[nodiscard]] std::string printed(const StreamOptions &stream, std::uint16_t jobSetting,
                                  const std::string &pages);

/// The cancel record that a failed job ends with.
[[nodiscard]] const std::string &cancelRecord();

/// Runs the real executable as the scheduler does: argv[0] the queue's name, the scheduler's environment, the
/// executable in a bundle of its own, and a temporary directory that must be empty again after every job.
class FilterFixture : public testing::Test {
  protected:
    FilterFixture();
    ~FilterFixture() override;

    /// The configuration keys of the printer model; strings, as text.
    void configure(const std::map<std::string, std::string> &keys);

    /// A filter with six arguments that reads `input`.
    [[nodiscard]] Command command(const std::string &options, const std::string &input) const;

    /// Runs a job to its end, and expects the temporary directory to be as it was.
    ProcessResult print(const std::string &options, const std::string &input);
    ProcessResult runToEnd(const Command &command);

    void expectNothingLeftBehind() const;

    /// The messages of the debug log so far, spool files named "<file 0>", "<file 1>", ... in the order in
    /// which they first appear.
    [[nodiscard]] std::vector<std::string> logMessages() const;

    /// The file that the job's input was spooled into is not known beforehand; where it lies is.
    static constexpr const char *spoolDirectory = "/tmp/spool";
    static constexpr const char *bundleDirectory = "/tmp/bundle";

    std::string executable = std::string(bundleDirectory) + "/veltrin";
    std::map<std::string, std::string> environment;
};

} // namespace veltrin::test
