#include "driver/stream/HeaderSearch.h"

#include "driver/stream/PageStream.h"
#include "tests/driver/stream/StreamPieces.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::band;
using test::cancel;
using test::endOfJob;
using test::identifier;
using test::reset;

const std::string rubbish(searchAhead, 'r');

/// A header of this many bytes that says it has `length`.
std::string header(const std::string &tag, std::size_t size, std::uint32_t length) {
    const BigEndian32 number(length);
    std::string bytes = tag + std::string(size - tag.size(), '\0');
    std::memcpy(bytes.data() + tag.size(), &number, sizeof number);
    return bytes;
}

struct Candidate {
    const char *name;
    std::string bytes;  ///< followed by rubbish
    bool expected;      ///< whether it makes sense there
    bool expectedAtEnd; ///< whether it does where the input ends behind it
    SearchPlace place = SearchPlace::page;
};

void PrintTo(const Candidate &candidate, std::ostream *out) {
    *out << candidate.name;
}

class CandidateTest : public testing::TestWithParam<Candidate> {};

TEST_P(CandidateTest, IsJudged) {
    const Candidate &candidate = GetParam();
    const std::string more = candidate.bytes + rubbish;
    EXPECT_EQ(makesSense(std::as_bytes(std::span(more)).first(searchAhead), false, candidate.place),
              candidate.expected);
    EXPECT_EQ(makesSense(std::as_bytes(std::span(candidate.bytes)), true, candidate.place),
              candidate.expectedAtEnd);
}

std::vector<Candidate> candidates() {
    const std::string page = header("GDIP", 64, 64);
    const std::string oddPage = header("GDIP", 64, 0);
    const std::string job = header("GDIJ", 120, 120);
    const std::string oddJob = header("GDIJ", 120, 119);
    const std::string jobEx = header("GJET", 152, 152);
    const std::string oddJobEx = header("GJET", 152, 120);
    const auto everywhere = SearchPlace::afterCancel; // where least makes sense
    return {
        {"Nothing", "", false, false},
        {"Rubbish", "GDIX", false, false},
        {"TagAlone", "GDIP", false, false},
        {"TagInTheOtherByteOrder", header("PIDG", 64, 64), false, false},

        {"Page", page, true, true},
        {"PageOutsideAPage", page, true, true, SearchPlace::job},
        {"PageAfterTheEnd", page, false, false, SearchPlace::afterEnd},
        {"PageAfterACancelRecord", page, false, false, SearchPlace::afterCancel},
        {"PageOfAnotherLength", oddPage, false, true},
        {"PageOfAnotherLengthWithABand", oddPage + "GDIB", true, true},
        {"PageOfAnotherLengthWithACommand", oddPage + "GDIC", true, true},
        {"PageOfAnotherLengthWithPartOfATag", oddPage + "GDI", false, false},
        {"PageThatIsCut", page.substr(0, 63), true, false}, // rubbish fills the gap

        {"Job", job, true, true, everywhere},
        {"JobOfAnotherLength", oddJob, false, true, everywhere},
        {"JobOfAnotherLengthWithAnotherHeader", oddJob + "GJET", true, true, everywhere},
        {"Extended", jobEx, true, true, everywhere},
        {"ExtendedOfAnotherLength", oddJobEx, false, true, everywhere},
        {"ExtendedOfAnotherLengthWithAPage", oddJobEx + "GDIP", true, true, everywhere},

        {"EmptyBand", band(0, 0, 0, 0, 0), false, true},
        {"EmptyBandWithAnother", band(0, 0, 0, 0, 0) + "GDIB", true, true},
        {"EmptyBandOutsideAPage", band(0, 0, 0, 0, 0) + "GDIB", false, false, SearchPlace::job},
        {"EmptyBandAfterTheEnd", band(0, 0, 0, 0, 0) + "GDIB", false, false, SearchPlace::afterEnd},
        {"SmallBand", band(2, 1, 2, 3, 4) + "0123456789JIDG", true, true},
        {"SmallBandWithTooMuchData", band(2, 1, 2, 3, 4) + "0123456789.JIDG", false, false},
        {"LargestBandWhoseEndIsSeen", band(2, 120, 0, 0, 0) + std::string(120, '.') + "GDIP", true, true},
        {"LargestBandWhoseEndIsSeenToBeWrong", band(2, 120, 0, 0, 0) + std::string(120, '.') + "GDIX", false,
         false},
        {"LargeBand", band(2, 121, 0, 0, 0), true, true},
        {"LargestBand", band(2, 0x7FFFFFFC, 1, 1, 1), true, true},
        {"BandOfANegativeSize", band(2, 0x7FFFFFFC, 1, 1, 2), false, false},
        {"BandOfAWrappedSize", band(2, 0xFFFFFFFF, 0, 0, 200), false, false},
        {"LargeBandWithAllBitsOfTheByte", band(0xFF, 500, 0, 0, 0), true, true},
        {"LargeBandWithAnotherBit", band(0x102, 500, 0, 0, 0), false, false},
        {"BandThatIsCut", band(0, 500, 0, 0, 0).substr(0, 31), true, false}, // rubbish fills the gap

        {"End", endOfJob, false, true},
        {"EndOutsideAPage", endOfJob, false, true, SearchPlace::job},
        {"EndAfterTheEnd", endOfJob, false, false, SearchPlace::afterEnd},
        {"EndWithACommand", endOfJob + cancel, true, true},
        {"EndWithTheTagOfACommand", endOfJob + "GDIC", false, false},
        {"EndWithAJob", endOfJob + job, true, true},
        {"EndWithAnIdentifierAndAJob", endOfJob + identifier + job, true, true},
        {"EndWithAnIdentifier", endOfJob + identifier + "more", false, false},
        {"EndWithAPage", endOfJob + page, false, false},

        {"Reset", reset, true, true},
        {"Cancel", cancel, true, true, SearchPlace::afterEnd},
        {"CancelAfterACancelRecord", cancel, false, false, SearchPlace::afterCancel},
        {"CutCommand", reset.substr(0, 15), false, false},
        {"UnknownCommand", "GDIC REBOOT     ", false, false},
    };
}

