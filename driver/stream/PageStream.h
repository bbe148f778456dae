#pragma once

#include "platform/ByteOrder.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>

// The printer's page stream: a 36-byte job identifier (from the renderer, not passed on), the job file
// header, the extended job file header, for each page a page header and its bands (a band header followed by
// that band's raster data), and the end-of-job mark. All numbers are big-endian.

namespace veltrin {

/// The job identifier in front of the stream, in bytes.
inline constexpr std::size_t identifierSize = 36;

/// The four ASCII bytes that every header begins with, as the number they make when loaded in little-endian
/// order.
enum class Tag : std::uint32_t {};

consteval Tag tagOf(const char (&text)[5]) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= std::uint32_t{static_cast<std::uint8_t>(text[i])} << (8 * i);
    }
    return Tag{value};
}

inline constexpr Tag fileHeaderTag = tagOf("GDIJ");
inline constexpr Tag fileHeaderExTag = tagOf("GJET");
inline constexpr Tag pageHeaderTag = tagOf("GDIP");
inline constexpr Tag bandHeaderTag = tagOf("GDIB");
inline constexpr Tag endOfJobTag = tagOf("JIDG");

/// A tag as it stands on the wire.
struct WireTag {
    LittleEndian32 number;

    constexpr WireTag() = default;

    constexpr WireTag(Tag tag) : number(static_cast<std::uint32_t>(tag)) {}

    constexpr operator Tag() const { return Tag{number.value()}; }
};

/// Job file header, tag "GDIJ".
struct FileHeader {
    WireTag MagicNumber;
    BigEndian32 dwJobHeaderLen;
    BigEndian16 Version;
    BigEndian16 wCopyCount;
    std::uint8_t bTonerSaving;
    std::uint8_t bEETSetting;
    std::uint8_t bDarkness;
    std::uint8_t bRevFlag1;
    BigEndian16 wJobSetting;
    BigEndian16 wJobExtend;
    BigEndian32 dwJobSubmittedTime;
    std::uint8_t bColorMode;
    std::uint8_t bRevFlag11;
    BigEndian16 dwRevFlag2; // 16 bits despite its name
    BigEndian32 dwRevFlag3;
    BigEndian16 wResolution;
    BigEndian16 wCompressMode;
    BigEndian32 dwRevFlag4;
    BigEndian32 dwRevFlag5;
    BigEndian32 dwRevFlag6;
    BigEndian32 dwRevFlag7;
    BigEndian32 dwRevFlag8;
    std::array<char, 64> szFileName;
};

/// Bits of `FileHeader::wJobSetting`.
inline constexpr std::uint16_t jobSettingDuplex = 0x0200;
inline constexpr std::uint16_t jobSettingManualDuplex = 0x0400;

/// Extended job file header, tag "GJET".
struct FileHeaderEx {
    WireTag MagicNumber;
    BigEndian32 dwJobHeaderLen;
    std::array<char, 64> szHostName;
    std::array<char, 64> szUserName;
    std::uint8_t bTray1Size;
    std::uint8_t bTray2Size;
    std::uint8_t bTray3Size;
    std::uint8_t bTray4Size;
    std::uint8_t bBypassSize;
    std::uint8_t bTray1Type;
    std::uint8_t bTray2Type;
    std::uint8_t bTray3Type;
    std::uint8_t bTray4Type;
    std::uint8_t bBypassType;
    BigEndian16 wReserved1;
    BigEndian32 dwReserved1;
};

