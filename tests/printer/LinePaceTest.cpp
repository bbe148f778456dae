#include "printer/LinePace.h"

#include <gtest/gtest.h>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;

TEST(LinePace, CarriesWhatComesUnlessItIsSlow) {
    LinePace pace;
    pace.took(1'000'000'000, 1s);
    EXPECT_EQ(pace.allowance(1s), SIZE_MAX);
    EXPECT_EQ(pace.nextDue(1s), std::nullopt);
}

TEST(LinePace, CarriesSoManyBytesASecond) {
    LinePace pace;
    pace.carry(1000);
    EXPECT_EQ(pace.allowance(5s), 100U);
    pace.took(100, 5s);
    EXPECT_EQ(pace.allowance(5s), 0U);
    EXPECT_EQ(pace.nextDue(5s), 5100ms);
    EXPECT_EQ(pace.allowance(5099ms), 0U);
    EXPECT_EQ(pace.allowance(5100ms), 100U);
    EXPECT_EQ(pace.nextDue(5100ms), std::nullopt);
    // What was not carried in a pause is not made up for.
    pace.took(50, 20s);
    EXPECT_EQ(pace.nextDue(20s), 20050ms);
}

TEST(LinePace, CarriesAByteAtATimeAtLeast) {
    LinePace pace;
    pace.carry(2);
    EXPECT_EQ(pace.allowance(0s), 1U);
    pace.took(1, 0s);
    EXPECT_EQ(pace.nextDue(0s), 500ms);
}

TEST(LinePace, IsAsFastAsEverAfterwards) {
    LinePace pace;
    pace.carry(1);
    pace.took(100, 0s);
    pace.carry(std::nullopt);
    EXPECT_EQ(pace.allowance(0s), SIZE_MAX);
    EXPECT_EQ(pace.nextDue(0s), std::nullopt);
}

} // namespace
} // namespace veltrin::printer
