#include "tools/StreamReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace veltrin {

namespace {

struct ProblemName {
    StreamProblem problem;
    const char *name;
};

constexpr ProblemName problemNames[] = {
    {StreamProblem::emptyInput, "empty-input"},
    {StreamProblem::truncatedIdentifier, "truncated-identifier"},
    {StreamProblem::truncatedTag, "truncated-tag"},
    {StreamProblem::truncatedHeader, "truncated-header"},
    {StreamProblem::truncatedData, "truncated-data"},
    {StreamProblem::truncatedCommand, "truncated-command"},
    {StreamProblem::unknownTag, "unknown-tag"},
    {StreamProblem::missingFileHeader, "missing-file-header"},
    {StreamProblem::missingFileHeaderEx, "missing-extended-file-header"},
    {StreamProblem::duplicateFileHeader, "duplicate-file-header"},
    {StreamProblem::duplicateFileHeaderEx, "duplicate-extended-file-header"},
    {StreamProblem::headerOutOfOrder, "header-out-of-order"},
    {StreamProblem::bandOutsidePage, "band-outside-page"},
    {StreamProblem::pageWithoutLastBand, "page-without-last-band"},
    {StreamProblem::negativeBandSize, "negative-band-size"},
    {StreamProblem::wrappedBandSize, "wrapped-band-size"},
    {StreamProblem::unknownCommand, "unknown-command"},
    {StreamProblem::commandInsideJob, "command-inside-job"},
    {StreamProblem::missingEndOfJob, "missing-end-of-job"},
    {StreamProblem::bytesAfterEnd, "bytes-after-end"},
};

/// What people call a header with this tag.
std::string headerName(Tag tag) {
    switch (tag) {
    case fileHeaderTag:
        return "a job file header";
    case fileHeaderExTag:
        return "an extended job file header";
    case pageHeaderTag:
        return "a page header";
    default:
        return "a band header";
    }
}

/// "hex 50 49 44 47 (PIDG)"
std::string spelledOut(std::span<const std::byte> bytes) {
    std::string hex = "hex";
    std::string text;
    for (const std::byte byte : bytes) {
        const auto number = std::to_integer<unsigned>(byte);
        std::array<char, 8> digits{};
        std::snprintf(digits.data(), digits.size(), " %02x", number);
        hex += digits.data();
        text += number >= 0x20 && number < 0x7F ? static_cast<char>(number) : '.';
    }
    return hex + " (" + text + ")";
}

std::string partOf(std::uint64_t have, std::uint64_t wanted) {
    return std::to_string(have) + " of " + std::to_string(wanted) + " bytes";
}

PlaneBytes planesOf(const BandHeader &band) {
    return {band.dwKSize, band.dwYSize, band.dwMSize, band.dwCSize};
}

/// Cannot wrap: the four sizes have 32 bits each.
std::uint64_t sumOf(const PlaneBytes &planes) {
    return planes.black + planes.yellow + planes.magenta + planes.cyan;
}

void add(PlaneBytes &sum, const PlaneBytes &planes) {
    sum.black += planes.black;
    sum.yellow += planes.yellow;
    sum.magenta += planes.magenta;
    sum.cyan += planes.cyan;
}

} // namespace

const char *nameOf(StreamProblem problem) {
    const auto *found =
        std::find_if(std::begin(problemNames), std::end(problemNames),
                     [problem](const ProblemName &entry) { return entry.problem == problem; });
    return found == std::end(problemNames) ? "" : found->name;
}

StreamReader::StreamReader(Sink eventSink, IdentifierRule identifierRule)
    : sink(std::move(eventSink)), rule(identifierRule) {}

void StreamReader::feed(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        std::size_t taken = bytes.size();
        if (step == Step::ignore) {
            sums.bytes += taken;
            sums.unread += taken;
            return;
        }
        taken = static_cast<std::size_t>(std::min<std::uint64_t>(taken, wanted - have));
        if (step == Step::data) {
            sums.dataBytes += taken;
            if (page) {
                page->received += taken;
            }
        } else {
            std::memcpy(buffer.data() + have, bytes.data(), taken);
        }
        sums.bytes += taken;
        have += taken;
        bytes = bytes.subspan(taken);
        if (have == wanted) {
            collected();
        }
    }
}

