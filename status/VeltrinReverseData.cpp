#include "status/VeltrinReverseData.h"

#include "log/DebugLog.h"
#include "status/MediaNames.h"
#include "status/StatusCatalogue.h"
#include "status/StatusWording.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace veltrin {

namespace {

bool isRecord(std::span<const std::byte> data) {
    return data.size() == sizeof(ReverseRecord) &&
           std::memcmp(data.data(), reverseRecordTag.data(), reverseRecordTag.size()) == 0;
}

/// Shows on standard error what came in place of a record: its length, and as many of its bytes as a record
/// has.
void showRejected(std::span<const std::byte> data) {
    const std::span<const std::byte> shown = data.first(std::min(data.size(), sizeof(ReverseRecord)));
    std::string hex;
    for (const std::byte byte : shown) {
        constexpr const char *digits = "0123456789abcdef";
        hex += digits[std::to_integer<unsigned>(byte >> 4)];
        hex += digits[std::to_integer<unsigned>(byte & std::byte{0xF})];
    }
    (void)std::fprintf(stderr, "Unexpected reverse data: {length = %zu, bytes = 0x%s%s}\n", data.size(),
                       hex.c_str(), shown.size() < data.size() ? "..." : "");
}

const char *portName(std::uint32_t port) {
    constexpr std::array names = {"Hot Port Switching", "LPT", "USB 1.1", "USB 2.0", "Network"};
    return port < names.size() ? names[port] : "Unknown";
}

std::string lookUp(platform::Bundle &bundle, LocalizedText text) {
    return bundle.localizedStringForKey(std::string(text.key), std::string(text.english));
}

} // namespace

VeltrinReverseData::VeltrinReverseData(platform::Bundle &theBundle) : bundle(theBundle) {}

bool VeltrinReverseData::setData(std::span<const std::byte> data) {
    if (!isRecord(data)) {
        CPSDebugLog("ReverseData dataArrived: received %d bytes of unexpected reverse data",
                    static_cast<int>(data.size()));
        showRejected(data);
        return false;
    }
    CPSDebugLog("ReverseData dataArrived: updating reverse data");
    reverseLock.lock();
    const bool differs = std::memcmp(&reverseData, data.data(), sizeof reverseData) != 0;
    std::memcpy(&reverseData, data.data(), sizeof reverseData);
    unlockedVersion = reverseData.dwVersion;
    unlockedTray2Install = Tray2Install.valueIn(reverseData) != 0;
    reverseLock.unlockWithCondition(recordArrived);
    if (differs) {
        dump();
    }
    return true;
}

bool VeltrinReverseData::hasRecord() const {
    reverseLock.lock();
    const int condition = reverseLock.condition();
    reverseLock.unlock();
    return condition == recordArrived;
}

ReverseRecord VeltrinReverseData::snapshot() const {
    reverseLock.lock();
    const ReverseRecord record = reverseData;
    reverseLock.unlock();
    return record;
}

