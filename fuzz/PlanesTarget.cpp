// What a page holds. The input: a byte for the coding, a line of numbers for one plane with its coded bytes,
// or a stream whose pages are decoded and drawn.

#include "driver/stream/StreamReader.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "raster/PagePicture.h"
#include "raster/PagePlanes.h"
#include "raster/PlaneCoding.h"

#include <algorithm>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace veltrin::fuzz {

namespace {

using raster::PageProblemFound;
using raster::PlaneProblem;

/// Larger pages are decoded, but not drawn: that takes long.
constexpr std::uint64_t mostDotsDrawn = std::uint64_t{1} << 16U;

void decodeOnePlane(Input &input) {
    const std::uint16_t mode = input.byte() % 3;
    const std::size_t size = raster::planeBytes(input.byte() * 3U, input.byte());
    const auto coded = input.remaining();
    std::vector<std::byte> plane(size, std::byte{0xAA});
    const std::optional<PlaneProblem> problem = raster::decodePlane(coded, mode, plane);
    require(!problem || !raster::hasInk(plane), "a damaged plane is without ink");
    require(!coded.empty() || !problem, "nothing coded is a plane without ink");
    if (problem) {
        require(!std::string(raster::textOf(*problem)).empty(), "what is wrong has a name");
        return;
    }
    if (mode == 0 && !coded.empty()) {
        require(std::equal(coded.begin(), coded.end(), plane.begin(), plane.end()),
                "rows that stand as they are, are");
    }
    for (const auto compressMode : {raster::CompressMode::raw, raster::CompressMode::zstd}) {
        raster::PlaneEncoder encoder(compressMode);
        const auto encoded = encoder.encode(plane);
        require(encoded.has_value() && encoded->empty() == !raster::hasInk(plane),
                "every plane can be coded");
        std::vector<std::byte> again(size, std::byte{0xAA});
        require(!raster::decodePlane(*encoded, static_cast<std::uint16_t>(compressMode), again) &&
                    again == plane,
                "what is coded is decoded as the same");
    }
}

std::uint64_t drawn(const raster::PagePlanes &planes, std::optional<std::uint32_t> dotsPerInch) {
    raster::PagePicture picture(planes, dotsPerInch);
    require(picture.width() > 0 && picture.height() > 0 && picture.width() <= planes.width() &&
                picture.height() <= planes.height(),
            "a picture is no larger than its page");
    std::uint64_t bytes = 0;
    for (std::uint32_t row = 0; row < picture.height(); ++row) {
        bytes += picture.nextRow().size();
    }
    const std::uint64_t rowSize = picture.isOfInkMixes() ? (std::uint64_t{picture.width()} + 1) / 2
                                                         : std::uint64_t{picture.width()} * 3;
    require(bytes == rowSize * picture.height(), "a picture's rows have its width");
    return bytes;
}

/// What decoding a stream has come to, as a text.
std::string decoded(std::span<const std::byte> stream, std::size_t piece) {
    std::string text;
    raster::PagePlanes planes([&text](const PageProblemFound &found) {
        require(std::all_of(found.text.begin(), found.text.end(),
                            [](char byte) { return byte >= ' ' && byte <= '~'; }),
                "a problem is a line that does nothing to a terminal");
        text += std::to_string(found.offset) + " " + raster::nameOf(found.problem) + " " + found.text + "\n";
    });
    StreamReader reader(
        [&](const StreamEvent &event) {
            planes.take(event);
            if (!std::holds_alternative<PageRead>(event) || !planes.isDecodable()) {
                return;
            }
            text += std::to_string(planes.width()) + "x" + std::to_string(planes.height());
            std::uint64_t ink = 0;
            for (std::uint32_t line = 0; line < std::min(planes.height(), 64U); ++line) {
                for (const raster::Plane plane :
                     {raster::black, raster::yellow, raster::magenta, raster::cyan}) {
                    for (const std::byte dots : planes.row(plane, line)) {
                        ink += std::to_integer<std::uint64_t>(dots) * (line + 1);
                    }
                }
            }
            text += " ink " + std::to_string(ink) + "\n";
            if (std::uint64_t{planes.width()} * planes.height() <= mostDotsDrawn) {
                text += std::to_string(drawn(planes, std::nullopt)) + " " + std::to_string(drawn(planes, 30));
            }
        },
        IdentifierRule::detect, {.afterFault = AfterFault::resume, .bands = true, .data = true});
    while (!stream.empty()) {
        const auto next = stream.first(std::min(piece, stream.size()));
        reader.feed(next);
        stream = stream.subspan(next.size());
    }
    reader.finish();
    return text;
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin::fuzz;
    Input input(data, size);
    if (input.flag()) {
        decodeOnePlane(input);
        return 0;
    }
    const std::size_t piece = std::size_t{input.byte()} + 1;
    const auto stream = input.remaining();
    require(decoded(stream, stream.size()) == decoded(stream, piece),
            "what is decoded does not depend on how the stream is cut");
    return 0;
}
