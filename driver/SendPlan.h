#pragma once

#include "driver/stream/PageStream.h"

#include <cstdint>
#include <functional>

// What the printer is sent: which page of the copy, how often, with which page-type bits and from which tray.

namespace veltrin {

/// The tray number that leaves a page its own tray.
inline constexpr std::uint8_t pagesOwnTray = 255;

/// The tray from which a hand-turned stack is printed on with the duplex bypass.
inline constexpr std::uint8_t bypassTray = 1;

struct SendJob {
    /// Pages of one copy, in the order to be sent.
    std::uint32_t pathCount = 0;
    std::uint32_t copies = 0;
    bool collate = false;
    bool duplex = false;

    /// The printer turns sheets itself; otherwise somebody turns the stack by hand.
    bool duplexInstalled = false;

    /// A stack turned by hand goes on from the bypass tray.
    bool duplexBypass = false;
};

/// The five ways of sending a job.
enum class SendBranch { uncollated, uncollatedDuplexUnit, collated, collatedByHand, collatedDuplexUnit };

[[nodiscard]] SendBranch sendBranch(const SendJob &job);

struct PlannedPage {
    /// Index into the pages of the copy.
    std::uint32_t index = 0;

    /// Bits for the page header's `bType`: `pageTypePause`, `pageTypeFirstOfSheet`, `pageTypeSecondOfSheet`
    /// or none.
    std::uint8_t typeBits = 0;

    /// The tray for the page header's `bPaperTray`, or `pagesOwnTray`.
    std::uint8_t tray = pagesOwnTray;

    /// The page belongs to the second pass of a collated job turned by hand.
    bool secondPass = false;

    bool operator==(const PlannedPage &) const = default;
};

/// Calls `send` for every page of the job, in order, as long as it returns true. Nothing is kept, so the
/// number of copies costs no memory, and a job without pages ends at once whatever the number.
void forEachPlannedPage(const SendJob &job, const std::function<bool(const PlannedPage &)> &send);

/// The header of a page that is sent: `typeBits`, of which only the low byte counts, are added to its own,
/// and `tray` replaces its own unless it is `pagesOwnTray`.
[[nodiscard]] PageHeader sentAs(PageHeader page, std::uint32_t typeBits, std::uint8_t tray);

/// Whether a page with these type bits counts as two-sided for the printer's memory: only one with both bits
/// of a sheet's first side does.
[[nodiscard]] bool isDuplexedPage(std::uint32_t typeBits);

/// The bit for `wJobSetting` in the job file header of a two-sided job. `manualDuplex` is the printer model's
/// setting.
[[nodiscard]] std::uint16_t duplexJobSetting(bool manualDuplex, bool duplexInstalled);

} // namespace veltrin
