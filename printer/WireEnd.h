#pragma once

#include "printer/LinePace.h"
#include "printer/LinePart.h"
#include "printer/StatusRecords.h"
#include "printer/VirtualPrinter.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The printer as a device at the end of a wire: what it makes of the bytes that come, which it takes as far
// as it has memory for them, and what it has to do when, without doing it.

namespace veltrin::printer {

/// What is to be done with the wire.
enum class WireDeed {
    close,         ///< the connection, in order
    breakOff,      ///< the connection, without a word
    stopListening, ///< no host gets through
    listen,        ///< they do again
};

class WireEnd {
  public:
    /// Bytes that have come and not been taken, at most. More is left to the network.
    static constexpr std::size_t lineBuffer = 4096;

    /// How long the beginning of a command record in the midst of data may wait for its rest.
    static constexpr PrinterTime recordPatience = std::chrono::milliseconds(250);

    explicit WireEnd(VirtualPrinter &printer);
    WireEnd(const WireEnd &) = delete;
    WireEnd &operator=(const WireEnd &) = delete;
    ~WireEnd();

    // What comes in.
    void connected(const std::string &host, PrinterTime now);
    void received(std::span<const std::byte> bytes, PrinterTime now);
    void hostEnded(PrinterTime now); ///< it will send no more
    void hostLost(PrinterTime now);  ///< nor does it hear any more

    /// Lets the time pass up to `now`.
    void advance(PrinterTime now);

    /// How many bytes may be read off the wire now.
    [[nodiscard]] std::size_t room() const;

    /// When something is to be done or told next, or may be read again; records have a time of their own.
    [[nodiscard]] std::optional<PrinterTime> nextDue() const;

    /// The next deed, which is to be done at once.
    [[nodiscard]] std::optional<WireDeed> takeDeed();

    /// When the next record is due, if one is wanted.
    [[nodiscard]] std::optional<PrinterTime> nextRecordDue() const;

    /// The record that is due, to be sent at once: nothing where none is, no bytes where its rule says so.
    [[nodiscard]] std::optional<std::vector<std::byte>> takeRecord();

    /// It has been switched off for good.
    [[nodiscard]] bool isGone() const { return gone; }

  private:
    void takeWaiting();
    void takeStream(std::span<const std::byte> bytes);
    void takeCommand(std::span<const std::byte> bytes);
    [[nodiscard]] bool beginsJob(std::span<const std::byte> bytes) const;
    [[nodiscard]] LinePlace place() const;
    [[nodiscard]] LineRoom memory() const;
    [[nodiscard]] LineState lineState() const;
    void tellHold(bool holds);
    void disconnect(WireDeed deed);
    void happened(const ScenarioEvent &event, bool begins);
    void switchedOff(bool isOff, bool comesBack);

    VirtualPrinter &printer;
    std::deque<WireDeed> deeds;
    bool isConnected = false;
    bool hasEnded = false;          ///< the host's side of the connection
    std::vector<std::byte> waiting; ///< come, but not taken
    PrinterTime lastReceived{};
    LinePace pace;
    bool holds = false; ///< for want of memory
    bool cutIsWanted = false;
    bool gone = false;

    bool reports = false;                    ///< the host has sent the reset record
    std::optional<PrinterTime> lastRecordAt; ///< since then
    std::optional<ReverseRecord> lastRecord;
    std::uint64_t records = 0; ///< in this connection
};

} // namespace veltrin::printer
