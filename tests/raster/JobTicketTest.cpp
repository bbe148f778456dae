#include "raster/JobTicket.h"

#include "tests/raster/A4Page.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using test::a4Page;

JobTicket ticketOf(const std::string &options, const PPDChoices &choices = {},
                   const RasterPage &page = a4Page(), const std::string &copies = "1") {
    return ticketFor(copies, JobOptions(options), choices, page);
}

TEST(JobTicket, CopiesAreThoseOfTheArgument) {
    EXPECT_EQ(ticketOf("", {}, a4Page(), "1").layout.copies, 1U);
    EXPECT_EQ(
        ticketOf("copies=3 com.apple.print.PrintSettings.PMCopies..n.=2", {}, a4Page(), "5").layout.copies,
        5U);
    for (const char *odd : {"", "0", "-2", "many"}) {
        EXPECT_EQ(ticketOf("copies=3", {}, a4Page(), odd).layout.copies, 1U) << odd;
    }
    EXPECT_EQ(ticketOf("", {}, a4Page(), "99999999999").layout.copies, 0x7FFFFFFFU);
}

struct RepeatedCase {
    std::uint32_t copiesInHeader;
    PPDChoices choices;
    const char *options;
    std::uint32_t copies;
};

TEST(JobTicket, CopiesThatHaveBeenMadeAreNotMadeAgain) {
    const PPDChoices marked = {.collate = "True"};
    const PPDChoices unmarked = {.collate = "False"};
    const PPDChoices manual = {.manualCopies = true};
    const std::vector<RepeatedCase> cases = {
        // Left to us, by a header that says so or by one that never says anything else.
        {2, {}, "", 2},
        {1, {}, "", 2},
        {1, unmarked, "", 2},
        {1, marked, "Collate=True", 2},
        {1, marked, "multiple-document-handling=single-document", 2},
        {2, {}, "Collate=True", 2},
        {2, manual, "", 2},
        {1, {}, "Collate=False", 2},
        {1, {}, "multiple-document-handling=separate-documents-uncollated-copies", 2},
        // Made by the filters in front.
        {1, {}, "Collate=True", 1},
        {1, {}, "collate=on", 1},
        {1, unmarked, "collate=yes", 1},
        {1, unmarked, "Collate=on", 1},
        {1, unmarked, "Collate=False multiple-document-handling=separate-documents-collated-copies", 1},
        {1, manual, "", 1},
        {1, manual, "Collate=True", 1},
        {0, manual, "", 1},
    };
    for (const RepeatedCase &each : cases) {
        RasterPage page = a4Page();
        page.copies = each.copiesInHeader;
        EXPECT_EQ(ticketOf(each.options, each.choices, page, "2").layout.copies, each.copies)
            << each.copiesInHeader << ", " << each.choices.collate.value_or("no choice") << ", "
            << each.options;
    }
}

struct CollateCase {
    std::optional<std::string> choice;
    const char *options;
    bool collate;
};

TEST(JobTicket, Collation) {
    const std::vector<CollateCase> cases = {
        {std::nullopt, "", false},
        {std::nullopt, "collate=true", true},
        {std::nullopt, "collate", true},
        {std::nullopt, "Collate=True", true},
        {std::nullopt, "nocollate", false},
        {std::nullopt, "multiple-document-handling=separate-documents-collated-copies", true},
        {std::nullopt, "multiple-document-handling=single-document", true},
        {std::nullopt, "multiple-document-handling=separate-documents-uncollated-copies", false},
        {std::nullopt, "Collate=False multiple-document-handling=separate-documents-collated-copies", false},
        {std::nullopt, "com.apple.print.PrintSettings.PMCopyCollate..b.=true", false},
        // What is marked in the PPD has the job's options and the queue's default in it.
        {"True", "", true},
        {"False", "", false},
        {"True", "collate=false", true},
        {"False", "multiple-document-handling=separate-documents-collated-copies", false},
    };
    for (const CollateCase &each : cases) {
        EXPECT_EQ(ticketOf(each.options, {.collate = each.choice}).layout.collate, each.collate)
            << each.choice.value_or("no choice") << ", " << each.options;
    }
}

TEST(JobTicket, SidesAreTheHeaders) {
    EXPECT_EQ(ticketOf("sides=two-sided-long-edge Duplex=DuplexNoTumble").sides, Sides::oneSided);
    EXPECT_EQ(ticketOf("sides=one-sided", {}, a4Page(true)).sides, Sides::longEdge);
    EXPECT_EQ(ticketOf("", {}, a4Page(true, true)).sides, Sides::shortEdge);
    EXPECT_EQ(ticketOf("", {}, a4Page(false, true)).sides, Sides::oneSided);
    EXPECT_TRUE(ticketOf("", {}, a4Page(true)).layout.twoSided);
    EXPECT_FALSE(ticketOf("").layout.twoSided);
}

