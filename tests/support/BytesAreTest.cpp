#include "tests/support/BytesAre.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>

namespace veltrin::test {
namespace {

/// What a test that fails says of these bytes.
std::string explanationOf(const std::string &actual, const std::string &expected) {
    testing::StringMatchResultListener listener;
    EXPECT_FALSE(BytesAre(expected).MatchAndExplain(Bytes(actual), &listener));
    return listener.str();
}

TEST(BytesAre, TakesTheSameBytesAlone) {
    const std::string zeros(3, '\0');
    EXPECT_THAT(Bytes(""), BytesAre(""));
    EXPECT_THAT(Bytes(zeros), BytesAre(zeros));
    EXPECT_THAT(Bytes(zeros), testing::Not(BytesAre(zeros + '\0')));
    EXPECT_THAT(Bytes(zeros), testing::Not(BytesAre("")));
    EXPECT_THAT(Bytes("abc"), testing::Not(BytesAre("abd")));
}

TEST(BytesAre, SaysWhereTheBytesDifferAndShowsAFewAround) {
    EXPECT_EQ(explanationOf("abc", "abd"), "which are at offset 2\n"
                                           "            61 62 [63]\n"
                                           "  instead of  61 62 [64]");
    EXPECT_EQ(explanationOf("0123456789abcdefghijklmnopq", "0123456789ab\xFF\x80"),
              "which are at offset 12\n"
              "            ... 34 35 36 37 38 39 61 62 [63] 64 65 66 67 68 69 6a ...\n"
              "  instead of  ... 34 35 36 37 38 39 61 62 [ff] 80");
}

TEST(BytesAre, SaysWhereOneOfBothEnds) {
    EXPECT_EQ(explanationOf("ab", "abcd"), "which are at offset 2\n"
                                           "            61 62 [end]\n"
                                           "  instead of  61 62 [63] 64");
    EXPECT_EQ(explanationOf("a", ""), "which are at offset 0\n"
                                      "            [61]\n"
                                      "  instead of  [end]");
}

TEST(BytesAre, DoesNotShowAWholeStream) {
    const std::string large(1'000'000, 'x');
    const std::string longer = large + "y";
    EXPECT_NONFATAL_FAILURE(EXPECT_THAT(Bytes(large), BytesAre(longer)),
                            "Value of: Bytes(large)\n"
                            "Expected: are the expected 1000001 bytes\n"
                            "  Actual: 1000000 bytes (of type veltrin::test::Bytes), which are at offset "
                            "1000000\n"
                            "            ... 78 78 78 78 78 78 78 78 [end]\n"
                            "  instead of  ... 78 78 78 78 78 78 78 78 [79]");
    EXPECT_NONFATAL_FAILURE(EXPECT_THAT(Bytes("x"), testing::Not(BytesAre("x"))),
                            "Expected: are not these 1 byte\n  Actual: 1 byte");
}

} // namespace
} // namespace veltrin::test
