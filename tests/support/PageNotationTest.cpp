#include "tests/support/PageNotation.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::test {
namespace {

TEST(PageNotation, DescribesNumberBitsAndTray) {
    const std::vector<MarkedPage> pages = markedPages("12 2(12)  1(4) 3* 4*b 5b 6(28)b");
    ASSERT_EQ(pages.size(), 7U);
    EXPECT_EQ(pages[0].number, 12U);
    EXPECT_EQ(pages[0].typeBits, 0);
    EXPECT_FALSE(pages[0].fromBypass);
    EXPECT_EQ(pages[1].typeBits, 0x0C);
    EXPECT_EQ(pages[2].typeBits, 0x04);
    EXPECT_EQ(pages[3].typeBits, 0x10);
    EXPECT_FALSE(pages[3].fromBypass);
    EXPECT_EQ(pages[4].typeBits, 0x10);
    EXPECT_TRUE(pages[4].fromBypass);
    EXPECT_TRUE(pages[5].fromBypass);
    EXPECT_EQ(pages[6].typeBits, 0x1C);
    EXPECT_TRUE(markedPages("").empty());
}

TEST(PageNotation, IsTheSameBothWays) {
    for (const std::string notation : {"", "1", "2(12) 1(4)", "4 2 1*b 3b", "65535(28)b"}) {
        EXPECT_EQ(notationOf(markedPages(notation)), notation);
    }
}

TEST(PageNotation, FailsTheTestWhereItIsNone) {
    for (const char *word : {"x", "*", "1**", "1(", "1()", "1b*", "1x", "-1"}) {
        EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(markedPages(word).empty()),
                                "\"" + std::string(word) + "\" describes no page");
    }
}

} // namespace
} // namespace veltrin::test
