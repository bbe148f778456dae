#include "driver/PageOutput.h"

#include "log/DebugLog.h"
#include "platform/WriteAll.h"

#include <unistd.h>

#include <span>

namespace veltrin {

namespace {

/// Reports that a write has failed with this many bytes of a header or of its data still missing.
void reportFailedWrite(std::size_t missing) {
    CPSDebugAssert_("DriverFilter writeToFD: Unable to write all of data. Wanted %d bytes, got %d bytes",
                    static_cast<std::int32_t>(missing), -1);
}

} // namespace

PageOutput PageOutput::toPrinter(FrontendIPC *ipc, PrinterStatus &status) {
    return {STDOUT_FILENO, ipc, status};
}

PageOutput PageOutput::toFile(int fd, PrinterStatus &status) {
    return {fd, nullptr, status};
}

bool PageOutput::isPrinter() const {
    return fd == STDOUT_FILENO;
}

bool PageOutput::writeToFD(const void *buffer, std::int32_t size) {
    const std::span<const std::byte> bytes(static_cast<const std::byte *>(buffer),
                                           static_cast<std::size_t>(size));
    if (ipc != nullptr) {
        // Nothing goes to standard output then, not even what the channel refuses.
        if (ipc->sendData(bytes)) {
            return true;
        }
    } else {
        const std::size_t written = platform::writeAll(fd, bytes);
        if (written == bytes.size()) {
            return true;
        }
        reportFailedWrite(bytes.size() - written);
    }
    status.postCommunicationError();
    return false;
}

Written PageOutput::writeHeaderAndData(const StreamHeader &header, std::int32_t headerSize,
                                       const std::byte *data, std::int32_t dataSize) {
    if (headerSize != 0 && !writeToFD(header.data(), headerSize)) {
        return Written::headerFailed;
    }
    if (dataSize != 0 && !writeToFD(data, dataSize)) {
        return Written::dataFailed;
    }
    return Written::all;
}

BandRun PageOutput::bandsToBatch(std::span<const std::byte> stream) const {
    return ipc == nullptr ? bandRunOf(stream) : BandRun();
}

Written PageOutput::writeBandRun(const BandRun &run, std::span<const std::byte> stream) {
    const std::size_t written = platform::writeAll(fd, stream.first(run.size));
    if (written == run.size) {
        return Written::all;
    }
    const BandExtent struck = bandAround(stream, written);
    const bool inHeader = written < struck.headerEnd;
    reportFailedWrite((inHeader ? struck.headerEnd : struck.dataEnd) - written);
    status.postCommunicationError();
    return inHeader ? Written::headerFailed : Written::dataFailed;
}

} // namespace veltrin
