#pragma once

#include "printer/PrinterModel.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// What is to happen to the virtual printer: docs/virtual-printer.md describes the file.

namespace veltrin::printer {

// What can happen. Each but Refill and Cut can be over after a time, which brings back what was before.

struct CoverOpen {};

struct PaperEmpty {
    Tray tray;
};

struct Refill {
    Tray tray;
    std::optional<std::uint32_t> sheets; ///< without: it never runs out again
};

struct ShowStatus {
    StatusCodes codes;
};

struct ReportPort {
    std::uint8_t port;
};

struct ResizeMemory {
    MemorySizes sizes;
};

// What can happen to the plug.

/// On a channel the backend says goodbye, and announces itself again when that is over; on a wire the
/// connection is closed, and others are taken again when that is over.
struct Leave {};

/// Without a word: the backend is gone, and comes as somebody new; the printer on its wire is switched off,
/// and on again.
struct Vanish {};

/// The connection breaks, in the midst of the next band's data.
struct Cut {};

/// The wire carries no more than that.
struct SlowLine {
    std::uint32_t bytesPerSecond;
};

using PlugHappening = std::variant<Leave, Vanish, Cut, SlowLine>;

using Happening =
    std::variant<CoverOpen, PaperEmpty, Refill, ShowStatus, ReportPort, ResizeMemory, PlugHappening>;

struct ScenarioEvent {
    /// When the first job has gone on for so long, or when so many of its pages have arrived whole.
    std::variant<PrinterTime, std::uint32_t> when;
    Happening happening;
    std::optional<PrinterTime> lasting; ///< without: for good
};

/// What is wrong with the answer to a status request.
enum class ReplyFault {
    missing,     ///< there is none
    late,        ///< it comes after a time
    empty,       ///< a block of no bytes
    noData,      ///< no block at all
    tooShort,    ///< the record without its last byte
    tooLong,     ///< the record and one byte more
    wrongTag,    ///< the tag's bytes the other way round
    wrongObject, ///< under another command's name
};

struct ReplyRule {
    std::uint64_t first; ///< the status requests that it is for, counted from 1
    std::uint64_t last;
    ReplyFault fault;
    PrinterTime by{}; ///< how late
};

/// What is wrong with a record that a wire brings the host.
enum class RecordFault {
    missing,  ///< there is none
    half,     ///< its first half alone
    garbage,  ///< bytes that are no record in front of it, among them the beginning of its tag
    wrongTag, ///< the tag's bytes the other way round
};

struct RecordRule {
    std::uint64_t first; ///< the records that it is for, counted from 1
    std::uint64_t last;
    RecordFault fault;
};

struct Scenario {
    std::string description;
    PrinterSettings printer;
    std::optional<PrinterTime> announcement = PrinterTime(0); ///< after being switched on; without: never
    std::vector<ScenarioEvent> events;
    std::vector<ReplyRule> replies;                       ///< the first that fits counts
    std::vector<RecordRule> records;                      ///< likewise
    PrinterTime recordInterval = std::chrono::seconds(1); ///< between records while nothing changes
};

/// Reads a scenario file's text. Nothing, with `problem` naming the member at fault, where it is none. What
/// the file does not say of the printer is as in `ordinary`.
[[nodiscard]] std::optional<Scenario> parseScenario(const std::string &text, std::string &problem,
                                                    const PrinterSettings &ordinary = {});

} // namespace veltrin::printer
