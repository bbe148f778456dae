#pragma once

#include "printer/JobReport.h"
#include "printer/PrinterModel.h"
#include "printer/Scenario.h"
#include "printer/Timeline.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

// The printer with its jobs and its scenario, whatever it is plugged into.

namespace veltrin::printer {

/// Who wants to know what happens.
struct PrinterListener {
    /// Takes one line for people.
    std::function<void(PrinterTime when, const std::string &line)> told = [](PrinterTime, const auto &) {};

    /// Takes the printer's data as they come.
    std::function<void(std::span<const std::byte>)> dataArrived = [](auto) {};

    std::function<void(const JobReport &)> jobEnded = [](const JobReport &) {};
};

/// With a dot for each byte that is not printable ASCII. What comes from outside must not do anything to a
/// terminal, or to the scheduler that reads these lines, but show.
[[nodiscard]] std::string shownText(std::string text);

class VirtualPrinter {
  public:
    VirtualPrinter(Scenario scenario, PrinterListener listener);

    /// Where the scenario's events go that happen to the plug: one that begins, or is over.
    using PlugEvents = std::function<void(const ScenarioEvent &event, bool begins)>;

    void setPlugEvents(PlugEvents events) { plugEvents = std::move(events); }

    /// Lets the time pass up to `now`.
    void advance(PrinterTime now);

    /// The time up to which it has passed.
    [[nodiscard]] PrinterTime passed() const { return time; }

    /// When something will happen next, if nothing comes in.
    [[nodiscard]] std::optional<PrinterTime> nextDue() const;

    /// A job begins, unless one is under way.
    void needJob();

    /// Data of the job, which begins with them if none is under way.
    void takeData(std::span<const std::byte> bytes, PrinterTime now);

    /// The job's stream stops where it is, in the midst of a band's data, say: what comes next begins with a
    /// header or a command record.
    void breakStream();

    /// The end of a job whose host does not say so, for the report.
    void endJob();

    /// A line for people.
    void tell(std::string line) const { tell(time, std::move(line)); }

    void tell(PrinterTime when, std::string line) const;

    /// Tells which jobs are not printed to their end, and why.
    void tellUnprinted() const;

    [[nodiscard]] bool inJob() const { return job != nullptr; }

    /// The present job's, which there must be.
    [[nodiscard]] JobReport &report() { return job->report; }

    /// The reader of the present job's stream, which there must be.
    [[nodiscard]] const StreamReader &stream() const { return job->stream(); }

    /// The present job or the last one, in a line for people.
    [[nodiscard]] std::string jobText() const;

    /// Whether nothing more is printed unless a host or a person does something: every page is, or what keeps
    /// the next one from it stays for good.
    [[nodiscard]] bool isAtRest() const;

    /// Whether memory that is in use now may become free, by what the printer or its scenario still has to
    /// do.
    [[nodiscard]] bool mayGetRoom() const;

    [[nodiscard]] const PrinterModel &printer() const { return model; }

    [[nodiscard]] const Scenario &rules() const { return scenario; }

  private:
    void streamEvent(const StreamEvent &event);
    void settleMemory(std::size_t page);
    void settle(MemoryPool pool, std::uint64_t bytes, std::uint64_t &settled, std::size_t page);
    void advanceModel(PrinterTime now);
    void tellChanges();
    void tellPrintedJobs();
    void happen(const Timeline::Entry &entry);
    void happen(const CoverOpen &cover, const Timeline::Entry &entry);
    void happen(const PaperEmpty &paper, const Timeline::Entry &entry);
    void happen(const Refill &refill, const Timeline::Entry &entry);
    void happen(const ShowStatus &shown, const Timeline::Entry &entry);
    void happen(const ReportPort &reported, const Timeline::Entry &entry);
    void happen(const ResizeMemory &memory, const Timeline::Entry &entry);
    void happen(const PlugHappening &happening, const Timeline::Entry &entry);

    /// A job that has come, and not left the printer as paper yet.
    struct Unprinted {
        std::uint64_t job;
        std::size_t pages;
    };

    Scenario scenario;
    PrinterListener listener;
    PlugEvents plugEvents = [](const ScenarioEvent &, bool) {};
    PrinterModel model;
    Timeline timeline;
    PrinterTime time{};

    std::unique_ptr<JobRecorder> job;
    std::string lastSummary; ///< of the job that ended last
    std::vector<Unprinted> unprinted;
    std::uint64_t jobs = 0;
    std::uint64_t settledHeader = 0;
    std::uint64_t settledData = 0;

    StatusCodes toldStatus;
    std::uint64_t toldPrinted = 0;
};

} // namespace veltrin::printer
