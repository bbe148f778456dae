#include "platform/CommandLine.h"

#include <gtest/gtest.h>

#include <limits>

namespace veltrin {
namespace {

constexpr std::uint64_t anyNumber = std::numeric_limits<std::uint64_t>::max();

TEST(ParseNumber, TakesDecimalAndHexadecimal) {
    EXPECT_EQ(parseNumber("0", anyNumber), 0U);
    EXPECT_EQ(parseNumber("007", anyNumber), 7U);
    EXPECT_EQ(parseNumber("0x1c", anyNumber), 28U);
    EXPECT_EQ(parseNumber("0X1C", anyNumber), 28U);
    EXPECT_EQ(parseNumber("18446744073709551615", anyNumber), anyNumber);
}

TEST(ParseNumber, RefusesWhatIsLargerThanAllowed) {
    EXPECT_EQ(parseNumber("255", 255), 255U);
    EXPECT_EQ(parseNumber("256", 255), std::nullopt);
    EXPECT_EQ(parseNumber("18446744073709551616", anyNumber), std::nullopt);
}

TEST(ParseNumber, RefusesAnyOtherText) {
    for (const char *text : {"", "x", "0x", "-1", "+1", " 1", "1 ", "1x", "1.5", "0x-1", "1,2", "0x0x1"}) {
        EXPECT_EQ(parseNumber(text, anyNumber), std::nullopt) << text;
    }
}

TEST(ParseNumbers, TakesNumbersBetweenCommas) {
    EXPECT_EQ(parseNumbers("1", anyNumber), (std::vector<std::uint64_t>{1}));
    EXPECT_EQ(parseNumbers("1,0x2,3", anyNumber), (std::vector<std::uint64_t>{1, 2, 3}));
    for (const char *text : {"", ",", "1,", ",1", "1,,2", "1, 2", "1;2", "1,256"}) {
        EXPECT_EQ(parseNumbers(text, 255), std::nullopt) << text;
    }
}

} // namespace
} // namespace veltrin
