// What can be chosen in the PPDs, against what the renderer, the status record and the virtual printer know.

#include "printer/PrinterModel.h"
#include "raster/HeaderFields.h"
#include "raster/JobTicket.h"
#include "raster/QueuePPD.h"
#include "status/MediaNames.h"
#include "tests/packaging/MadePPD.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::MadePPD;
using test::openPPDs;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text;
}

/// The ticket of a job with these options, for the page that is marked in the PPD.
raster::JobTicket ticketFor(const MadePPD &ppd, const std::string &options) {
    std::string problem;
    const raster::PPDChoices choices = raster::choicesInPPD(ppd.path(), options, problem);
    EXPECT_EQ(problem, "");
    return raster::ticketFor("2", raster::JobOptions(options), choices, ppd.page());
}

std::vector<std::string> pageSizesOf(const MadePPD &ppd) {
    std::vector<std::string> sizes = ppd.choices("PageSize");
    std::erase(sizes, "Custom");
    return sizes;
}

/// The code of the size that is marked, as it comes into the page header.
std::uint8_t codeOfMarkedSize(const MadePPD &ppd, const std::string &name) {
    const auto placement = raster::placeOnPage(ppd.page().box);
    EXPECT_TRUE(placement) << name;
    return placement ? raster::pageSizeCode(name, placement->widthMillimetres, placement->heightMillimetres)
                     : std::uint8_t{0};
}

constexpr std::uint8_t customCode = 255;

TEST(PPDOptions, EveryPageSizeHasTheCodeOfItsNameAndOfItsMeasures) {
    for (const MadePPD &ppd : openPPDs()) {
        for (const std::string &size : pageSizesOf(ppd)) {
            ppd.mark("PageSize", size);
            EXPECT_EQ(ppd.page().pageSizeName, size);
            const std::uint8_t code = codeOfMarkedSize(ppd, size);
            EXPECT_NE(code, customCode) << size;
            EXPECT_EQ(codeOfMarkedSize(ppd, "a name that nobody knows"), code) << size;
            EXPECT_THAT(lowered(ppd.text("PageSize", size)),
                        HasSubstr(lowered(std::string(paperSizeName(code).english))));
        }
    }
}

TEST(PPDOptions, EveryPageSizeThatFitsThePrinterIsThere) {
    std::set<std::uint32_t> codes;
    for (std::uint32_t code = 0; code < 256; ++code) {
        if (paperSizeName(code).key != "UnknownSize") {
            codes.insert(code);
        }
    }
    // A3, B4, Ledger, Government LG and Kai 8, and what is no size.
    for (const std::uint32_t missing : {8U, 12U, 17U, 18U, 92U, 254U, 255U}) {
        EXPECT_EQ(codes.erase(missing), 1U) << missing;
    }
    for (const MadePPD &ppd : openPPDs()) {
        std::vector<std::uint32_t> offered;
        for (const std::string &size : pageSizesOf(ppd)) {
            offered.push_back(paperSizeCode(size).value_or(0));
        }
        EXPECT_THAT(offered, UnorderedElementsAreArray(codes)) << ppd.path();
    }
}

TEST(PPDOptions, ASixthOfAnInchStaysWhiteAroundEveryPage) {
    for (const MadePPD &ppd : openPPDs()) {
        for (const std::string &size : pageSizesOf(ppd)) {
            const ppd_size_t &found = ppd.size(size);
            EXPECT_FLOAT_EQ(found.left, 12) << size;
            EXPECT_FLOAT_EQ(found.bottom, 12) << size;
            EXPECT_FLOAT_EQ(found.width - found.right, 12) << size;
            EXPECT_FLOAT_EQ(found.length - found.top, 12) << size;
        }
    }
}

