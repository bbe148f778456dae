#include "raster/JobOptions.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::raster {
namespace {

using Options = std::vector<std::pair<std::string, std::string>>;

TEST(JobOptions, AreReadAsCUPSReadsThem) {
    EXPECT_EQ(JobOptions("").all(), Options());
    EXPECT_EQ(JobOptions("sides=two-sided-long-edge nocollate fit-to-page").all(),
              (Options{{"collate", "false"}, {"fit-to-page", "true"}, {"sides", "two-sided-long-edge"}}));
    EXPECT_EQ(JobOptions("PageSize=A4 pagesize=A5").find("PAGESIZE"), "A5");
    EXPECT_EQ(JobOptions("a='one two' b=one\\ two c=\"it's\"").all(),
              (Options{{"a", "one two"}, {"b", "one two"}, {"c", "it's"}}));
    EXPECT_EQ(JobOptions("a=b").find("b"), std::nullopt);
}

TEST(JobOptions, AreReplacedInWhateverCaseTheyWereWritten) {
    JobOptions options("Media=A5 other=1");
    options.set("media", "A4");
    EXPECT_EQ(options.all(), (Options{{"other", "1"}, {"media", "A4"}}));
    EXPECT_EQ(options.text(), "other=1 media=A4");
    options.set("new", "x");
    options.remove("OTHER");
    options.remove("absent");
    EXPECT_EQ(options.text(), "media=A4 new=x");
}

TEST(JobOptions, KeepTheirQuoting) {
    const std::vector<std::string> values = {"",
                                             "plain",
                                             "two words",
                                             "it's",
                                             "say \"so\"",
                                             "back\\slash",
                                             "a,b,c",
                                             "{x=1 y=2}",
                                             "(1)",
                                             "'",
                                             "\"",
                                             "\\",
                                             "tab\tnew\nline",
                                             "@letters 3)",
                                             "Brief f\xC3\xBCr M\xC3\xBCller",
                                             "%"};
    for (const std::string &value : values) {
        JobOptions options("first=1");
        options.set("title", value);
        options.set("last", "2");
        EXPECT_EQ(JobOptions(options.text()).find("title"), value) << options.text();
        EXPECT_EQ(JobOptions(options.text()).find("last"), "2") << options.text();
    }
}

TEST(JobOptions, WhatIsWrittenIsReadAgain) {
    std::mt19937 random(1);
    constexpr std::string_view characters = "ab=,'\"\\{}() \t\nno1.-\xC3\xBC";
    for (int round = 0; round < 50000; ++round) {
        std::string text;
        for (std::size_t size = random() % 30; size > 0; --size) {
            text += characters[random() % characters.size()];
        }
        const JobOptions options(text);
        const JobOptions again(options.text());
        ASSERT_EQ(again.all(), options.all()) << '[' << text << "] [" << options.text() << ']';
    }
}

} // namespace
} // namespace veltrin::raster
