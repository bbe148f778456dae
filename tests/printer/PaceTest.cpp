#include "printer/Pace.h"

#include <gtest/gtest.h>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;

TEST(PaceTest, IsTenTimesASecondAtMost) {
    Pace pace;
    EXPECT_TRUE(pace.isDue(5s));
    EXPECT_FALSE(pace.isDue(5s));
    EXPECT_FALSE(pace.isDue(5099999us));
    EXPECT_TRUE(pace.isDue(5100ms));
    EXPECT_FALSE(pace.isDue(5199ms)) << "counted from the last time, not from the first";
    EXPECT_TRUE(pace.isDue(9s));

    Pace another;
    int times = 0;
    for (PrinterTime now = 0s; now < 1s; now += 100us) {
        times += another.isDue(now) ? 1 : 0;
    }
    EXPECT_EQ(times, 10);
}

} // namespace
} // namespace veltrin::printer
