#pragma once

#include "platform/NotificationCenter.h"
#include "printer/JobReport.h"
#include "printer/PrinterModel.h"
#include "printer/Scenario.h"
#include "printer/Timeline.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

// The printer and its backend as one end of the channel: what they make of what comes in and what they have
// to do when, without doing it.

namespace veltrin::printer {

// What is to be done on the channel.

struct PostNotification {
    std::string object;
    std::optional<std::vector<std::byte>> data;
};

/// Leave the channel without a word.
struct Disconnect {};

/// Come back to it as somebody new.
struct Reconnect {};

using ChannelDeed = std::variant<PostNotification, Disconnect, Reconnect>;

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

    /// Data may also come beside the channel, as to a backend whose job no filter has handled.
    void takeData(std::span<const std::byte> bytes, PrinterTime now);

    /// A notification from the host.
    void take(const platform::Notification &notification, PrinterTime now);

    /// Lets the time pass up to `now`.
    void advance(PrinterTime now);

    /// When there is something to be done or told next, if nothing comes in.
    [[nodiscard]] std::optional<PrinterTime> nextDue() const;

    /// The next deed, if one is due; it is to be done at once.
    [[nodiscard]] std::optional<ChannelDeed> takeDeed();

    /// The end of a job whose host does not say so, for the report.
    void endJob();

    /// The channel, lost meanwhile, is there again.
    void reconnected(PrinterTime now);

    /// Tells which jobs are not printed to their end, and why.
    void tellUnprinted() const;

    [[nodiscard]] bool inJob() const { return job != nullptr; }

    /// The present job or the last one, in a line for people.
    [[nodiscard]] std::string jobText() const;

    /// Whether nothing more is printed unless a host or a person does something: every page is, or what keeps
    /// the next one from it stays for good.
    [[nodiscard]] bool isAtRest() const;

    /// It has vanished for good.
    [[nodiscard]] bool isGone() const { return gone; }

    [[nodiscard]] const PrinterModel &printer() const { return model; }

  private:
    void tell(std::string line) const;

    void plan(PrinterTime when, ChannelDeed deed) { deeds.emplace(when, std::move(deed)); }

    /// Whether the channel is there and the backend has not said goodbye.
    [[nodiscard]] bool isPresent() const { return !hasLeft && !hasVanished; }

    void announce();
    void hostAnnounced();
    void statusRequested();
    void beginJob();
    void streamEvent(const StreamEvent &event);
    void settleMemory();
    void advanceModel(PrinterTime now);
    void tellChanges();
    void happen(const Timeline::Entry &entry);
    void happen(const CoverOpen &cover, const Timeline::Entry &entry);
    void happen(const PaperEmpty &paper, const Timeline::Entry &entry);
    void happen(const Refill &refill, const Timeline::Entry &entry);
    void happen(const ShowStatus &shown, const Timeline::Entry &entry);
    void happen(const ReportPort &reported, const Timeline::Entry &entry);
    void happen(const ResizeMemory &memory, const Timeline::Entry &entry);
    void happen(const Leave &leave, const Timeline::Entry &entry);
    void happen(const Vanish &vanish, const Timeline::Entry &entry);

    Scenario scenario;
    PrinterListener listener;
    PrinterModel model;
    Timeline timeline;
    PrinterTime time{};
    std::multimap<PrinterTime, ChannelDeed> deeds; ///< by when they are due, first planned first
    bool hasLeft = false;                          ///< with a goodbye
    bool hasVanished = false;                      ///< without one
    bool gone = false;

    /// A job that has come, and not left the printer as paper yet.
    struct Unprinted {
        std::uint64_t job;
        std::size_t pages;
    };

    void tellPrintedJobs();

    std::unique_ptr<JobRecorder> job;
    std::string lastSummary; ///< of the job that ended last
    std::vector<Unprinted> unprinted;
    std::uint64_t jobs = 0;
    std::size_t overrunsBefore = 0; ///< of earlier jobs
    std::uint64_t settledHeader = 0;
    std::uint64_t settledData = 0;

    StatusCodes toldStatus;
    std::uint64_t toldPrinted = 0;
};

} // namespace veltrin::printer
