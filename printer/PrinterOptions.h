#pragma once

#include "printer/ListenAddress.h"
#include "printer/SheetPictures.h"

#include <cstdint>
#include <optional>
#include <string>

namespace veltrin::printer {

extern const char *const printerHelp;

/// What somebody who starts the printer by hand wants of it.
struct PrinterOptions {
    enum class Task { serve, listScenarios, help, version };

    Task task = Task::serve;
    std::string uri;                     ///< for a channel
    std::optional<ListenAddress> listen; ///< for a wire; one of the two
    std::string scenario;                ///< a name or a file; empty: none
    std::string outputFile;
    std::string reportFile;
    SheetPictures::Wishes sheets;
    std::uint64_t jobs = 0; ///< 0: no limit
    bool stays = false;
};

/// Reads a command line. Nothing, with `problem` set, where there is a mistake in it; `problem` is empty
/// where getopt_long() has written about it.
[[nodiscard]] std::optional<PrinterOptions> parsePrinterOptions(int argc, char *const *argv,
                                                                std::string &problem);

} // namespace veltrin::printer
