#include "tools/dump/Meanings.h"

#include "status/MediaNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

namespace veltrin {
namespace {

TEST(Meanings, OfEveryCombinationOfPageTypeBits) {
    const std::pair<std::uint8_t, const char *> meanings[] = {
        {0x00, "plain"},
        {0x04, "second side of a sheet"},
        {0x0C, "first side of a sheet"},
        {0x10, "pause before this page"},
        {0x14, "second side of a sheet, pause before this page"},
        {0x1C, "first side of a sheet, pause before this page"},
        {0x08, "unknown bits 0x08"},
        {0x18, "pause before this page, unknown bits 0x08"},
        {0x01, "unknown bits 0x01"},
        {0xE3, "unknown bits 0xe3"},
        {0xFF, "first side of a sheet, pause before this page, unknown bits 0xe3"},
    };
    for (const auto &[bits, meaning] : meanings) {
        EXPECT_EQ(listed(meaningsOfPageType(bits)), meaning);
    }
}

TEST(Meanings, OfTheJobSettingsDuplexBits) {
    const std::pair<std::uint16_t, const char *> meanings[] = {
        {0x0000, "no duplex"},
        {0x0200, "duplex"},
        {0x0400, "manual duplex"},
        {0x0600, "duplex, manual duplex"},
        {0x0001, "no duplex, other bits 0x0001"},
        {0xFFFF, "duplex, manual duplex, other bits 0xf9ff"},
    };
    for (const auto &[bits, meaning] : meanings) {
        EXPECT_EQ(listed(meaningsOfJobSetting(bits)), meaning);
    }
}

TEST(Meanings, OfPaperAndMediaAsTheStatusRecordNamesThem) {
    EXPECT_EQ(nameOfPaperSize(9), "A4");
    EXPECT_EQ(nameOfPaperSize(69), "Reply-paid Postcard");
    EXPECT_EQ(nameOfMediaType(0), "Plain Recycled");
    EXPECT_EQ(nameOfMediaType(14), "Envelope");
    for (unsigned number = 0; number < 256; ++number) {
        const auto code = static_cast<std::uint8_t>(number);
        const auto known = [](std::string_view text) {
            return text.starts_with("Unknown") ? std::string_view() : text;
        };
        EXPECT_EQ(nameOfPaperSize(code), known(paperSizeName(code).english)) << number;
        EXPECT_EQ(nameOfMediaType(code), known(paperTypeName(code).english)) << number;
    }
}

TEST(Meanings, OfAPagesTray) {
    EXPECT_EQ(nameOfPageTray(1), "Bypass Tray");
    EXPECT_EQ(nameOfPageTray(2), "Tray 1");
    EXPECT_EQ(nameOfPageTray(3), "Tray 2");
    for (const std::uint8_t code : std::array<std::uint8_t, 4>{0, 4, 5, 255}) {
        EXPECT_EQ(nameOfPageTray(code), "") << unsigned{code};
    }
}

TEST(Meanings, OfACodeStandBesideIt) {
    EXPECT_EQ(withName(9, "A4"), "9 (A4)");
    EXPECT_EQ(withName(200, ""), "200 (unknown)");
}

TEST(Meanings, OfAFieldsString) {
    EXPECT_EQ(stringIn(std::array<char, 4>{'a', 'b', '\0', 'c'}), "ab");
    EXPECT_EQ(stringIn(std::array<char, 4>{'a', 'b', 'c', 'd'}), "abcd");
    EXPECT_EQ(stringIn(std::array<char, 4>{'\0', 'b', 'c', 'd'}), "");
}

TEST(Escaped, ShowsPrintableAsciiAsItIsAndEscapesAllElse) {
    EXPECT_EQ(escaped("report 1.pdf ~"), "\"report 1.pdf ~\"");
    EXPECT_EQ(escaped("a\"b\\c"), "\"a\\\"b\\\\c\"");
    EXPECT_EQ(escaped(std::string("\x1b[2J\n\0\x7f\xc3\xbc", 9)), "\"\\x1b[2J\\x0a\\x00\\x7f\\xc3\\xbc\"");
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_THAT(escaped(std::string(1, static_cast<char>(byte))),
                    testing::Each(testing::AllOf(testing::Ge(' '), testing::Le('~'))));
    }
}

} // namespace
} // namespace veltrin
