#pragma once

#include "platform/ByteOrder.h"

#include <array>
#include <cstdint>

// The reverse status record: the 64 bytes in which the printer reports its state. Fields named "Reserved"
// have no meaning for this family of printers.

namespace veltrin {

/// A byte that the record packs smaller fields into.
using PackedByte = std::uint8_t;

struct ReverseRecord {
    std::array<std::uint8_t, 4> dwFlag; // `reverseRecordTag`
    LittleEndian32 dwVersion;
    std::uint8_t bPortName;
    PackedByte receiveBits; // see RecoverFlag
    std::uint8_t receivingJobId;
    std::uint8_t printingJobId;
    std::array<std::uint8_t, 4> dwJobStatusReserved;
    std::array<std::uint8_t, 4> dwCompletePageReserved;
    std::array<std::uint8_t, 4> dwDeviceCapabilityReserved;
    BigEndian32 dwHeaderRemainMemory; // bytes
    BigEndian32 dwImageRemainMemory;  // bytes
    std::array<std::uint8_t, 2> wPaperInfoReserved;
    BigEndian16 wRemainPage;
    std::uint8_t bPrinterStatus;
    std::uint8_t bSubStatus1;
    std::uint8_t bTotalJobNum;
    std::uint8_t bConfigureMemory; // in units of 65,536 bytes
    std::uint8_t bg_u8Flag2Reserved;
    std::uint8_t bg_u8FlagReserved;
    PackedByte optionBits; // see DuplexInstallReserved
    PackedByte trayBits;   // see BypassOpenReserved
    std::uint8_t BypassTrayPaperSize;
    std::uint8_t Tray1PaperSize;
    std::uint8_t Tray2PaperSize;
    std::uint8_t Tray3PaperSizeReserved;
    std::uint8_t BypassType;
    std::uint8_t Tray1Type;
    std::uint8_t Tray2Type;
    std::uint8_t Tray3TypeReserved;
    std::uint8_t TonerKStatus;
    std::uint8_t TonerCStatus;
    std::uint8_t TonerMStatus;
    std::uint8_t TonerYStatus;
    PackedByte warningBits; // see USB_warn
    PackedByte installBits; // see NW_Init_Going
    std::uint8_t TrayDuplexReserved;
    std::uint8_t bSubStatus2;
    std::uint8_t totalTextEmission;
    std::uint8_t totalGraphicEmission;
    std::uint8_t totalImageEmission;
    std::uint8_t BrandID;
};

/// "GDIR", what every record begins with.
inline constexpr std::array<std::uint8_t, 4> reverseRecordTag = {0x47, 0x44, 0x49, 0x52};

/// A field of one or more bits inside a byte of the record.
struct BitField {
    PackedByte ReverseRecord::*byte;
    unsigned lowestBit; // 0 the least significant
    unsigned width;     // in bits

    /// The bits of the byte that belong to the field.
    [[nodiscard]] constexpr unsigned mask() const { return ((1U << width) - 1U) << lowestBit; }

    /// The field's value, counted from its own lowest bit.
    [[nodiscard]] constexpr std::uint32_t valueIn(const ReverseRecord &record) const {
        return (unsigned{record.*byte} & mask()) >> lowestBit;
    }
};

// clang-format off
inline constexpr BitField RecoverFlag           = {&ReverseRecord::receiveBits, 0, 1};
inline constexpr BitField ReceiveState          = {&ReverseRecord::receiveBits, 1, 1};
inline constexpr BitField reserve_bit2          = {&ReverseRecord::receiveBits, 2, 1};
inline constexpr BitField Market_Info           = {&ReverseRecord::receiveBits, 3, 3};
inline constexpr BitField Model_Info            = {&ReverseRecord::receiveBits, 6, 2};

inline constexpr BitField DuplexInstallReserved = {&ReverseRecord::optionBits, 0, 1};
inline constexpr BitField Tray2InstallReserved  = {&ReverseRecord::optionBits, 1, 1};
inline constexpr BitField option_bits_reserved  = {&ReverseRecord::optionBits, 2, 6};

inline constexpr BitField BypassOpenReserved    = {&ReverseRecord::trayBits, 0, 1};
inline constexpr BitField Tray1OpenReserved     = {&ReverseRecord::trayBits, 1, 1};
inline constexpr BitField Tray2OpenReserved     = {&ReverseRecord::trayBits, 2, 1};
inline constexpr BitField Tray3OpenReserved     = {&ReverseRecord::trayBits, 3, 1};
inline constexpr BitField BypassEmpty           = {&ReverseRecord::trayBits, 4, 1};
inline constexpr BitField Tray1Empty            = {&ReverseRecord::trayBits, 5, 1};
inline constexpr BitField Tray2Empty            = {&ReverseRecord::trayBits, 6, 1};
inline constexpr BitField Tray3EmptyReserved    = {&ReverseRecord::trayBits, 7, 1};

inline constexpr BitField USB_warn              = {&ReverseRecord::warningBits, 0, 1};
inline constexpr BitField NW_warn               = {&ReverseRecord::warningBits, 1, 1};
inline constexpr BitField Waste_warn            = {&ReverseRecord::warningBits, 2, 1};
inline constexpr BitField Transfer_warn         = {&ReverseRecord::warningBits, 3, 1};
inline constexpr BitField TMA_warn              = {&ReverseRecord::warningBits, 4, 1};
inline constexpr BitField panelCancelJob        = {&ReverseRecord::warningBits, 5, 1};
inline constexpr BitField Fuser_warn            = {&ReverseRecord::warningBits, 6, 1};
inline constexpr BitField TCPIPActive           = {&ReverseRecord::warningBits, 7, 1};

inline constexpr BitField NW_Init_Going             = {&ReverseRecord::installBits, 0, 1};
inline constexpr BitField option_binInstallReserved = {&ReverseRecord::installBits, 1, 1};
inline constexpr BitField Tray4InstallReserved      = {&ReverseRecord::installBits, 2, 1};
inline constexpr BitField Tray3InstallReserved      = {&ReverseRecord::installBits, 3, 1};
inline constexpr BitField Tray2Install              = {&ReverseRecord::installBits, 4, 1};
inline constexpr BitField Tray1InstallReserved      = {&ReverseRecord::installBits, 5, 1};
inline constexpr BitField BypassInstallReserved     = {&ReverseRecord::installBits, 6, 1};
inline constexpr BitField DuplexInstall             = {&ReverseRecord::installBits, 7, 1};

// clang-format on

/// The field with the paper type code of tray 1, tray 2 or the bypass tray (3); null for any other tray.
[[nodiscard]] constexpr std::uint8_t ReverseRecord::*paperTypeField(std::uint32_t tray) {
    constexpr std::array fields = {&ReverseRecord::Tray1Type, &ReverseRecord::Tray2Type,
                                   &ReverseRecord::BypassType};
    return tray >= 1 && tray <= fields.size() ? fields[tray - 1] : nullptr;
}

} // namespace veltrin
