#include "filter/DuplexPaperRule.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

namespace veltrin {
namespace {

const std::vector<std::string> refusedSizes = {"A5",       "B6",    "A6",    "HalfLetter", "FS",
                                               "Foolscap", "Folio", "Env10", "Monarch",    "EnvC5",
                                               "EnvC6",    "EnvDL", "Kai16", "Postcard",   "ReplyPaid"};
const std::vector<std::string> refusedTypes = {"Plain90",   "Thick",  "Thick160", "Bond",
                                               "Cardstock", "Labels", "Envelope"};

std::string lowered(std::string text) {
    for (char &character : text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return text;
}

TEST(DuplexPaperRule, AllowsAJobThatNamesNoPaper) {
    EXPECT_TRUE(canDuplexPaper(std::nullopt, std::nullopt));
    EXPECT_TRUE(canDuplexPaper("", ""));
}

TEST(DuplexPaperRule, RefusesSmallAndOddSizesByTheirExactName) {
    for (const std::string &size : refusedSizes) {
        EXPECT_FALSE(canDuplexPaper(size, std::nullopt)) << size;
        EXPECT_FALSE(canDuplexPaper(size, "Plain")) << size;
        EXPECT_TRUE(canDuplexPaper(lowered(size), std::nullopt)) << size;
        EXPECT_TRUE(canDuplexPaper(size + " ", std::nullopt)) << size;
        EXPECT_TRUE(canDuplexPaper(size + ",Tray1", std::nullopt)) << size;
        EXPECT_TRUE(canDuplexPaper("x" + size, std::nullopt)) << size;
        EXPECT_TRUE(canDuplexPaper("Letter", size)) << "a size is no type: " << size;
    }
}

TEST(DuplexPaperRule, RefusesEveryCustomSize) {
    for (const char *size : {"Custom", "Custom.210x297mm", "Custom.100x150mm", "CustomA4"}) {
        EXPECT_FALSE(canDuplexPaper(size, std::nullopt)) << size;
    }
    for (const char *size : {"custom.210x297mm", "A4Custom", "Custo"}) {
        EXPECT_TRUE(canDuplexPaper(size, std::nullopt)) << size;
    }
}

TEST(DuplexPaperRule, RefusesHeavyAndSpecialTypesByTheirExactName) {
    for (const std::string &type : refusedTypes) {
        EXPECT_FALSE(canDuplexPaper(std::nullopt, type)) << type;
        EXPECT_FALSE(canDuplexPaper("Letter", type)) << type;
        EXPECT_TRUE(canDuplexPaper(std::nullopt, lowered(type))) << type;
        EXPECT_TRUE(canDuplexPaper(std::nullopt, type + "s")) << type;
        EXPECT_TRUE(canDuplexPaper(type, std::nullopt)) << "a type is no size: " << type;
    }
}

TEST(DuplexPaperRule, AllowsOrdinaryPaper) {
    for (const char *size : {"A4", "Letter", "Legal", "B5", "Executive", "A3"}) {
        for (const char *type : {"Plain", "Recycled", "Thin", "Letterhead", "Color"}) {
            EXPECT_TRUE(canDuplexPaper(size, type)) << size << ' ' << type;
        }
    }
}

} // namespace
} // namespace veltrin
