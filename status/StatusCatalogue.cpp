#include "status/StatusCatalogue.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace veltrin {

namespace {

constexpr std::int32_t information = severityInformation;
constexpr std::int32_t fatal = severityFatal;

constexpr LocalizedText noText = {};

/// In place of a first sub-status code: all of them, or all that no row above names.
constexpr int any = -1;
constexpr int other = any;

struct Row {
    std::uint8_t status;
    int subStatus1;
    LocalizedText text;
    std::int32_t severity;
    PaperName name = PaperName::none;
};

struct ServiceCall {
    std::uint8_t family; // the first sub-status code
    std::uint8_t number; // the second
    LocalizedText text;
};

constexpr std::uint8_t serviceCallStatus = 49;

// clang-format off

// The printer's status vocabulary, ascending by status; of the rows that fit, the first one counts. Texts and
// keys are the printer's, oddities included, and translations go by them. In particular:
// - 13 and 14 hold the six characters \U2026.
// - 26 counts its trays the other way round than 17 and 19 do. The key "TypeMismatchUnknown" is the one of 19
//   with another text, so a translation of it serves both.
// - 30 and 42 number the same cartridges differently.
// - Where there is no text, a row says so only if it still bears a severity or takes a name.
constexpr auto catalogue = std::to_array<Row>({
    {0, any, {"Ready", "Ready"}, information},
    {1, any, {"Ready", "Ready"}, information},
    {2, 0, {"WarmingUp", "Warming up"}, information},
    {2, 1, {"CoolingDown", "Cooling down"}, information},
    {2, 2, {"Calibrating", "Calibrating"}, information},
    {3, any, {"Processing", "Processing"}, information},
    {4, any, {"Printing", "Printing"}, information},
    {5, any, {"PowerSave", "Power save"}, information},
    {6, any, {"Waiting", "Waiting"}, information},
    {7, any, {"NotReady", "Not ready"}, information},
    {9, any, {"ResettingJob", "Resetting job"}, information},
    {10, any, {"ResetToDefault", "Reset to factory default"}, information},
    {13, 1, {"ControllerFWDownloading", "Downloading controller firmware\\U2026"}, information},
    {13, 2, {"ControllerFWUpdating", "Updating controller firmware\\U2026"}, information},
    {13, 3, {"ControllerFWComplete", "Controller firmware download complete"}, information},
    {14, 1, {"EngineFWDownloading", "Downloading engine firmware\\U2026"}, information},
    {14, 2, {"EngineFWUpdating", "Updating engine firmware\\U2026"}, information},
    {14, 3, {"EngineFWComplete", "Engine   firmware download complete"}, information},
    {15, any, {"LowerPowerStandby", "Lower Power Standby"}, information},
    {17, 1, {"SizeMismatch1", "Paper size %@ mismatch on Tray 1"}, information, PaperName::size},
    {17, 2, {"SizeMismatch2", "Paper size %@ mismatch on Tray 2"}, information, PaperName::size},
    {17, 3, {"SizeMismatch3", "Paper size %@ mismatch on MP Tray"}, information, PaperName::size},
    {17, other, {"SizeMismatchUnknown", "Paper size %@ mismatch"}, information, PaperName::size},
    {18, any, {"EngineSizeError", "Paper size error"}, information},
    {19, 1, {"TypeMismatch1", "Paper type %@ mismatch on Tray 1"}, information, PaperName::type},
    {19, 2, {"TypeMismatch2", "Paper type %@ mismatch on Tray 2"}, information, PaperName::type},
    {19, 3, {"TypeMismatch3", "Paper type %@ mismatch on MP Tray"}, information, PaperName::type},
    {19, other, {"TypeMismatchUnknown", "Paper type %@ mismatch"}, information, PaperName::type},
    {21, any, {"PrintOverrun", "Print overrun"}, information},
    {22, any, {"TrayNotInstalled", "Selected tray is not installed"}, information},
    {23, any, {"PaperSizeDuplex", "Paper size not supported by duplex"}, information},
    {24, any, {"PaperTypeDuplex", "Paper type not supported by duplex"}, information},
    {25, any, {"BypassDuplex", "Bypass Tray not supported by duplex"}, information},
    {26, 1, {"TypeIllegal1", "Paper size %@ illegal in Bypass Tray"}, information, PaperName::size},
    {26, 2, {"TypeIllegal12", "Paper size %@ illegal in MP  Tray"}, information, PaperName::size},
    {26, 3, {"TypeIllegal3", "Paper size %@ illegal in  Tray 1"}, information, PaperName::size},
    {26, other, {"TypeMismatchUnknown", "Paper size %@ illegal"}, information, PaperName::size},
    {27, any, {"UnableJamRecover", "Unable to perform paper jam recovery"}, information},
    {28, any, {"UnableCollate", "Unable to collate"}, information},
    {29, 1, {"ResetDuplexTray1", "Reset the paper for manual duplex on Tray 1"}, information},
    {29, 2, {"ResetDuplexMPTray", "Reset the paper for manual duplex on the MP Tray"}, information},
    {29, 3, {"ResetDuplexMemoryOverflow", "Memory overflow"}, information},
    {30, 1, {"EndKToner", "K toner cartridge at end of life"}, information},
    {30, 2, {"EndMToner", "M toner cartridge at end of life"}, information},
    {30, 3, {"EndCToner", "C toner cartridge at end of life"}, information},
    {30, 4, {"EndYToner", "Y toner cartridge at end of life"}, information},
    {30, 6, {"EndFuser", "Fuser at end of life"}, information},
    {31, 1, {"NearEndKToner", "K toner cartridge near end of life"}, information},
    {31, 2, {"NearEndMToner", "M toner cartridge near end of life"}, information},
    {31, 3, {"NearEndCToner", "C toner cartridge near end of life"}, information},
    {31, 4, {"NearEndYToner", "Y toner cartridge near end of life"}, information},
    {31, 5, {"NearEndTransferBelt", "Transfer belt near end of life"}, information},
    {31, 6, {"NearEndFuser", "Fuser near end of life"}, information},
    {31, 7, {"NearWasteBox", "Waste toner box almost full"}, information},
    {33, any, {"CoverOpen", "Cover open"}, information},
    {34, 1, {"UpperJam", "Upper misfeed jam"}, information},
    {34, 2, {"PaperTrayJam", "Paper tray misfeed jam"}, information},
    {34, 3, {"LowerJam", "Lower misfeed jam"}, information},
    {34, 4, {"InnerJam", "Inner jam"}, information},
    {34, 5, {"OuterJam", "Outer jam"}, information},
    {34, 6, {"DuplexJam", "Duplex jam"}, information},
    {35, 1, {"EmptyTray1", "Tray 1 empty"}, information},
    {35, 2, {"EmptyTray2", "Tray 2 empty"}, information},
    {35, 3, {"EmptyMPTray", "MP Tray paper empty"}, information},
    {35, 4, {"EmptyBypass", "Bypass tray empty"}, information},
    {37, 1, {"PaperTypeTray1", "Paper type %@ illegal in tray 1"}, information, PaperName::type},
    {37, 2, {"PaperTypeTray2", "Paper type %@ illegal in tray 2"}, information, PaperName::type},
    {37, 3, {"PaperTypeBypassTray", "Paper type %@ illegal in Bypass tray"}, information, PaperName::type},
    {37, 4, {"PaperTypeMPTray", "Paper type %@ illegal in MP tray"}, information, PaperName::type},
    {37, other, noText, information, PaperName::type},
    {38, 1, {"PaperSizeTray1", "Paper size %@ illegal in tray 1"}, information, PaperName::size},
    {38, 2, {"PaperSizeTray2", "Paper size %@ illegal in tray 2"}, information, PaperName::size},
    {38, 3, {"PaperSizeBypassTray", "Paper size %@ illegal in Bypass tray"}, information, PaperName::size},
    {38, 4, {"PaperSizeMPTray", "Paper size %@ illegal in MP tray"}, information, PaperName::size},
    {38, other, noText, information, PaperName::size},
    {39, 1, {"MisinstalledKToner", "Misinstalled K toner cartridge"}, information},
    {39, 2, {"MisinstalledMToner", "Misinstalled M toner cartridge"}, information},
    {39, 3, {"MisinstalledCToner", "Misinstalled C toner cartridge"}, information},
    {39, 4, {"MisinstalledYToner", "Misinstalled Y toner cartridge"}, information},
    {39, 5, {"MisinstalledWasteBox", "Misinstalled waste toner box "}, information},
    {39, 6, {"MisinstalledTransferBelt", "Misinstalled transfer belt"}, information},
    {39, 7, {"MisinstalledFuser", "Misinstalled fuser"}, information},
    {40, any, {"ControllerFWDownload", "Controller firmware download error"}, information},
    {41, any, {"EngineFWDownload", "Engine firmware download error"}, information},
    {42, 1, {"EndWasteToner", "Waste toner box is full"}, information},
    {42, 2, {"EndTransferBelt", "Transfer belt at end of life"}, information},
    {42, 3, {"EndKToner", "K toner cartridge at end of life"}, information},
    {42, 4, {"EndMToner", "M toner cartridge at end of life"}, information},
    {42, 5, {"EndCToner", "C toner cartridge at end of life"}, information},
    {42, 6, {"EndYToner", "Y toner cartridge at end of life"}, information},
    {43, any, {"OpenTray1", "Tray 1 is open"}, information},
    {44, any, {"UnloadBypass", "Please remove paper from bypass tray"}, information},
    {49, other, noText, fatal}, // but for the service calls
    {53, any, {"DIMMCheckError", "DIMM memory check error"}, fatal},
    {54, 1, {"USBDeviceError", "USB device error"}, fatal},
    {54, 2, {"NetworkDeviceError", "Network device error"}, fatal},
    {54, other, noText, fatal},
    {55, any, {"ServiceCyclePower", "Service cycle power"}, fatal},
    {56, any, {"EngineCommError", "Engine communication error"}, fatal},
    {255, any, {"PowerOff", "Power off or cable problem"}, fatal},
});

// Status 49, severity 2: the unit that fails, and its own number for what is wrong.
constexpr auto serviceCalls = std::to_array<ServiceCall>({
    {1, 1, {"FanError1", "Service call - Fan Error - FA1 Error"}},
    {1, 2, {"FanError2", "Service call - Fan Error - FA2 Error"}},
    {1, 3, {"FanError3", "Service call - Fan Error - FA3 Error"}},
    {2, 1, {"PSError1", "Service call - HVPS and LVPS Error - PS1 Error"}},
    {2, 2, {"PSError2", "Service call - HVPS and LVPS Error - PS2 Error"}},
    {2, 3, {"PSError3", "Service call - HVPS and LVPS Error - PS3 Error"}},
    {2, 4, {"PSError4", "Service call - HVPS and LVPS Error - PS4 Error"}},
    {2, 5, {"PSError5", "Service call - HVPS and LVPS Error - PS5 Error"}},
    {2, 6, {"PSError6", "Service call - HVPS and LVPS Error - PS6 Error"}},
    {2, 7, {"PSError7", "Service call - HVPS and LVPS Error - PS7 Error"}},
    {3, 1, {"TMError1", "Service call - Toner Mass Amount - TM1 Error"}},
    {3, 2, {"TMError2", "Service call - Toner Mass Amount - TM2 Error"}},
    {3, 3, {"TMError3", "Service call - Toner Mass Amount - TM3 Error"}},
    {4, 1, {"FuserError1", "Service call - Fuser Error - FU1 Error"}},
    {4, 2, {"FuserError2", "Service call - Fuser Error - FU2 Error"}},
    {4, 3, {"FuserError3", "Service call - Fuser Error - FU3 Error"}},
    {4, 4, {"FuserError4", "Service call - Fuser Error - FU4 Error"}},
    {4, 5, {"FuserError5", "Service call - Fuser Error - FU5 Error"}},
    {4, 6, {"FuserError6", "Service call - Fuser Error - FU6 Error"}},
    {4, 7, {"FuserError7", "Service call - Fuser Error - FU7 Error"}},
    {4, 8, {"FuserError8", "Service call - Fuser Error - FU8 Error"}},
    {4, 9, {"FuserError9", "Service call - Fuser Error - FU9 Error"}},
    {5, 1, {"MotorError1", "Service call - Motor Error - MT1 Error"}},
    {5, 2, {"MotorError2", "Service call - Motor Error - MT2 Error"}},
    {5, 3, {"MotorError3", "Service call - Motor Error - MT3 Error"}},
    {5, 4, {"MotorError4", "Service call - Motor Error - MT4 Error"}},
    {5, 5, {"MotorError5", "Service call - Motor Error - MT5 Error"}},
    {5, 6, {"MotorError6", "Service call - Motor Error - MT6 Error"}},
    {5, 7, {"MotorError7", "Service call - Motor Error - MT7 Error"}},
    {5, 8, {"MotorError8", "Service call - Motor Error - MT8 Error"}},
    {6, 1, {"LaserError1", "Service call - Laser Error - GA1 Error"}},
    {6, 2, {"LaserError2", "Service call - Laser Error - GA2 Error"}},
    {6, 3, {"LaserError3", "Service call - Laser Error - LD1 Error"}},
    {6, 4, {"LaserError4", "Service call - Laser Error - LD2 Error"}},
    {7, 1, {"EngineControllerError1", "Service call - Engine Controller Board - EG1 Error"}},
    {7, 2, {"EngineControllerError2", "Service call - Engine Controller Board - EG2 Error"}},
    {7, 3, {"EngineControllerError3", "Service call - Engine Controller Board - EG3 Error"}},
});

// clang-format on

/// The catalogue's order.
struct ByStatus {
    constexpr bool operator()(const Row &a, const Row &b) const { return a.status < b.status; }

