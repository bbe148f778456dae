#include "driver/stream/PageStream.h"

// The layout of every wire structure, field by field. Nothing here runs: a structure that does not lie as the
// printer expects does not compile.

#define VELTRIN_AT(Structure, field, offset, width)                                                          \
    static_assert(offsetof(Structure, field) == (offset) && sizeof(Structure::field) == (width))

namespace veltrin {

static_assert(sizeof(FileHeader) == 120 && std::is_trivially_copyable_v<FileHeader> &&
              std::is_standard_layout_v<FileHeader>);
VELTRIN_AT(FileHeader, MagicNumber, 0, 4);
VELTRIN_AT(FileHeader, dwJobHeaderLen, 4, 4);
VELTRIN_AT(FileHeader, Version, 8, 2);
VELTRIN_AT(FileHeader, wCopyCount, 10, 2);
VELTRIN_AT(FileHeader, bTonerSaving, 12, 1);
VELTRIN_AT(FileHeader, bEETSetting, 13, 1);
VELTRIN_AT(FileHeader, bDarkness, 14, 1);
VELTRIN_AT(FileHeader, bRevFlag1, 15, 1);
VELTRIN_AT(FileHeader, wJobSetting, 16, 2);
VELTRIN_AT(FileHeader, wJobExtend, 18, 2);
VELTRIN_AT(FileHeader, dwJobSubmittedTime, 20, 4);
VELTRIN_AT(FileHeader, bColorMode, 24, 1);
VELTRIN_AT(FileHeader, bRevFlag11, 25, 1);
VELTRIN_AT(FileHeader, dwRevFlag2, 26, 2);
VELTRIN_AT(FileHeader, dwRevFlag3, 28, 4);
VELTRIN_AT(FileHeader, wResolution, 32, 2);
VELTRIN_AT(FileHeader, wCompressMode, 34, 2);
VELTRIN_AT(FileHeader, dwRevFlag4, 36, 4);
VELTRIN_AT(FileHeader, dwRevFlag5, 40, 4);
VELTRIN_AT(FileHeader, dwRevFlag6, 44, 4);
VELTRIN_AT(FileHeader, dwRevFlag7, 48, 4);
VELTRIN_AT(FileHeader, dwRevFlag8, 52, 4);
VELTRIN_AT(FileHeader, szFileName, 56, 64);

static_assert(sizeof(FileHeaderEx) == 152 && std::is_trivially_copyable_v<FileHeaderEx> &&
              std::is_standard_layout_v<FileHeaderEx>);
VELTRIN_AT(FileHeaderEx, MagicNumber, 0, 4);
VELTRIN_AT(FileHeaderEx, dwJobHeaderLen, 4, 4);
VELTRIN_AT(FileHeaderEx, szHostName, 8, 64);
VELTRIN_AT(FileHeaderEx, szUserName, 72, 64);
VELTRIN_AT(FileHeaderEx, bTray1Size, 136, 1);
VELTRIN_AT(FileHeaderEx, bTray2Size, 137, 1);
VELTRIN_AT(FileHeaderEx, bTray3Size, 138, 1);
VELTRIN_AT(FileHeaderEx, bTray4Size, 139, 1);
VELTRIN_AT(FileHeaderEx, bBypassSize, 140, 1);
VELTRIN_AT(FileHeaderEx, bTray1Type, 141, 1);
VELTRIN_AT(FileHeaderEx, bTray2Type, 142, 1);
VELTRIN_AT(FileHeaderEx, bTray3Type, 143, 1);
VELTRIN_AT(FileHeaderEx, bTray4Type, 144, 1);
VELTRIN_AT(FileHeaderEx, bBypassType, 145, 1);
VELTRIN_AT(FileHeaderEx, wReserved1, 146, 2);
VELTRIN_AT(FileHeaderEx, dwReserved1, 148, 4);

static_assert(sizeof(PageHeader) == 64 && std::is_trivially_copyable_v<PageHeader> &&
              std::is_standard_layout_v<PageHeader>);
VELTRIN_AT(PageHeader, MagicNumber, 0, 4);
VELTRIN_AT(PageHeader, dwHeaderLen, 4, 4);
VELTRIN_AT(PageHeader, bPaperSize, 8, 1);
VELTRIN_AT(PageHeader, bPaperTray, 9, 1);
VELTRIN_AT(PageHeader, bMediaType, 10, 1);
VELTRIN_AT(PageHeader, bOutputTray, 11, 1);
VELTRIN_AT(PageHeader, wScanLineWidth, 12, 2);
VELTRIN_AT(PageHeader, wHeight, 14, 2);
VELTRIN_AT(PageHeader, K_Vskew, 16, 2);
VELTRIN_AT(PageHeader, Y_Vskew, 18, 2);
VELTRIN_AT(PageHeader, M_Vskew, 20, 2);
VELTRIN_AT(PageHeader, C_Vskew, 22, 2);
VELTRIN_AT(PageHeader, K_Hskew, 24, 2);
VELTRIN_AT(PageHeader, Y_Hskew, 26, 2);
VELTRIN_AT(PageHeader, M_Hskew, 28, 2);
VELTRIN_AT(PageHeader, C_Hskew, 30, 2);
VELTRIN_AT(PageHeader, bPlane, 32, 1);
VELTRIN_AT(PageHeader, bType, 33, 1);
VELTRIN_AT(PageHeader, wPageNumber, 34, 2);
VELTRIN_AT(PageHeader, dwKSize, 36, 4);
VELTRIN_AT(PageHeader, dwYSize, 40, 4);
VELTRIN_AT(PageHeader, dwMSize, 44, 4);
VELTRIN_AT(PageHeader, dwCSize, 48, 4);
VELTRIN_AT(PageHeader, wPageExtend, 52, 2);
VELTRIN_AT(PageHeader, wBandNo, 54, 2);
VELTRIN_AT(PageHeader, wPaperWidthmm, 56, 4);
VELTRIN_AT(PageHeader, wPaperHeightmm, 60, 4);

static_assert(sizeof(BandHeader) == 32 && std::is_trivially_copyable_v<BandHeader> &&
              std::is_standard_layout_v<BandHeader>);
VELTRIN_AT(BandHeader, MagicNumber, 0, 4);
VELTRIN_AT(BandHeader, dwBandSetting, 4, 4);
VELTRIN_AT(BandHeader, dwKSize, 8, 4);
VELTRIN_AT(BandHeader, dwYSize, 12, 4);
VELTRIN_AT(BandHeader, dwMSize, 16, 4);
VELTRIN_AT(BandHeader, dwCSize, 20, 4);
VELTRIN_AT(BandHeader, wBandWidth, 24, 2);
VELTRIN_AT(BandHeader, wBandHeight, 26, 2);
VELTRIN_AT(BandHeader, wBandExtend, 28, 2);
VELTRIN_AT(BandHeader, bPageSet, 30, 1);
VELTRIN_AT(BandHeader, bRevFlag1, 31, 1);

} // namespace veltrin
