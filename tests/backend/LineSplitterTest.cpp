#include "backend/LineSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LineSplitterTest : public testing::Test {
  protected:
    void take(const std::string &text) { splitter.take(std::as_bytes(std::span(text))); }

    std::vector<std::string> lines;
    LineSplitter splitter{[this](const std::string &line) { lines.push_back(line); }};
};

TEST_F(LineSplitterTest, JoinsWhatBelongsTogetherAndPartsWhatDoesNot) {
    take("STATE: +a\nINFO: b");
    EXPECT_THAT(lines, ElementsAre("STATE: +a"));
    take("ut\n\nATTR");
    EXPECT_THAT(lines, ElementsAre("STATE: +a", "INFO: but", ""));
    splitter.finish();
    EXPECT_EQ(lines.back(), "ATTR");
    lines.clear();
    splitter.finish();
    EXPECT_THAT(lines, IsEmpty());
}

TEST_F(LineSplitterTest, KeepsNoEndlessLine) {
    take(std::string(LineSplitter::longestLine + 3, 'x') + "\n");
    EXPECT_THAT(lines, ElementsAre(std::string(LineSplitter::longestLine, 'x'), "xxx"));
}

} // namespace
} // namespace veltrin::backend