void StreamReader::finish() {
    const std::string end = "the input ends at byte " + std::to_string(sums.bytes) + ", ";
    const bool atBoundary = (step == Step::start || step == Step::tag) && have == 0;

    if (sums.bytes == 0) {
        report(StreamProblem::emptyInput, 0, "the input is empty");
    } else if (step == Step::ignore) {
        // Said already; what the rest would have been is anybody's guess.
    } else if (step == Step::identifier || (step == Step::start && rule == IdentifierRule::present)) {
        report(StreamProblem::truncatedIdentifier, recordOffset,
               end + "inside the identifier (" + partOf(have, identifierSize) + ")");
    } else if (step == Step::header) {
        report(StreamProblem::truncatedHeader, recordOffset,
               end + "inside " + headerName(tag()) + " (" + partOf(have, wanted) + ")");
    } else if (step == Step::command) {
        report(StreamProblem::truncatedCommand, recordOffset,
               end + "inside a command record (" + partOf(have, wanted) + ")");
    } else if (step == Step::data) {
        report(StreamProblem::truncatedData, recordOffset,
               end + "inside a band's data (" + partOf(have, wanted) + ")");
    } else if (!atBoundary && (sums.endOfJob || sums.cancelled)) {
        report(StreamProblem::bytesAfterEnd, recordOffset, "there are bytes after the end of the job");
        ignoreFrom(recordOffset);
    } else if (!atBoundary) {
        report(StreamProblem::truncatedTag, recordOffset,
               end + "inside a tag (" + partOf(have, wanted) + ")");
    } else if (!sums.endOfJob && !sums.cancelled) {
        needJobHeaders();
        cutPage();
        report(StreamProblem::missingEndOfJob, sums.bytes, "the input ends without an end-of-job mark");
    }
    endPage(false);
}

void StreamReader::collect(Step next, std::size_t size) {
    step = next;
    wanted = size;
}

void StreamReader::expectTag() {
    recordOffset = sums.bytes;
    have = 0;
    collect(Step::tag, tagSize);
}

void StreamReader::collected() {
    switch (step) {
    case Step::start: {
        const bool isTag = headerSizeOf(tag()) || tag() == commandTag;
        if (rule == IdentifierRule::present || (rule == IdentifierRule::detect && !isTag)) {
            collect(Step::identifier, identifierSize);
        } else {
            tagRead();
        }
        return;
    }
    case Step::identifier: {
        IdentifierRead identifier{recordOffset, {}};
        std::memcpy(identifier.text.data(), buffer.data(), identifierSize);
        sink(identifier);
        jobBegun = true;
        expectTag();
        return;
    }
    case Step::tag:
        tagRead();
        return;
    case Step::header:
        headerRead();
        return;
    case Step::command:
        commandRead();
        return;
    case Step::data:
        bandRead();
        return;
    case Step::ignore:
        return;
    }
}

void StreamReader::tagRead() {
    if (tag() == commandTag && !sums.cancelled) {
        collect(Step::command, sizeof(CommandRecord));
    } else if (sums.endOfJob || sums.cancelled) {
        report(StreamProblem::bytesAfterEnd, recordOffset, "there are bytes after the end of the job");
        ignoreFrom(recordOffset);
    } else if (tag() == endOfJobTag) {
        endOfJobRead();
    } else if (const auto size = headerSizeOf(tag())) {
        collect(Step::header, *size);
    } else {
        report(StreamProblem::unknownTag, recordOffset,
               "unknown tag " + spelledOut(std::span(buffer).first(tagSize)) + "; the rest is not read");
        ignoreFrom(recordOffset);
    }
}

void StreamReader::headerRead() {
    switch (tag()) {
    case fileHeaderTag:
        fileHeaderRead();
        break;
    case fileHeaderExTag:
        fileHeaderExRead();
        break;
    case pageHeaderTag:
        pageHeaderRead();
        break;
    default:
        bandHeaderRead();
        return; // its data comes before the next tag
    }
    expectTag();
}

void StreamReader::fileHeaderRead() {
    FileHeaderRead read{recordOffset, {}};
    std::memcpy(&read.header, buffer.data(), sizeof read.header);
    sink(read);
    if (fileHeaderSeen) {
        report(StreamProblem::duplicateFileHeader, recordOffset, "a second job file header");
    } else if (fileHeaderExSeen || pagesBegun) {
        report(StreamProblem::headerOutOfOrder, recordOffset, "the job file header does not come first");
    }
    fileHeaderSeen = true;
    jobBegun = true;
}

