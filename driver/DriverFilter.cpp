// DriverFilter: the job sequence.

#include "driver/DriverFilter.h"

#include "driver/AcknowledgementWait.h"
#include "driver/DuplexOrder.h"
#include "driver/stream/CommandRecord.h"
#include "filter/Cancellation.h"
#include "filter/WithinMemory.h"
#include "log/DebugLog.h"
#include "platform/PipeCapacity.h"
#include "platform/SharedFile.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <span>

namespace veltrin {

namespace {

/// Tells the backend of a USB printer that a job is under way.
constexpr const char *semaphorePath = "/tmp/Sem_File00001";

constexpr std::int32_t initialDataBufferSize = 0x100000;

/// Room for a write as large as the filter makes them while the reader is still busy with the one before.
constexpr std::size_t pipeCapacity = std::size_t{256} * 1024;

/// Reports why the job has failed.
bool failure(const char *message) {
    CPSDebugAssert_("%s", message);
    return false;
}

void createSemaphoreFile() {
    const int fd = platform::openSharedFileForAppending(semaphorePath);
    if (fd != -1) {
        close(fd);
    }
}

} // namespace

bool DriverFilter::init() {
    if (!CUPSFilter::init()) {
        return false;
    }
    needsPPD = false;
    reverseData = std::make_unique<VeltrinReverseData>(platform.bundle());

    const std::string scheme = uri ? uri->scheme() : std::string();
    std::fprintf(stderr, "%s\n", scheme.empty() ? "(null)" : scheme.c_str());
    if (scheme == "file") {
        CPSDebugLog("DriverFilter init: skipping IPC because URI scheme is file://");
    } else {
        if (scheme == "usb") {
            createSemaphoreFile();
        }
        if (!openChannel()) {
            CPSDebugLog("DriverFilter init: failed to allocate IPC");
            return false;
        }
    }
    status =
        std::make_unique<PrinterStatus>(*reverseData, ipc.get(), platform, [this] { return cancelled(); });

    return inputMemory.allocateDataBuffer(initialDataBufferSize);
}

DriverFilter::~DriverFilter() {
    CPSDebugLog("DriverFilter dealloc: ");
    if (ipc != nullptr) {
        ipc->stop();
    }
    status.reset();
    ipc.reset();
    reverseData.reset();
    unlink(semaphorePath);
}

bool DriverFilter::run() {
    CPSDebugLog("DriverFilter run: ");
    bool result = withinMemory("DriverFilter run", [this] { return CUPSFilter::run() && printJob(); });
    spooled.cleanupSpoolFiles();
    inputMemory.dataBuffer.reset();
    if (result) {
        result = awaitEndOfJob();
    }
    if (!result) {
        const auto cancel = [this] {
            return printer().writeToFD(cancelCommand.data(), static_cast<std::int32_t>(cancelCommand.size()));
        };
        static_cast<void>(withinMemory("DriverFilter run", cancel));
    }
    CPSDebugLog("DriverFilter run: exiting with result %d", result);
    return result;
}

/// Finds the printer's backend by the device URI, whole as it stands in the environment.
bool DriverFilter::openChannel() {
    CPSDebugLog("DriverFilter init: allocating IPC for URI: %s",
                uri ? uri->absoluteString().c_str() : "(null)");
    if (!uri) {
        return false;
    }
    ipc = FrontendIPC::initWithPortName(uri->absoluteString(), this, 0.0, platform,
                                        [] { return gSigTerm == 1; });
    return ipc != nullptr;
}

std::int32_t DriverFilter::readRetryCount() {
    return 5;
}

/// Everything between the job settings and the end of the pages.
bool DriverFilter::printJob() {
    platform::widenPipe(sourceFD, pipeCapacity);
    if (ipc == nullptr) {
        platform::widenPipe(STDOUT_FILENO, pipeCapacity);
    }
    if (ipc != nullptr && !preparePrinter()) {
        return false;
    }
    if (!readIdentifier()) {
        return failure("read uuid error");
    }
    if (!settings.duplex) {
        return sendPages() || failure("sendPages error");
    }
    return printTwoSided();
}

/// Asks the printer for its status and waits until it listens to our port and has room for a job.
bool DriverFilter::preparePrinter() {
    CPSDebugLog("DriverFilter run: setting reverse mode");
    if (!ipc->sendData(std::as_bytes(std::span(reverseDataReset)))) {
        return failure("send REVERSE_DATA_RESET command error");
    }
    if (!status->waitForPort()) {
        return false;
    }
    return status->checkHeaderSize(0, 0, false) || failure("checkHeaderSize error");
}

/// Reads the identifier in front of the stream. A stream with another than the expected one is printed all
/// the same: the two are logged for those who look for the reason of a garbled page.
bool DriverFilter::readIdentifier() {
    std::array<char, identifierSize + 1> identifier{};
    if (!PageInput(sourceFD, inputMemory).readFromFD(identifier.data(), identifierSize)) {
        return false;
    }
    const std::optional<std::string> expected = objectForInfoDictionaryKey("CUPSFileHeader");
    CPSDebugLog("expectedUUID: %s", expected ? expected->c_str() : "(null)");
    CPSDebugLog("uuid: %s", identifier.data());
    return true;
}

bool DriverFilter::printTwoSided() {
    if (!spoolPages()) {
        return failure("spoolPages error");
    }
    // Looked up, and its absence logged, even where a duplex unit makes it unnecessary.
    std::optional<std::string> order = stringForPPDAttr("VeltrinDuplexOrder");
    if (duplexInstalled()) {
        order = duplexUnitOrder;
    }
    // `duplex` has no way to fail; its result is looked at all the same.
    if (order && !duplex(*order)) {
        return failure("duplex error");
    }
    return unspoolPages() || failure("unspoolPages error");
}

/// Waits until the backend has taken everything and acknowledges the end of the job, which today's channel
/// takes for granted.
bool DriverFilter::awaitEndOfJob() {
    if (ipc == nullptr) {
        return true;
    }
    if (!ipc->waitForDelivery()) {
        return false;
    }
    awaitAcknowledgement([this] { return ipc->eojAck(); }, [this] { return cancelled(); }, platform.clock());
    return true;
}

} // namespace veltrin
