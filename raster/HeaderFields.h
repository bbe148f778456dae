#pragma once

#include "driver/stream/PageStream.h"
#include "driver/stream/StreamMaker.h"
#include "raster/JobOptions.h"
#include "raster/JobTicket.h"
#include "raster/PagePlacement.h"
#include "raster/PlaneCoding.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

// What stands in the stream's headers.

namespace veltrin::raster {

/// The lines of a band; the last one of a page has what is left.
inline constexpr std::uint32_t bandLines = 128;

[[nodiscard]] constexpr std::uint32_t bandCount(std::uint32_t lines) {
    return (lines + bandLines - 1) / bandLines;
}

/// Who prints what, for the job's headers.
struct JobIdentity {
    std::string jobId;
    std::string title;
    std::string user;
    std::string host;
    std::uint32_t submittedTime = 0; ///< seconds since 1970
};

/// What all pages of the job have in common.
struct JobFormat {
    std::uint32_t resolution = 0; ///< dots per inch, at most 65535
    bool colour = false;          ///< four planes, otherwise black alone
    CompressMode compressMode = CompressMode::zstd;
};

/// The text's beginning that fits the field with a terminator; never a part of a UTF-8 character. The rest of
/// the field is 0.
[[nodiscard]] std::array<char, 64> fittedName(std::string_view text);

/// The 36 characters in front of the stream: the job's own UUID out of its options, or else one made of its
/// number.
[[nodiscard]] std::string identifierFor(const JobOptions &options, std::string_view jobId);

[[nodiscard]] FileHeader fileHeaderFor(const JobIdentity &identity, const JobFormat &format);

[[nodiscard]] FileHeaderEx fileHeaderExFor(const JobIdentity &identity);

/// The page header's number for a tray of the PPD: tray 1 for every name it does not know, and where none was
/// chosen.
[[nodiscard]] std::uint8_t pageTray(std::string_view inputSlot);

/// The paper size code of a name, or where it has none, of the size in millimetres; that of custom sizes
/// where nothing fits.
[[nodiscard]] std::uint8_t pageSizeCode(std::string_view name, std::uint32_t widthMillimetres,
                                        std::uint32_t heightMillimetres);

/// `number` is the page's within its copy, of which the field keeps the lower 16 bits; `planes` are the bytes
/// of all its bands.
[[nodiscard]] PageHeader pageHeaderFor(const JobFormat &format, const JobTicket &ticket,
                                       const PagePlacement &placement, std::string_view pageSizeName,
                                       std::uint32_t number, const PlaneSizes &planes);

/// Of the band with this number (from 0) of a page of so many lines.
[[nodiscard]] BandHeader bandHeaderFor(const PagePlacement &placement, std::uint32_t band,
                                       const PlaneSizes &planes);

} // namespace veltrin::raster
