#pragma once

#include "driver/stream/CommandRecord.h"
#include "driver/stream/HeaderSearch.h"
#include "driver/stream/PageStream.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

// Reads a page stream piece by piece and checks it.

namespace veltrin {

/// Whether the stream begins with a job identifier.
enum class IdentifierRule {
    detect,  ///< it does unless its first four bytes are a tag of the format
    present, ///< as the renderer writes it
    absent,  ///< as the printer receives it
};

/// What is done where it cannot be known where the next header stands.
enum class AfterFault {
    stop,   ///< the rest is not read
    locate, ///< nor here, but the next header that makes sense is named
    resume, ///< reading goes on there, and with another stream behind the first
};

struct ReaderOptions {
    AfterFault afterFault = AfterFault::stop; ///< unless `stop`, what is no page stream is called by its name
    bool bands = false;                       ///< report the beginning of each page and every band, too
    bool data = false;                        ///< report the bands' data, too, in whatever pieces they come
};

// What a stream consists of, in its order. An offset counts bytes from the start of the input.

struct IdentifierRead {
    std::uint64_t offset;
    std::array<char, identifierSize> text;
};

struct FileHeaderRead {
    std::uint64_t offset;
    FileHeader header;
};

struct FileHeaderExRead {
    std::uint64_t offset;
    FileHeaderEx header;
};

/// A page header, before its bands.
struct PageBegun {
    std::uint64_t offset;
    PageHeader header;
};

/// A band header, before its data.
struct BandRead {
    std::uint64_t offset;
    BandHeader header;
    std::uint64_t number;                    ///< in its page, from 1; 0 outside a page
    std::optional<std::uint64_t> pageOffset; ///< of its page's header
    std::uint16_t pageNumber;                ///< 0 outside a page
};

/// Some of the data of the band that was read last.
struct BandDataRead {
    std::uint64_t offset;
    std::span<const std::byte> bytes; ///< to be used at once
};

/// Bytes of data by plane.
struct PlaneBytes {
    std::uint64_t black = 0;
    std::uint64_t yellow = 0;
    std::uint64_t magenta = 0;
    std::uint64_t cyan = 0;
};

/// A page, once its last band has arrived or it is certain that none will.
struct PageRead {
    std::uint64_t offset; ///< of the page header
    PageHeader header;
    std::uint64_t bands;    ///< begun, a band that is cut off included
    PlaneBytes announced;   ///< the data that the band headers announce
    std::uint64_t received; ///< bytes of data that have arrived
    bool complete;          ///< it ended with its last band, and nothing in it was skipped
};

struct EndOfJobRead {
    std::uint64_t offset;
};

struct CommandRead {
    std::uint64_t offset;
    CommandRecord record;
};

enum class StreamProblem {
    emptyInput,
    truncatedIdentifier,
    truncatedTag,
    truncatedHeader,
    truncatedData,
    truncatedCommand,
    unknownTag, ///< where the next header is cannot be known: the rest is not read
    missingFileHeader,
    missingFileHeaderEx,
    duplicateFileHeader,
    duplicateFileHeaderEx,
    headerOutOfOrder,
    bandOutsidePage,
    pageWithoutLastBand,
    negativeBandSize, ///< as with an unknown tag, the rest is not read
    wrappedBandSize,  ///< read on with the wrapped sum, as the printer's arithmetic has it
    unknownCommand,
    commandInsideJob,
    missingEndOfJob,
    bytesAfterEnd, ///< they are not read
    secondStream,  ///< behind the first one, or instead of its end
    foreignFormat, ///< something else than a page stream
};

/// The problem's name for programs, such as "unknown-tag".
[[nodiscard]] const char *nameOf(StreamProblem problem);

struct ProblemFound {
    std::uint64_t offset; ///< of the header, record or data at fault
    StreamProblem problem;
    std::string text; ///< one line of printable ASCII for people
};

/// What the search behind a fault came to.
struct SearchEnded {
    std::uint64_t offset;              ///< of the first byte that could not be read
    std::optional<std::uint64_t> next; ///< of the next header, mark or record that makes sense
    Tag tag;                           ///< its tag
    bool goesOn;                       ///< reading goes on there
};

/// What people call a part of the stream that begins with this tag, such as "a page header".
[[nodiscard]] std::string partName(Tag tag);

using StreamEvent =
    std::variant<IdentifierRead, FileHeaderRead, FileHeaderExRead, PageBegun, BandRead, BandDataRead,
                 PageRead, EndOfJobRead, CommandRead, ProblemFound, SearchEnded>;

struct StreamTotals {
    std::uint64_t bytes = 0;     ///< the whole input
    std::uint64_t unread = 0;    ///< bytes at its end that could not be read as a stream
    std::uint64_t skipped = 0;   ///< bytes before that which could not be read either
    std::uint64_t pages = 0;     ///< incomplete ones included
    std::uint64_t bands = 0;     ///< those outside a page included
    std::uint64_t dataBytes = 0; ///< received
    std::uint64_t problems = 0;
    bool endOfJob = false;  ///< of the last stream, where there are several
    bool cancelled = false; ///< likewise
};

/// Takes a stream's bytes as they come, in pieces of any size, and reports what they make. The events do not
/// depend on how the bytes are cut (but for the pieces of data, see `ReaderOptions::data`). The memory in use
/// is a few kilobytes, whatever the stream holds.
class StreamReader {
  public:
    using Sink = std::function<void(const StreamEvent &)>;

