#pragma once

#include "driver/DriverFilter.h"
#include "driver/stream/StreamMaker.h"
#include "tests/driver/PlayedPrinter.h"
#include "tests/support/Arguments.h"
#include "tests/support/ExpectedOutput.h"

#include <memory>
#include <string>
#include <vector>

namespace veltrin::test {

/// The whole driver in the test's own process, with virtual time and a printer played by the test.
class DriverFixture : public PlayedPrinter {
  protected:
    static constexpr const char *spoolFolder = "/tmp/spool";
    static constexpr const char *fileUri = "file:///dev/null";

    DriverFixture();
    ~DriverFixture() override;

    /// Makes a driver, with its input in a file. False where it refuses to be.
    bool start(const std::string &deviceURI, const std::string &options = {}, const std::string &input = {});

    /// Makes a driver and runs a job over the channel; what it has received, written and logged is that of
    /// the run alone. The result is the job's.
    bool print(const std::string &options, const std::string &input) {
        return printTo(printerUri, options, input);
    }

    /// The same without a channel: the printer gets what is in `output`.
    bool printToFile(const std::string &options, const std::string &input) {
        return printTo(fileUri, options, input);
    }

    /// The spool files' contents, in the order in which they were written.
    [[nodiscard]] std::vector<std::string> spooledPages() const;

    /// Removes the spool files, so that no page can be sent.
    static void loseSpooledPages();

    [[nodiscard]] std::vector<std::string> messagesBetween(const std::string &first,
                                                           const std::string &last) const;

    Arguments arguments{{}};
    std::unique_ptr<CUPSFilter> driver;

  private:
    bool printTo(const std::string &deviceURI, const std::string &options, const std::string &input);
};

/// A document of so many pages with two bands each.
[[nodiscard]] StreamOptions streamOf(std::uint32_t pages, std::uint32_t copies = 1,
                                     CopyOrder order = CopyOrder::collated);

} // namespace veltrin::test
