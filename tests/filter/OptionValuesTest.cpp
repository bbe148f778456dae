#include "filter/OptionValues.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace veltrin {
namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(EqualIgnoringCase, TakesTheCaseOfLatinLettersForNoDifference) {
    struct Case {
        std::string one;
        std::string other;
        bool areEqual;
    };

    const std::vector<Case> cases = {
        {"", "", true},
        {"a4", "A4", true},
        {"Two-Sided-Long-Edge", "two-sided-long-edge", true},
        {"A4", "A", false},
        {"A4", "A5", false},
        {"", "A", false},
        {"[", "{", false}, // as far apart as "A" and "a"
        {"\u00C4", "\u00E4", false},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(equalIgnoringCase(one.one, one.other), one.areEqual) << one.one << ' ' << one.other;
        EXPECT_EQ(equalIgnoringCase(one.other, one.one), one.areEqual) << one.other << ' ' << one.one;
    }
}

TEST(IntegerValue, ReadsTheLeadingDecimalNumber) {
    struct Case {
        std::string text;
        std::int32_t value;
    };

    const std::vector<Case> cases = {
        {"", 0},
        {"0", 0},
        {"7", 7},
        {"12", 12},
        {" 12abc", 12},
        {"\t\n\v\f\r 3", 3},
        {"abc", 0},
        {"-", 0},
        {"+", 0},
        {"+-3", 0},
        {"- 3", 0},
        {"-1", -1},
        {"+5", 5},
        {"0010", 10},
        {"0x10", 0},
        {"3.9", 3},
        {"3)", 3},
        {"1e3", 1},
        {"2147483647", highest},
        {"2147483648", highest},
        {"4294967295", highest},
        {"99999999999999999999999999", highest},
        {"-2147483647", lowest + 1},
        {"-2147483648", lowest},
        {"-2147483649", lowest},
        {"-99999999999999999999999999", lowest},
        {std::string("4\0002", 3), 4},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(integerValue(one.text), one.value) << '"' << one.text << '"';
    }
}

TEST(BooleanValue, IsTrueForTrueAndYesInAnyCaseOnly) {
    for (const char *text : {"true", "TRUE", "True", "tRuE", "yes", "YES", "Yes"}) {
        EXPECT_TRUE(booleanValue(text)) << text;
    }
    for (const char *text :
         {"", "1", "on", "y", "t", "false", "no", "0", " true", "true ", "yess", "truely"}) {
        EXPECT_FALSE(booleanValue(text)) << text;
    }
}

} // namespace
} // namespace veltrin
