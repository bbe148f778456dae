#include "printer/HtmlText.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace veltrin::printer {
namespace {

TEST(HtmlText, IsTextWhateverItHolds) {
    for (const auto &[text, shown] : {
             std::pair<std::string, std::string>("", ""),
             {"A letter, page 1 (of 2)", "A letter, page 1 (of 2)"},
             {"<b>&\"'", "&#60;b&#62;&#38;&#34;&#39;"},
             {"&#60;", "&#38;#60;"},
             {"Gr\xC3\xBC\xC3\x9F"
              "e \xE2\x82\xAC",
              "Gr\xC3\xBC\xC3\x9F"
              "e \xE2\x82\xAC"},
             {"\x01\t\n\x7F", "...."},
             {std::string("a\0b", 3), "a.b"},
             {"back\\slash\"", "back\\slash&#34;"},
             {"\xFFx", "\xEF\xBF\xBDx"},
             {"cut off \xC3", "cut off \xEF\xBF\xBD"},
             {"\xC0\xBC", "\xEF\xBF\xBD\xEF\xBF\xBD"}, // no other way to write <
         }) {
        EXPECT_EQ(htmlText(text), shown);
    }
}

} // namespace
} // namespace veltrin::printer
