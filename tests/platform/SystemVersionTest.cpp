#include "platform/apple/SystemVersion.h"

#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace veltrin::platform {
namespace {

TEST(SystemVersion, HasADigitForEachPlaceOfTheParts) {
    EXPECT_EQ(versionAsDecimalDigits(10, 4, 0), 0x1040U);
    EXPECT_EQ(versionAsDecimalDigits(10, 3, 9), 0x1039U);
    EXPECT_EQ(versionAsDecimalDigits(9, 2, 1), 0x0921U);
    EXPECT_EQ(versionAsDecimalDigits(26, 0, 1), 0x2601U);
}

TEST(SystemVersion, CarriesWhatHasNoRoomAsTheMostThatHas) {
    EXPECT_EQ(versionAsDecimalDigits(10, 15, 7), 0x1099U);
    EXPECT_EQ(versionAsDecimalDigits(10, 14, 10), 0x1099U);
    EXPECT_EQ(versionAsDecimalDigits(15, 10, 0), 0x1599U);
    EXPECT_EQ(versionAsDecimalDigits(100, 0, 0), 0x9999U);
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(versionAsDecimalDigits(largest, largest, largest), 0x9999U);
    EXPECT_EQ(versionAsDecimalDigits(-1, -1, -1), 0U);
}

TEST(SystemVersion, NeverComesBeforeAnEarlierOne) {
    std::uint32_t last = 0;
    for (std::int64_t major = 9; major <= 101; ++major) {
        for (std::int64_t minor = 0; minor <= 16; ++minor) {
            for (std::int64_t patch = 0; patch <= 12; ++patch) {
                const std::uint32_t version = versionAsDecimalDigits(major, minor, patch);
                ASSERT_GE(version, last) << major << '.' << minor << '.' << patch;
                last = version;
            }
        }
    }
}

TEST(SystemVersion, IsOneThatRepeatsBothSidesTogether) {
    std::uint32_t version = 0;
    EXPECT_EQ(makePlatform()->systemVersion(version), 0);
    EXPECT_GE(version, 0x1040U);
}

} // namespace
} // namespace veltrin::platform
