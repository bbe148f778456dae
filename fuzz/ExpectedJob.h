#pragma once

#include "filter/JobSettings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the filter has to make of a stream, by another way than its own: the whole stream lies in memory.

namespace veltrin::fuzz {

/// The settings that a job's options ask for, read with another class than the filter's own.
[[nodiscard]] JobSettings settingsOf(const std::string &text);

/// A header with its data, or the end-of-job mark.
struct Unit {
    std::string bytes;

    [[nodiscard]] bool isPageHeader() const { return bytes.starts_with("GDIP"); }

    [[nodiscard]] bool endsPage() const;
};

/// The stream behind its identifier, as far as it is whole.
struct Units {
    std::string jobHeaders; ///< both; empty where they are not there
    std::vector<Unit> rest; ///< what comes behind them, without the end-of-job mark
    bool ended = false;     ///< by that mark
};

[[nodiscard]] Units unitsOf(const std::string &stream);

/// How many bytes at the beginning of a piece of a stream are whole headers with their data, and end-of-job
/// marks.
[[nodiscard]] std::size_t wholeBytes(std::string_view piece);

/// What of the printer's model the configuration tells.
struct PrinterKeys {
    std::optional<std::string> duplexOrder;
    bool manualDuplex = false;
    bool duplexBypass = false;
};

struct ExpectedJob {
    bool result = false;
    std::string output;
    std::size_t spooledPages = 0; ///< that are sent, each as often as it is
};

/// Without a channel, whose status records would say more. `settings` are those of the job's options. Nothing
/// where more pages than `mostPages` would be sent.
[[nodiscard]] std::optional<ExpectedJob> expectedJob(const std::string &stream, JobSettings settings,
                                                     const PrinterKeys &keys, std::uint32_t systemVersion,
                                                     std::size_t mostPages);

} // namespace veltrin::fuzz
