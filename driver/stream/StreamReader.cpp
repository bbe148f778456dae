#include "driver/stream/StreamReader.h"

#include "driver/stream/ForeignFormat.h"

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
    {StreamProblem::secondStream, "second-stream"},
    {StreamProblem::foreignFormat, "foreign-format"},
};

/// How many bytes of a search are held at a time, besides those that the last decision left.
constexpr std::size_t searchStep = 1024;

bool isJobHeader(Tag tag) {
    return tag == fileHeaderTag || tag == fileHeaderExTag;
}

bool isKnown(Tag tag) {
    return headerSizeOf(tag) || tag == commandTag;
}

Tag tagIn(std::span<const std::byte> bytes) {
    WireTag tag;
    std::memcpy(&tag, bytes.data(), sizeof tag);
    return tag;
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

std::string partName(Tag tag) {
    switch (tag) {
    case fileHeaderTag:
        return "a job file header";
    case fileHeaderExTag:
        return "an extended job file header";
    case pageHeaderTag:
        return "a page header";
    case bandHeaderTag:
        return "a band header";
    case endOfJobTag:
        return "an end-of-job mark";
    case commandTag:
        return "a command record";
    default:
        return "an unknown part";
    }
}

StreamReader::StreamReader(Sink theSink, IdentifierRule theRule, ReaderOptions theOptions)
    : sink(std::move(theSink)), rule(theRule), options(theOptions) {}

void StreamReader::feed(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        bytes = bytes.subspan(take(bytes));
        takeAgain();
    }
}

/// Takes some of the bytes, one at least. Returns how many.
std::size_t StreamReader::take(std::span<const std::byte> bytes) {
    switch (step) {
    case Step::ignore:
        sums.bytes += bytes.size();
        sums.unread += bytes.size();
        return bytes.size();
    case Step::beginning: {
        const std::size_t taken = hold(bytes, foreignFormatBytes - held.size());
        if (held.size() == foreignFormatBytes) {
            judgeBeginning(false);
        }
        return taken;
    }
    case Step::search: {
        const std::size_t taken = hold(bytes, searchStep);
        search(false);
        return taken;
    }
    default:
        break;
    }
    const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), wanted - have));
    if (step == Step::data) {
        sums.dataBytes += taken;
        if (page) {
            page->received += taken;
        }
        if (options.data) {
            sink(BandDataRead{sums.bytes, bytes.first(taken)});
        }
    } else {
        std::memcpy(buffer.data() + have, bytes.data(), taken);
    }
    sums.bytes += taken;
    have += taken;
    if (have == wanted) {
        collected();
    }
    return taken;
}

/// Adds the first of the bytes, `most` at most, to those held. Returns how many.
std::size_t StreamReader::hold(std::span<const std::byte> bytes, std::size_t most) {
    const auto taken = bytes.first(std::min(bytes.size(), most));
    held.insert(held.end(), taken.begin(), taken.end());
    sums.bytes += taken.size();
    return taken.size();
}

/// Reads what a search has held back; further searches among it add to what comes next.
void StreamReader::takeAgain() {
    while (!again.empty()) {
        const std::vector<std::byte> bytes = std::exchange(again, {});
        std::span<const std::byte> rest = bytes;
        while (!rest.empty() && again.empty()) {
            rest = rest.subspan(take(rest));
        }
        again.insert(again.end(), rest.begin(), rest.end());
    }
}

