#pragma once

#include "driver/PrinterStatus.h"
#include "filter/Cancellation.h"
#include "tests/driver/PlayedPrinter.h"

namespace veltrin::test {

/// The printer's status as asked for over a channel to the printer that the test plays.
class PrinterStatusFixture : public PlayedPrinter {
  protected:
    PrinterStatusFixture() { EXPECT_NE(ipc, nullptr); }

    ~PrinterStatusFixture() override { ipc->stop(); }

    static bool isCancelled() { return gSigTerm == 1; }

    std::unique_ptr<FrontendIPC> ipc =
        FrontendIPC::initWithPortName(printerUri, nullptr, 0.0, platform, isCancelled);
    VeltrinReverseData reverseData{platform.fakeBundle};
    PrinterStatus status{reverseData, ipc.get(), platform, isCancelled};
};

} // namespace veltrin::test