TEST(PPDOptions, CustomSizesReachFromTheSmallestPaperToTheLargest) {
    for (const MadePPD &ppd : openPPDs()) {
        ASSERT_EQ(ppd->variable_sizes, 1) << ppd.path();
        float narrowest = ppd->custom_max[0];
        float shortest = ppd->custom_max[1];
        for (const std::string &size : pageSizesOf(ppd)) {
            const ppd_size_t &found = ppd.size(size);
            narrowest = std::min(narrowest, found.width);
            shortest = std::min(shortest, found.length);
            EXPECT_LE(found.width, ppd->custom_max[0]) << size;
            EXPECT_LE(found.length, ppd->custom_max[1]) << size;
        }
        EXPECT_FLOAT_EQ(ppd->custom_min[0], narrowest) << ppd.path();
        EXPECT_FLOAT_EQ(ppd->custom_min[1], shortest) << ppd.path();
        ppd.mark("PageSize", "Custom.300x500");
        const raster::RasterPage page = ppd.page();
        EXPECT_EQ(page.box.pageWidth, 300);
        EXPECT_EQ(page.box.pageHeight, 500);
    }
}

TEST(PPDOptions, PaperTypesAreThoseOfTheStatusRecord) {
    std::set<std::string> types;
    for (std::int32_t code = 0; code < 256; ++code) {
        types.emplace(mediaTypeName(code));
    }
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_THAT(ppd.choices("PaperType"), UnorderedElementsAreArray(types)) << ppd.path();
        for (const std::string &type : ppd.choices("PaperType")) {
            const auto code = mediaTypeCode(type);
            ASSERT_TRUE(code) << type;
            EXPECT_EQ(ppd.text("PaperType", type), paperTypeName(*code).english);
            ppd.mark("PaperType", type);
            EXPECT_EQ(ppd.page().mediaType, type);
            EXPECT_EQ(ticketFor(ppd, "PaperType=" + type).paperType, type);
            EXPECT_EQ(ticketFor(ppd, "media-type=" + lowered(type)).paperType, type);
        }
    }
}

/// The tray that the status record speaks of with the number of a page header's.
std::uint32_t trayInStatus(printer::Tray tray) {
    switch (tray) {
    case printer::Tray::tray1:
        return 1;
    case printer::Tray::tray2:
        return 2;
    case printer::Tray::bypass:
        return 5;
    }
    return 0;
}

TEST(PPDOptions, TraysAreThoseOfThePrinter) {
    std::map<std::string, printer::Tray> trays;
    for (const MadePPD &ppd : openPPDs()) {
        std::set<std::uint8_t> numbers;
        for (const std::string &tray : ppd.choices("InputSlot")) {
            const std::uint8_t number = raster::pageTray(tray);
            EXPECT_TRUE(numbers.insert(number).second) << "not a tray of its own: " << tray;
            PageHeader header{};
            header.bPaperTray = number;
            trays[tray] = printer::trayOfPage(header);
            EXPECT_EQ(ppd.text("InputSlot", tray), paperTrayName(trayInStatus(trays[tray])).english);
            EXPECT_EQ(ticketFor(ppd, "InputSlot=" + tray).inputSlot, tray);
            EXPECT_EQ(ticketFor(ppd, "media-source=" + lowered(tray)).inputSlot, tray);
        }
    }
    EXPECT_EQ(trays.size(), printer::trayCount);
}

/// The keywords that IPP has for trays and for paper, by which a client may ask for one; "bypass" is what
/// CUPS makes of our name.
const std::vector<std::string> standardSources = {
    "auto",           "bypass", "bottom", "by-pass-tray", "center", "disc",   "envelope", "hagaki",
    "large-capacity", "left",   "main",   "main-roll",    "manual", "middle", "photo",    "rear",
    "right",          "roll-1", "side",   "top",          "tray-1", "tray-2", "tray-3",   "tray-4"};
const std::vector<std::string> standardTypes = {"auto",
                                                "cardstock",
                                                "envelope",
                                                "envelope-plain",
                                                "labels",
                                                "photographic",
                                                "stationery",
                                                "stationery-bond",
                                                "stationery-colored",
                                                "stationery-heavyweight",
                                                "stationery-letterhead",
                                                "stationery-lightweight",
                                                "stationery-preprinted",
                                                "stationery-prepunched",
                                                "stationery-recycled",
                                                "transparency"};