    explicit StreamReader(Sink sink, IdentifierRule rule = IdentifierRule::detect,
                          ReaderOptions options = {});

    void feed(std::span<const std::byte> bytes);

    /// The stream stops where it is, in the midst of a band's data, say, but the input goes on: what is fed
    /// next begins with a tag.
    void breakOff();

    /// The input has ended: reports what is missing. Nothing may be fed afterwards.
    void finish();

    /// Bytes of the present band's data that are still to come; 0 where a tag comes next, or the rest of a
    /// header.
    [[nodiscard]] std::uint64_t dataToCome() const { return step == Step::data ? wanted - have : 0; }

    /// What comes next is not read any more, see `AfterFault::stop`.
    [[nodiscard]] bool isLost() const { return step == Step::ignore; }

    [[nodiscard]] const StreamTotals &totals() const { return sums; }

    /// The input so far is a whole job, or a cancelled one, without a fault; meaningful after `finish()`.
    [[nodiscard]] bool isWellFormed() const { return sums.problems == 0; }

  private:
    /// What the bytes being collected are.
    enum class Step { start, identifier, tag, header, command, data, afterEnd, beginning, search, ignore };

    [[nodiscard]] std::size_t take(std::span<const std::byte> bytes);
    [[nodiscard]] std::size_t hold(std::span<const std::byte> bytes, std::size_t most);
    void takeAgain();
    void collect(Step next, std::size_t size);
    void expectTag();
    void identifierRead(std::span<const std::byte> bytes);
    void showIdentifier();
    void collected();
    void tagRead();
    void headerRead();
    void fileHeaderRead();
    void fileHeaderExRead();
    void pageHeaderRead();
    void bandHeaderRead();
    void bandRead();
    void endOfJobRead();
    void commandRead();
    void needJobHeaders();
    void endPage(bool complete);
    void cutPage();
    void afterEndRead();
    void bytesAfterEndRead();
    void unknownTagRead(std::uint64_t offset, std::span<const std::byte> bytes);
    void secondStreamRead(std::uint64_t offset);
    void holdBeginning();
    void finishBeginning();
    void judgeBeginning(bool isAll);
    [[nodiscard]] bool isForeign();
    void giveUp(std::uint64_t offset, std::span<const std::byte> bytes, std::size_t from,
                bool sayNothingFound);
    void search(bool isAll);
    void headerFound(std::size_t at);
    [[nodiscard]] bool isInsideSomething() const;
    void reportTruncation(const std::string &end);
    void finishSearches();
    [[nodiscard]] std::string restIsNotRead() const;

    [[nodiscard]] bool isInspecting() const { return options.afterFault != AfterFault::stop; }

    void ignoreFrom(std::uint64_t offset);
    void report(StreamProblem problem, std::uint64_t offset, std::string text);
    [[nodiscard]] Tag tag() const;

    Sink sink;
    IdentifierRule rule;
    ReaderOptions options;
    StreamTotals sums;

    Step step = Step::start;
    std::array<std::byte, largestHeaderSize> buffer{};
    std::uint64_t recordOffset = 0; ///< of the header or record being read
    std::uint64_t have = 0;         ///< bytes of it, or of its data, that have arrived
    std::uint64_t wanted = tagSize;

    bool fileHeaderSeen = false;
    bool fileHeaderExSeen = false;
    bool jobBegun = false;                    ///< something of the job itself has been seen
    bool pagesBegun = false;                  ///< the job headers have been asked for
    bool lastBand = false;                    ///< of the band whose data is being read
    std::optional<IdentifierRead> identifier; ///< until what stands behind it is known
    std::optional<PageRead> page;
    bool pageDamaged = false;

    std::vector<std::byte> held;  ///< the last bytes, for as long as they cannot be understood
    std::vector<std::byte> again; ///< bytes that are to be read once more
    std::uint64_t lostAt = 0;     ///< the first byte that could not be read
    std::size_t searchFrom = 0;   ///< in `held`
    bool sayWhenNone = false;     ///< whether it is worth a word that the search found nothing
    bool severalStreams = false;
    SearchPlace place = SearchPlace::job;
};

} // namespace veltrin
