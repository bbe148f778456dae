#include "status/ReverseRecord.h"

#include <cstddef>
#include <initializer_list>
#include <type_traits>

// The record's layout, field by field. Nothing here runs: a record that does not lie as the printer sends it
// does not compile.

#define VELTRIN_AT(field, offset, width)                                                                     \
    static_assert(offsetof(ReverseRecord, field) == (offset) && sizeof(ReverseRecord::field) == (width))

namespace veltrin {

static_assert(sizeof(ReverseRecord) == 64 && std::is_trivially_copyable_v<ReverseRecord> &&
              std::is_standard_layout_v<ReverseRecord>);
VELTRIN_AT(dwFlag, 0, 4);
VELTRIN_AT(dwVersion, 4, 4);
VELTRIN_AT(bPortName, 8, 1);
VELTRIN_AT(receiveBits, 9, 1);
VELTRIN_AT(receivingJobId, 10, 1);
VELTRIN_AT(printingJobId, 11, 1);
VELTRIN_AT(dwJobStatusReserved, 12, 4);
VELTRIN_AT(dwCompletePageReserved, 16, 4);
VELTRIN_AT(dwDeviceCapabilityReserved, 20, 4);
VELTRIN_AT(dwHeaderRemainMemory, 24, 4);
VELTRIN_AT(dwImageRemainMemory, 28, 4);
VELTRIN_AT(wPaperInfoReserved, 32, 2);
VELTRIN_AT(wRemainPage, 34, 2);
VELTRIN_AT(bPrinterStatus, 36, 1);
VELTRIN_AT(bSubStatus1, 37, 1);
VELTRIN_AT(bTotalJobNum, 38, 1);
VELTRIN_AT(bConfigureMemory, 39, 1);
VELTRIN_AT(bg_u8Flag2Reserved, 40, 1);
VELTRIN_AT(bg_u8FlagReserved, 41, 1);
VELTRIN_AT(optionBits, 42, 1);
VELTRIN_AT(trayBits, 43, 1);
VELTRIN_AT(BypassTrayPaperSize, 44, 1);
VELTRIN_AT(Tray1PaperSize, 45, 1);
VELTRIN_AT(Tray2PaperSize, 46, 1);
VELTRIN_AT(Tray3PaperSizeReserved, 47, 1);
VELTRIN_AT(BypassType, 48, 1);
VELTRIN_AT(Tray1Type, 49, 1);
VELTRIN_AT(Tray2Type, 50, 1);
VELTRIN_AT(Tray3TypeReserved, 51, 1);
VELTRIN_AT(TonerKStatus, 52, 1);
VELTRIN_AT(TonerCStatus, 53, 1);
VELTRIN_AT(TonerMStatus, 54, 1);
VELTRIN_AT(TonerYStatus, 55, 1);
VELTRIN_AT(warningBits, 56, 1);
VELTRIN_AT(installBits, 57, 1);
VELTRIN_AT(TrayDuplexReserved, 58, 1);
VELTRIN_AT(bSubStatus2, 59, 1);
VELTRIN_AT(totalTextEmission, 60, 1);
VELTRIN_AT(totalGraphicEmission, 61, 1);
VELTRIN_AT(totalImageEmission, 62, 1);
VELTRIN_AT(BrandID, 63, 1);

namespace {

/// The fields lie in one byte, without gap or overlap from its least significant bit up to its most
/// significant.
consteval bool fillOneByte(std::initializer_list<BitField> fields) {
    unsigned nextBit = 0;
    for (const BitField &field : fields) {
        if (field.byte != fields.begin()->byte || field.lowestBit != nextBit || field.width == 0) {
            return false;
        }
        nextBit += field.width;
    }
    return nextBit == 8;
}

static_assert(fillOneByte({RecoverFlag, ReceiveState, reserve_bit2, Market_Info, Model_Info}));
static_assert(fillOneByte({DuplexInstallReserved, Tray2InstallReserved, option_bits_reserved}));
static_assert(fillOneByte({BypassOpenReserved, Tray1OpenReserved, Tray2OpenReserved, Tray3OpenReserved,
                           BypassEmpty, Tray1Empty, Tray2Empty, Tray3EmptyReserved}));
static_assert(fillOneByte({USB_warn, NW_warn, Waste_warn, Transfer_warn, TMA_warn, panelCancelJob, Fuser_warn,
                           TCPIPActive}));
static_assert(fillOneByte({NW_Init_Going, option_binInstallReserved, Tray4InstallReserved,
                           Tray3InstallReserved, Tray2Install, Tray1InstallReserved, BypassInstallReserved,
                           DuplexInstall}));

} // namespace

} // namespace veltrin
