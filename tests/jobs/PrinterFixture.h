#pragma once

#include "tests/jobs/JobFixture.h"
#include "tests/support/PrivateService.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// Runs the filter and a virtual printer as processes on a notification service of the test's own, the
/// message bus on Linux.
class PrinterFixture : public JobFixture {
  protected:
    static constexpr const char *outputFile = "/tmp/printed";
    static constexpr const char *reportFile = "/tmp/report.json";

    /// What the service is to be started with, where it takes anything.
    template <typename... Configuration>
    explicit PrinterFixture(const Configuration &...configuration) : bus(configuration...) {
        switchLogOn();
    }

    /// Starts the printer with a scenario of tests/scenarios/, for one job, and waits until it listens.
    void startPrinter(const std::string &scenario,
                      const std::vector<std::string> &moreArguments = {"--jobs=1"});

    void startFilter(const FilterJob &job = {});

    /// What `startFilter` starts. It reads the stream from a file, so that nobody has to feed it while the
    /// test looks at the printer.
    [[nodiscard]] Command filterOnBus(const FilterJob &job = {}) const;

    /// Waits until the printer has written this line.
    void awaitPrinter(const std::string &line);

    /// Waits until the filter's log has this message; with a count, so often.
    void awaitLog(const std::string &message, std::size_t times = 1);

    /// Waits until the filter has written this line to standard error.
    void awaitStatusLine(const std::string &line, std::size_t times = 1);

    /// The end of the job: the filter's result, after which the printer's is there, too.
    ProcessResult finishFilter();
    ProcessResult finishPrinter();

    /// Waits until a backend has written this for the scheduler.
    [[nodiscard]] static bool says(Process &backend, const std::string &text);

    /// The end of a backend that is there in the printer's stead: standard input ends with the last filter of
    /// a job.
    ProcessResult finishBackend();

    /// Prints four pages on both sides, of blocks of this size, through a backend that is there. Returns what
    /// the device ought to have got.
    std::string printTwoSidedJob(std::uint32_t blockSize);

    /// A second backend, of another job at the device of the one that is there, waits for its end, and then
    /// takes a job of its own.
    void expectSecondToWait(const Command &second);

    /// What the printer wrote, without the times; "< writePipe" lines in a row count as one without its size.
    [[nodiscard]] std::vector<std::string> notifications() const;

    /// The report's only job.
    [[nodiscard]] static nlohmann::json reportedJob();

    /// The lines on the filter's standard error behind the one with the URI's scheme, each once however often
    /// it was repeated in a row.
    [[nodiscard]] static std::vector<std::string> statusLines(const ProcessResult &filter);

    [[nodiscard]] static std::vector<std::string> printerLines(const std::string &output);

    std::string uri = "socket://printer.example:9100/queue?x='y'";
    PrivateService bus;
    std::optional<Process> printer;
    std::optional<Process> filter;
};

} // namespace veltrin::test