    constexpr bool operator()(const Row &a, std::uint8_t status) const { return a.status < status; }

    constexpr bool operator()(std::uint8_t status, const Row &b) const { return status < b.status; }
};

static_assert(std::is_sorted(catalogue.begin(), catalogue.end(), ByStatus()));

// A row for any first sub-status catches what those before it do not, so it is the last of its status.
static_assert(std::adjacent_find(catalogue.begin(), catalogue.end(), [](const Row &a, const Row &b) {
                  return a.status == b.status && a.subStatus1 == any;
              }) == catalogue.end());

} // namespace

StatusText statusText(std::uint8_t status, std::uint8_t subStatus1, std::uint8_t subStatus2) {
    if (status == serviceCallStatus) {
        for (const ServiceCall &call : serviceCalls) {
            if (call.family == subStatus1 && call.number == subStatus2) {
                return {call.text, fatal};
            }
        }
    }
    const auto [first, end] = std::equal_range(catalogue.begin(), catalogue.end(), status, ByStatus());
    const auto *row = std::find_if(first, end, [subStatus1](const Row &candidate) {
        return candidate.subStatus1 == subStatus1 || candidate.subStatus1 == any;
    });
    return row != end ? StatusText{row->text, row->severity, row->name} : StatusText{};
}

} // namespace veltrin
