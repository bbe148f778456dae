#pragma once

#include "tests/support/ExpectedOutput.h"
#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace veltrin::test {

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

    /// Where the filter's temporary files go, and where the executable lies with its Info.plist and string
    /// tables.
    static constexpr const char *spoolDirectory = "/tmp/spool";
    static constexpr const char *bundleDirectory = "/tmp/bundle";

    std::string executable = std::string(bundleDirectory) + "/veltrin";
    std::map<std::string, std::string> environment;
};

} // namespace veltrin::test