struct TypeCase {
    const char *options;
    std::optional<std::string> choice;
    const char *header;
    std::optional<std::string> type;
};

TEST(JobTicket, TypeOfThePaper) {
    const std::vector<TypeCase> cases = {
        {"", std::nullopt, "", std::nullopt},
        {"", "Plain", "", "Plain"},
        {"", std::nullopt, "Thin", "Thin"},
        {"", "Labels", "Thin", "Labels"},
        {"PaperType=Bond", "Labels", "Thin", "Bond"},
        {"PaperType=thick", "Plain", "", "Thick"},
        {"PaperType=mine", "Mine", "", "Mine"},
        {"PaperType=papyrus", "Plain", "", "papyrus"},
        {"media-type=labels", "Plain", "", "Labels"},
        {"media-type=LABELS", "Plain", "", "Labels"},
        {"media-type=stationery-letterhead", "Plain", "", "Letterhead"},
        {"media-type=stationery", "Labels", "", "Plain"},
        {"media-type=Thick160", "Plain", "", "Thick160"},
        {"media-type=papyrus", "Plain", "", "Plain"},
        {"media-type=labels PaperType=Thin", "Plain", "", "Thin"},
        {"media=A4,Labels", "Plain", "", "Labels"},
        {"media=A4,Tray1,envelope", "Plain", "", "Envelope"},
        {"media=A4", "Plain", "", "Plain"},
    };
    for (const TypeCase &each : cases) {
        RasterPage page = a4Page();
        page.mediaType = each.header;
        EXPECT_EQ(ticketOf(each.options, {.paperType = each.choice}, page).paperType, each.type)
            << each.options;
    }
}

TEST(JobTicket, Tray) {
    EXPECT_EQ(ticketOf("").inputSlot, "");
    EXPECT_EQ(ticketOf("", {.inputSlot = "Tray2"}).inputSlot, "Tray2");
    EXPECT_EQ(ticketOf("InputSlot=Bypass", {.inputSlot = "Tray2"}).inputSlot, "Bypass");
    EXPECT_EQ(ticketOf("InputSlot=tray2", {.inputSlot = "Tray1"}).inputSlot, "Tray2");
    EXPECT_EQ(ticketOf("InputSlot=drawer", {.inputSlot = "Drawer"}).inputSlot, "Drawer");
    EXPECT_EQ(ticketOf("media-source=tray-2", {.inputSlot = "Auto"}).inputSlot, "Tray2");
    EXPECT_EQ(ticketOf("media-source=auto", {.inputSlot = "Auto"}).inputSlot, "Auto");
    EXPECT_EQ(ticketOf("media=A5,tray2", {.inputSlot = "Auto"}).inputSlot, "Tray2");
    EXPECT_EQ(ticketOf("media=A5,by-pass-tray", {.inputSlot = "Auto"}).inputSlot, "Bypass");
}

TEST(JobTicket, SizeOfThePaper) {
    EXPECT_EQ(ticketOf("media=iso_a5_148x210mm").media, "A4");
    RasterPage nameless = a4Page();
    nameless.pageSizeName.clear();
    EXPECT_EQ(ticketOf("media=A5", {}, nameless).media, "A5");
    EXPECT_EQ(ticketOf("", {}, nameless).media, std::nullopt);
    EXPECT_EQ(ticketOf("media=EnvMonarch", {}, nameless).media, "Monarch");
    RasterPage halfLetter = a4Page();
    halfLetter.pageSizeName = "Statement";
    EXPECT_EQ(ticketOf("", {}, halfLetter).media, "HalfLetter") << "as the filter calls it";
}

TEST(JobTicket, PaperThatRefusesTheBackIsLaidOutOneSided) {
    RasterPage page = a4Page(true);
    EXPECT_FALSE(ticketOf("PaperType=Labels", {}, page).layout.twoSided);
    EXPECT_FALSE(ticketOf("PaperType=thick", {.paperType = "Plain"}, page).layout.twoSided);
    EXPECT_FALSE(ticketOf("", {.paperType = "Envelope"}, page).layout.twoSided);
    EXPECT_FALSE(ticketOf("media-type=cardstock", {}, page).layout.twoSided);
    EXPECT_EQ(ticketOf("PaperType=Labels", {}, page).sides, Sides::longEdge) << "as asked for";
    for (const char *size : {"A5", "Env10", "8x13", "EnvMonarch", "Custom.283.00x566.00"}) {
        page.pageSizeName = size;
        EXPECT_FALSE(ticketOf("media=A4", {}, page).layout.twoSided) << size;
    }
}

} // namespace
} // namespace veltrin::raster
