#include "filter/CUPSFilter.h"

#include "filter/Cancellation.h"
#include "log/DebugLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace veltrin {

CUPSFilter::CUPSFilter(platform::Platform &thePlatform) : platform(thePlatform) {}

CUPSFilter::~CUPSFilter() {
    if (sourceFD > STDERR_FILENO) {
        close(sourceFD);
    }
}

bool CUPSFilter::init() {
    needsPPD = true;
    // A status line must reach the scheduler when it is written, not when the job ends.
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    setupCFLanguage();
    CPSDebugLog("CUPSFilter init exiting with result: %d", 1);
    return true;
}

std::unique_ptr<CUPSFilter> CUPSFilter::initWithArgc(std::unique_ptr<CUPSFilter> self, int argc,
                                                     char **argv) {
    installSignalHandlers();
    CPSDebugLog("CUPSFilter initWithArgc:argv");
    self->argc = argc;
    self->argv = argv;
    // An empty one names no device.
    if (const char *deviceURI = std::getenv("DEVICE_URI"); deviceURI != nullptr && *deviceURI != '\0') {
        self->uri.emplace(deviceURI);
    }
    if (!self->init()) {
        self.reset();
        CPSDebugAssert_("Bad self");
    } else if (!self->initWithStoredArguments()) {
        self->loadOptions();
        CPSDebugLog("CUPSFilter initWithArgc:argv failed");
        self.reset();
    }
    CPSDebugLog("CUPSFilter initWithArgc:argv exiting with result: %d", self != nullptr ? 1 : 0);
    return self;
}

/// What follows the designated initialiser: input, PPD, options.
bool CUPSFilter::initWithStoredArguments() {
    if (!openSource()) {
        return false;
    }
    printerName.clear();
    if (!findPPD()) {
        return false;
    }
    openPPD();
    loadOptions();
    return true;
}

/// Chooses the input by the number of arguments. Only exactly seven name a file: with eight or more, which
/// CUPS never passes, the stream still comes from standard input.
bool CUPSFilter::openSource() {
    constexpr int fewestArguments = 6;
    constexpr int argumentsWithFile = 7;
    if (argc < fewestArguments) {
        CPSDebugAssert_("Not enough arguments");
        return false;
    }
    if (argc == argumentsWithFile) {
        const int fd = open(argv[argumentsWithFile - 1], O_RDONLY);
        if (fd == -1) {
            CPSDebugAssert_("Unable to open argv[6]");
            return false;
        }
        sourceFD = fd;
    }
    return true;
}

bool CUPSFilter::run() {
    // The print system's own option names as they arrive, type suffixes ("..n." number, "..b." boolean)
    // included.
    CPSDebugLog("CUPSFIlter run: ");

    settings.copies = static_cast<std::uint32_t>(intForOption("com.apple.print.PrintSettings.PMCopies..n."));
    CPSDebugLog("copies: %d", asSigned(settings.copies));
    if (settings.copies == 0) {
        settings.copies = 1;
    }

    settings.collate = boolForOption("com.apple.print.PrintSettings.PMCopyCollate..b.");
    settings.jobName = stringForOption("com.apple.print.JobInfo.PMJobName");

    constexpr std::int32_t longEdgeDuplexing = 2;
    constexpr std::int32_t shortEdgeDuplexing = 3;
    const std::int32_t duplexing = intForOption("com.apple.print.PrintSettings.PMDuplexing..n.");
    if (duplexing == longEdgeDuplexing || duplexing == shortEdgeDuplexing) {
        settings.duplex = canDuplexPaperSize();
        settings.longEdge = duplexing == longEdgeDuplexing;
        settings.shortEdge = duplexing == shortEdgeDuplexing;
    }

    settings.sidesImaged =
        static_cast<std::uint32_t>(intForOption("com.apple.print.PrintSettings.PMTotalSidesImaged..n."));
    CPSDebugLog("sidesImaged: %d", asSigned(settings.sidesImaged));
    if (settings.sidesImaged == 0) {
        settings.sidesImaged = 1;
    }

    CPSDebugLog("CUPSFIlter run: exiting with result %d", 1);
    return true;
}

bool CUPSFilter::cancelled() const {
    const bool terminated = gSigTerm == 1;
    if (terminated) {
        CPSDebugLog("Detected SIGTERM");
    }
    if (gSigPipe == 1) {
        CPSDebugLog("Detected SIGPIPE");
    }
    return terminated;
}

} // namespace veltrin
