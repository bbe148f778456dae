#include "raster/JobRenderer.h"

#include "raster/JobLayout.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace veltrin::raster {

JobRenderer::JobRenderer(RasterReader &from, JobTicket ofJob, CompressMode compressMode, int output,
                         MessageSink messages)
    : reader(from), ticket(std::move(ofJob)), firstPage(from.page()),
      format({from.page().box.resolution, from.page().samples == Samples::rgb, compressMode}), writer(output),
      tell(std::move(messages)), encoder(format) {}

bool JobRenderer::render(const std::string &identifier, const JobIdentity &identity) {
    if (!writer.write(std::as_bytes(std::span(identifier))) ||
        !writer.writeHeader(fileHeaderFor(identity, format)) ||
        !writer.writeHeader(fileHeaderExFor(identity))) {
        return failWriting();
    }
    return renderPages() && (writer.writeHeader(WireTag(endOfJobTag)) || failWriting());
}

bool JobRenderer::renderPages() {
    const SideSink write = [this](const Side &side) { return writeSide(side); };
    RasterReader::Result next = RasterReader::Result::page;
    while (next == RasterReader::Result::page) {
        if (!renderPage() || !sidesOnArrival(ticket.layout, arrived, write)) {
            return false;
        }
        if (isDoneWithPages(ticket.layout, arrived)) {
            store.clear();
            storedBefore = arrived;
        }
        tell("PAGE: " + std::to_string(arrived) + " " + std::to_string(ticket.layout.copies));
        next = reader.nextPage();
    }
    if (next == RasterReader::Result::failed) {
        return fail(reader.problem());
    }
    return sidesAtEnd(ticket.layout, arrived, write);
}

/// Encodes the page whose header has been read, and keeps it where it is written again.
bool JobRenderer::renderPage() {
    const RasterPage &page = reader.page();
    if (const auto problem = problemWithChange(firstPage, page, ticket.layout.twoSided)) {
        return fail(*problem);
    }
    const std::optional<PagePlacement> place = placeOnPage(page.box);
    if (!place) {
        return fail("The raster's page cannot be printed.");
    }
    placement = *place;
    ++arrived;
    tell("INFO: Rendering page " + std::to_string(arrived) + ".");
    switch (encoder.encode(
        page, placement, [this](std::span<std::uint8_t> line) { return reader.readLine(line); }, encoded)) {
    case EncodeResult::done:
        break;
    case EncodeResult::lineMissing:
        return fail(reader.problem());
    case EncodeResult::noMemory:
        return fail("There is not enough memory to compress page " + std::to_string(arrived) + ".");
    }
    header = pageHeaderFor(format, ticket, placement, page.pageSizeName, arrived, encoded.planes);
    if (!repeatsPages(ticket.layout)) {
        return true;
    }
    return store.add(std::as_bytes(std::span(&header, 1)), encoded.bands) || failKeeping();
}

bool JobRenderer::writeSide(const Side &side) {
    if (side.blank) {
        return writeBlankSide(side);
    }
    if (!repeatsPages(ticket.layout)) {
        return (writer.writeHeader(header) && writer.write(encoded.bands)) || failWriting();
    }
    bool written = true;
    const bool read = store.copy(side.number - storedBefore - 1, [&](std::span<const std::byte> bytes) {
        written = writer.write(bytes);
        return written;
    });
    if (!written) {
        return failWriting();
    }
    return read || failKeeping();
}

/// A blank side has the size of the page before it.
bool JobRenderer::writeBlankSide(const Side &side) {
    const std::string &size = reader.page().pageSizeName;
    return (writer.writeHeader(pageHeaderFor(format, ticket, placement, size, side.number, {})) &&
            writer.write(PageEncoder::blankPage(placement).bands)) ||
           failWriting();
}

bool JobRenderer::failWriting() {
    return fail(std::string("The rendered pages cannot be passed on: ") + std::strerror(errno) + ".");
}

bool JobRenderer::failKeeping() {
    return fail(std::string("The rendered pages cannot be kept for the copies: ") + std::strerror(errno) +
                ".");
}

bool JobRenderer::fail(const std::string &sentence) {
    failure = sentence;
    return false;
}

} // namespace veltrin::raster
