#pragma once

#include "tests/jobs/JobFixture.h"
#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/Process.h"

#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// A virtual printer at the end of a wire, and a scheduler with a queue that prints to it: by the filter, the
/// channel under the packaged policy, the backend for devices and CUPS's own backend for the network.
class WireSchedulerFixture : public JobFixture {
  protected:
    static constexpr const char *outputFile = "/tmp/printed";
    static constexpr const char *reportFile = "/tmp/report.json";
    static constexpr const char *ready = R"("printer": {"pagesPerMinute": 6000, "stackTurnedAfter": 1})";

    /// A printer with these members in its scenario, at a free port or where it was before.
    void switchOn(const std::string &members = ready);

    /// Returns how each job ended for the printer.
    std::vector<std::string> switchOff();

    void startScheduler(int backendMode = PrivateScheduler::ordinaryBackend);

    [[nodiscard]] std::string deviceUri() const;

    int submit(const StreamOptions &stream = document(),
               const std::vector<std::string> &options = {"media=A4"});

    /// Whether the queue shows IPP's keyword.
    [[nodiscard]] bool hasReason(const std::string &reason) const;

  private:
    [[nodiscard]] static std::string busConfiguration();

    PrivateBus bus{busConfiguration()}; // is there as long as the others
    std::string port = "0";

  protected:
    std::optional<Process> printer;
    std::optional<PrivateScheduler> scheduler;
};

} // namespace veltrin::test
