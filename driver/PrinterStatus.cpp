#include "driver/PrinterStatus.h"

#include "log/DebugLog.h"
#include "status/ReverseRecord.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

namespace veltrin {

using namespace std::chrono_literals;

namespace {

/// What CUPS knows a line of this severity by. "recoverable:" is stripped before people see the text.
const char *statusPrefix(std::int32_t severity) {
    switch (severity) {
    case 0:
        return "INFO: ";
    case 1:
        return "WARNING: recoverable: ";
    case 2:
        return "ERROR: recoverable: ";
    default:
        return "";
    }
}

bool hasStatusTag(std::span<const std::byte> reply) {
    return reply.size() >= reverseRecordTag.size() &&
           std::memcmp(reply.data(), reverseRecordTag.data(), reverseRecordTag.size()) == 0;
}

} // namespace

PrinterStatus::PrinterStatus(VeltrinReverseData &theReverseData, FrontendIPC *theIpc,
                             platform::Platform &thePlatform, std::function<bool()> isCancelled)
    : reverseData(theReverseData), ipc(theIpc), platform(thePlatform), cancelled(std::move(isCancelled)) {}

bool PrinterStatus::checkStatus() {
    if (ipc == nullptr) {
        return true;
    }
    if (cancelled()) {
        return false;
    }
    std::optional<std::vector<std::byte>> reply;
    while (!cancelled()) {
        if (!ipc->readData(reply)) {
            CPSDebugAssert_("DriverFilter checkStatus: readData failed");
            postCUPSStatus(2, platform.bundle().localizedStringForKey("DriverCommError", ""));
            return false;
        }
        if (isUsableStatusReply(reply)) {
            break;
        }
    }
    if (!reply) {
        return true; // cancelled before anything was read
    }
    static_cast<void>(reverseData.setData(*reply));
    if (!reverseData.hasRecord()) {
        return true; // cancelled with nothing but strange replies: there is no status to show
    }
    std::int32_t severity = 0;
    const std::string text = reverseData.statusString(severity);
    postCUPSStatus(severity, text);
    return severity != 2;
}

/// Other replies are dropped and asked for again. One with the right tag and a wrong length is, too, as long
/// as there is no record whose status could be shown in its stead.
bool PrinterStatus::isUsableStatusReply(const std::optional<std::vector<std::byte>> &reply) const {
    return reply && hasStatusTag(*reply) &&
           (reverseData.hasRecord() || reply->size() == sizeof(ReverseRecord));
}

bool PrinterStatus::waitForPort() {
    if (ipc == nullptr) {
        return true;
    }
    bool ok = false;
    do {
        CPSDebugLog("DriverFilter run: Waiting for port");
        ok = checkStatus();
        if (!ok) {
            CPSDebugAssert_("checkStatus error");
        }
        CPSDebugLog("DriverFilter run: Waiting for port (%d)", reverseData.snapshot().bPortName);
        platform.clock().sleepFor(2s);
    } while (reverseData.snapshot().bPortName != 0);
    return ok;
}

bool PrinterStatus::checkHeaderSize(std::uint32_t headerSize, std::uint32_t dataSize,
                                    [[maybe_unused]] bool isDuplex) {
    if (ipc == nullptr) {
        return true;
    }
    bool ok = true;
    if (const auto now = platform.clock().timeOfDay(); !isFresh(lastCheckTime, now)) {
        CPSDebugLog("DriverFilter checkHeaderSize: refreshing memory values");
        lastCheckTime = now;
        ok = refreshMemory();
    }
    while (ok && !printerMemory.hasRoomFor(headerSize, dataSize)) {
        CPSDebugLog("DriverFilter checkHeaderSize: Printer not ready...");
        CPSDebugLog("DriverFilter checkHeaderSize: headerMemory = %d", asSigned(printerMemory.headerMemory));
        CPSDebugLog("DriverFilter checkHeaderSize: imageMemory = %d", asSigned(printerMemory.imageMemory));
        platform.clock().sleepFor(2s);
        ok = refreshMemory();
    }
    if (ok) {
        printerMemory.subtract(headerSize, dataSize);
    }
    return ok;
}

/// Takes both figures from one record.
bool PrinterStatus::refreshMemory() {
    if (!checkStatus()) {
        return false;
    }
    const ReverseRecord record = reverseData.snapshot();
    printerMemory = {.headerMemory = record.dwHeaderRemainMemory, .imageMemory = record.dwImageRemainMemory};
    return true;
}

void PrinterStatus::postCUPSStatus(std::int32_t severity, const std::string &text) {
    if (text.empty()) {
        return;
    }
    do {
        const std::string line = statusPrefix(severity) + text;
        CPSDebugLog("%s", line.c_str());
        std::fprintf(stderr, "%s\n", line.c_str());
        if (severity != 2) {
            break;
        }
        platform.clock().sleepFor(100ms);
    } while (!cancelled());
}

void PrinterStatus::postCommunicationError() {
    postCUPSStatus(
        2, platform.bundle().localizedStringForKey("DriverCommError", "Unable to communicate with printer"));
}

} // namespace veltrin
