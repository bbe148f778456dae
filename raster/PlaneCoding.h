#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

// How one plane of one band is written down: 1 bit for each dot, packed into rows of whole bytes, as it
// stands or compressed. docs/page-stream.md describes it for others.

namespace veltrin::raster {

/// The values of `FileHeader::wCompressMode` that the renderer writes; the whole job has the same.
enum class CompressMode : std::uint16_t {
    raw = 0,  ///< the rows as they are
    zstd = 1, ///< one zstd frame that tells its content's size
};

/// Pages of more dots are neither rendered nor decoded: 2^29 are an A3 page at 1600 dpi and 64 MiB a plane.
inline constexpr std::uint64_t mostDots = std::uint64_t{1} << 29;

/// The bytes of a row of so many dots, its last byte filled up.
[[nodiscard]] constexpr std::size_t rowBytes(std::uint32_t dots) {
    return (std::size_t{dots} + 7) / 8;
}

/// The bytes of a plane, uncoded.
[[nodiscard]] constexpr std::size_t planeBytes(std::uint32_t dots, std::uint32_t lines) {
    return rowBytes(dots) * lines;
}

/// Whether there is a dot on a plane, uncoded, or on a row of it.
[[nodiscard]] bool hasInk(std::span<const std::byte> plane);

/// What is wrong with a coded plane.
enum class PlaneProblem {
    unknownMode,   ///< the job's `wCompressMode` is none of this renderer's
    tooShort,      ///< the plane ends before its last row, or its frame does
    tooLong,       ///< rows that stand as they are, and more of them than the band has
    notAFrame,     ///< what stands there is not compressed in this way
    otherSize,     ///< the frame says another content size than the band's, or none
    trailingBytes, ///< something stands behind the frame
    damaged,       ///< the frame's insides contradict themselves or its checksum
    noMemory,      ///< the decompressor's own working memory cannot be had
};

/// The problem for people, such as "ends before its last row".
[[nodiscard]] const char *textOf(PlaneProblem problem);

/// Writes the band's plane that `coded` holds into `plane`, whose size is that of the plane uncoded (see
/// `planeBytes()`). Nothing coded is a plane without ink. Returns what is wrong; `plane` is without ink then.
///
/// Whatever `coded` holds, nothing is taken beyond `plane` and the decompressor's working memory of about 160
/// kB.
[[nodiscard]] std::optional<PlaneProblem> decodePlane(std::span<const std::byte> coded,
                                                      std::uint16_t compressMode, std::span<std::byte> plane);

/// Codes planes one after the other; its memory grows to the largest of them.
class PlaneEncoder {
  public:
    explicit PlaneEncoder(CompressMode mode);

    /// The coded plane, to be used until the next one is encoded; empty for a plane without ink, nothing
    /// where there is not enough memory.
    [[nodiscard]] std::optional<std::span<const std::byte>> encode(std::span<const std::byte> plane);

  private:
    struct Compressor;

    struct CompressorDeleter {
        void operator()(Compressor *compressor) const;
    };

    CompressMode compressMode;
    std::unique_ptr<Compressor, CompressorDeleter> compressor;
    std::vector<std::byte> room;
};

} // namespace veltrin::raster
