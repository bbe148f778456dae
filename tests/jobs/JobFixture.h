#pragma once

#include "driver/stream/StreamMaker.h"
#include "tests/support/ExpectedOutput.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace veltrin::test {

/// A job as the scheduler hands it to the filter.
struct FilterJob {
    std::string id = "7";
    std::string stream = makeStream(StreamOptions());
    std::string options = {};
    std::optional<std::variant<Pipe, Closed>> input = {}; ///< without: `stream`
    std::optional<Descriptor> output = {};                ///< without: a pipe to the test
};

/// What a filter finds around it.
struct FilterSurroundings {
    std::string queue = "queue";
    std::string deviceUri = "file:///dev/null";
    std::string server = noScheduler;
    std::string serverRoot = "/tmp/cups";
    std::string temporaryFolder = "/tmp/spool";
};

/// The environment in which the scheduler starts a filter.
[[nodiscard]] std::map<std::string, std::string> filterEnvironment(const FilterSurroundings &surroundings);

/// Whole jobs, by programs that are processes of their own: the filter as the scheduler starts it, what it
/// writes to its log, and what it must leave as it was.
class JobFixture : public testing::Test {
  protected:
    /// Where the filter's temporary files go.
    static constexpr const char *spoolFolder = "/tmp/spool";

    /// For a filter that has its information dictionary and string tables beside it.
    static constexpr const char *bundleFolder = "/tmp/bundle";

    JobFixture();
    ~JobFixture() override;

    /// Lets the filter write its debug log.
    static void switchLogOn();

    /// The filter with six arguments.
    [[nodiscard]] Command filterCommand(const FilterJob &job) const;

    /// The messages of the debug log so far, spool files named "<file 0>", "<file 1>", ... in the order in
    /// which they first appear.
    [[nodiscard]] static std::vector<std::string> logMessages();

    /// Whether the debug log has this message; with a count, so often.
    [[nodiscard]] static bool hasLogged(const std::string &message, std::size_t times = 1);

    /// What every job must leave as it was.
    static void expectNothingLeft();

    /// The jobs in a report of the virtual printer.
    [[nodiscard]] static nlohmann::json jobsIn(const std::string &reportFile);

    std::string filterProgram = hostPath(VELTRIN_FILTER);
    std::map<std::string, std::string> environment = filterEnvironment({});
};

} // namespace veltrin::test
