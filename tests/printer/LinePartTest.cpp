#include "printer/LinePart.h"

#include "driver/stream/StreamMaker.h"
#include "tests/driver/stream/StreamPieces.h"
#include "tests/support/CaseName.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>

namespace veltrin::printer {

void PrintTo(const LinePart &part, std::ostream *out);

void PrintTo(const LinePart &part, std::ostream *out) {
    *out << (part.kind == LinePart::Kind::none      ? "none"
             : part.kind == LinePart::Kind::command ? "command"
                                                    : "stream")
         << " of " << part.size;
}

namespace {

using test::cancel;
using test::reset;

const std::string bareHeaders = makeJobHeaders({}); // 120 and 152 bytes
const std::string wholePage = makePage({}, 1); // a header of 64 bytes, a band header of 32, 1024 bytes, ...
const std::string someData(100, 'x');

constexpr std::uint64_t plenty = std::numeric_limits<std::uint64_t>::max();
constexpr LineRoom roomy{plenty, plenty};
constexpr LineRoom full{0, 0};
constexpr LinePlace atHeader{};
constexpr LinePlace inBand{1000, false};
constexpr LinePlace lost{0, true};

constexpr LinePart none{};

constexpr LinePart stream(std::size_t size) {
    return {LinePart::Kind::stream, size};
}

constexpr LinePart aCommand{LinePart::Kind::command, 16};

struct Case {
    const char *name;
    std::string waiting;
    LinePlace place;
    LineRoom room;
    LineState state;
    LinePart part;
};

class LineParts : public testing::TestWithParam<Case> {};

TEST_P(LineParts, AreWhatTheirPlaceMakesThem) {
    const Case &test = GetParam();
    EXPECT_EQ(nextLinePart(std::as_bytes(std::span(test.waiting)), test.place, test.room, test.state),
              test.part);
}

// A case in one line.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, LineParts, testing::Values(
    Case{"nothing", "", atHeader, roomy, LineState::open, none},
    Case{"nothing at the end", "", inBand, roomy, LineState::ended, none},

    // Where a header stands
    Case{"reset", reset + bareHeaders, atHeader, roomy, LineState::open, aCommand},
    Case{"cancel", cancel, atHeader, roomy, LineState::open, aCommand},
    Case{"a record needs no memory", cancel, atHeader, full, LineState::open, aCommand},
    Case{"part of a record", reset.substr(0, 15), atHeader, roomy, LineState::open, none},
    Case{"part of a record on a quiet line", reset.substr(0, 15), atHeader, roomy, LineState::quiet, none},
    Case{"part of a record at the end", reset.substr(0, 15), atHeader, roomy, LineState::ended, stream(15)},
    Case{"unknown command", "GDIC UNKNOWN    and more", atHeader, full, LineState::open, stream(16)},
    Case{"part of an unknown command", "GDIC UNKNOWN", atHeader, roomy, LineState::quiet, none},
    Case{"part of a tag", "GDI", atHeader, roomy, LineState::quiet, none},
    Case{"part of a tag at the end", "GDI", atHeader, roomy, LineState::ended, stream(3)},
    Case{"header", bareHeaders, atHeader, roomy, LineState::open, stream(120)},
    Case{"extended header", bareHeaders.substr(120), atHeader, roomy, LineState::open, stream(152)},
    Case{"page header with just enough memory", wholePage, atHeader, {64, 0}, LineState::open, stream(64)},
    Case{"page header without enough memory", wholePage, atHeader, {63, plenty}, LineState::open, none},
    Case{"page header without enough memory at the end", wholePage, atHeader, {63, plenty}, LineState::ended, none},
    Case{"band header", wholePage.substr(64), atHeader, {32, 0}, LineState::open, stream(32)},
    Case{"part of a header", bareHeaders.substr(0, 119), atHeader, roomy, LineState::quiet, none},
    Case{"part of a header at the end", bareHeaders.substr(0, 119), atHeader, roomy, LineState::ended, stream(119)},
    Case{"record inside a header", bareHeaders.substr(0, 60) + cancel + std::string(60, '\0'), atHeader, roomy, LineState::open, stream(120)},
    Case{"end of job", "JIDG" + reset, atHeader, roomy, LineState::open, stream(4)},
    Case{"no tag", "PIDGeon", atHeader, full, LineState::open, stream(4)},

    // In a band's data
    Case{"data", someData, inBand, roomy, LineState::open, stream(100)},
    Case{"data and what follows the band", someData, {60, false}, roomy, LineState::open, stream(60)},
    Case{"data with memory for some", someData, inBand, {0, 40}, LineState::open, stream(40)},
    Case{"data without memory", someData, inBand, {plenty, 0}, LineState::open, none},
    Case{"data without memory at the end", someData, inBand, {plenty, 0}, LineState::ended, none},
    Case{"data that look like a header", "GDIJ" + someData, inBand, roomy, LineState::open, stream(104)},
    Case{"cancel in place of data", cancel, inBand, full, LineState::open, aCommand},
    Case{"reset in place of data", reset + bareHeaders, inBand, full, LineState::open, aCommand},
    Case{"cancel among data", someData + cancel, inBand, roomy, LineState::open, stream(100)},
    Case{"reset among data", someData + reset + someData, inBand, roomy, LineState::quiet, stream(100)},
    Case{"cancel behind the data but begun among them", someData + cancel, {105, false}, roomy, LineState::open, stream(100)},
    Case{"cancel in place of a band's last bytes", cancel, {5, false}, roomy, LineState::open, aCommand},
    Case{"what may be a record", someData + "GDIC GD", inBand, roomy, LineState::open, stream(100)},
    Case{"what may be a record and nothing else", "GDIC CANC", inBand, roomy, LineState::open, none},
    Case{"one byte that may begin a record", "G", inBand, roomy, LineState::open, none},
    Case{"what may be a record on a quiet line", someData + "GDIC GD", inBand, roomy, LineState::quiet, stream(107)},
    Case{"what may be a record at the end", "GDIC CANC", inBand, roomy, LineState::ended, stream(9)},
    Case{"what is no record after all", "GDIC CANT" + someData, inBand, roomy, LineState::open, stream(109)},

    // Behind what is no stream
    Case{"rubbish", someData, lost, full, LineState::open, stream(100)},
    Case{"rubbish with a header in it", bareHeaders, lost, full, LineState::open, stream(272)},
    Case{"rubbish in front of a record", someData + cancel, lost, full, LineState::open, stream(100)},
    Case{"record behind rubbish", cancel, lost, full, LineState::open, aCommand},
    Case{"rubbish that may be a record", "GDIC", lost, full, LineState::open, none}
), test::nameOfCase<Case>);

// clang-format on

/// However the bytes are cut, the records are found, and nothing else is taken for one.
TEST(LineParts, FindARecordHoweverItComes) {
    const std::string bytes = someData + "GDIC GDIC CANCEL " + cancel;
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        std::string waiting;
        std::size_t at = 0;
        std::size_t taken = 0;
        LinePart last;
        while (at < bytes.size() || last.kind != LinePart::Kind::none) {
            waiting += bytes.substr(at, piece);
            at = std::min(at + piece, bytes.size());
            last = nextLinePart(std::as_bytes(std::span(waiting)), inBand, roomy, LineState::open);
            if (last.kind == LinePart::Kind::command) {
                break;
            }
            taken += last.size;
            waiting.erase(0, last.size);
        }
        EXPECT_EQ(last, aCommand) << piece;
        EXPECT_EQ(taken, bytes.size() - 16) << piece;
    }
}

} // namespace
} // namespace veltrin::printer
