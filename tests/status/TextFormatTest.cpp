#include "status/TextFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace veltrin {
namespace {

using namespace std::string_view_literals;

TEST(TextFormat, KnowsThePlaceholdersAndThePercentSign) {
    EXPECT_EQ(formatText("Paper size %@ mismatch", "A4"), "Paper size A4 mismatch");
    EXPECT_EQ(formatText("%1$@ passt nicht", "A4"), "A4 passt nicht");
    EXPECT_EQ(formatText("100%%", "A4"), "100%");
    EXPECT_EQ(formatText("%@", "A4"), "A4");
    EXPECT_EQ(formatText("%@%@ %1$@", "A4"), "A4A4 A4");
    EXPECT_EQ(formatText("no placeholder", "A4"), "no placeholder");
    EXPECT_EQ(formatText("", "A4"), "");
    EXPECT_EQ(formatText("[%@]", ""), "[]");
}

TEST(TextFormat, ReadsFromLeftToRight) {
    EXPECT_EQ(formatText("%%@", "A4"), "%@");
    EXPECT_EQ(formatText("%%%@", "A4"), "%A4");
    EXPECT_EQ(formatText("%%%%", "A4"), "%%");
    EXPECT_EQ(formatText("%%1$@", "A4"), "%1$@");
}

TEST(TextFormat, TakesTheArgumentAsItIs) {
    EXPECT_EQ(formatText("%@!", "%@ %1$@ %% %s"), "%@ %1$@ %% %s!");
    EXPECT_EQ(formatText("%@", "a\0b"sv), "a\0b"sv);
}

TEST(TextFormat, LeavesEverythingElseAlone) {
    for (const std::string_view format :
         {"%s"sv, "%n"sv,    "%d%x%p"sv, "%2$@"sv, "%0$@"sv,      "%11$@"sv,      "%1$"sv,
          "%1"sv, "%1$s"sv,  "%1 $@"sv,  "% @"sv,  "%"sv,         "50 %"sv,       "@"sv,
          "$@"sv, "%-20@"sv, "%*@"sv,    "%\0@"sv, "\xFF%\xFF"sv, "%99999999s"sv, "%C"sv}) {
        EXPECT_EQ(formatText(format, "A4"), format);
    }
}

TEST(TextFormat, LongFormatsAreNoDifferent) {
    std::string format;
    std::string expected;
    for (int i = 0; i < 100'000; ++i) {
        format += "%@ %! %%";
        expected += "A4 %! %";
    }
    EXPECT_TRUE(formatText(format, "A4") == expected); // not EXPECT_EQ, which would print it all
}

} // namespace
} // namespace veltrin
