#include "printer/Timeline.h"

#include <variant>

namespace veltrin::printer {

void Timeline::jobBegan(PrinterTime now) {
    if (++jobs != 1) {
        return;
    }
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (const auto *delay = std::get_if<PrinterTime>(&events[i].when)) {
            begin(i, now + *delay);
        }
    }
}

void Timeline::pageArrived(PrinterTime now) {
    if (jobs != 1) {
        return;
    }
    ++pages;
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (const auto *page = std::get_if<std::uint32_t>(&events[i].when);
            page != nullptr && *page == pages) {
            begin(i, now);
        }
    }
}

void Timeline::begin(std::size_t event, PrinterTime when) {
    entries.emplace(when, Entry{event, true});
    if (events[event].lasting) {
        entries.emplace(when + *events[event].lasting, Entry{event, false});
    }
}

std::optional<PrinterTime> Timeline::nextDue() const {
    return entries.empty() ? std::nullopt : std::optional(entries.begin()->first);
}

Timeline::Entry Timeline::takeNext() {
    const Entry entry = entries.begin()->second;
    entries.erase(entries.begin());
    return entry;
}

} // namespace veltrin::printer
