#include "printer/PrinterModel.h"

#include "status/StatusCatalogue.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace veltrin::printer {

namespace {

using namespace std::chrono_literals;

// Status codes of the catalogue that the printer shows of its own accord.
constexpr StatusCodes processing = {3, 0, 0};
constexpr StatusCodes printing = {4, 0, 0};
constexpr StatusCodes trayNotInstalled = {22, 0, 0};
constexpr StatusCodes coverIsOpen = {33, 0, 0};

/// "Reset the paper for manual duplex", on tray 1 or on any other tray.
constexpr StatusCodes resetPaper(Tray tray) {
    return {29, static_cast<std::uint8_t>(tray == Tray::tray1 ? 1 : 2), 0};
}

constexpr StatusCodes trayIsEmpty(Tray tray) {
    switch (tray) {
    case Tray::tray1:
        return {35, 1, 0};
    case Tray::tray2:
        return {35, 2, 0};
    case Tray::bypass:
        break;
    }
    return {35, 4, 0};
}

template <typename Number>
Number clamped(std::uint64_t value) {
    return static_cast<Number>(std::min<std::uint64_t>(value, std::numeric_limits<Number>::max()));
}

void set(ReverseRecord &record, const BitField &field, unsigned value) {
    record.*field.byte = static_cast<PackedByte>(record.*field.byte | (value << field.lowestBit));
}

} // namespace

Tray trayOfPage(const PageHeader &page) {
    const bool isTray = page.bPaperTray >= 1 && page.bPaperTray <= trayCount;
    return isTray ? static_cast<Tray>(page.bPaperTray) : Tray::tray1;
}

PrinterModel::PrinterModel(const PrinterSettings &initial) : settings(initial) {}

void PrinterModel::advance(PrinterTime to) {
    for (auto change = nextChange(); change && *change <= to; change = nextChange()) {
        now = *change;
        spent = 0us;
        if (halt() == Halt::stack) {
            jobWithTurnedStack = pages.front().job;
        } else {
            printPage();
        }
    }
    // What is left of the time goes into the page, unless the printing is held up.
    if (nextChange()) {
        spent += to - now;
    }
    now = to;
}

std::optional<PrinterTime> PrinterModel::nextChange() const {
    switch (halt()) {
    case Halt::none:
        return now + std::max(timePerPage() - spent, 0us);
    case Halt::stack:
        return now + std::max(settings.stackTurnedAfter - spent, 0us);
    default:
        return std::nullopt;
    }
}

void PrinterModel::jobBegan() {
    ++jobs;
    receiving = true;
}

std::uint64_t PrinterModel::received(MemoryPool pool, std::uint64_t bytes) {
    const std::uint64_t tooMany = bytes - std::min<std::uint64_t>(bytes, freeMemory(pool));
    (pool == MemoryPool::header ? incoming.header : incoming.image) += bytes;
    return tooMany;
}

void PrinterModel::pageArrived(const PageHeader &page) {
    const unsigned sheetBits = page.bType & pageTypeFirstOfSheet;
    pages.push_back({.job = jobs,
                     .tray = trayOfPage(page),
                     .beginsSheet = sheetBits != pageTypeSecondOfSheet,
                     .afterTurn = (page.bType & pageTypePause) != 0,
                     .memory = std::exchange(incoming, {})});
}

void PrinterModel::jobEnded() {
    incoming = {};
    receiving = false;
}

void PrinterModel::jobCancelled() {
    std::erase_if(pages, [this](const Page &page) { return page.job == jobs; });
    if (pages.empty()) {
        spent = 0us;
    }
    incoming = {};
}

PrinterModel::Halt PrinterModel::halt() const {
    if (shownStatus &&
        statusText(shownStatus->status, shownStatus->sub1, shownStatus->sub2).severity == severityFatal) {
        return Halt::fault;
    }
    if (coverOpen) {
        return Halt::cover;
    }
    if (pages.empty()) {
        return Halt::noPage;
    }
    const Page &page = pages.front();
    if (page.afterTurn && page.job != jobWithTurnedStack) {
        return Halt::stack;
    }
    if (needsPaper(page) && !tray(page.tray).installed) {
        return Halt::trayMissing;
    }
    if (needsPaper(page) && tray(page.tray).sheets == 0U) {
        return Halt::trayEmpty;
    }
    return Halt::none;
}

/// A second side comes on the sheet of the first, and a turned stack has its sheets already.
bool PrinterModel::needsPaper(const Page &page) const {
    return page.beginsSheet && page.job != jobWithTurnedStack;
}

