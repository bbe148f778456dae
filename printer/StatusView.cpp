#include "printer/StatusView.h"

#include "status/MediaNames.h"
#include "status/StatusCatalogue.h"
#include "status/StatusWording.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace veltrin::printer {

namespace {

constexpr std::size_t barWidth = 30;

/// "[######------] 123 of 456 bytes used"
std::string bar(std::uint32_t free, std::uint32_t size) {
    const std::uint32_t used = size - free;
    const std::size_t filled =
        size == 0 ? barWidth : static_cast<std::size_t>(std::uint64_t{used} * barWidth / size);
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] " +
           std::to_string(used) + " of " + std::to_string(size) + " bytes used";
}

std::string trayText(const char *trayName, const TrayState &tray) {
    if (!tray.installed) {
        return std::string(trayName) + ": not installed";
    }
    return std::string(trayName) + ": " + std::string(paperSizeName(tray.paperSize).english) + ", " +
           std::string(paperTypeName(tray.paperType).english) +
           (tray.sheets ? ", " + std::to_string(*tray.sheets) + " sheets" : "");
}

std::string tonerText(const TonerLevels &toner) {
    const auto level = [](const char *colour, std::uint8_t percent) {
        return colour + (" " + std::to_string(percent)) + " %";
    };
    return level("black", toner.black) + ", " + level("cyan", toner.cyan) + ", " +
           level("magenta", toner.magenta) + ", " + level("yellow", toner.yellow);
}

} // namespace

std::string describe(const StatusCodes &codes) {
    const std::string text = statusWording(statusText(codes.status, codes.sub1, codes.sub2), codes.sub2);
    return std::to_string(codes.status) + "/" + std::to_string(codes.sub1) + "/" +
           std::to_string(codes.sub2) + (text.empty() ? "" : " " + text);
}

std::string secondsText(PrinterTime time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f", std::chrono::duration<double>(time).count());
    return text.data();
}

void StatusView::addLine(const std::string &line) {
    last.push_back(line);
    if (last.size() > lineLimit) {
        last.pop_front();
    }
}

std::vector<std::string> StatusView::lines(const PrinterModel &printer, std::size_t width,
                                           std::size_t height) const {
    const PrinterSettings &now = printer.current();
    std::vector<std::string> lines = {
        name,
        "status         " + describe(printer.status()),
        "job            " + job,
        "pages          " + std::to_string(printer.pagesPrinted()) + " printed, " +
            std::to_string(printer.pagesWaiting()) + " waiting",
        "header memory  " + bar(printer.freeMemory(MemoryPool::header), now.memory.header),
        "image memory   " + bar(printer.freeMemory(MemoryPool::image), now.memory.image),
        "paper          " + trayText("tray 1", printer.tray(Tray::tray1)) + "; " +
            trayText("tray 2", printer.tray(Tray::tray2)) + "; " +
            trayText("bypass", printer.tray(Tray::bypass)),
        "toner          " + tonerText(now.toner),
        std::string(now.duplexUnit ? "with" : "without") + " a duplex unit, port " + std::to_string(now.port),
        ""};
    constexpr std::size_t statusAndJob = 2;
    if (height <= statusAndJob) {
        lines.erase(lines.begin()); // the name
    }
    const std::size_t room = height - std::min(height, lines.size());
    const std::size_t shown = std::min(room, last.size());
    lines.insert(lines.end(), last.end() - static_cast<std::ptrdiff_t>(shown), last.end());
    lines.resize(std::min(lines.size(), height));
    for (std::string &line : lines) {
        line.resize(std::min(line.size(), width));
    }
    return lines;
}

} // namespace veltrin::printer