/// Page header, tag "GDIP".
struct PageHeader {
    WireTag MagicNumber;
    BigEndian32 dwHeaderLen;
    std::uint8_t bPaperSize;
    std::uint8_t bPaperTray;
    std::uint8_t bMediaType;
    std::uint8_t bOutputTray;
    BigEndian16 wScanLineWidth;
    BigEndian16 wHeight;
    BigEndian16 K_Vskew;
    BigEndian16 Y_Vskew;
    BigEndian16 M_Vskew;
    BigEndian16 C_Vskew;
    BigEndian16 K_Hskew;
    BigEndian16 Y_Hskew;
    BigEndian16 M_Hskew;
    BigEndian16 C_Hskew;
    std::uint8_t bPlane;
    std::uint8_t bType;
    BigEndian16 wPageNumber;
    BigEndian32 dwKSize;
    BigEndian32 dwYSize;
    BigEndian32 dwMSize;
    BigEndian32 dwCSize;
    BigEndian16 wPageExtend;
    BigEndian16 wBandNo;
    BigEndian32 wPaperWidthmm;  // 32 bits despite its name
    BigEndian32 wPaperHeightmm; // 32 bits despite its name
};

/// Bits of `PageHeader::bType` that the filter sets.
inline constexpr std::uint8_t pageTypeSecondOfSheet = 0x04;
inline constexpr std::uint8_t pageTypeFirstOfSheet = 0x0C;
inline constexpr std::uint8_t pageTypePause = 0x10;

/// Bit of `BandHeader::dwBandSetting`: this band ends its page.
inline constexpr std::uint32_t bandSettingLastOfPage = 0x2;

/// Band header, tag "GDIB"; dwKSize + dwYSize + dwMSize + dwCSize bytes of raster data follow it.
struct BandHeader {
    WireTag MagicNumber;
    BigEndian32 dwBandSetting;
    BigEndian32 dwKSize;
    BigEndian32 dwYSize;
    BigEndian32 dwMSize;
    BigEndian32 dwCSize;
    BigEndian16 wBandWidth;
    BigEndian16 wBandHeight;
    BigEndian16 wBandExtend;
    std::uint8_t bPageSet;
    std::uint8_t bRevFlag1;

    [[nodiscard]] bool isLastOfPage() const { return (dwBandSetting & bandSettingLastOfPage) != 0; }

    /// The bytes of raster data that follow, in the format's 32-bit arithmetic: the sum wraps, and a result
    /// from 2^31 on is negative, which no stream of a real renderer holds.
    [[nodiscard]] std::int32_t dataSize() const {
        return static_cast<std::int32_t>(dwKSize + dwYSize + dwMSize + dwCSize);
    }
};

inline constexpr std::size_t tagSize = sizeof(WireTag);
inline constexpr std::size_t largestHeaderSize = sizeof(FileHeaderEx);

/// The size in bytes of a header with this tag, tag included (for the end-of-job mark, of the tag alone);
/// nothing for a tag that the format does not know. The length fields inside the headers are not consulted.
[[nodiscard]] constexpr std::optional<std::size_t> headerSizeOf(Tag tag) {
    switch (tag) {
    case fileHeaderTag:
        return sizeof(FileHeader);
    case fileHeaderExTag:
        return sizeof(FileHeaderEx);
    case pageHeaderTag:
        return sizeof(PageHeader);
    case bandHeaderTag:
        return sizeof(BandHeader);
    case endOfJobTag:
        return tagSize;
    default:
        return std::nullopt;
    }
}

/// Room for any one header, as the bytes that stand on the wire.
class StreamHeader {
  public:
    [[nodiscard]] Tag tag() const {
        WireTag tag;
        std::memcpy(&tag, storage.data(), sizeof tag);
        return tag;
    }

    /// The bytes read as a header of this kind, whatever the tag says.
    template <typename Header>
    [[nodiscard]] Header as() const {
        static_assert(std::is_trivially_copyable_v<Header> && sizeof(Header) <= largestHeaderSize);
        Header header;
        std::memcpy(&header, storage.data(), sizeof header);
        return header;
    }

    template <typename Header>
    void store(const Header &header) {
        static_assert(std::is_trivially_copyable_v<Header> && sizeof(Header) <= largestHeaderSize);
        std::memcpy(storage.data(), &header, sizeof header);
    }

    [[nodiscard]] std::byte *data() { return storage.data(); }

    [[nodiscard]] const std::byte *data() const { return storage.data(); }

  private:
    std::array<std::byte, largestHeaderSize> storage{};
};

} // namespace veltrin