PrinterTime PrinterModel::timePerPage() const {
    return std::chrono::duration_cast<PrinterTime>(
        std::chrono::duration<double>(60 / settings.pagesPerMinute));
}

void PrinterModel::printPage() {
    const Page &page = pages.front();
    if (auto &sheets = state(page.tray).sheets; needsPaper(page) && sheets) {
        --*sheets;
    }
    ++printedOfJob[page.job];
    ++printed;
    pages.pop_front();
}

std::size_t PrinterModel::pagesWaitingOf(std::uint64_t job) const {
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [job](const Page &page) { return page.job == job; }));
}

std::uint64_t PrinterModel::pagesPrintedOf(std::uint64_t job) const {
    const auto found = printedOfJob.find(job);
    return found != printedOfJob.end() ? found->second : 0;
}

PrinterModel::Used PrinterModel::used() const {
    Used sum = incoming;
    for (const Page &page : pages) {
        sum.header += page.memory.header;
        sum.image += page.memory.image;
    }
    return sum;
}

std::uint32_t PrinterModel::freeMemory(MemoryPool pool) const {
    const Used taken = used();
    const bool header = pool == MemoryPool::header;
    const std::uint64_t size = header ? settings.memory.header : settings.memory.image;
    const std::uint64_t bytes = header ? taken.header : taken.image;
    return static_cast<std::uint32_t>(size - std::min(size, bytes));
}

StatusCodes PrinterModel::status() const {
    if (shownStatus) {
        return *shownStatus;
    }
    switch (halt()) {
    case Halt::cover:
        return coverIsOpen;
    case Halt::trayMissing:
        return trayNotInstalled;
    case Halt::trayEmpty:
        return trayIsEmpty(pages.front().tray);
    case Halt::stack:
        return resetPaper(pages.front().tray);
    case Halt::none:
        return printing;
    case Halt::noPage:
    case Halt::fault:
        break;
    }
    return incoming.header > 0 ? processing : settings.idleStatus;
}

ReverseRecord PrinterModel::record() const {
    constexpr std::uint32_t memoryUnit = 65'536;
    ReverseRecord record{};
    record.dwFlag = reverseRecordTag;
    record.dwVersion = 1;
    record.bPortName = settings.port;
    set(record, ReceiveState, 1);
    set(record, Market_Info, settings.market);
    set(record, Model_Info, settings.model);
    record.receivingJobId = static_cast<std::uint8_t>(receiving ? jobs : 0);
    record.printingJobId = static_cast<std::uint8_t>(pages.empty() ? 0 : pages.front().job);
    record.dwHeaderRemainMemory = freeMemory(MemoryPool::header);
    record.dwImageRemainMemory = freeMemory(MemoryPool::image);
    record.wRemainPage = clamped<std::uint16_t>(pages.size());
    const StatusCodes codes = status();
    record.bPrinterStatus = codes.status;
    record.bSubStatus1 = codes.sub1;
    record.bSubStatus2 = codes.sub2;
    const std::uint64_t oldest = pages.empty() ? jobs + 1 : pages.front().job;
    record.bTotalJobNum = clamped<std::uint8_t>(jobs + 1 - (receiving ? std::min(oldest, jobs) : oldest));
    record.bConfigureMemory =
        clamped<std::uint8_t>((std::uint64_t{settings.memory.header} + settings.memory.image) / memoryUnit);

    const TrayState &bypass = tray(Tray::bypass);
    const TrayState &tray1 = tray(Tray::tray1);
    const TrayState &tray2 = tray(Tray::tray2);
    set(record, BypassEmpty, bypass.sheets == 0U ? 1 : 0);
    set(record, Tray1Empty, tray1.sheets == 0U ? 1 : 0);
    set(record, Tray2Empty, tray2.sheets == 0U ? 1 : 0);
    record.BypassTrayPaperSize = bypass.paperSize;
    record.Tray1PaperSize = tray1.paperSize;
    record.Tray2PaperSize = tray2.paperSize;
    record.BypassType = bypass.paperType;
    record.Tray1Type = tray1.paperType;
    record.Tray2Type = tray2.paperType;
    record.TonerKStatus = settings.toner.black;
    record.TonerCStatus = settings.toner.cyan;
    record.TonerMStatus = settings.toner.magenta;
    record.TonerYStatus = settings.toner.yellow;
    set(record, Tray2Install, tray2.installed ? 1 : 0);
    set(record, DuplexInstall, settings.duplexUnit ? 1 : 0);
    return record;
}

} // namespace veltrin::printer