INSTANTIATE_TEST_SUITE_P(Search, CandidateTest, testing::ValuesIn(candidates()),
                         [](const auto &test) { return std::string(test.param.name); });

std::optional<std::size_t> find(const std::string &bytes, std::size_t from, bool isAll) {
    return findHeader(std::as_bytes(std::span(bytes)), from, isAll, SearchPlace::page);
}

TEST(HeaderSearch, FindsTheFirstHeaderThatMakesSense) {
    const std::string page = header("GDIP", 64, 64);
    EXPECT_EQ(find("GGGDIGDIP" + page + page, 0, true), 9U);
    EXPECT_EQ(find("GGGDIGDIP" + page + page, 9, true), 9U);
    EXPECT_EQ(find("GGGDIGDIP" + page + page, 10, true), 73U);
    EXPECT_EQ(find("GGGDIGDIP" + page + page, 74, true), std::nullopt);
    EXPECT_EQ(find(rubbish + rubbish + endOfJob, 0, true), 2 * searchAhead);
    EXPECT_EQ(find("", 0, true), std::nullopt);
    EXPECT_EQ(find("JID", 0, true), std::nullopt);
}

TEST(HeaderSearch, WaitsForAsManyBytesAsItNeeds) {
    const std::string page = header("GDIP", 64, 64);
    const std::string behind(searchAhead - page.size(), '.');
    EXPECT_EQ(find("12" + page + behind, 0, false), 2U);
    EXPECT_EQ(find("12" + page + behind.substr(1), 0, false), std::nullopt);
}

TEST(HeaderSearch, LooksNoFurtherThanThat) {
    // Otherwise what it finds would depend on how many bytes happen to be there.
    const std::string large = band(0, searchAhead, 0, 0, 0) + std::string(searchAhead, '.') + "not a tag";
    EXPECT_EQ(find(large, 0, false), 0U);
    EXPECT_EQ(find(large, 0, true), 0U);
    // Nor is the end of what it looks at the end of the input.
    const std::size_t room = searchAhead - sizeof(BandHeader);
    const std::string exact = band(0x100, room, 0, 0, 0) + std::string(room, '.') + "not a tag";
    EXPECT_EQ(find(exact, 0, true), std::nullopt);
}

} // namespace
} // namespace veltrin
