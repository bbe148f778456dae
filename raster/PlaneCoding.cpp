#include "raster/PlaneCoding.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace veltrin::raster {

namespace {

/// How a frame begins. The library takes other things for one, too: frames of its old formats, and frames to
/// be skipped.
constexpr std::array<unsigned char, 4> frameMagic = {0x28, 0xB5, 0x2F, 0xFD};

/// More takes more time than the channel to the printer gains by it.
constexpr int compressionLevel = 3;

struct DecompressorDeleter {
    void operator()(ZSTD_DCtx *context) const { ZSTD_freeDCtx(context); }
};

std::optional<PlaneProblem> decodeRows(std::span<const std::byte> coded, std::span<std::byte> plane) {
    if (coded.size() != plane.size()) {
        return coded.size() < plane.size() ? PlaneProblem::tooShort : PlaneProblem::tooLong;
    }
    std::copy(coded.begin(), coded.end(), plane.begin());
    return std::nullopt;
}

/// Everything that can be known without unpacking.
std::optional<PlaneProblem> problemWithFrame(std::span<const std::byte> coded, std::size_t planeSize) {
    const std::size_t magicBytes = std::min(coded.size(), frameMagic.size());
    if (std::memcmp(coded.data(), frameMagic.data(), magicBytes) != 0) {
        return PlaneProblem::notAFrame;
    }
    const unsigned long long contentSize = ZSTD_getFrameContentSize(coded.data(), coded.size());
    if (contentSize == ZSTD_CONTENTSIZE_UNKNOWN ||
        (contentSize != ZSTD_CONTENTSIZE_ERROR && contentSize != planeSize)) {
        return PlaneProblem::otherSize;
    }
    const std::size_t frameSize = ZSTD_findFrameCompressedSize(coded.data(), coded.size());
    if (ZSTD_isError(frameSize) != 0) {
        return ZSTD_getErrorCode(frameSize) == ZSTD_error_srcSize_wrong ? PlaneProblem::tooShort
                                                                        : PlaneProblem::damaged;
    }
    if (frameSize != coded.size()) {
        return PlaneProblem::trailingBytes;
    }
    return std::nullopt;
}

std::optional<PlaneProblem> decodeFrame(std::span<const std::byte> coded, std::span<std::byte> plane) {
    if (const std::optional<PlaneProblem> problem = problemWithFrame(coded, plane.size())) {
        return problem;
    }
    const std::unique_ptr<ZSTD_DCtx, DecompressorDeleter> context(ZSTD_createDCtx());
    if (context == nullptr) {
        return PlaneProblem::noMemory;
    }
    // In one go, and the plane is its window: a frame that unpacks to more fails where the room ends.
    const std::size_t size =
        ZSTD_decompressDCtx(context.get(), plane.data(), plane.size(), coded.data(), coded.size());
    if (size != plane.size()) {
        return PlaneProblem::damaged;
    }
    return std::nullopt;
}

std::optional<PlaneProblem> decode(std::span<const std::byte> coded, std::uint16_t compressMode,
                                   std::span<std::byte> plane) {
    switch (CompressMode{compressMode}) {
    case CompressMode::raw:
        return decodeRows(coded, plane);
    case CompressMode::zstd:
        return decodeFrame(coded, plane);
    }
    return PlaneProblem::unknownMode;
}

} // namespace

bool hasInk(std::span<const std::byte> plane) {
    // No byte is set where the first is not and each is equal to the next.
    return !plane.empty() && (plane.front() != std::byte{0} ||
                              std::memcmp(plane.data(), plane.data() + 1, plane.size() - 1) != 0);
}

const char *textOf(PlaneProblem problem) {
    switch (problem) {
    case PlaneProblem::unknownMode:
        return "is compressed in an unknown way";
    case PlaneProblem::tooShort:
        return "ends before its last row";
    case PlaneProblem::tooLong:
        return "has more rows than its band";
    case PlaneProblem::notAFrame:
        return "is no compressed plane";
    case PlaneProblem::otherSize:
        return "announces another size than its band's";
    case PlaneProblem::trailingBytes:
        return "goes on behind its last row";
    case PlaneProblem::damaged:
        return "is damaged";
    case PlaneProblem::noMemory:
        return "finds no memory to be unpacked";
    }
    return "has an unknown problem";
}

std::optional<PlaneProblem> decodePlane(std::span<const std::byte> coded, std::uint16_t compressMode,
                                        std::span<std::byte> plane) {
    std::optional<PlaneProblem> problem;
    if (!coded.empty()) {
        problem = decode(coded, compressMode, plane);
    }
    if (coded.empty() || problem) {
        std::fill(plane.begin(), plane.end(), std::byte{0});
    }
    return problem;
}

struct PlaneEncoder::Compressor {
    ZSTD_CCtx *context = ZSTD_createCCtx();
};

void PlaneEncoder::CompressorDeleter::operator()(Compressor *used) const {
    ZSTD_freeCCtx(used->context);
    delete used;
}

PlaneEncoder::PlaneEncoder(CompressMode mode) : compressMode(mode), compressor(new Compressor) {
    if (compressor->context != nullptr) {
        ZSTD_CCtx_setParameter(compressor->context, ZSTD_c_compressionLevel, compressionLevel);
        ZSTD_CCtx_setParameter(compressor->context, ZSTD_c_contentSizeFlag, 1);
        ZSTD_CCtx_setParameter(compressor->context, ZSTD_c_checksumFlag, 1);
    }
}

std::optional<std::span<const std::byte>> PlaneEncoder::encode(std::span<const std::byte> plane) {
    if (!hasInk(plane)) {
        return std::span<const std::byte>();
    }
    if (compressMode == CompressMode::raw) {
        room.assign(plane.begin(), plane.end());
        return room;
    }
    if (compressor->context == nullptr) {
        return std::nullopt;
    }
    room.resize(ZSTD_compressBound(plane.size()));
    const std::size_t size =
        ZSTD_compress2(compressor->context, room.data(), room.size(), plane.data(), plane.size());
    if (ZSTD_isError(size) != 0) {
        return std::nullopt;
    }
    return std::span<const std::byte>(room).first(size);
}

} // namespace veltrin::raster
