#include "printer/WireEnd.h"

#include "driver/stream/CommandRecord.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace veltrin::printer {

namespace {

bool isRecord(std::span<const std::byte> bytes, const CommandRecord &record) {
    return bytes.size() == sizeof record && std::memcmp(bytes.data(), record.data(), sizeof record) == 0;
}

bool isSame(const ReverseRecord &a, const ReverseRecord &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace

WireEnd::WireEnd(VirtualPrinter &thePrinter) : printer(thePrinter) {
    printer.setPlugEvents([this](const ScenarioEvent &event, bool begins) { happened(event, begins); });
}

WireEnd::~WireEnd() {
    printer.setPlugEvents([](const ScenarioEvent &, bool) {});
}

// ---- What comes in

void WireEnd::connected(const std::string &host, PrinterTime now) {
    advance(now);
    printer.tell("< connection from " + host);
    isConnected = true;
    hasEnded = false;
    reports = false;
    lastRecordAt.reset();
    lastRecord.reset();
    records = 0;
    waiting.clear();
}

void WireEnd::received(std::span<const std::byte> bytes, PrinterTime now) {
    waiting.insert(waiting.end(), bytes.begin(), bytes.end());
    lastReceived = now;
    pace.took(bytes.size(), now);
    advance(now);
}

void WireEnd::hostEnded(PrinterTime now) {
    hasEnded = true;
    advance(now);
}

void WireEnd::hostLost(PrinterTime now) {
    printer.tell("! the connection is lost");
    reports = false;
    hostEnded(now);
}

void WireEnd::advance(PrinterTime now) {
    printer.advance(now);
    if (isConnected) {
        takeWaiting();
    }
}

// ---- What becomes of it

void WireEnd::takeWaiting() {
    std::size_t taken = 0;
    while (isConnected) {
        // What a page brings about happens before anything behind it is taken.
        printer.advance(printer.passed());
        if (!isConnected) {
            break;
        }
        const auto rest = std::span<const std::byte>(waiting).subspan(taken);
        const LinePart part = nextLinePart(rest, place(), memory(), lineState());
        if (part.kind == LinePart::Kind::none) {
            break;
        }
        taken += part.size;
        if (part.kind == LinePart::Kind::command) {
            takeCommand(rest.first(part.size));
        } else {
            takeStream(rest.first(part.size));
        }
    }
    waiting.erase(waiting.begin(),
                  waiting.begin() + static_cast<std::ptrdiff_t>(std::min(taken, waiting.size())));
    tellHold(isConnected && waiting.size() == lineBuffer);
    if (isConnected && hasEnded && waiting.empty()) {
        printer.tell("< the host has ended the connection");
        disconnect(WireDeed::close);
    }
}

void WireEnd::takeStream(std::span<const std::byte> bytes) {
    if (beginsJob(bytes)) {
        printer.endJob();
    }
    const bool isData = place().dataToCome != 0;
    printer.takeData(bytes, printer.passed());
    if (cutIsWanted && isData && place().dataToCome != 0) {
        cutIsWanted = false;
        printer.tell("! the wire is cut");
        disconnect(WireDeed::breakOff);
    }
}

/// Behind a job that is whole, what begins with a header is another one. Anything else is a fault of the
/// first.
bool WireEnd::beginsJob(std::span<const std::byte> bytes) const {
    if (!printer.inJob() || !printer.stream().totals().endOfJob || bytes.size() < tagSize) {
        return false;
    }
    WireTag tag;
    std::memcpy(&tag, bytes.data(), sizeof tag);
    return tag != endOfJobTag && headerSizeOf(tag).has_value();
}

void WireEnd::takeCommand(std::span<const std::byte> bytes) {
    const bool isReset = isRecord(bytes, reverseDataReset);
    if (printer.inJob()) {
        const std::uint64_t commands = printer.report().commands.size() * sizeof(CommandRecord);
        if (isReset && printer.stream().totals().bytes > commands) {
            printer.endJob(); // the next one's host says so
        } else if (place().dataToCome != 0 || place().isLost) {
            printer.breakStream();
        }
    }
    printer.takeData(bytes, printer.passed());
    if (isReset) {
        reports = true;
        lastRecordAt.reset();
    } else {
        printer.endJob();
    }
}

LinePlace WireEnd::place() const {
    if (!printer.inJob()) {
        return {};
    }
    return {printer.stream().dataToCome(), printer.stream().isLost()};
}

/// Where no memory can ever become free, holding the line would be for ever: what comes is an overrun then,
/// as it is on a channel.
LineRoom WireEnd::memory() const {
    LineRoom room{std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::uint64_t>::max()};
    if (printer.mayGetRoom()) {
        room = {printer.printer().freeMemory(MemoryPool::header),
                printer.printer().freeMemory(MemoryPool::image)};
    }
    if (cutIsWanted && place().dataToCome != 0) {
        room.image = std::min(room.image, std::max<std::uint64_t>(place().dataToCome / 2, 1));
    }
    return room;
}

LineState WireEnd::lineState() const {
    if (hasEnded) {
        return LineState::ended;
    }
    return printer.passed() - lastReceived >= recordPatience ? LineState::quiet : LineState::open;
}

void WireEnd::tellHold(bool nowHolds) {
    if (nowHolds != std::exchange(holds, nowHolds)) {
        printer.tell(nowHolds ? "holds the line: no memory" : "takes from the line again");
    }
}

void WireEnd::disconnect(WireDeed deed) {
    printer.endJob();
    isConnected = false;
    reports = false;
    holds = false;
    waiting.clear();
    deeds.push_back(deed);
}

// ---- What goes on by itself

std::size_t WireEnd::room() const {
    return isConnected && !hasEnded ? std::min(lineBuffer - waiting.size(), pace.allowance(printer.passed()))
                                    : 0;
}

std::optional<PrinterTime> WireEnd::nextDue() const {
    std::optional<PrinterTime> next = printer.nextDue();
    const auto consider = [&next](const std::optional<PrinterTime> &due) {
        next = due ? std::min(next.value_or(*due), *due) : next;
    };
    if (isConnected && !waiting.empty() && lineState() == LineState::open) {
        consider(lastReceived + recordPatience);
    }
    if (isConnected && !hasEnded) {
        consider(pace.nextDue(printer.passed()));
    }
    return next;
}

std::optional<WireDeed> WireEnd::takeDeed() {
    if (deeds.empty()) {
        return std::nullopt;
    }
    const WireDeed deed = deeds.front();
    deeds.pop_front();
    return deed;
}

std::optional<PrinterTime> WireEnd::nextRecordDue() const {
    if (!isConnected || !reports) {
        return std::nullopt;
    }
    const bool changed = !lastRecord || !isSame(*lastRecord, printer.printer().record());
    return recordDue(lastRecordAt, changed, printer.rules().recordInterval, printer.passed());
}

std::optional<std::vector<std::byte>> WireEnd::takeRecord() {
    const auto due = nextRecordDue();
    if (!due || *due > printer.passed()) {
        return std::nullopt;
    }
    lastRecordAt = printer.passed();
    lastRecord = printer.printer().record();
    std::vector<std::byte> bytes = recordBytes(printer.rules().records, ++records, *lastRecord);
    if (!bytes.empty()) {
        printer.tell("> record " + std::to_string(records) + ", " + std::to_string(bytes.size()) + " bytes");
        if (printer.inJob()) {
            ++printer.report().replies;
        }
    }
    return bytes;
}

// ---- What the scenario has for the wire

void WireEnd::happened(const ScenarioEvent &event, bool begins) {
    const auto &happening = std::get<PlugHappening>(event.happening);
    if (std::holds_alternative<Leave>(happening)) {
        if (begins && isConnected) {
            disconnect(WireDeed::close);
        }
        deeds.push_back(begins ? WireDeed::stopListening : WireDeed::listen);
    } else if (std::holds_alternative<Vanish>(happening)) {
        switchedOff(begins, event.lasting.has_value());
    } else if (std::holds_alternative<Cut>(happening)) {
        cutIsWanted = true;
    } else {
        pace.carry(begins ? std::optional(std::get<SlowLine>(happening).bytesPerSecond) : std::nullopt);
    }
}

void WireEnd::switchedOff(bool isOff, bool comesBack) {
    printer.tell(isOff ? "gone without a word" : "there again");
    if (isOff && isConnected) {
        disconnect(WireDeed::breakOff);
    }
    deeds.push_back(isOff ? WireDeed::stopListening : WireDeed::listen);
    gone = isOff && !comesBack;
}

} // namespace veltrin::printer
