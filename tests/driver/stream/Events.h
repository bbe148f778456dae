#pragma once

#include "driver/stream/StreamReader.h"

#include <span>
#include <string>
#include <variant>
#include <vector>

namespace veltrin::test {

/// What a reader makes of a stream, as short texts such as "page 3 at 308" and "unknown-tag at 36".
struct ReadStream {
    std::vector<std::string> events;
    std::vector<std::string> problems; ///< those among the events
    std::vector<PageRead> pages;
    std::string data; ///< of the bands, one piece behind the other
    StreamTotals totals;
    bool wellFormed = false;
};

/// Reads a stream that arrives in the given pieces.
inline ReadStream readPieces(const std::vector<std::string> &pieces,
                             IdentifierRule rule = IdentifierRule::detect, ReaderOptions options = {}) {
    ReadStream result;

    struct Describe {
        ReadStream &result;

        static std::string at(std::uint64_t offset) { return " at " + std::to_string(offset); }

        std::string operator()(const IdentifierRead &read) const {
            return "identifier " + std::string(read.text.data(), read.text.size()) + at(read.offset);
        }

        std::string operator()(const FileHeaderRead &read) const { return "file header" + at(read.offset); }

        std::string operator()(const FileHeaderExRead &read) const {
            return "extended file header" + at(read.offset);
        }

        std::string operator()(const PageBegun &page) const {
            return "page begun " + std::to_string(page.header.wPageNumber.value()) + at(page.offset);
        }

        std::string operator()(const BandRead &band) const {
            return "band " + std::to_string(band.number) + " of page " + std::to_string(band.pageNumber) +
                   (band.pageOffset ? at(*band.pageOffset) : "") + " size " +
                   std::to_string(band.header.dataSize()) + at(band.offset);
        }

        std::string operator()(const BandDataRead &read) const {
            for (const std::byte byte : read.bytes) {
                result.data += static_cast<char>(byte);
            }
            return "data " + std::to_string(read.bytes.size()) + at(read.offset);
        }

        std::string operator()(const PageRead &page) const {
            result.pages.push_back(page);
            return "page " + std::to_string(page.header.wPageNumber.value()) + at(page.offset) + " bands " +
                   std::to_string(page.bands) + " data " + std::to_string(page.received) +
                   (page.complete ? "" : " incomplete");
        }

        std::string operator()(const EndOfJobRead &read) const { return "end of job" + at(read.offset); }

        std::string operator()(const CommandRead &read) const {
            return "command " + std::string(read.record.begin(), read.record.end()) + at(read.offset);
        }

        std::string operator()(const ProblemFound &found) const {
            result.problems.push_back(nameOf(found.problem) + at(found.offset));
            return result.problems.back() + ": " + found.text;
        }

        std::string operator()(const SearchEnded &search) const {
            return "nothing read" + at(search.offset) +
                   (search.next ? ", next " + partName(search.tag) + at(*search.next) : ", nothing next") +
                   (search.goesOn ? ", goes on" : "");
        }
    };

    StreamReader reader(
        [&result](const StreamEvent &event) { result.events.push_back(std::visit(Describe{result}, event)); },
        rule, options);
    for (const std::string &piece : pieces) {
        reader.feed(std::as_bytes(std::span(piece)));
    }
    reader.finish();
    result.totals = reader.totals();
    result.wellFormed = reader.isWellFormed();
    return result;
}

} // namespace veltrin::test
