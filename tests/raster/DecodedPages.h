#pragma once

#include "driver/stream/StreamReader.h"
#include "raster/PagePlanes.h"

#include <functional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace veltrin::test {

/// Hands a stream, in pieces of so many bytes, to `planes`; `pageEnded` is called for each of its pages.
inline void decodePages(const std::string &stream, raster::PagePlanes &planes,
                        const std::function<void(const PageRead &)> &pageEnded,
                        std::size_t pieceSize = SIZE_MAX) {
    StreamReader reader(
        [&](const StreamEvent &event) {
            planes.take(event);
            if (const auto *page = std::get_if<PageRead>(&event)) {
                pageEnded(*page);
            }
        },
        IdentifierRule::detect, {.afterFault = AfterFault::resume, .bands = true, .data = true});
    std::span<const std::byte> rest = std::as_bytes(std::span(stream));
    while (!rest.empty()) {
        const auto piece = rest.first(std::min(rest.size(), pieceSize));
        reader.feed(piece);
        rest = rest.subspan(piece.size());
    }
    reader.finish();
}

} // namespace veltrin::test
