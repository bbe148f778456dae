#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace veltrin {

/// What the job asks for, read from its options; the spooler adjusts some of it to what the stream really
/// holds.
struct JobSettings {
    /// The job's name; nothing where the job has none. A name like "@...3)" asks for a tray.
    std::optional<std::string> jobName = std::nullopt;

    /// The tray asked for through the job's name, 0 before one is.
    std::uint32_t priorityTray = 0;

    /// At least 1 once the settings are read.
    std::uint32_t copies = 0;

    bool collate = false;

    /// Two-sided printing was asked for and the paper allows it.
    bool duplex = false;

    /// The edge of the binding. Set by the option alone, so it may stand without `duplex`.
    bool longEdge = false;
    bool shortEdge = false;

    /// Sides of all copies together as the print system counts them, at least 1 once the settings are read.
    std::uint32_t sidesImaged = 0;
};

} // namespace veltrin
