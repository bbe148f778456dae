#pragma once

#include "printer/Scenario.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace veltrin::printer {

/// Which events of a scenario begin and are over when. Each happens once, in the first job.
class Timeline {
  public:
    /// An event that begins or is over.
    struct Entry {
        std::size_t event; ///< its place in the scenario
        bool begins;
    };

    explicit Timeline(std::vector<ScenarioEvent> theEvents) : events(std::move(theEvents)) {}

    [[nodiscard]] const ScenarioEvent &event(const Entry &entry) const { return events[entry.event]; }

    void jobBegan(PrinterTime now);
    void pageArrived(PrinterTime now);

    /// When the next entry is due.
    [[nodiscard]] std::optional<PrinterTime> nextDue() const;

    /// Takes the entry that is due next off the timeline; there must be one.
    [[nodiscard]] Entry takeNext();

  private:
    void begin(std::size_t event, PrinterTime when);

    std::vector<ScenarioEvent> events;
    std::multimap<PrinterTime, Entry> entries;
    std::uint64_t jobs = 0;
    std::uint32_t pages = 0; ///< of the first job
};

} // namespace veltrin::printer
