#include "status/MediaNames.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <vector>

namespace veltrin {
namespace {

using Names = std::map<std::uint32_t, LocalizedText>;

/// Every code that fits a byte, and some that do not.
std::vector<std::uint32_t> allCodes() {
    std::vector<std::uint32_t> codes;
    codes.reserve(300);
    for (std::uint32_t code = 0; code < 256; ++code) {
        codes.push_back(code);
    }
    // The last ones would be known codes if they lost their upper bits or their sign.
    codes.insert(codes.end(), {256, 257, 256 + 9, 65536 + 1, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF});
    return codes;
}

void expectNames(LocalizedText (*nameOf)(std::uint32_t), const Names &names, LocalizedText unknown) {
    for (const std::uint32_t code : allCodes()) {
        const auto known = names.find(code);
        const LocalizedText expected = known != names.end() ? known->second : unknown;
        EXPECT_EQ(nameOf(code).key, expected.key) << "code " << code;
        EXPECT_EQ(nameOf(code).english, expected.english) << "code " << code;
    }
}

TEST(MediaNames, PaperSizes) {
    expectNames(paperSizeName,
                {
                    {1, {"gdiPaperSizeLetter", "Letter"}},
                    {5, {"gdiPaperSizeLegal", "Legal"}},
                    {6, {"gdiPaperSizeHalfLetter", "Half Letter"}},
                    {7, {"gdiPaperSizeExecutive", "Executive"}},
                    {8, {"gdiPaperSizeA3", "A3"}},
                    {9, {"gdiPaperSizeA4", "A4"}},
                    {11, {"gdiPaperSizeA5", "A5"}},
                    {12, {"gdiPaperSizeB4", "B4"}},
                    {13, {"gdiPaperSizeB5", "B5"}},
                    {14, {"gdiPaperSizeFoolscap", "8.5 X 13"}},
                    {15, {"gdiPaperSizeFolio", "Folio"}},
                    {16, {"gdiPaperSizeF", "8 X 13"}},
                    {17, {"gdiPaperSizeLedger", "Ledger"}},
                    {18, {"gdiPaperSizeGovernmentLG", "Government LG"}},
                    {20, {"gdiPaperSizeEnv10", "Envelope 10"}},
                    {27, {"gdiPaperSizeEnvDL", "Envelope DL"}},
                    {28, {"gdiPaperSizeEnvC5", "Envelope C5"}},
                    {31, {"gdiPaperSizeEnvC6", "Envelope C6"}},
                    {37, {"gdiPaperSizeMonarch", "Monarch"}},
                    {43, {"gdiPaperSizePostcard", "Postcard"}},
                    {69, {"gdiPaperSizeReplyPaidCard", "Reply-paid Postcard"}},
                    {70, {"gdiPaperSizeA6", "A6"}},
                    {88, {"gdiPaperSizeB6", "B6"}},
                    {92, {"gdiPaperSizeKai8", "Kai 8"}},
                    {93, {"gdiPaperSizeKai16", "16K"}},
                    {254, {"gdiPaperSizeAnySize", "Any Size"}},
                    {255, {"gdiPaperSizeCustom", "Custom"}},
                },
                {"UnknownSize", "Unknown paper size - do not translate"});
}

TEST(MediaNames, PaperTypes) {
    expectNames(paperTypeName,
                {
                    {0, {"gdiPaperTypePlainRecycled", "Plain Recycled"}},
                    {1, {"gdiPaperTypePlain", "Plain"}},
                    {2, {"gdiPaperTypeRecycled", "Recycled"}},
                    {3, {"gdiPaperTypeColor", "Color"}},
                    {4, {"gdiPaperTypeLetterhead", "Letterhead"}},
                    {5, {"gdiPaperTypePreprinted", "Preprinted"}},
                    {6, {"gdiPaperTypePrepunched", "Prepunched"}},
                    {7, {"gdiPaperTypeLabels", "Labels"}},
                    {8, {"gdiPaperTypeBond", "Bond"}},
                    {9, {"gdiPaperTypeCardstock", "Cardstock"}},
                    {10, {"gdiPaperTypeTab", "Tab Stock"}},
                    {11, {"gdiPaperTypeOHP", "OHP"}},
                    {12, {"gdiPaperTypeThick", "Thick (105-160g/m2)"}},
                    {13, {"gdiPaperTypeThick160", "Thick (160-200g/m2)"}},
                    {14, {"gdiPaperTypeEnvelope", "Envelope"}},
                    {15, {"gdiPaperTypeThin", "Thin (60-75g/m2)"}},
                    {16, {"gdiPaperTypePlain90", "Plain (90-105g/m2)"}},
                    {254, {"gdiPaperTypeAnyType", "Any Type"}},
                },
                {"gdiPaperTypeUnknown", "Unknown paper type - do not translate"});
}

TEST(MediaNames, TraysOfWhichTheThirdIsTheMultiPurposeTray) {
    expectNames(paperTrayName,
                {
                    {1, {"Tray1", "Tray 1"}},
                    {2, {"Tray2", "Tray 2"}},
                    {3, {"Tray3", "MP Tray"}},
                    {4, {"Tray4", "Tray 4"}},
                    {5, {"BypassTray", "Bypass Tray"}},
                },
                {"UnknownTray", "Unknown paper tray - do not translate"});
}

TEST(MediaNames, ModelsOfWhichOneIsDescribedByItsCodeName) {
    expectNames(modelName,
                {
                    {0, {"ModelQM7-K2a", "QM7-K2a"}},
                    {1, {"ModelQM7-K2b", "QM7-K2b"}},
                    {2, {"ModelTM7-K2a", "TM7-K2a"}},
                },
                {"ModelUnknown", "Unknown model - do not translate"});
    expectNames(modelDescription,
                {
                    {0, {"ModelQM7-K2aDesc", "Morvex LX 410N"}},
                    {1, {"ModelQM7-K2bDesc", "QM7-K2b"}},
                    {2, {"ModelTM7-K2aDesc", "Morvex LX 520N"}},
                },
                {"ModelUnknownDesc", "Unknown description - do not translate"});
}

TEST(MediaNames, MediaTypesFallBackToPlain) {
    const std::map<std::int32_t, std::string_view> names = {
        {2, "Recycled"},  {3, "Color"}, {4, "Letterhead"}, {5, "Preprinted"}, {6, "Prepunched"},
        {7, "Labels"},    {8, "Bond"},  {9, "Cardstock"},  {12, "Thick"},     {13, "Thick160"},
        {14, "Envelope"}, {15, "Thin"}, {16, "Plain90"},
    };
    const auto expectName = [&names](std::int32_t code) {
        const auto known = names.find(code);
        EXPECT_EQ(mediaTypeName(code), known != names.end() ? known->second : "Plain") << "code " << code;
    };
    for (std::int32_t code = -256; code <= 256 + 16; ++code) {
        expectName(code);
    }
    expectName(65536 + 2);
    expectName(std::numeric_limits<std::int32_t>::min());
    expectName(std::numeric_limits<std::int32_t>::max());
}

TEST(MediaNames, SizesOfThePPDHaveTheirCodes) {
    const std::map<std::string_view, std::string_view> textOfName = {{"Letter", "Letter"},
                                                                     {"Legal", "Legal"},
                                                                     {"HalfLetter", "Half Letter"},
                                                                     {"Executive", "Executive"},
                                                                     {"A3", "A3"},
                                                                     {"A4", "A4"},
                                                                     {"A5", "A5"},
                                                                     {"A6", "A6"},
                                                                     {"B4", "B4"},
                                                                     {"B5", "B5"},
                                                                     {"B6", "B6"},
                                                                     {"FS", "8 X 13"},
                                                                     {"Foolscap", "8.5 X 13"},
                                                                     {"Folio", "Folio"},
                                                                     {"Kai8", "Kai 8"},
                                                                     {"Kai16", "16K"},
                                                                     {"Env10", "Envelope 10"},
                                                                     {"Monarch", "Monarch"},
                                                                     {"EnvDL", "Envelope DL"},
                                                                     {"EnvC5", "Envelope C5"},
                                                                     {"EnvC6", "Envelope C6"},
                                                                     {"Postcard", "Postcard"},
                                                                     {"Ledger", "Ledger"},
                                                                     {"ReplyPaid", "Reply-paid Postcard"},
                                                                     {"Custom.100x200", "Custom"}};
    for (const auto &[name, text] : textOfName) {
        const auto code = paperSizeCode(name);
        ASSERT_TRUE(code) << name;
        EXPECT_EQ(paperSizeName(*code).english, text);
    }
    for (const std::string_view name : {"", "a4", "A4Small", "iso_a4_210x297mm", "A4,Tray1", "custom"}) {
        EXPECT_EQ(paperSizeCode(name), std::nullopt) << name;
    }
}

TEST(MediaNames, SizesOfAdobesListAreKnownByTheFiltersNames) {
    const std::map<std::string_view, std::string_view> ownNames = {{"Statement", "HalfLetter"},
                                                                   {"8x13", "FS"},
                                                                   {"FanFoldGermanLegal", "Foolscap"},
                                                                   {"195x270mm", "Kai16"},
                                                                   {"EnvMonarch", "Monarch"},
                                                                   {"DoublePostcardRotated", "ReplyPaid"},
                                                                   {"Tabloid", "Ledger"},
                                                                   {"HalfLetter", "HalfLetter"},
                                                                   {"A4", "A4"},
                                                                   {"Custom.100x200", "Custom.100x200"},
                                                                   {"A4Small", "A4Small"},
                                                                   {"", ""}};
    for (const auto &[name, own] : ownNames) {
        EXPECT_EQ(ownSizeName(name), own);
        EXPECT_EQ(paperSizeCode(name), paperSizeCode(own)) << name;
    }
}

TEST(MediaNames, TypesOfThePPDHaveTheirCodes) {
    for (const std::string_view name :
         {"Plain", "Recycled", "Color", "Letterhead", "Preprinted", "Prepunched", "Labels", "Bond",
          "Cardstock", "Thick", "Thick160", "Envelope", "Thin", "Plain90"}) {
        const auto code = mediaTypeCode(name);
        ASSERT_TRUE(code) << name;
        EXPECT_EQ(mediaTypeName(*code), name);
        EXPECT_EQ(paperTypeName(*code).english.substr(0, 4), name.substr(0, 4));
    }
    for (const std::string_view name : {"", "plain", "OHP", "stationery"}) {
        EXPECT_EQ(mediaTypeCode(name), std::nullopt) << name;
    }
}

} // namespace
} // namespace veltrin