void StreamReader::finish() {
    finishSearches();
    const std::string end = "the input ends at byte " + std::to_string(sums.bytes) + ", ";
    const bool atBoundary = (step == Step::start || step == Step::tag) && have == 0;
    showIdentifier();

    if (sums.bytes == 0) {
        report(StreamProblem::emptyInput, 0,
               isInspecting() ? "the input is empty: nothing was written to it" : "the input is empty");
    } else if (step == Step::ignore) {
        // Said already; what the rest would have been is anybody's guess.
    } else if (step == Step::identifier || (step == Step::start && rule == IdentifierRule::present)) {
        report(StreamProblem::truncatedIdentifier, recordOffset,
               end + "inside the identifier (" + partOf(have, identifierSize) + ")");
    } else if (isInsideSomething()) {
        reportTruncation(end);
    } else if (!atBoundary && (sums.endOfJob || sums.cancelled)) {
        bytesAfterEndRead();
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

bool StreamReader::isInsideSomething() const {
    return step == Step::header || step == Step::command || step == Step::data;
}

/// `end` says how the stream ends inside of it.
void StreamReader::reportTruncation(const std::string &end) {
    const std::string part = " (" + partOf(have, wanted) + ")";
    if (step == Step::header) {
        report(StreamProblem::truncatedHeader, recordOffset, end + "inside " + partName(tag()) + part);
    } else if (step == Step::command) {
        report(StreamProblem::truncatedCommand, recordOffset, end + "inside a command record" + part);
    } else {
        report(StreamProblem::truncatedData, recordOffset, end + "inside a band's data" + part);
    }
}

void StreamReader::breakOff() {
    if (isInsideSomething()) {
        reportTruncation("the stream breaks off at byte " + std::to_string(sums.bytes) + ", ");
        endPage(false);
    }
    held.clear();
    expectTag();
}

/// No more bytes will come for what is waiting for some.
void StreamReader::finishSearches() {
    if (step == Step::beginning) {
        judgeBeginning(true);
    } else if (step == Step::start || step == Step::identifier || identifier) {
        finishBeginning();
    }
    for (;;) {
        const bool isInsideTag = step == Step::tag && have != 0;
        if (step == Step::afterEnd || (isInsideTag && isInspecting() && (sums.endOfJob || sums.cancelled))) {
            bytesAfterEndRead();
        }
        if (step != Step::search) {
            return;
        }
        search(true);
        takeAgain();
    }
}

void StreamReader::collect(Step next, std::size_t size) {
    step = next;
    wanted = size;
}

void StreamReader::showIdentifier() {
    if (identifier) {
        sink(*identifier);
        identifier.reset();
    }
}

void StreamReader::expectTag() {
    recordOffset = sums.bytes;
    have = 0;
    collect(Step::tag, tagSize);
}

void StreamReader::collected() {
    switch (step) {
    case Step::start: {
        if (rule == IdentifierRule::present || (rule == IdentifierRule::detect && !isKnown(tag()))) {
            collect(Step::identifier, identifierSize);
        } else {
            tagRead();
        }
        return;
    }
    case Step::identifier:
        identifierRead(buffer);
        expectTag();
        return;
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
    case Step::afterEnd:
        afterEndRead();
        return;
    case Step::beginning:
    case Step::search:
    case Step::ignore:
        return;
    }
}

/// It is shown once it is certain that it is one.
void StreamReader::identifierRead(std::span<const std::byte> bytes) {
    identifier = IdentifierRead{recordOffset, {}};
    std::memcpy(identifier->text.data(), bytes.data(), identifierSize);
    jobBegun = true;
}

void StreamReader::tagRead() {
    const std::span<const std::byte> bytes = std::span(buffer).first(tagSize);
    if (isInspecting() && !isKnown(tag()) && (recordOffset == 0 || identifier)) {
        holdBeginning();
        return;
    }
    showIdentifier();
    const bool ended = sums.endOfJob || sums.cancelled;
    if (tag() == commandTag && !sums.cancelled) {
        collect(Step::command, sizeof(CommandRecord));
    } else if (ended && isInspecting() && isJobHeader(tag())) {
        secondStreamRead(recordOffset);
        if (step != Step::ignore) {
            tagRead();
        }
    } else if (ended && isInspecting()) {
        collect(Step::afterEnd, identifierSize + tagSize);
    } else if (ended) {
        bytesAfterEndRead();
    } else if (tag() == endOfJobTag) {
        endOfJobRead();
    } else if (const auto size = headerSizeOf(tag())) {
        collect(Step::header, *size);
    } else {
        unknownTagRead(recordOffset, bytes);
    }
}

/// Behind the end of the job, an identifier and a job header are another job.
void StreamReader::afterEndRead() {
    const std::span<const std::byte> bytes = std::span(buffer).first(identifierSize + tagSize);
    if (!isJobHeader(tagIn(bytes.subspan(identifierSize)))) {
        bytesAfterEndRead();
        return;
    }
    secondStreamRead(recordOffset);
    if (step == Step::ignore) {
        return;
    }
    identifierRead(bytes);
    recordOffset += identifierSize;
    std::memmove(buffer.data(), buffer.data() + identifierSize, tagSize);
    have = tagSize;
    tagRead();
}

void StreamReader::bytesAfterEndRead() {
    report(StreamProblem::bytesAfterEnd, recordOffset, "there are bytes after the end of the job");
    giveUp(recordOffset, std::span(buffer).first(have), 1, false);
}

void StreamReader::unknownTagRead(std::uint64_t offset, std::span<const std::byte> bytes) {
    report(StreamProblem::unknownTag, offset,
           "unknown tag " + spelledOut(bytes.first(tagSize)) + restIsNotRead());
    giveUp(offset, bytes, 1, true);
}

std::string StreamReader::restIsNotRead() const {
    return options.afterFault == AfterFault::resume ? "" : "; the rest is not read";
}

/// Another job begins. What has been seen of the last one says nothing of it.
void StreamReader::secondStreamRead(std::uint64_t offset) {
    report(StreamProblem::secondStream, offset,
           std::string(severalStreams ? "another" : "a second") + " stream begins at byte " +
               std::to_string(offset) + "; a job prints the first one only");
    if (options.afterFault != AfterFault::resume) {
        ignoreFrom(offset);
        return;
    }
    severalStreams = true;
    fileHeaderSeen = false;
    fileHeaderExSeen = false;
    jobBegun = false;
    pagesBegun = false;
    sums.endOfJob = false;
    sums.cancelled = false;
}

/// The input does not begin as a stream does; what it is shows with a few bytes more.
void StreamReader::holdBeginning() {
    held.clear();
    if (identifier) {
        const auto text = std::as_bytes(std::span(identifier->text));
        held.assign(text.begin(), text.end());
    }
    held.insert(held.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(have));
    step = Step::beginning;
}

/// The input ends before it is known how it begins.
void StreamReader::finishBeginning() {
    if (isInspecting()) {
        const Step before = step;
        holdBeginning();
        if (!isForeign()) {
            held.clear();
            step = before;
        }
    }
}

void StreamReader::judgeBeginning(bool isAll) {
    if (isForeign()) {
        return;
    }
    if (identifier) {
        const auto found = findHeader(held, 1, isAll, SearchPlace::job);
        if (!found || *found >= identifierSize) {
            showIdentifier();
            unknownTagRead(identifierSize, std::span(held).subspan(identifierSize));
            return;
        }
        // What was taken for an identifier is rubbish in front of a header.
        identifier.reset();
        jobBegun = false;
    }
    unknownTagRead(0, held);
}

/// Whether what is held begins something else than a stream, which is then reported.
bool StreamReader::isForeign() {
    auto text = foreignFormat(held);
    if (!text) {
        return false;
    }
    report(StreamProblem::foreignFormat, 0, std::move(*text));
    identifier.reset();
    jobBegun = false;
    giveUp(0, held, 1, false);
    return true;
}

/// Nothing can be read from `offset` on, where `bytes` stand. The next header is looked for among them from
/// `from` on, and behind them.
void StreamReader::giveUp(std::uint64_t offset, std::span<const std::byte> bytes, std::size_t from,
                          bool sayNothingFound) {
    if (!isInspecting()) {
        ignoreFrom(offset);
        return;
    }
    lostAt = offset;
    searchFrom = from;
    sayWhenNone = sayNothingFound;
    place = sums.cancelled  ? SearchPlace::afterCancel
            : sums.endOfJob ? SearchPlace::afterEnd
            : page          ? SearchPlace::page
                            : SearchPlace::job;
    pageDamaged = true;
    if (options.afterFault == AfterFault::locate) {
        endPage(false);
    }
    held = std::vector<std::byte>(bytes.begin(), bytes.end());
    step = Step::search;
}

/// Looks for a header in the bytes held. `isAll` says that the input ends with them.
void StreamReader::search(bool isAll) {
    const auto found = findHeader(held, searchFrom, isAll, place);
    if (found) {
        headerFound(*found);
    } else if (isAll) {
        if (sayWhenNone) {
            sink(SearchEnded{lostAt, std::nullopt, Tag{}, false});
        }
        ignoreFrom(lostAt);
    } else if (held.size() >= searchAhead) {
        const std::size_t done = held.size() - (searchAhead - 1);
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(done));
        searchFrom -= std::min(searchFrom, done);
    }
}

/// A search has come upon a header, at this place of the bytes held.
void StreamReader::headerFound(std::size_t at) {
    const std::uint64_t offset = sums.bytes - held.size() + at;
    const Tag next = tagIn(std::span(held).subspan(at));
    const bool isSecond =
        isJobHeader(next) && (place == SearchPlace::afterEnd || place == SearchPlace::afterCancel ||
                              (next == fileHeaderTag && fileHeaderSeen));
    const bool resumes = options.afterFault == AfterFault::resume;
    if (next != bandHeaderTag) {
        endPage(false);
    }
    sink(SearchEnded{lostAt, offset, next, resumes});
    if (isSecond) {
        secondStreamRead(offset);
    }
    if (!resumes) {
        ignoreFrom(lostAt);
        return;
    }
    again.assign(held.begin() + static_cast<std::ptrdiff_t>(at), held.end());
    held.clear();
    sums.skipped += offset - lostAt;
    sums.bytes = offset;
    expectTag();
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
    pageDamaged = false;
    std::memcpy(&page->header, buffer.data(), sizeof page->header);
    if (options.bands) {
        sink(PageBegun{page->offset, page->header});
    }
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
    }
    if (options.bands) {
        sink(page ? BandRead{recordOffset, band, page->bands, page->offset, page->header.wPageNumber}
                  : BandRead{recordOffset, band, 0, std::nullopt, 0});
    }
    if (!page) {
        report(StreamProblem::bandOutsidePage, recordOffset, "a band outside a page");
    }

    if (size < 0) {
        report(StreamProblem::negativeBandSize, recordOffset,
               "a band's plane sizes make the negative size " + std::to_string(size) +
                   " in the format's 32 bits" + restIsNotRead());
        giveUp(sums.bytes, {}, 0, true);
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
        page->complete = complete && !pageDamaged;
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
    held.clear();
    step = Step::ignore;
}

void StreamReader::report(StreamProblem problem, std::uint64_t offset, std::string text) {
    ++sums.problems;
    sink(ProblemFound{offset, problem, std::move(text)});
}

Tag StreamReader::tag() const {
    return tagIn(buffer);
}

} // namespace veltrin