void VeltrinReverseData::dump() const {
    // The uneven tabs and blanks are part of the log's format: whoever reads it by program goes by them.
    CPSDebugLog("----------");
    CPSDebugLog("ReverseData: port:\t%s", portName(port()));
    CPSDebugLog("ReverseData: dwVersion:\t0x%x", unlockedVersion.load());
    CPSDebugLog("ReverseData: duplexInstalled:\t%d", duplexInstalled());
    CPSDebugLog("ReverseData: tray1PaperEmpty:\t%d", tray1PaperEmpty());
    CPSDebugLog("ReverseData: tray2PaperEmpty:\t%d", tray2PaperEmpty());
    CPSDebugLog("ReverseData: recoverFlag:\t\t%d", recoverFlag());
    CPSDebugLog("ReverseData: readyToReceive:\t%d", readyToReceive());
    CPSDebugLog("ReverseData: frontPanelCancel:\t%d", frontPanelCancel());
    CPSDebugLog("ReverseData: modelInfo:\t\t%d", asSigned(modelInfo()));
    CPSDebugLog("ReverseData: marketInfo:\t\t%d", asSigned(marketInfo()));
    CPSDebugLog("ReverseData: headerMemory:\t%8.8u", headerMemory());
    CPSDebugLog("ReverseData: imageMemory:\t\t%8.8u", imageMemory());
    CPSDebugLog("ReverseData: totalMemory: \t%8.8u", totalMemory());
    CPSDebugLog("ReverseData: jobCount: \t\t%2.2u", jobCount());
    CPSDebugLog("ReverseData: remainingPages:\t%3.3d", asSigned(remainingPages()));
    CPSDebugLog("ReverseData: statusCode:\t\t0x%2.2x", statusCode());
    CPSDebugLog("ReverseData: subStatusCode1: \t0x%2.2x", subStatusCode1());
    CPSDebugLog("ReverseData: subStatusCode2:\t0x%2.2x", subStatusCode2());
    CPSDebugLog("ReverseData: bypassPaperSize = 0x%2.2x", bypassPaperSize());
    CPSDebugLog("ReverseData: tray1PaperSize = 0x%2.2x", tray1PaperSize());
    CPSDebugLog("ReverseData: tray2PaperSize = 0x%2.2x", tray2PaperSize());
    CPSDebugLog("ReverseData: bypassPaperType = 0x%2.2x", bypassPaperType());
    CPSDebugLog("ReverseData: tray1PaperType = 0x%2.2x", tray1PaperType());
    CPSDebugLog("ReverseData: tray2PaperType = 0x%2.2x", tray2PaperType());
    CPSDebugLog("ReverseData: tray2Installed = 0x%2.2x", unsigned{tray2Installed()});
    CPSDebugLog("ReverseData: tonerKStatus: \t%3.3u", tonerKStatus());
    CPSDebugLog("ReverseData: tonerCStatus: \t%3.3u", tonerCStatus());
    CPSDebugLog("ReverseData: tonerMStatus: \t%3.3u", tonerMStatus());
    CPSDebugLog("ReverseData: tonerYStatus: \t%3.3u", tonerYStatus());
    CPSDebugLog("ReverseData: totalTextEmission: \t%3.3u", totalTextEmission());
    CPSDebugLog("ReverseData: totalGraphicsEmission:%3.3u", totalGraphicsEmission());
    CPSDebugLog("ReverseData: totalImagesEmission: \t%3.3u", totalImagesEmission());
    CPSDebugLog("----------");
}

bool VeltrinReverseData::tray2Installed() const {
    return modelInfo() != 0 && unlockedTray2Install;
}

std::uint32_t VeltrinReverseData::paperTypeForTray(std::uint32_t tray) const {
    const auto field = paperTypeField(tray);
    return field != nullptr ? read(field) : 0;
}

std::uint32_t VeltrinReverseData::priorityTrayForTargetTray(std::uint32_t targetTray) {
    switch (targetTray) {
    case 1:
        return 2;
    case 2:
        return 3;
    case 3:
        return 1;
    default:
        CPSDebugLog(
            "VeltrinReverseData priorityTrayForTargetTray: failed to properly map the tray selection!");
        return 0;
    }
}

std::string VeltrinReverseData::statusString(std::int32_t &severity) const {
    const auto status = static_cast<std::uint8_t>(statusCode());
    const auto subStatus1 = static_cast<std::uint8_t>(subStatusCode1());
    const auto subStatus2 = static_cast<std::uint8_t>(subStatusCode2());
    const StatusText entry = statusText(status, subStatus1, subStatus2);
    severity = entry.severity;

    std::string result =
        statusWording(entry, subStatus2, [this](LocalizedText text) { return lookUp(bundle, text); });
    if (!result.empty()) {
        CPSDebugLog("ReverseData: detected status: %s", result.c_str());
    }
    return result;
}

std::string VeltrinReverseData::paperSizeString(std::uint32_t code) const {
    return lookUp(bundle, paperSizeName(code));
}

std::string VeltrinReverseData::paperTypeString(std::uint32_t code) const {
    return lookUp(bundle, paperTypeName(code));
}

std::string VeltrinReverseData::paperTrayString(std::uint32_t code) const {
    return lookUp(bundle, paperTrayName(code));
}

std::string VeltrinReverseData::mediaTypeString(std::int32_t code) {
    return std::string(mediaTypeName(code));
}

std::string VeltrinReverseData::modelInfoString() const {
    return hasRecord() ? lookUp(bundle, modelName(modelInfo())) : std::string();
}

std::string VeltrinReverseData::modelInfoDescription() const {
    return hasRecord() ? lookUp(bundle, modelDescription(modelInfo())) : std::string();
}

} // namespace veltrin
