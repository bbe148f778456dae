#include "printer/StatusView.h"

#include "tests/printer/Pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace veltrin::printer {
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
    settings.toner = {.black = 8, .cyan = 70, .magenta = 100, .yellow = 0};
    settings.trays[0].installed = false;
    settings.trays[1].sheets = 12;
    PrinterModel printer(settings);
    printer.jobBegan();
    printer.received(MemoryPool::header, 100);
    printer.received(MemoryPool::image, 30'000);
    printer.pageArrived(test::printerPageHeader(0));

    StatusView view("usb://x");
    view.addLine("hello");
    view.setJob("job 1 comes in");
    EXPECT_THAT(
        view.lines(printer, 200, 24),
        ElementsAre("usb://x", "status         4/0/0 Printing", "job            job 1 comes in",
                    "pages          0 printed, 1 waiting",
                    "header memory  [#-----------------------------] 100 of 3000 bytes used",
                    "image memory   [##############################] 30000 of 30000 bytes used",
                    "paper          tray 1: A4, Plain, 12 sheets; tray 2: A4, Plain; bypass: not installed",
                    "toner          black 8 %, cyan 70 %, magenta 100 %, yellow 0 %",
                    "with a duplex unit, port 0", "", "hello"));
}

TEST(StatusView, KeepsToTheTerminalsWidthAndHeightAndItsOwn) {
    const PrinterModel printer((PrinterSettings()));
    StatusView view("a printer");
    for (int i = 0; i < 15; ++i) {
        view.addLine("line " + std::to_string(i));
    }
    const std::vector<std::string> lines = view.lines(printer, 7, 100);
    EXPECT_EQ(lines.size(), 10U + StatusView::lineLimit);
    EXPECT_EQ(lines.front(), "a print");
    EXPECT_EQ(lines[10], "line 5");
    EXPECT_EQ(lines.back(), "line 14");

    const std::vector<std::string> fewer = view.lines(printer, 100, 12);
    EXPECT_EQ(fewer.size(), 12U);
    EXPECT_EQ(fewer[9], "");
    EXPECT_EQ(fewer[10], "line 13");
    EXPECT_EQ(fewer[11], "line 14");
    EXPECT_THAT(view.lines(printer, 100, 3),
                ElementsAre("a printer", "status         0/0/0 Ready", "job            "));
    EXPECT_THAT(view.lines(printer, 100, 2), ElementsAre("status         0/0/0 Ready", "job            "));
    EXPECT_THAT(view.lines(printer, 100, 0), testing::IsEmpty());
}

TEST(StatusView, ShowsAPrinterWithoutAnyMemory) {
    PrinterSettings settings;
    settings.memory = {.header = 0, .image = 0};
    EXPECT_EQ(StatusView("").lines(PrinterModel(settings), 200, 24)[4],
              "header memory  [##############################] 0 of 0 bytes used");
}

} // namespace
} // namespace veltrin::printer
