#include "tools/printer/StatusView.h"

#include "tests/printer/Pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(Describe, SaysWhatAStatusMeans) {
    EXPECT_EQ(describe({0, 0, 0}), "0/0/0 Ready");
    EXPECT_EQ(describe({17, 2, 9}), "17/2/9 Paper size A4 mismatch on Tray 2");
    EXPECT_EQ(describe({19, 1, 14}), "19/1/14 Paper type Envelope mismatch on Tray 1");
    EXPECT_EQ(describe({57, 0, 0}), "57/0/0");
}

TEST(SecondsText, HasThreeDecimals) {
    EXPECT_EQ(secondsText(0us), "0.000");
    EXPECT_EQ(secondsText(12'345'600us), "12.346");
}

TEST(StatusView, ShowsThePrinter) {
    PrinterSettings settings;
    settings.memory = {.header = 3'000, .image = 30'000};
    settings.duplexUnit = true;
    settings.trays[0].installed = false;
    settings.trays[1].sheets = 12;
    PrinterModel printer(settings);
    printer.jobBegan();
    printer.received(MemoryPool::header, 100);
    printer.received(MemoryPool::image, 30'000);
    printer.pageArrived(test::pageHeader(0));

    StatusView view("usb://x");
    view.addLine("hello");
    EXPECT_THAT(
        view.lines(printer, 200),
        ElementsAre("usb://x", "status         4/0/0 Printing",
                    "header memory  [#-----------------------------] 100 of 3000 bytes used",
                    "image memory   [##############################] 30000 of 30000 bytes used",
                    "pages          0 printed, 1 waiting",
                    "paper          tray 1: A4, Plain, 12 sheets; tray 2: A4, Plain; bypass: not installed",
                    "with a duplex unit, port 0", "", "hello"));
}

TEST(StatusView, KeepsToTheTerminalsWidthAndItsOwnHeight) {
    const PrinterModel printer((PrinterSettings()));
    StatusView view("a printer");
    for (int i = 0; i < 15; ++i) {
        view.addLine("line " + std::to_string(i));
    }
    const std::vector<std::string> lines = view.lines(printer, 7);
    EXPECT_EQ(lines.size(), 8U + StatusView::lineLimit);
    EXPECT_EQ(lines.front(), "a print");
    EXPECT_EQ(lines[8], "line 5");
    EXPECT_EQ(lines.back(), "line 14");
}

TEST(StatusView, ShowsAPrinterWithoutAnyMemory) {
    PrinterSettings settings;
    settings.memory = {.header = 0, .image = 0};
    EXPECT_EQ(StatusView("").lines(PrinterModel(settings), 200)[2],
              "header memory  [##############################] 0 of 0 bytes used");
}

} // namespace
} // namespace veltrin
