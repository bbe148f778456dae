#pragma once

#include "tests/jobs/JobFixture.h"

#include <map>
#include <string>

namespace veltrin::test {

/// The filter alone, in a bundle of its own, with jobs to standard output.
class FilterFixture : public JobFixture {
  protected:
    FilterFixture();

    /// The configuration keys of the printer model; strings, as text.
    static void configure(const std::map<std::string, std::string> &keys);

    /// A filter that reads `input`.
    [[nodiscard]] Command command(const std::string &options, const std::string &input) const {
        return filterCommand({.stream = input, .options = options});
    }

    /// Runs a job to its end, and expects the temporary directory to be as it was.
    ProcessResult print(const std::string &options, const std::string &input);
    static ProcessResult runToEnd(const Command &command);
};

} // namespace veltrin::test
