#pragma once

#include "tests/jobs/JobFixture.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/PrintedSheets.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/Process.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

/// Documents from lp through CUPS's own filters, the renderer and the filter to the virtual printer, which
/// makes pictures of the sheets.
class PrintedDocumentFixture : public JobFixture {
  protected:
    struct Setup {
        bool byHand = false;                ///< no duplex unit: the stack is turned by hand, at once
        std::uint32_t dotsPerInch = coarse; ///< of the pictures
    };

    struct Printed {
        nlohmann::json documents;         ///< the report of each
        std::vector<PrintedSheet> sheets; ///< of all of them

        [[nodiscard]] std::vector<std::string> numbers() const { return numbersOf(sheets); }
    };

    /// The pictures' resolution: a bar of a numbered page is some dots wide. The page's own is a multiple of
    /// it, so that a picture's dot is the mean of whole ones.
    static constexpr std::uint32_t coarse = 75;
    static constexpr std::uint32_t everyDot = 600;

    PrintedDocumentFixture();

    /// Prints a job of these documents to its end.
    [[nodiscard]] Printed printAll(const std::vector<std::string> &documents,
                                   const std::vector<std::string> &options, const Setup &setup);

    [[nodiscard]] Printed printAll(const std::vector<std::string> &documents,
                                   const std::vector<std::string> &options) {
        return printAll(documents, options, Setup());
    }

    [[nodiscard]] Printed print(const std::string &document, const std::vector<std::string> &options,
                                const Setup &setup) {
        return printAll({document}, options, setup);
    }

    [[nodiscard]] Printed print(const std::string &document, const std::vector<std::string> &options = {}) {
        return printAll({document}, options, Setup());
    }

    /// A printer that takes what comes to the queues' device, with this scenario.
    [[nodiscard]] Command printerCommand(const std::string &scenario,
                                         const std::vector<std::string> &moreArguments) const;

    static void awaitPrinter(Process &printer);

    static inline const std::string uri = std::string(PrivateScheduler::channelOnly) + "://printer.example/";
    static inline const std::string folder = "/tmp/of-printer";
    static inline const std::string outputFile = folder + "/printed";
    static inline const std::string reportFile = folder + "/report.json";
    static inline const std::string sheetFolder = folder + "/sheets";

    PrivateBus bus;
    PrivateScheduler scheduler{uri};
};

/// Options as lp takes them.
[[nodiscard]] std::vector<std::string> lpOptions(const std::vector<std::string> &options);

} // namespace veltrin::test
