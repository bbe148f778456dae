#pragma once

#include "driver/stream/StreamMaker.h"
#include "tests/jobs/JobFixture.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/PrivateBus.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

/// Queues that print through the virtual printer as a backend, on a message bus of the test's own.
class BackendFixture : public JobFixture {
  protected:
    static inline const std::string folder = "/tmp/of-printer";
    static inline const std::string outputFile = folder + "/printed";
    static inline const std::string reportFile = folder + "/report.json";

    static inline const std::string secondQueue = "Second_Queue";
    static inline const std::string thirdQueue = "Third_Queue";
    static inline const std::string waiting = "Waiting for another job to leave the printer.";

    BackendFixture();

    /// A printer without a duplex unit and with this scenario, which writes both files.
    static std::string uriOf(const std::string &scenario);

    /// A scenario whose printer has room for one of `twoLargePages` and does not print it as long as its
    /// cover is open: for so many seconds, or for good. Returns the file's path.
    static std::string coverOpen(const std::string &seconds = {});

    static StreamOptions twoLargePages(std::uint64_t seed = 0);

    /// What the filter makes of a job, as the printer gets it.
    static std::string printedFrom(const PrivateScheduler &scheduler, const std::vector<std::string> &options,
                                   const std::string &stream);

    /// The printer's report of each document.
    static nlohmann::json reportedDocuments() { return jobsIn(reportFile); }

    /// Waits until the printer has got something of a job.
    static void awaitPrinter(PrivateScheduler &scheduler);

    PrivateBus bus;
};

} // namespace veltrin::test
