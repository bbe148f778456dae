#include "status/StatusCatalogue.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace veltrin {
namespace {

/// A status as the printer's makers describe it: the texts by first sub-status code, and the one for all
/// other codes.
struct Status {
    std::int32_t severity;
    PaperName name;
    std::map<unsigned, LocalizedText> variants;
    LocalizedText otherwise = {};
};

Status same(LocalizedText text, std::int32_t severity = 0) {
    return {severity, PaperName::none, {}, text};
}

Status plain(std::map<unsigned, LocalizedText> variants, std::int32_t severity = 0) {
    return {severity, PaperName::none, std::move(variants), {}};
}

Status ofSize(std::map<unsigned, LocalizedText> variants, LocalizedText otherwise = {}) {
    return {0, PaperName::size, std::move(variants), otherwise};
}

Status ofType(std::map<unsigned, LocalizedText> variants, LocalizedText otherwise = {}) {
    return {0, PaperName::type, std::move(variants), otherwise};
}

std::map<unsigned, Status> describedStatuses() {
    const LocalizedText blackEnds = {"EndKToner", "K toner cartridge at end of life"};
    const LocalizedText magentaEnds = {"EndMToner", "M toner cartridge at end of life"};
    const LocalizedText cyanEnds = {"EndCToner", "C toner cartridge at end of life"};
    const LocalizedText yellowEnds = {"EndYToner", "Y toner cartridge at end of life"};
    return {
        {0, same({"Ready", "Ready"})},
        {1, same({"Ready", "Ready"})},
        {2, plain({{0, {"WarmingUp", "Warming up"}},
                   {1, {"CoolingDown", "Cooling down"}},
                   {2, {"Calibrating", "Calibrating"}}})},
        {3, same({"Processing", "Processing"})},
        {4, same({"Printing", "Printing"})},
        {5, same({"PowerSave", "Power save"})},
        {6, same({"Waiting", "Waiting"})},
        {7, same({"NotReady", "Not ready"})},
        {9, same({"ResettingJob", "Resetting job"})},
        {10, same({"ResetToDefault", "Reset to factory default"})},
        {13, plain({{1, {"ControllerFWDownloading", R"(Downloading controller firmware\U2026)"}},
                    {2, {"ControllerFWUpdating", R"(Updating controller firmware\U2026)"}},
                    {3, {"ControllerFWComplete", "Controller firmware download complete"}}})},
        {14, plain({{1, {"EngineFWDownloading", R"(Downloading engine firmware\U2026)"}},
                    {2, {"EngineFWUpdating", R"(Updating engine firmware\U2026)"}},
                    {3, {"EngineFWComplete", "Engine   firmware download complete"}}})},
        {15, same({"LowerPowerStandby", "Lower Power Standby"})},
        {17, ofSize({{1, {"SizeMismatch1", "Paper size %@ mismatch on Tray 1"}},
                     {2, {"SizeMismatch2", "Paper size %@ mismatch on Tray 2"}},
                     {3, {"SizeMismatch3", "Paper size %@ mismatch on MP Tray"}}},
                    {"SizeMismatchUnknown", "Paper size %@ mismatch"})},
        {18, same({"EngineSizeError", "Paper size error"})},
        {19, ofType({{1, {"TypeMismatch1", "Paper type %@ mismatch on Tray 1"}},
                     {2, {"TypeMismatch2", "Paper type %@ mismatch on Tray 2"}},
                     {3, {"TypeMismatch3", "Paper type %@ mismatch on MP Tray"}}},
                    {"TypeMismatchUnknown", "Paper type %@ mismatch"})},
        {21, same({"PrintOverrun", "Print overrun"})},
        {22, same({"TrayNotInstalled", "Selected tray is not installed"})},
        {23, same({"PaperSizeDuplex", "Paper size not supported by duplex"})},
        {24, same({"PaperTypeDuplex", "Paper type not supported by duplex"})},
        {25, same({"BypassDuplex", "Bypass Tray not supported by duplex"})},
        {26, ofSize({{1, {"TypeIllegal1", "Paper size %@ illegal in Bypass Tray"}},
                     {2, {"TypeIllegal12", "Paper size %@ illegal in MP  Tray"}},
                     {3, {"TypeIllegal3", "Paper size %@ illegal in  Tray 1"}}},
                    {"TypeMismatchUnknown", "Paper size %@ illegal"})},
        {27, same({"UnableJamRecover", "Unable to perform paper jam recovery"})},
        {28, same({"UnableCollate", "Unable to collate"})},
        {29, plain({{1, {"ResetDuplexTray1", "Reset the paper for manual duplex on Tray 1"}},
                    {2, {"ResetDuplexMPTray", "Reset the paper for manual duplex on the MP Tray"}},
                    {3, {"ResetDuplexMemoryOverflow", "Memory overflow"}}})},
        {30, plain({{1, blackEnds},
                    {2, magentaEnds},
                    {3, cyanEnds},
                    {4, yellowEnds},
                    {6, {"EndFuser", "Fuser at end of life"}}})},
        {31, plain({{1, {"NearEndKToner", "K toner cartridge near end of life"}},
                    {2, {"NearEndMToner", "M toner cartridge near end of life"}},
                    {3, {"NearEndCToner", "C toner cartridge near end of life"}},
                    {4, {"NearEndYToner", "Y toner cartridge near end of life"}},
                    {5, {"NearEndTransferBelt", "Transfer belt near end of life"}},
                    {6, {"NearEndFuser", "Fuser near end of life"}},
                    {7, {"NearWasteBox", "Waste toner box almost full"}}})},
        {33, same({"CoverOpen", "Cover open"})},
        {34, plain({{1, {"UpperJam", "Upper misfeed jam"}},
                    {2, {"PaperTrayJam", "Paper tray misfeed jam"}},
                    {3, {"LowerJam", "Lower misfeed jam"}},
                    {4, {"InnerJam", "Inner jam"}},
                    {5, {"OuterJam", "Outer jam"}},
                    {6, {"DuplexJam", "Duplex jam"}}})},
        {35, plain({{1, {"EmptyTray1", "Tray 1 empty"}},
                    {2, {"EmptyTray2", "Tray 2 empty"}},
                    {3, {"EmptyMPTray", "MP Tray paper empty"}},
                    {4, {"EmptyBypass", "Bypass tray empty"}}})},
        {37, ofType({{1, {"PaperTypeTray1", "Paper type %@ illegal in tray 1"}},
                     {2, {"PaperTypeTray2", "Paper type %@ illegal in tray 2"}},
                     {3, {"PaperTypeBypassTray", "Paper type %@ illegal in Bypass tray"}},
                     {4, {"PaperTypeMPTray", "Paper type %@ illegal in MP tray"}}})},
        {38, ofSize({{1, {"PaperSizeTray1", "Paper size %@ illegal in tray 1"}},
                     {2, {"PaperSizeTray2", "Paper size %@ illegal in tray 2"}},
                     {3, {"PaperSizeBypassTray", "Paper size %@ illegal in Bypass tray"}},
                     {4, {"PaperSizeMPTray", "Paper size %@ illegal in MP tray"}}})},
        {39, plain({{1, {"MisinstalledKToner", "Misinstalled K toner cartridge"}},
                    {2, {"MisinstalledMToner", "Misinstalled M toner cartridge"}},
                    {3, {"MisinstalledCToner", "Misinstalled C toner cartridge"}},
                    {4, {"MisinstalledYToner", "Misinstalled Y toner cartridge"}},
                    {5, {"MisinstalledWasteBox", "Misinstalled waste toner box "}},
                    {6, {"MisinstalledTransferBelt", "Misinstalled transfer belt"}},
                    {7, {"MisinstalledFuser", "Misinstalled fuser"}}})},
        {40, same({"ControllerFWDownload", "Controller firmware download error"})},
        {41, same({"EngineFWDownload", "Engine firmware download error"})},
        {42, plain({{1, {"EndWasteToner", "Waste toner box is full"}},
                    {2, {"EndTransferBelt", "Transfer belt at end of life"}},
                    {3, blackEnds},
                    {4, magentaEnds},
                    {5, cyanEnds},
                    {6, yellowEnds}})},
        {43, same({"OpenTray1", "Tray 1 is open"})},
        {44, same({"UnloadBypass", "Please remove paper from bypass tray"})},
        {49, same({}, 2)}, // but for the service calls
        {53, same({"DIMMCheckError", "DIMM memory check error"}, 2)},
        {54, plain({{1, {"USBDeviceError", "USB device error"}},
                    {2, {"NetworkDeviceError", "Network device error"}}},
                   2)},
        {55, same({"ServiceCyclePower", "Service cycle power"}, 2)},
        {56, same({"EngineCommError", "Engine communication error"}, 2)},
        {255, same({"PowerOff", "Power off or cable problem"}, 2)},
    };
}

struct ServiceCallText {
    std::string key;
    std::string english;
};

/// Service calls by family and number; the laser's do not follow the pattern of the others.
std::map<std::pair<unsigned, unsigned>, ServiceCallText> describedServiceCalls() {
    struct Family {
        unsigned code;
        unsigned last;
        const char *key;
        const char *unit;
        const char *prefix;
    };

    const std::vector<Family> families = {
        {1, 3, "FanError", "Fan Error", "FA"},
        {2, 7, "PSError", "HVPS and LVPS Error", "PS"},
        {3, 3, "TMError", "Toner Mass Amount", "TM"},
        {4, 9, "FuserError", "Fuser Error", "FU"},
        {5, 8, "MotorError", "Motor Error", "MT"},
        {7, 3, "EngineControllerError", "Engine Controller Board", "EG"},
    };
    std::map<std::pair<unsigned, unsigned>, ServiceCallText> calls = {
        {{6, 1}, {"LaserError1", "Service call - Laser Error - GA1 Error"}},
        {{6, 2}, {"LaserError2", "Service call - Laser Error - GA2 Error"}},
        {{6, 3}, {"LaserError3", "Service call - Laser Error - LD1 Error"}},
        {{6, 4}, {"LaserError4", "Service call - Laser Error - LD2 Error"}},
    };
    for (const Family &family : families) {
        for (unsigned number = 1; number <= family.last; ++number) {
            const std::string digit = std::to_string(number);
            calls[{family.code, number}] = {family.key + digit, std::string("Service call - ") + family.unit +
                                                                    " - " + family.prefix + digit + " Error"};
        }
    }
    return calls;
}

bool equal(const StatusText &found, const StatusText &expected) {
    return found.severity == expected.severity && found.name == expected.name &&
           found.text.key == expected.text.key && found.text.english == expected.text.english;
}

StatusText expectedFor(const Status &status, unsigned subStatus1) {
    const auto variant = status.variants.find(subStatus1);
    return {variant != status.variants.end() ? variant->second : status.otherwise, status.severity,
            status.name};
}

TEST(StatusCatalogue, EveryTripleOfCodesHasItsTextSeverityAndName) {
    const std::map<unsigned, Status> statuses = describedStatuses();
    const auto serviceCalls = describedServiceCalls();
    std::array<StatusText, 256> expected; // by second sub-status code
    for (unsigned status = 0; status < 256; ++status) {
        const auto described = statuses.find(status);
        for (unsigned subStatus1 = 0; subStatus1 < 256; ++subStatus1) {
            expected.fill(described != statuses.end() ? expectedFor(described->second, subStatus1)
                                                      : StatusText{});
            if (status == 49) {
                for (const auto &[codes, call] : serviceCalls) {
                    if (codes.first == subStatus1) {
                        expected.at(codes.second).text = {call.key, call.english};
                    }
                }
            }
            for (unsigned subStatus2 = 0; subStatus2 < 256; ++subStatus2) {
                const StatusText found =
                    statusText(static_cast<std::uint8_t>(status), static_cast<std::uint8_t>(subStatus1),
                               static_cast<std::uint8_t>(subStatus2));
                if (!equal(found, expected[subStatus2])) { // no EXPECT: it runs millions of times
                    FAIL() << "status " << status << ", " << subStatus1 << ", " << subStatus2 << " is \""
                           << found.text.key << "\" \"" << found.text.english << "\" with severity "
                           << found.severity << " instead of \"" << expected[subStatus2].text.key << "\" \""
                           << expected[subStatus2].text.english << "\"";
                }
            }
        }
    }
}

} // namespace
} // namespace veltrin
