#pragma once

#include <optional>
#include <string>

namespace veltrin::printer {

/// What a device URI of the virtual printer says, such as
/// "veltrin-printer:/lx-520n?scenario=cover-open&output=/var/tmp/printed". The whole of it is the channel's
/// name all the same.
struct PrinterUri {
    std::string printer;    ///< what comes before the query
    std::string scenario;   ///< a scenario's name or file; empty: none
    std::string outputFile; ///< keeps what the printer receives; empty: none
    std::string reportFile; ///< empty: none
};

/// Nothing, with `problem` set, where the query has a member that is unknown, has no value or comes twice. A
/// URI of another scheme is another backend's: its query is not looked at.
[[nodiscard]] std::optional<PrinterUri> parsePrinterUri(const std::string &uri, std::string &problem);

} // namespace veltrin::printer
