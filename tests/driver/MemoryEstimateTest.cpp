#include "driver/MemoryEstimate.h"

#include <gtest/gtest.h>

#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t mebibyte = 0x100000;
constexpr std::uint32_t plenty = 0xFFFFFFFF;

TEST(MemoryEstimate, HasRoomOnlyAboveTheMarginsInBothMemories) {
    struct Case {
        MemoryEstimate estimate;
        std::uint32_t headerSize;
        std::uint32_t dataSize;
        bool room;
    };

    const std::vector<Case> cases = {
        {{0, 0}, 0, 0, false},
        {{1024, plenty}, 0, 0, false},
        {{1025, plenty}, 0, 0, true},
        {{1024 + 32, plenty}, 32, 0, false},
        {{1024 + 33, plenty}, 32, 0, true},
        {{plenty, mebibyte}, 0, 0, false},
        {{plenty, mebibyte + 1}, 0, 0, true},
        {{plenty, mebibyte + 70000}, 32, 70000, false},
        {{plenty, mebibyte + 70001}, 32, 70000, true},
        {{1025, mebibyte + 1}, 0, 0, true},
        // Sums wrap: sizes near 2^32 pass for small ones.
        {{1, plenty}, 0xFFFFFFFF - 1023, 0, true},
        {{0, plenty}, 0xFFFFFFFF - 1023, 0, false},
        {{plenty, 1}, 0, 0xFFFFFFFF - mebibyte + 1, true},
        {{plenty, 0}, 0, 0xFFFFFFFF - mebibyte + 1, false},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(one.estimate.hasRoomFor(one.headerSize, one.dataSize), one.room)
            << one.estimate.headerMemory << ' ' << one.estimate.imageMemory << ' ' << one.headerSize << ' '
            << one.dataSize;
    }
}

TEST(MemoryEstimate, GoesDownByWhatIsSentModulo32Bits) {
    MemoryEstimate estimate = {.headerMemory = 100, .imageMemory = 50};
    estimate.subtract(32, 50);
    EXPECT_EQ(estimate.headerMemory, 68U);
    EXPECT_EQ(estimate.imageMemory, 0U);
    estimate.subtract(69, 1);
    EXPECT_EQ(estimate.headerMemory, 0xFFFFFFFFU);
    EXPECT_EQ(estimate.imageMemory, 0xFFFFFFFFU);
}

TEST(MemoryEstimate, IsFreshForThreeSecondsEitherWay) {
    EXPECT_TRUE(isFresh(10s, 10s));
    EXPECT_TRUE(isFresh(10s, 13s));
    EXPECT_FALSE(isFresh(10s, 13s + 1us));
    EXPECT_TRUE(isFresh(10s, 7s));
    EXPECT_FALSE(isFresh(10s, 7s - 1us));
    EXPECT_FALSE(isFresh(std::nullopt, 10s));
    EXPECT_FALSE(isFresh(10s, std::nullopt));
}

} // namespace
} // namespace veltrin
