#include "printer/PrinterModel.h"

#include "printer/StatusView.h"
#include "tests/printer/Pages.h"

#include <gtest/gtest.h>

#include <string>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;
using test::printerPageHeader;

/// Six pages a minute: ten seconds a page.
PrinterSettings slowPrinter() {
    PrinterSettings settings;
    settings.pagesPerMinute = 6;
    settings.memory = {.header = 10'000, .image = 100'000};
    return settings;
}

void receivePage(PrinterModel &printer, std::uint8_t type = 0, std::uint8_t tray = 2) {
    printer.received(MemoryPool::header, 100);
    printer.received(MemoryPool::image, 1'000);
    printer.pageArrived(printerPageHeader(type, tray));
}

PrinterModel printerInJob(const PrinterSettings &settings = slowPrinter()) {
    PrinterModel printer(settings);
    printer.jobBegan();
    return printer;
}

TEST(PrinterModel, IsReadyAtFirst) {
    const PrinterModel printer((PrinterSettings()));
    const ReverseRecord record = printer.record();
    EXPECT_EQ(record.dwFlag, reverseRecordTag);
    EXPECT_EQ(record.bPortName, 0);
    EXPECT_EQ(record.bPrinterStatus, 0);
    EXPECT_EQ(record.dwHeaderRemainMemory.value(), 524'288U);
    EXPECT_EQ(record.dwImageRemainMemory.value(), 15'728'640U);
    EXPECT_EQ(record.bConfigureMemory, 248);
    EXPECT_EQ(record.bTotalJobNum, 0);
    EXPECT_EQ(ReceiveState.valueIn(record), 1U);
    EXPECT_EQ(DuplexInstall.valueIn(record), 0U);
    EXPECT_EQ(Tray2Install.valueIn(record), 1U);
    EXPECT_EQ(record.TonerKStatus, 100);
    EXPECT_EQ(record.TonerCStatus, 100);
    EXPECT_EQ(record.TonerMStatus, 100);
    EXPECT_EQ(record.TonerYStatus, 100);
    EXPECT_EQ(printer.nextChange(), std::nullopt);
}

TEST(PrinterModel, PutsEverySettingIntoItsRecord) {
    PrinterSettings settings;
    settings.model = 2;
    settings.market = 5;
    settings.port = 4;
    settings.duplexUnit = true;
    settings.memory = {.header = 65'536, .image = 131'072};
    settings.idleStatus = {5, 6, 7};
    settings.trays = {TrayState{true, 11, 12, 0}, TrayState{true, 21, 22, {}}, TrayState{false, 31, 32, 0}};
    settings.toner = {.black = 1, .cyan = 2, .magenta = 3, .yellow = 4};
    const ReverseRecord record = PrinterModel(settings).record();
    EXPECT_EQ(Model_Info.valueIn(record), 2U);
    EXPECT_EQ(Market_Info.valueIn(record), 5U);
    EXPECT_EQ(record.bPortName, 4);
    EXPECT_EQ(DuplexInstall.valueIn(record), 1U);
    EXPECT_EQ(Tray2Install.valueIn(record), 0U);
    EXPECT_EQ(record.dwHeaderRemainMemory.value(), 65'536U);
    EXPECT_EQ(record.dwImageRemainMemory.value(), 131'072U);
    EXPECT_EQ(record.bConfigureMemory, 3);
    EXPECT_EQ(record.bPrinterStatus, 5);
    EXPECT_EQ(record.bSubStatus1, 6);
    EXPECT_EQ(record.bSubStatus2, 7);
    EXPECT_EQ(record.BypassTrayPaperSize, 11);
    EXPECT_EQ(record.BypassType, 12);
    EXPECT_EQ(record.Tray1PaperSize, 21);
    EXPECT_EQ(record.Tray1Type, 22);
    EXPECT_EQ(record.Tray2PaperSize, 31);
    EXPECT_EQ(record.Tray2Type, 32);
    EXPECT_EQ(BypassEmpty.valueIn(record), 1U);
    EXPECT_EQ(Tray1Empty.valueIn(record), 0U);
    EXPECT_EQ(Tray2Empty.valueIn(record), 1U);
    EXPECT_EQ(record.TonerKStatus, 1);
    EXPECT_EQ(record.TonerCStatus, 2);
    EXPECT_EQ(record.TonerMStatus, 3);
    EXPECT_EQ(record.TonerYStatus, 4);
}

TEST(PrinterModel, HasATopOnTheInstalledMemoryItCanReport) {
    PrinterSettings settings;
    settings.memory = {.header = 0xFFFF'FFFF, .image = 0xFFFF'FFFF};
    EXPECT_EQ(PrinterModel(settings).record().bConfigureMemory, 255);
}

TEST(PrinterModel, HoldsAPageUntilItIsPrinted) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    EXPECT_EQ(printer.freeMemory(MemoryPool::header), 9'900U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 99'000U);
    EXPECT_EQ(printer.status(), (StatusCodes{4, 0, 0}));
    EXPECT_EQ(printer.record().wRemainPage.value(), 1);
    EXPECT_EQ(printer.nextChange(), 10s);

    printer.advance(9'999'999us);
    EXPECT_EQ(printer.pagesPrinted(), 0U);
    printer.advance(10s);
    EXPECT_EQ(printer.pagesPrinted(), 1U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::header), 10'000U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 100'000U);
    EXPECT_EQ(printer.status(), (StatusCodes{0, 0, 0}));
    EXPECT_EQ(printer.nextChange(), std::nullopt);
}

TEST(PrinterModel, PrintsAsManyPagesAsTheTimeIsEnoughFor) {
    PrinterModel printer = printerInJob();
    for (int i = 0; i < 5; ++i) {
        receivePage(printer);
    }
    printer.advance(35s);
    EXPECT_EQ(printer.pagesPrinted(), 3U);
    EXPECT_EQ(printer.pagesWaiting(), 2U);
    EXPECT_EQ(printer.nextChange(), 40s);
}

TEST(PrinterModel, BeginsAPageNoSoonerThanItIsThere) {
    PrinterModel printer = printerInJob();
    printer.advance(25s);
    receivePage(printer);
    EXPECT_EQ(printer.nextChange(), 35s);
}

TEST(PrinterModel, KeepsAnUnfinishedPageInMemory) {
    PrinterModel printer = printerInJob();
    printer.received(MemoryPool::header, 64);
    EXPECT_EQ(printer.status(), (StatusCodes{3, 0, 0}));
    printer.received(MemoryPool::image, 5'000);
    printer.advance(60s);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 95'000U);
    printer.jobEnded();
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 100'000U);
}

TEST(PrinterModel, TellsWhatItHasNoRoomFor) {
    PrinterModel printer = printerInJob();
    EXPECT_EQ(printer.received(MemoryPool::image, 99'000), 0U);
    EXPECT_EQ(printer.received(MemoryPool::image, 1'001), 1U);
    EXPECT_EQ(printer.received(MemoryPool::image, 5), 5U);
    EXPECT_EQ(printer.received(MemoryPool::header, 10'000), 0U);
    EXPECT_EQ(printer.received(MemoryPool::header, 7), 7U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::header), 0U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 0U);
}

TEST(PrinterModel, CanBeShortOfMemoryForATime) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    printer.resizeMemory({.header = 50, .image = 1'500});
    EXPECT_EQ(printer.freeMemory(MemoryPool::header), 0U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 500U);
}

TEST(PrinterModel, StopsWhileItsCoverIsOpenAndGoesOnWhereItWas) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    printer.advance(4s);
    printer.openCover(true);
    EXPECT_EQ(printer.status(), (StatusCodes{33, 0, 0}));
    EXPECT_EQ(printer.nextChange(), std::nullopt);
    printer.advance(100s);
    EXPECT_EQ(printer.pagesPrinted(), 0U);
    printer.openCover(false);
    EXPECT_EQ(printer.nextChange(), 106s);
    printer.advance(106s);
    EXPECT_EQ(printer.pagesPrinted(), 1U);
}

TEST(PrinterModel, TakesASheetFromThePagesTray) {
    PrinterSettings settings = slowPrinter();
    settings.trays[1].sheets = 1;
    settings.trays[2].sheets = 5;
    PrinterModel printer = printerInJob(settings);
    receivePage(printer, 0, 3);
    receivePage(printer, 0, 2);
    receivePage(printer, 0, 2);
    printer.advance(60s);
    EXPECT_EQ(printer.tray(Tray::tray2).sheets, 4U);
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 0U);
    EXPECT_EQ(printer.pagesPrinted(), 2U);
    EXPECT_EQ(printer.status(), (StatusCodes{35, 1, 0}));
    EXPECT_EQ(Tray1Empty.valueIn(printer.record()), 1U);
    printer.load(Tray::tray1, 10);
    EXPECT_EQ(printer.nextChange(), 70s);
}

struct EmptyTray {
    std::uint8_t tray;
    StatusCodes codes;
    const char *text;
};

TEST(PrinterModel, NamesTheTrayThatIsEmpty) {
    for (const EmptyTray &expected :
         {EmptyTray{1, {35, 4, 0}, "35/4/0 Bypass tray empty"},
          EmptyTray{2, {35, 1, 0}, "35/1/0 Tray 1 empty"}, EmptyTray{3, {35, 2, 0}, "35/2/0 Tray 2 empty"},
          EmptyTray{0, {35, 1, 0}, "35/1/0 Tray 1 empty"},
          EmptyTray{255, {35, 1, 0}, "35/1/0 Tray 1 empty"}}) {
        PrinterSettings settings = slowPrinter();
        for (TrayState &tray : settings.trays) {
            tray.sheets = 0;
        }
        PrinterModel printer = printerInJob(settings);
        receivePage(printer, 0, expected.tray);
        EXPECT_EQ(printer.status(), expected.codes);
        EXPECT_EQ(describe(printer.status()), expected.text);
    }
}

TEST(PrinterModel, CannotPrintFromATrayItDoesNotHave) {
    PrinterSettings settings = slowPrinter();
    settings.trays[2].installed = false;
    PrinterModel printer = printerInJob(settings);
    receivePage(printer, 0, 3);
    EXPECT_EQ(printer.status(), (StatusCodes{22, 0, 0}));
    EXPECT_EQ(printer.nextChange(), std::nullopt);
}

TEST(PrinterModel, PrintsBothSidesOnOneSheet) {
    PrinterSettings settings = slowPrinter();
    settings.trays[1].sheets = 1;
    PrinterModel printer = printerInJob(settings);
    receivePage(printer, pageTypeFirstOfSheet);
    receivePage(printer, pageTypeSecondOfSheet);
    printer.advance(20s);
    EXPECT_EQ(printer.pagesPrinted(), 2U);
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 0U);
}

TEST(PrinterModel, WaitsForTheStackToBeTurned) {
    PrinterSettings settings = slowPrinter();
    settings.stackTurnedAfter = 30s;
    settings.trays[1].sheets = 2;
    PrinterModel printer = printerInJob(settings);
    receivePage(printer);
    receivePage(printer);
    receivePage(printer, pageTypePause);
    receivePage(printer);
    printer.advance(20s);
    EXPECT_EQ(printer.pagesPrinted(), 2U);
    EXPECT_EQ(printer.status(), (StatusCodes{29, 1, 0}));
    EXPECT_EQ(printer.nextChange(), 50s);
    printer.advance(49s);
    EXPECT_EQ(printer.pagesPrinted(), 2U);
    // The turned stack is its own paper.
    printer.advance(70s);
    EXPECT_EQ(printer.pagesPrinted(), 4U);
    EXPECT_EQ(printer.tray(Tray::tray1).sheets, 0U);
}

TEST(PrinterModel, WantsEveryJobsStackTurned) {
    PrinterModel printer = printerInJob();
    receivePage(printer, pageTypePause);
    printer.jobEnded();
    printer.jobBegan();
    receivePage(printer, pageTypePause, 1);
    printer.advance(15s);
    EXPECT_EQ(printer.pagesPrinted(), 1U);
    EXPECT_EQ(printer.status(), (StatusCodes{29, 2, 0}));
}

TEST(PrinterModel, StopsForAFatalStatusAlone) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    printer.showStatus(StatusCodes{49, 6, 3});
    EXPECT_EQ(printer.status(), (StatusCodes{49, 6, 3}));
    EXPECT_EQ(printer.nextChange(), std::nullopt);
    printer.showStatus(StatusCodes{31, 1, 0});
    EXPECT_EQ(printer.status(), (StatusCodes{31, 1, 0}));
    EXPECT_EQ(printer.nextChange(), 10s);
    printer.showStatus(std::nullopt);
    EXPECT_EQ(printer.status(), (StatusCodes{4, 0, 0}));
}

TEST(PrinterModel, DropsAllOfACancelledJobAndNothingElse) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    printer.jobEnded();
    printer.jobBegan();
    receivePage(printer);
    receivePage(printer);
    printer.received(MemoryPool::image, 10);
    printer.jobCancelled();
    EXPECT_EQ(printer.pagesWaiting(), 1U);
    EXPECT_EQ(printer.freeMemory(MemoryPool::image), 99'000U);
}

TEST(PrinterModel, BeginsAnewAfterACancelledPage) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    printer.advance(7s);
    printer.jobCancelled();
    receivePage(printer);
    EXPECT_EQ(printer.nextChange(), 17s);
}

TEST(PrinterModel, TellsWhichJobItReceivesAndWhichItPrints) {
    PrinterModel printer = printerInJob();
    receivePage(printer);
    EXPECT_EQ(printer.record().receivingJobId, 1);
    EXPECT_EQ(printer.record().printingJobId, 1);
    EXPECT_EQ(printer.record().bTotalJobNum, 1);
    printer.jobEnded();
    EXPECT_EQ(printer.record().receivingJobId, 0);
    EXPECT_EQ(printer.record().bTotalJobNum, 1);
    printer.jobBegan();
    EXPECT_EQ(printer.record().receivingJobId, 2);
    EXPECT_EQ(printer.record().printingJobId, 1);
    EXPECT_EQ(printer.record().bTotalJobNum, 2);
    printer.advance(10s);
    EXPECT_EQ(printer.record().printingJobId, 0);
    EXPECT_EQ(printer.record().bTotalJobNum, 1);
    printer.jobEnded();
    EXPECT_EQ(printer.record().bTotalJobNum, 0);
}

TEST(PrinterModel, ReportsThePortItIsTold) {
    PrinterModel printer((PrinterSettings()));
    printer.reportPort(2);
    EXPECT_EQ(printer.record().bPortName, 2);
}

} // namespace
} // namespace veltrin::printer