void StreamReader::fileHeaderExRead() {
    FileHeaderExRead read{recordOffset, {}};
    std::memcpy(&read.header, buffer.data(), sizeof read.header);
    sink(read);
    if (fileHeaderExSeen) {
        report(StreamProblem::duplicateFileHeaderEx, recordOffset, "a second extended job file header");
    } else if (pagesBegun) {
        report(StreamProblem::headerOutOfOrder, recordOffset,
               "the extended job file header does not come before the pages");
    }
    fileHeaderExSeen = true;
    jobBegun = true;
}

void StreamReader::pageHeaderRead() {
    needJobHeaders();
    cutPage();
    page = PageRead{recordOffset, {}, 0, {}, 0, false};
    std::memcpy(&page->header, buffer.data(), sizeof page->header);
}

void StreamReader::bandHeaderRead() {
    needJobHeaders();
    BandHeader band;
    std::memcpy(&band, buffer.data(), sizeof band);
    const PlaneBytes planes = planesOf(band);
    const std::int32_t size = band.dataSize();
    lastBand = band.isLastOfPage();

    ++sums.bands;
    if (page) {
        ++page->bands;
        add(page->announced, planes);
    } else {
        report(StreamProblem::bandOutsidePage, recordOffset, "a band outside a page");
    }

    if (size < 0) {
        report(StreamProblem::negativeBandSize, recordOffset,
               "a band's plane sizes make the negative size " + std::to_string(size) +
                   " in the format's 32 bits; the rest is not read");
        ignoreFrom(sums.bytes);
        return;
    }
    if (sumOf(planes) != static_cast<std::uint64_t>(size)) {
        report(StreamProblem::wrappedBandSize, recordOffset,
               "a band's plane sizes, " + std::to_string(sumOf(planes)) + " bytes, make the size " +
                   std::to_string(size) + " in the format's 32 bits; read as such");
    }
    have = 0;
    step = Step::data;
    wanted = static_cast<std::uint64_t>(size);
    if (size == 0) {
        bandRead();
    }
}

void StreamReader::bandRead() {
    if (lastBand) {
        endPage(true);
    }
    expectTag();
}

void StreamReader::endOfJobRead() {
    needJobHeaders();
    cutPage();
    sums.endOfJob = true;
    sink(EndOfJobRead{recordOffset});
    expectTag();
}

void StreamReader::commandRead() {
    CommandRead command{recordOffset, {}};
    std::memcpy(command.record.data(), buffer.data(), sizeof command.record);
    sink(command);
    const bool cancel = command.record == cancelCommand;
    if (!cancel && command.record != reverseDataReset) {
        report(StreamProblem::unknownCommand, recordOffset,
               "unknown command record " + spelledOut(std::span(buffer).first(sizeof(CommandRecord))));
    }
    if (jobBegun && !sums.endOfJob) {
        report(StreamProblem::commandInsideJob, recordOffset, "a command record before the end-of-job mark");
    }
    if (cancel) {
        cutPage();
        sums.cancelled = true;
    }
    expectTag();
}

/// The pages begin, or the job ends without any: both job headers must have been there.
void StreamReader::needJobHeaders() {
    if (pagesBegun) {
        return;
    }
    pagesBegun = true;
    jobBegun = true;
    if (!fileHeaderSeen) {
        report(StreamProblem::missingFileHeader, recordOffset, "the job file header is missing");
    }
    if (!fileHeaderExSeen) {
        report(StreamProblem::missingFileHeaderEx, recordOffset, "the extended job file header is missing");
    }
}

void StreamReader::endPage(bool complete) {
    if (page) {
        page->complete = complete;
        ++sums.pages;
        sink(*page);
        page.reset();
    }
}

/// Something came that ends the page although its last band has not been there.
void StreamReader::cutPage() {
    if (page) {
        const std::uint64_t offset = page->offset;
        endPage(false);
        report(StreamProblem::pageWithoutLastBand, offset, "a page without its last band");
    }
}

void StreamReader::ignoreFrom(std::uint64_t offset) {
    endPage(false);
    sums.unread = sums.bytes - offset;
    step = Step::ignore;
}

void StreamReader::report(StreamProblem problem, std::uint64_t offset, std::string text) {
    ++sums.problems;
    sink(ProblemFound{offset, problem, std::move(text)});
}

Tag StreamReader::tag() const {
    WireTag tag;
    std::memcpy(&tag, buffer.data(), sizeof tag);
    return tag;
}

} // namespace veltrin
