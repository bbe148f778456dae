#pragma once

#include "driver/stream/StreamMaker.h"
#include "raster/HeaderFields.h"
#include "raster/PagePlacement.h"
#include "raster/PlaneCoding.h"
#include "raster/RasterPage.h"
#include "raster/Separation.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace veltrin::raster {

/// A page's bands as they stand in the stream, headers and planes.
struct EncodedPage {
    std::vector<std::byte> bands;
    PlaneSizes planes; ///< of all bands together
};

/// Reads the raster's next line into a room of its `bytesPerLine`; false where it is not there.
using LineSource = std::function<bool(std::span<std::uint8_t>)>;

enum class EncodeResult { done, lineMissing, noMemory };

/// Makes pages of the stream out of lines of raster. Its memory is that of one band, uncoded.
class PageEncoder {
  public:
    explicit PageEncoder(const JobFormat &format);

    /// Takes all lines of a page from `source`, also those that do not lie on it, into `encoded`.
    [[nodiscard]] EncodeResult encode(const RasterPage &page, const PagePlacement &placement,
                                      const LineSource &source, EncodedPage &encoded);

    /// A page of this size without ink.
    [[nodiscard]] static EncodedPage blankPage(const PagePlacement &placement);

  private:
    /// One plane of one band.
    struct BandPlane {
        std::vector<std::byte> bits;
        bool hasInk = false;
    };

    void beginPage(const RasterPage &page, const PagePlacement &placement);
    void addLine(const RasterPage &page, const PagePlacement &placement, std::uint32_t line);
    [[nodiscard]] bool endBand(const PagePlacement &placement, std::uint32_t band, EncodedPage &encoded);

    JobFormat format;
    PlaneEncoder planeEncoder;
    std::vector<std::uint8_t> raster;                         ///< one line
    std::array<std::vector<std::uint8_t>, planeCount> shades; ///< one line of ink, as wide as the page
    std::array<BandPlane, planeCount> planes;
};

} // namespace veltrin::raster
