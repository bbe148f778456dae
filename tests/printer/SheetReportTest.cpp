#include "printer/SheetReport.h"

#include "tests/printer/Pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace veltrin::printer {
namespace {

using test::pagesFrom;
using testing::ElementsAre;
using testing::ElementsAreArray;

/// Sheets as "front/back" of the page numbers, "-" for an empty side.
std::vector<std::string> sheetTexts(const std::string &received) {
    const std::vector<PageRead> pages = pagesFrom(received);
    const auto side = [&pages](const std::optional<std::size_t> &place) {
        return place ? std::to_string(pages[*place].header.wPageNumber.value()) : "-";
    };
    std::vector<std::string> texts;
    for (const Sheet &sheet : sheetsOf(pages)) {
        texts.push_back(side(sheet.front) + "/" + side(sheet.back));
    }
    return texts;
}

struct SheetCase {
    const char *name;
    const char *received;
    std::vector<std::string> sheets;
};

void PrintTo(const SheetCase &sheetCase, std::ostream *out) {
    *out << sheetCase.name;
}

class Sheets : public testing::TestWithParam<SheetCase> {};

TEST_P(Sheets, AreWhatComesOutOfThePrinter) {
    EXPECT_THAT(sheetTexts(GetParam().received), ElementsAreArray(GetParam().sheets));
}

const SheetCase sheetCases[] = {
    {"NoPages", "", {}},
    {"OneSided", "1 2 3", {"1/-", "2/-", "3/-"}},
    {"DuplexUnitCollated", "2(12) 1(4) 4(12) 3(4) 2(12) 1(4)", {"1/2", "3/4", "1/2"}},
    {"OnePageOnADuplexUnit", "1(12)", {"1/-"}},
    {"OddPageLastOnADuplexUnit", "2(12) 1(4) 3(12)", {"1/2", "3/-"}},
    {"TwoFirstSidesInARow", "2(12) 4(12) 3(4)", {"2/-", "3/4"}},
    {"SecondSideWithoutFirst", "1(4) 2(12)", {"1/-", "2/-"}},
    {"SecondSideTwice", "2(12) 1(4) 3(4)", {"1/2", "3/-"}},
    {"TurnedReadFromTheTop", "6 4 2 1* 3 5", {"5/6", "3/4", "1/2"}},
    {"TurnedReadFromTheBottom", "2 4 6 1* 3 5", {"1/2", "3/4", "5/6"}},
    {"TurnedUncollatedCopies", "4 4 2 2 1* 1 3 3", {"3/4", "3/4", "1/2", "1/2"}},
    {"TurnedCollatedCopies", "4 2 4 2 1* 3 1 3", {"3/4", "1/2", "3/4", "1/2"}},
    {"TurnedWithMoreFrontsThanBacks", "2 1* 3", {"1/2", "3/-"}},
    {"TurnedWithMoreBacksThanFronts", "4 2 1*", {"-/4", "1/2"}},
    {"TurnedAtOnce", "1* 2", {"1/-", "2/-"}},
    {"NeighboursNeitherWay", "9 5 1* 3", {"3/9", "1/5"}},
};

INSTANTIATE_TEST_SUITE_P(Cases, Sheets, testing::ValuesIn(sheetCases),
                         [](const auto &test) { return test.param.name; });

TEST(Pauses, AreThePagesThatWantTheStackTurned) {
    EXPECT_THAT(pausesOf(pagesFrom("2 1* 3 4*")), ElementsAre(1, 3));
    EXPECT_THAT(pausesOf(pagesFrom("2(12) 1(4)")), ElementsAre());
}

TEST(Copies, AreCountedByTheFirstPagesNumber) {
    EXPECT_EQ(copiesOf({}), 0U);
    EXPECT_EQ(copiesOf(pagesFrom("1 2 3")), 1U);
    EXPECT_EQ(copiesOf(pagesFrom("4 4 2 2 1* 1 3 3")), 2U);
    EXPECT_EQ(copiesOf(pagesFrom("2(12) 1(4) 2(12) 1(4) 2(12) 1(4)")), 3U);
}

} // namespace
} // namespace veltrin::printer