TEST(PPDOptions, StandardKeywordsMeanChoicesOfThePPD) {
    std::set<std::string> sources;
    std::set<std::string> types;
    for (const MadePPD &ppd : openPPDs()) {
        const std::vector<std::string> trays = ppd.choices("InputSlot");
        const std::vector<std::string> papers = ppd.choices("PaperType");
        const raster::PPDChoices none;
        const auto asked = [&](const std::string &option) {
            return raster::ticketFor("1", raster::JobOptions(option), none, raster::RasterPage());
        };
        for (const std::string &source : standardSources) {
            if (const std::string tray = asked("media-source=" + source).inputSlot; !tray.empty()) {
                sources.insert(tray);
            }
        }
        for (const std::string &type : standardTypes) {
            if (const auto paper = asked("media-type=" + type).paperType) {
                types.insert(*paper);
                EXPECT_THAT(papers, testing::Contains(*paper)) << type;
            }
        }
        if (trays.size() == printer::trayCount) {
            EXPECT_THAT(trays, UnorderedElementsAreArray(sources)) << ppd.path();
        }
    }
    EXPECT_GT(types.size(), 10U);
}

TEST(PPDOptions, ColourAndGrayAreSamplesThatTheRendererReads) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_THAT(ppd.choices("ColorModel"), ElementsAre("RGB", "Gray"));
        ppd.mark("ColorModel", "RGB");
        EXPECT_EQ(ppd.page().samples, raster::Samples::rgb);
        ppd.mark("ColorModel", "Gray");
        EXPECT_EQ(ppd.page().samples, raster::Samples::blackness);
    }
}

TEST(PPDOptions, ResolutionIsThatOfTheEngine) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_THAT(ppd.choices("Resolution"), ElementsAre("600dpi"));
        EXPECT_EQ(ppd.page().box.resolution, 600U);
    }
}

TEST(PPDOptions, SidesAreThoseOfTheTicket) {
    const std::map<std::string, raster::Sides> sides = {{"None", raster::Sides::oneSided},
                                                        {"DuplexNoTumble", raster::Sides::longEdge},
                                                        {"DuplexTumble", raster::Sides::shortEdge}};
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_EQ(ppd.choices("Duplex").size(), sides.size());
        for (const auto &[choice, asked] : sides) {
            ppd.mark("Duplex", choice);
            EXPECT_EQ(ticketFor(ppd, "").sides, asked) << choice;
        }
        EXPECT_EQ(ppd.attribute("cupsBackSide"), "Normal");
    }
}

TEST(PPDOptions, CopiesAreLeftToTheRenderer) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_THAT(ppd.choices("Collate"), ElementsAre("False", "True"));
        for (const bool collate : {false, true}) {
            const raster::JobLayout layout =
                ticketFor(ppd, collate ? "Collate=True" : "Collate=False").layout;
            EXPECT_EQ(layout.collate, collate);
            EXPECT_EQ(layout.copies, 2U);
        }
        EXPECT_FALSE(ticketFor(ppd, "").layout.collate) << "by default";
        EXPECT_EQ(ppd->manual_copies, 0);
        EXPECT_EQ(ppd.attribute("DefaultOutputOrder"), "Normal");
    }
}

TEST(PPDOptions, NothingElseCanBeChosen) {
    const std::set<std::string> known = {"PageSize", "PageRegion", "InputSlot",  "PaperType",  "Duplex",
                                         "Collate",  "ColorModel", "Resolution", "OptionTray2"};
    for (const MadePPD &ppd : openPPDs()) {
        for (const ppd_option_t *option : ppd.options()) {
            EXPECT_TRUE(known.contains(option->keyword)) << ppd.path() << ": " << option->keyword;
        }
    }
}

TEST(PPDOptions, BothKindsOfDocumentsHaveTheirFilter) {
    for (const MadePPD &ppd : openPPDs()) {
        std::vector<std::string> filters(ppd->filters, ppd->filters + ppd->num_filters);
        EXPECT_THAT(filters, ElementsAre("application/vnd.veltrin.page-stream 0 veltrin",
                                         "application/vnd.cups-raster 0 veltrin-raster"));
    }
}

} // namespace
} // namespace veltrin
