// The renderer. The input: a byte of switches, a line with the job's options, and CUPS raster.

#include "driver/stream/StreamReader.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "raster/JobRenderer.h"
#include "raster/JobTicket.h"
#include "raster/PagePlanes.h"
#include "raster/RasterReader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::fuzz {

namespace {

/// Larger pages, and more copies, are nothing but slow.
constexpr std::uint64_t mostDots = std::uint64_t{1} << 21U;
constexpr std::uint32_t mostCopies = 20;

struct Rendered {
    std::uint64_t pages = 0;
    bool isWhole = false;
    bool isDecodable = true; ///< every plane of it
};

Rendered inspected(const std::string &stream) {
    Rendered rendered;
    raster::PagePlanes planes(
        [&rendered](const raster::PageProblemFound & /*found*/) { rendered.isDecodable = false; });
    StreamReader reader([&planes](const StreamEvent &event) { planes.take(event); }, IdentifierRule::present,
                        {.bands = true, .data = true});
    reader.feed(std::as_bytes(std::span(stream)));
    reader.finish();
    rendered.pages = reader.totals().pages;
    rendered.isWhole = reader.isWellFormed() && reader.totals().endOfJob;
    return rendered;
}

/// The sides that so many pages make, by the rules of docs/page-stream.md.
std::uint64_t sidesOf(const raster::JobLayout &layout, std::uint64_t pages) {
    const bool isSheets = layout.twoSided && (pages > 1 || layout.copies > 1);
    const std::uint64_t sides = isSheets ? (pages + 1) / 2 * 2 : pages;
    return sides * layout.copies;
}

bool isTooMuch(const raster::RasterPage &page) {
    const auto placement = raster::placeOnPage(page.box);
    return placement && std::uint64_t{placement->across.page} * placement->down.page > mostDots;
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t switches = input.byte();
    const std::string text = input.line();
    if (text.find('\0') != std::string::npos) {
        return 0;
    }
    const std::size_t descriptors = openDescriptors();
    {
        const MemoryFile document(input.remaining());
        const MemoryFile output;
        raster::RasterReader reader(document.descriptor());
        const auto first = reader.nextPage();
        require((first == raster::RasterReader::Result::failed) == !reader.problem().empty(),
                "a document that is none has something wrong");
        if (first != raster::RasterReader::Result::page || isTooMuch(reader.page())) {
            return 0;
        }
        const raster::JobOptions options(text);
        const std::string copies = std::to_string(switches >> 4U);
        raster::JobTicket ticket = raster::ticketFor(copies, options, {}, reader.page());
        ticket.layout.copies = std::min(ticket.layout.copies, mostCopies);
        std::vector<std::string> messages;
        raster::JobRenderer renderer(
            reader, ticket, (switches & 1U) != 0 ? raster::CompressMode::zstd : raster::CompressMode::raw,
            output.descriptor(), [&messages](const std::string &line) { messages.push_back(line); });
        const bool isRendered = renderer.render(raster::identifierFor(options, "17"),
                                                {.jobId = "17", .title = text, .user = text, .host = text});
        const auto pages = static_cast<std::uint64_t>(
            std::count_if(messages.begin(), messages.end(),
                          [](const std::string &line) { return line.starts_with("PAGE: "); }));
        const std::string stream = output.contents();
        const Rendered rendered = inspected(stream);
        require(isRendered == renderer.problem().empty(), "a document that fails has something wrong");
        require(isRendered == rendered.isWhole, "a stream is whole where all was rendered, and only there");
        require(rendered.isDecodable || !isRendered, "what is rendered can be decoded");
        require(!isRendered || rendered.pages == sidesOf(ticket.layout, pages),
                "every page is there as often as the job asks for");
    }
    require(openDescriptors() == descriptors, "nothing is left open");
    return 0;
}
