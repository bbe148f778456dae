#pragma once

#include "driver/stream/PageStream.h"
#include "status/ReverseRecord.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

// The printer itself: its memory, trays and troubles in virtual time, and the status record that it makes of
// them.

namespace veltrin::printer {

/// Time since the printer was switched on.
using PrinterTime = std::chrono::microseconds;

/// The trays in the numbers that page headers bear. (The status record counts tray 1, tray 2, bypass.)
enum class Tray : std::uint8_t { bypass = 1, tray1 = 2, tray2 = 3 };

inline constexpr std::size_t trayCount = 3;

/// The tray that a page asks for; a number that is no tray's leaves the choice to the printer: tray 1.
[[nodiscard]] Tray trayOfPage(const PageHeader &page);

/// A status code with its two sub-status codes.
struct StatusCodes {
    std::uint8_t status = 0;
    std::uint8_t sub1 = 0;
    std::uint8_t sub2 = 0;

    bool operator==(const StatusCodes &) const = default;
};

struct TrayState {
    bool installed = true;
    std::uint8_t paperSize = 9;                         ///< code of the status record; 9 is A4
    std::uint8_t paperType = 1;                         ///< likewise; 1 is plain paper
    std::optional<std::uint32_t> sheets = std::nullopt; ///< without: it never runs out
};

struct MemorySizes {
    std::uint32_t header = 524'288;   ///< bytes for the job's headers
    std::uint32_t image = 15'728'640; ///< bytes for the bands' data

    bool operator==(const MemorySizes &) const = default;
};

struct TonerLevels {
    std::uint8_t black = 100;
    std::uint8_t cyan = 100;
    std::uint8_t magenta = 100;
    std::uint8_t yellow = 100;
};

/// What the printer is and how it stands when it is switched on.
struct PrinterSettings {
    std::uint8_t model = 0;  ///< 0 to 3
    std::uint8_t market = 0; ///< 0 to 7
    std::uint8_t port = 0;   ///< of the status record; the filter waits until it is 0
    bool duplexUnit = false;
    MemorySizes memory;
    double pagesPerMinute = 20;                             ///< above 0
    PrinterTime stackTurnedAfter = std::chrono::seconds(5); ///< when somebody turns the stack by hand
    StatusCodes idleStatus;                                 ///< shown while nothing else is the matter
    std::array<TrayState, trayCount> trays = {TrayState{}, {}, {}}; ///< bypass, tray 1, tray 2
    TonerLevels toner;
};

enum class MemoryPool { header, image };

/// A page is held in memory until it is printed; pages are printed one after another in the order in which
/// they came, as soon as they are whole, at the printer's rate. An open cover, an empty tray, a stack that
/// is to be turned or a fatal status halts the printing, which goes on where it was.
class PrinterModel {
  public:
    explicit PrinterModel(const PrinterSettings &initial);

    /// Lets the time pass up to `now`.
    void advance(PrinterTime now);

    /// When something will change by itself: a page printed or the stack turned. Nothing while that needs
    /// somebody's doing.
    [[nodiscard]] std::optional<PrinterTime> nextChange() const;

    // What comes from the host.
    void jobBegan();
    /// Returns how many of the bytes there was no room for. They are taken all the same.
    std::uint64_t received(MemoryPool pool, std::uint64_t bytes);
    void pageArrived(const PageHeader &page); ///< whole: what was received since the last one belongs to it
    void jobEnded();                          ///< what was received since the last page is done with
    void jobCancelled();                      ///< drops the pages that came with the job, too

    // What people and accidents do.
    void openCover(bool open) { coverOpen = open; }

    void reportPort(std::uint8_t port) { settings.port = port; }

    void resizeMemory(const MemorySizes &sizes) { settings.memory = sizes; }

    void showStatus(std::optional<StatusCodes> codes) { shownStatus = codes; }

    void load(Tray tray, std::optional<std::uint32_t> sheets) { state(tray).sheets = sheets; }

    [[nodiscard]] ReverseRecord record() const;
    [[nodiscard]] StatusCodes status() const;

    [[nodiscard]] const PrinterSettings &current() const { return settings; }

    [[nodiscard]] const TrayState &tray(Tray tray) const {
        return settings.trays[static_cast<std::size_t>(tray) - 1];
    }

    /// Bytes that are free in a pool.
    [[nodiscard]] std::uint32_t freeMemory(MemoryPool pool) const;

    [[nodiscard]] std::size_t pagesWaiting() const { return pages.size(); }

    [[nodiscard]] std::uint64_t pagesPrinted() const { return printed; }

    /// Of one job, counted from 1.
    [[nodiscard]] std::size_t pagesWaitingOf(std::uint64_t job) const;
    [[nodiscard]] std::uint64_t pagesPrintedOf(std::uint64_t job) const;

  private:
    struct Used {
        std::uint64_t header = 0;
        std::uint64_t image = 0;
    };

    struct Page {
        std::uint64_t job;
        Tray tray;
        bool beginsSheet;
        bool afterTurn; ///< wants the stack turned
        Used memory;
    };

    /// What keeps the next page from being printed.
    enum class Halt { none, noPage, fault, cover, trayMissing, trayEmpty, stack };

    [[nodiscard]] Halt halt() const;
    [[nodiscard]] bool needsPaper(const Page &page) const;
    [[nodiscard]] PrinterTime timePerPage() const;
    [[nodiscard]] Used used() const;

    TrayState &state(Tray tray) { return settings.trays[static_cast<std::size_t>(tray) - 1]; }

    void printPage();

    PrinterSettings settings;
    PrinterTime now{};
    bool coverOpen = false;
    std::optional<StatusCodes> shownStatus;

    std::uint64_t jobs = 0; ///< begun so far
    bool receiving = false;
    Used incoming; ///< since the last page
    std::deque<Page> pages;
    PrinterTime spent{}; ///< on the first page, or on waiting for its stack to be turned
    std::uint64_t jobWithTurnedStack = 0;
    std::uint64_t printed = 0;
    std::map<std::uint64_t, std::uint64_t> printedOfJob;
};

} // namespace veltrin::printer
