#include "Version.h"
#include "log/DebugLog.h"
#include "raster/PlaneCoding.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/PPD.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"
#include "tests/support/RasterForms.h"
#include "tests/support/RasterText.h"
#include "tests/support/StreamPages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The program as the scheduler runs it, on raster that the CUPS library has written.

namespace veltrin::test {
namespace {

using raster::black;
using raster::cyan;
using raster::magenta;
using raster::Plane;
using raster::yellow;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Coarse pages, since most tests look at whole pages only.
constexpr std::uint32_t coarse = 75;

enum class Edge { none, longEdge, shortEdge };

/// Of pages that come once, however many copies there are to be.
cups_page_header2_t sidedHeader(Edge edge, std::uint32_t copies = 1) {
    cups_page_header2_t header = rasterHeader(coarse);
    header.NumCopies = copies;
    header.Duplex = edge != Edge::none ? CUPS_TRUE : CUPS_FALSE;
    header.Tumble = edge == Edge::shortEdge ? CUPS_TRUE : CUPS_FALSE;
    return header;
}

/// Numbered pages.
std::vector<RasterSheet> sheets(std::uint32_t pages,
                                const cups_page_header2_t &header = rasterHeader(coarse)) {
    std::vector<RasterSheet> all;
    for (std::uint32_t page = 1; page <= pages; ++page) {
        all.push_back({header, numbered(page, header.cupsBitsPerPixel / 8)});
    }
    return all;
}

/// A document of numbered pages.
std::string document(std::uint32_t pages, const cups_page_header2_t &header = rasterHeader(coarse)) {
    return rasterText(sheets(pages, header));
}

/// The number that a page of such a document bears as a bar; 0 for a blank one.
std::uint32_t numberOn(const StreamPage &page) {
    const std::size_t row = raster::rowBytes(page.header.wScanLineWidth);
    const std::vector<std::byte> &plane = page.planes[black];
    const auto ink =
        std::find_if(plane.begin(), plane.end(), [](std::byte bits) { return bits != std::byte{0}; });
    if (ink == plane.end()) {
        return 0;
    }
    const auto line = static_cast<std::uint32_t>(static_cast<std::size_t>(ink - plane.begin()) / row);
    return page.inkIn(black, 0, line, page.header.wScanLineWidth, 1) / 8;
}

std::vector<std::uint32_t> numbersOn(const StreamContents &contents) {
    std::vector<std::uint32_t> numbers;
    for (const StreamPage &page : contents.pages) {
        numbers.push_back(numberOn(page));
    }
    return numbers;
}

class RendererProcessTest : public testing::Test {
  protected:
    RendererProcessTest() {
        std::filesystem::create_directories(spoolDirectory);
        std::filesystem::create_directories(programDirectory);
        std::filesystem::copy_file(hostPath(VELTRIN_RASTER), executable);
        environment = {
            {"CHARSET", "utf-8"},
            {"CONTENT_TYPE", "application/pdf"},
            {"CUPS_SERVER", "/tmp/no-scheduler"},
            {"CUPS_SERVERROOT", "/tmp/cups"},
            {"DEVICE_URI", "file:///dev/null"},
            {"LANG", "en.UTF-8"},
            {"PRINTER", "queue"},
            {"TMPDIR", spoolDirectory},
            {"TZ", "UTC"},
        };
    }

    ~RendererProcessTest() override {
        for (const char *path : {spoolDirectory, programDirectory, "/tmp/cups", "/tmp/serverbin",
                                 "/tmp/queue.ppd", "/tmp/document.ras"}) {
            std::filesystem::remove_all(path);
        }
    }

    void installFilter(const std::string &folder = programDirectory) const {
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(hostPath(VELTRIN_EXECUTABLE), folder + "/veltrin");
        writeFile(
            folder + "/Info.plist",
            "<plist version=\"1.0\"><dict><key>VeltrinDuplexOrder</key><string>642135</string></dict></plist>\n");
    }

    void usePPD(const std::string &lines) {
        writeFile("/tmp/queue.ppd", ppdWith(lines));
        environment["PPD"] = "/tmp/queue.ppd";
    }

    [[nodiscard]] Command streamCommand(const std::string &input, const std::string &options = "",
                                        const std::string &copies = "1") const {
        return {.program = executable,
                .arguments = {"veltrin-raster", "--stream", "17", "anna", "a title", copies, options},
                .environment = environment,
                .input = Text{input}};
    }

    [[nodiscard]] Command filterCommand(const std::string &input, const std::string &options = "",
                                        const std::string &copies = "1") const {
        return {.program = executable,
                .arguments = {"queue", "17", "anna", "a title", copies, options},
                .environment = environment,
                .input = Text{input}};
    }

    [[nodiscard]] ProcessResult runToEnd(const Command &command) const {
        ProcessResult result = run(command);
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.signal, std::nullopt);
        EXPECT_THAT(namesIn(spoolDirectory), IsEmpty());
        return result;
    }

    /// Renders a job that must succeed.
    [[nodiscard]] StreamContents rendered(const Command &command) const {
        const ProcessResult result = runToEnd(command);
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        StreamContents contents = contentsOf(result.output);
        EXPECT_THAT(contents.problems, IsEmpty());
        EXPECT_TRUE(contents.wellFormed);
        EXPECT_TRUE(contents.endOfJob);
        return contents;
    }

    /// Renders a job that must fail with exactly this error, and a stream alone so that nobody takes it for
    /// whole. (The filter ends even a broken job in order.)
    void expectFailure(const Command &command, const std::string &error) const {
        const ProcessResult result = runToEnd(command);
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_THAT(result.errors, HasSubstr("ERROR: " + error + "\n"));
        if (command.arguments[1] == "--stream" && !result.output.empty()) {
            EXPECT_FALSE(contentsOf(result.output).endOfJob);
        }
    }

    static constexpr const char *spoolDirectory = "/tmp/spool";
    static constexpr const char *programDirectory = "/tmp/programs";
    std::string executable = std::string(programDirectory) + "/veltrin-raster";
    std::map<std::string, std::string> environment;
};

TEST_F(RendererProcessTest, TellsItsVersionAndItsArguments) {
    const ProcessResult told = run({.program = executable, .arguments = {"veltrin-raster", "--version"}});
    EXPECT_EQ(told.exitStatus, 0);
    EXPECT_EQ(told.output, std::string("veltrin-raster ") + version + "\n");
    const ProcessResult help = run({.program = executable, .arguments = {"veltrin-raster", "--help"}});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_THAT(help.output, HasSubstr("--stream"));
    using Words = std::vector<std::string>;
    for (const Words &arguments :
         {Words{}, Words{"--streams"}, Words{"1", "a", "t", "1"}, Words{"--stream", "1", "a", "t", "1"},
          Words{"1", "a", "t", "1", "", "file", "more"}}) {
        std::vector<std::string> all = {"veltrin-raster"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const ProcessResult refused = run({.program = executable, .arguments = all});
        EXPECT_EQ(refused.exitStatus, 2);
        EXPECT_EQ(refused.output, "");
        EXPECT_THAT(refused.errors, HasSubstr("--help"));
    }
}

TEST_F(RendererProcessTest, WritesTheHeadersOfTheJob) {
    const StreamContents contents = rendered(streamCommand(
        document(1),
        "job-uuid=urn:uuid:6ba7b810-9dad-11d1-80b4-00c04fd430c8 InputSlot=Tray2 PaperType=Bond"));
    EXPECT_EQ(contents.identifier, "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_STREQ(contents.header.szFileName.data(), "a title");
    EXPECT_STREQ(contents.headerEx.szUserName.data(), "anna");
    EXPECT_EQ(contents.header.wResolution, coarse);
    EXPECT_EQ(contents.header.wCompressMode, 1);
    EXPECT_EQ(contents.header.bColorMode, 1);
    EXPECT_EQ(contents.header.wCopyCount, 1);
    const auto now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    EXPECT_NEAR(static_cast<double>(contents.header.dwJobSubmittedTime), static_cast<double>(now), 60);
    ASSERT_EQ(contents.pages.size(), 1U);
    const PageHeader &page = contents.pages[0].header;
    EXPECT_EQ(page.bPaperSize, 9);
    EXPECT_EQ(page.bPaperTray, 3);
    EXPECT_EQ(page.bMediaType, 8);
    EXPECT_EQ(page.wPageNumber, 1);
    EXPECT_EQ(page.wPaperWidthmm, 210U);
    EXPECT_EQ(page.wPaperHeightmm, 297U);
    EXPECT_EQ(page.bPlane, 4);
    EXPECT_GT(page.dwKSize, 0U);
    EXPECT_EQ(page.dwCSize, 0U);
}

TEST_F(RendererProcessTest, LaysTheRasterOnTheWholePage) {
    writeFile("/tmp/document.ras", rasterText({{rasterHeader(600), numbered(2)}}));
    Command command = streamCommand("");
    command.input = File{"/tmp/document.ras"};
    const StreamContents contents = rendered(command);
    ASSERT_EQ(contents.pages.size(), 1U);
    const StreamPage &page = contents.pages[0];
    EXPECT_EQ(page.header.wScanLineWidth, 4961);
    EXPECT_EQ(page.header.wHeight, 7016);
    EXPECT_EQ(page.bands, 55U);
    // The bar: 16 dots wide and 8 high from the corner of the imageable area.
    EXPECT_EQ(page.inkIn(black, 100, 100, 16, 8), 16U * 8);
    EXPECT_EQ(page.inkIn(black, 0, 0, 4961, 200), 16U * 8);
}

struct Layout {
    std::uint32_t pages;
    std::uint32_t copies;
    bool collate;
    Edge edge;
};

std::string describe(const Layout &layout) {
    return std::to_string(layout.pages) + " pages, " + std::to_string(layout.copies) + " copies" +
           (layout.collate ? ", collated" : "") +
           (layout.edge == Edge::none       ? ""
            : layout.edge == Edge::longEdge ? ", long edge"
                                            : ", short edge");
}

void forLayouts(const std::function<void(const Layout &)> &check) {
    for (std::uint32_t pages = 1; pages <= 4; ++pages) {
        for (std::uint32_t copies = 1; copies <= 3; ++copies) {
            for (const bool collate : {false, true}) {
                for (const Edge edge : {Edge::none, Edge::longEdge, Edge::shortEdge}) {
                    check({pages, copies, collate, edge});
                }
            }
        }
    }
}

/// The sides of one copy, filled up to whole sheets; 0 is blank.
std::vector<std::uint32_t> sidesOfCopy(const Layout &layout) {
    std::vector<std::uint32_t> sides;
    for (std::uint32_t page = 1; page <= layout.pages; ++page) {
        sides.push_back(page);
    }
    const bool fill = layout.edge != Edge::none && (layout.pages > 1 || layout.copies > 1);
    if (fill && layout.pages % 2 == 1) {
        sides.push_back(0);
    }
    return sides;
}

/// All sides as they lie behind each other, sheet by sheet.
std::vector<std::uint32_t> sidesOfJob(const Layout &layout) {
    const std::vector<std::uint32_t> copy = sidesOfCopy(layout);
    const std::size_t together = layout.collate ? copy.size() : layout.edge == Edge::none ? 1 : 2;
    std::vector<std::uint32_t> sides;
    for (std::size_t first = 0; first < copy.size(); first += together) {
        for (std::uint32_t i = 0; i < layout.copies; ++i) {
            for (std::size_t side = first; side < std::min(first + together, copy.size()); ++side) {
                sides.push_back(copy[side]);
            }
        }
    }
    return sides;
}

TEST_F(RendererProcessTest, WritesEveryCopyAsTheFilterExpectsIt) {
    forLayouts([this](const Layout &layout) {
        const StreamContents contents =
            rendered(streamCommand(document(layout.pages, sidedHeader(layout.edge, layout.copies)),
                                   layout.collate ? "collate=true" : "", std::to_string(layout.copies)));
        EXPECT_EQ(numbersOn(contents), sidesOfJob(layout)) << describe(layout);
        for (const StreamPage &page : contents.pages) {
            const std::uint32_t number = numberOn(page);
            EXPECT_EQ(page.header.wPageNumber, number == 0 ? layout.pages + 1 : number) << describe(layout);
            EXPECT_EQ(page.isBlank(), number == 0);
            EXPECT_EQ(page.header.bType, 0);
        }
    });
}

/// The sides of the sheets that are printed by hand, with the order 642135: backs first and the last sheet
/// first, then the fronts of the turned stack.
std::vector<std::uint32_t> turnedByHand(const StreamContents &printed) {
    std::vector<std::uint32_t> backs;
    std::vector<std::uint32_t> fronts;
    bool turned = false;
    for (const StreamPage &page : printed.pages) {
        turned = turned || (page.header.bType & pageTypePause) != 0;
        (turned ? fronts : backs).push_back(numberOn(page));
    }
    if (fronts.empty()) {
        return backs; // printed one-sided
    }
    EXPECT_EQ(fronts.size(), backs.size());
    std::reverse(backs.begin(), backs.end());
    std::vector<std::uint32_t> sides;
    for (std::size_t i = 0; i < std::min(fronts.size(), backs.size()); ++i) {
        sides.insert(sides.end(), {fronts[i], backs[i]});
    }
    return sides;
}

TEST_F(RendererProcessTest, TheFilterPrintsTheRightSheets) {
    installFilter();
    forLayouts([this](const Layout &layout) {
        const ProcessResult result =
            runToEnd(filterCommand(document(layout.pages, sidedHeader(layout.edge, layout.copies)),
                                   layout.collate ? "collate=true" : "", std::to_string(layout.copies)));
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        const StreamContents printed = contentsOf(result.output);
        EXPECT_THAT(printed.problems, IsEmpty());
        EXPECT_EQ(printed.identifier, "") << "taken off by the filter";
        EXPECT_EQ(turnedByHand(printed), sidesOfJob(layout)) << describe(layout);
        const bool twoSided = layout.edge != Edge::none && (layout.pages > 1 || layout.copies > 1);
        EXPECT_EQ(printed.header.wJobSetting, twoSided ? 0x0200 : 0) << describe(layout);
    });
}

TEST_F(RendererProcessTest, WhatTheJobSaysAboutItsCopiesDoesNotMisleadTheFilter) {
    installFilter();
    const Layout layout = {4, 2, false, Edge::longEdge};
    const ProcessResult result = runToEnd(filterCommand(
        document(4, sidedHeader(Edge::longEdge)),
        "com.apple.print.PrintSettings.PMCopies..n.=3 COM.APPLE.print.PrintSettings.PMCopyCollate..b.=true "
        "com.apple.print.PrintSettings.PMDuplexing..n.=1 com.apple.print.PrintSettings.PMTotalSidesImaged..n.=3 "
        "media=A5 note='two words'",
        "2"));
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(turnedByHand(contentsOf(result.output)), sidesOfJob(layout));
}

TEST_F(RendererProcessTest, PaperThatRefusesItsBackIsPrintedOnOneSideAndWhole) {
    installFilter();
    cups_page_header2_t a5 = sidedHeader(Edge::longEdge);
    std::strcpy(a5.cupsPageSizeName, "A5");
    for (const auto &[header, options] : {std::pair(a5, ""), std::pair(a5, "media=iso_a5_148x210mm"),
                                          std::pair(sidedHeader(Edge::longEdge), "PaperType=Labels"),
                                          std::pair(sidedHeader(Edge::shortEdge), "media-type=envelope")}) {
        for (const std::uint32_t copies : {1U, 2U}) {
            const ProcessResult result =
                runToEnd(filterCommand(document(3, header), options, std::to_string(copies)));
            EXPECT_EQ(result.exitStatus, 0) << result.errors;
            const StreamContents printed = contentsOf(result.output);
            EXPECT_EQ(numbersOn(printed), sidesOfJob({3, copies, false, Edge::none})) << options;
            EXPECT_EQ(printed.header.wJobSetting, 0);
            EXPECT_THAT(result.errors, HasSubstr("INFO: This paper is printed on one side only.\n"));
        }
    }
}

TEST_F(RendererProcessTest, ThePPDsChoicesCount) {
    usePPD(
        "*OpenUI *Collate/Collate: PickOne\n*DefaultCollate: True\n*Collate False: \"\"\n*Collate True: \"\"\n"
        "*CloseUI: *Collate\n"
        "*OpenUI *InputSlot/Tray: PickOne\n*DefaultInputSlot: Tray1\n*InputSlot Tray1: \"\"\n"
        "*InputSlot Bypass: \"\"\n*CloseUI: *InputSlot\n"
        "*OpenUI *PaperType/Paper Type: PickOne\n*DefaultPaperType: Thin\n*PaperType Plain: \"\"\n"
        "*PaperType Thin: \"\"\n*CloseUI: *PaperType\n");
    const StreamContents byDefault = rendered(streamCommand(document(2), "", "2"));
    EXPECT_THAT(numbersOn(byDefault), ElementsAre(1, 2, 1, 2));
    EXPECT_EQ(byDefault.pages[0].header.bPaperTray, 2);
    EXPECT_EQ(byDefault.pages[0].header.bMediaType, 15);
    const StreamContents asked =
        rendered(streamCommand(document(2), "Collate=False InputSlot=Bypass PaperType=Plain", "2"));
    EXPECT_THAT(numbersOn(asked), ElementsAre(1, 1, 2, 2));
    EXPECT_EQ(asked.pages[0].header.bPaperTray, 1);
    EXPECT_EQ(asked.pages[0].header.bMediaType, 1);
    const StreamContents handled = rendered(
        streamCommand(document(2), "multiple-document-handling=separate-documents-uncollated-copies", "2"));
    EXPECT_THAT(numbersOn(handled), ElementsAre(1, 1, 2, 2));
}

TEST_F(RendererProcessTest, APPDThatCannotBeReadIsSaid) {
    environment["PPD"] = "/tmp/queue.ppd";
    const ProcessResult result = runToEnd(streamCommand(document(1)));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.errors, HasSubstr("WARNING: The PPD /tmp/queue.ppd cannot be read: "));
}

TEST_F(RendererProcessTest, TellsTheSchedulerWhatItHasRendered) {
    const ProcessResult result = runToEnd(streamCommand(document(3), "", "2"));
    EXPECT_EQ(result.errors, "INFO: Rendering page 1.\nPAGE: 1 2\nINFO: Rendering page 2.\nPAGE: 2 2\n"
                             "INFO: Rendering page 3.\nPAGE: 3 2\n");
}

TEST_F(RendererProcessTest, ReadsAFile) {
    writeFile("/tmp/document.ras", document(2));
    Command command = streamCommand("");
    command.arguments.emplace_back("/tmp/document.ras");
    EXPECT_THAT(numbersOn(rendered(command)), ElementsAre(1, 2));
    installFilter();
    Command filter = filterCommand("");
    filter.arguments.emplace_back("/tmp/document.ras");
    const ProcessResult printed = runToEnd(filter);
    EXPECT_EQ(printed.exitStatus, 0) << printed.errors;
    EXPECT_THAT(numbersOn(contentsOf(printed.output)), ElementsAre(1, 2));
    command.arguments.back() = "/tmp/absent.ras";
    expectFailure(command, "The file /tmp/absent.ras cannot be opened: No such file or directory.");
}

TEST_F(RendererProcessTest, ReadsEveryFormOfRaster) {
    for (const FormedRaster &raster : everyForm(sheets(2))) {
        EXPECT_THAT(numbersOn(rendered(streamCommand(raster.text))), ElementsAre(1, 2)) << raster.form;
    }
}

/// Patches of one colour each, 64 dots wide.
std::string patches(const std::vector<std::array<std::uint8_t, 3>> &colours, cups_page_header2_t header) {
    header.cupsImagingBBox[0] = 0;
    header.cupsImagingBBox[3] = header.cupsPageSize[1];
    return rasterText({{header, [&colours](std::uint32_t /*line*/, std::span<std::uint8_t> dots) {
                            for (std::size_t dot = 0; dot < dots.size() / 3; ++dot) {
                                const auto &colour = colours[std::min(dot / 64, colours.size() - 1)];
                                std::copy(colour.begin(), colour.end(), dots.subspan(3 * dot).begin());
                            }
                        }}});
}

TEST_F(RendererProcessTest, ColoursComeInTheirPlanes) {
    const std::vector<std::array<std::uint8_t, 3>> colours = {
        {255, 255, 255}, {0, 0, 0},       {255, 0, 0},     {0, 255, 0},
        {0, 0, 255},     {128, 128, 128}, {128, 255, 255}, {255, 255, 255}};
    const StreamContents contents = rendered(streamCommand(patches(colours, rasterHeader(coarse))));
    ASSERT_EQ(contents.pages.size(), 1U);
    const StreamPage &page = contents.pages[0];
    const auto coverage = [&page](std::uint32_t patch) {
        std::vector<std::uint32_t> percents;
        for (const Plane plane : {black, yellow, magenta, cyan}) {
            percents.push_back((page.inkIn(plane, patch * 64, 0, 64, 256) * 100 + 64 * 128) / (64 * 256));
        }
        return percents;
    };
    EXPECT_THAT(coverage(0), ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(coverage(1), ElementsAre(100, 0, 0, 0));
    EXPECT_THAT(coverage(2), ElementsAre(0, 100, 100, 0));
    EXPECT_THAT(coverage(3), ElementsAre(0, 100, 0, 100));
    EXPECT_THAT(coverage(4), ElementsAre(0, 0, 100, 100));
    EXPECT_THAT(coverage(5), ElementsAre(50, 0, 0, 0));
    EXPECT_THAT(coverage(6), ElementsAre(0, 0, 0, 50));
    EXPECT_THAT(coverage(7), ElementsAre(0, 0, 0, 0));
}

TEST_F(RendererProcessTest, GrayHasBlackAlone) {
    for (const cups_cspace_t space : {CUPS_CSPACE_SW, CUPS_CSPACE_W}) {
        const StreamContents contents = rendered(streamCommand(document(2, grayRasterHeader(coarse, space))));
        EXPECT_THAT(numbersOn(contents), ElementsAre(1, 2));
        EXPECT_EQ(contents.header.bColorMode, 0);
        EXPECT_EQ(contents.pages[0].header.bPlane, 1);
        EXPECT_TRUE(contents.pages[0].planes[cyan].empty());
    }
    const cups_page_header2_t header = grayRasterHeader(coarse, CUPS_CSPACE_K);
    const Paint bar = [](std::uint32_t line, std::span<std::uint8_t> dots) {
        std::fill(dots.begin(), dots.end(), std::uint8_t{0});
        std::fill_n(dots.begin(), line < 8 ? 24 : 0, std::uint8_t{255});
    };
    EXPECT_THAT(numbersOn(rendered(streamCommand(rasterText({{header, bar}})))), ElementsAre(3));
}

TEST_F(RendererProcessTest, ARasterThatSticksOutIsCut) {
    cups_page_header2_t header = rasterHeader(coarse);
    header.cupsImagingBBox[0] = -24;
    header.cupsImagingBBox[3] = 865.89F;
    // 25 dots stick out at the left and above: the bar of 8 lines is gone, and what is left is white.
    EXPECT_THAT(numbersOn(rendered(streamCommand(document(1, header)))), ElementsAre(0));
    header.cupsImagingBBox[0] = 560;
    header.cupsImagingBBox[3] = 829.89F;
    // At the right, the bar of 40 dots has room for 37.
    const StreamContents contents = rendered(streamCommand(document(5, header)));
    EXPECT_EQ(contents.pages.back().inkIn(black, 0, 0, 620, 877), 8U * 37);
}

TEST_F(RendererProcessTest, PagesOfSeveralSizesArePrintedOneSided) {
    cups_page_header2_t letter = rasterHeader(coarse);
    letter.cupsPageSize[0] = 612;
    letter.cupsPageSize[1] = 792;
    letter.cupsImagingBBox[3] = 780;
    std::strcpy(letter.cupsPageSizeName, "Letter");
    const StreamContents contents = rendered(
        streamCommand(rasterText({{rasterHeader(coarse), numbered(1)}, {letter, numbered(2)}}), "", "2"));
    EXPECT_THAT(numbersOn(contents), ElementsAre(1, 1, 2, 2));
    EXPECT_EQ(contents.pages[1].header.bPaperSize, 9);
    EXPECT_EQ(contents.pages[2].header.bPaperSize, 1);
    EXPECT_EQ(contents.pages[2].header.wHeight, 825);
}

TEST_F(RendererProcessTest, NoPageIsSaid) {
    const std::string none =
        "There is no page to print: the document is empty, or none of its pages was asked for.";
    expectFailure(streamCommand(""), none);
    expectFailure(streamCommand(rasterText({})), none);
    installFilter();
    expectFailure(filterCommand(rasterText({})), none);
}

TEST_F(RendererProcessTest, WhatIsNoRasterIsRefused) {
    expectFailure(streamCommand("%PDF-1.4 and so on"), "The document is no CUPS raster.");
    expectFailure(streamCommand("Ra"), "The document is no CUPS raster.");
}

TEST_F(RendererProcessTest, ATruncatedRasterFailsTheJob) {
    installFilter();
    const std::string whole = document(2);
    const std::string one = document(1);
    const std::size_t headerEnd = 4 + sizeof(cups_page_header2_t);
    const std::vector<std::pair<std::size_t, std::string>> cuts = {
        {4 + 100, "The raster ends in the header of page 1."},
        {headerEnd - 1, "The raster ends in the header of page 1."},
        {headerEnd, "The raster ends in the middle of page 1."},
        {headerEnd + 100000, "The raster ends in the middle of page 1."},
        {one.size() - 1, "The raster ends in the middle of page 1."},
        {one.size() + 1, "The raster ends in the header of page 2."},
        {one.size() + 1000, "The raster ends in the header of page 2."},
        {one.size() + 500000, "The raster ends in the middle of page 2."},
        {whole.size() - 1, "The raster ends in the middle of page 2."},
    };
    for (const auto &[size, error] : cuts) {
        for (const char *copies : {"1", "2"}) {
            expectFailure(streamCommand(whole.substr(0, size), "", copies), error);
            expectFailure(filterCommand(whole.substr(0, size), "", copies), error);
        }
    }
}

TEST_F(RendererProcessTest, ARasterThatCannotBePrintedFailsTheJob) {
    installFilter();
    cups_page_header2_t cmyk = rasterHeader(coarse);
    cmyk.cupsColorSpace = CUPS_CSPACE_CMYK;
    cmyk.cupsBitsPerPixel = 32;
    cmyk.cupsBytesPerLine = 4 * cmyk.cupsWidth;
    cmyk.cupsNumColors = 4;
    const std::string inCmyk = rasterText({{cmyk, numbered(1, 4)}});
    const std::string error =
        "The raster has colour space 6; only sRGB (19 or 1) and gray (18, 0 or 3) can be printed.";
    expectFailure(streamCommand(inCmyk), error);
    expectFailure(filterCommand(inCmyk), error);

    const auto changed = [](const std::function<void(cups_page_header2_t &)> &change) {
        cups_page_header2_t header = rasterHeader(coarse);
        change(header);
        return rasterText({{header, numbered(1, 1)}});
    };
    const std::string deep = changed([](cups_page_header2_t &header) {
        header.cupsBitsPerColor = 16;
        header.cupsBitsPerPixel = 48;
        header.cupsBytesPerLine = 6 * header.cupsWidth;
    });
    const std::string shallow = changed([](cups_page_header2_t &header) {
        header.cupsColorSpace = CUPS_CSPACE_K;
        header.cupsNumColors = 1;
        header.cupsBitsPerColor = 1;
        header.cupsBitsPerPixel = 1;
        header.cupsBytesPerLine = (header.cupsWidth + 7) / 8;
    });
    const std::string banded = changed([](cups_page_header2_t &header) {
        header.cupsColorOrder = CUPS_ORDER_BANDED;
        header.cupsBitsPerPixel = 24;
    });
    const std::string uneven =
        changed([](cups_page_header2_t &header) { header.HWResolution[1] = 2 * coarse; });
    for (const auto &[raster, sentence] :
         {std::pair(deep, "The raster has 16 bits per colour and 48 per pixel; only 8 bits per colour can be "
                          "printed."),
          std::pair(shallow,
                    "The raster has 1 bits per colour and 1 per pixel; only 8 bits per colour can be "
                    "printed."),
          std::pair(banded,
                    "The raster has its colours one after the other; only chunky pixels can be printed."),
          std::pair(uneven, "The raster has a resolution of 75x150 dpi, which cannot be printed.")}) {
        expectFailure(streamCommand(raster), sentence);
        expectFailure(filterCommand(raster), sentence);
    }

    const std::string changing =
        rasterText({{rasterHeader(coarse), numbered(1)}, {rasterHeader(150), numbered(2)}});
    expectFailure(streamCommand(changing),
                  "The raster's resolution changes from 75 to 150 dpi within the job.");
    expectFailure(filterCommand(changing),
                  "The raster's resolution changes from 75 to 150 dpi within the job.");
    expectFailure(streamCommand(rasterText(
                      {{rasterHeader(coarse), numbered(1)}, {grayRasterHeader(coarse), numbered(2, 1)}})),
                  "The raster's colour space changes within the job.");
    cups_page_header2_t letter = sidedHeader(Edge::longEdge);
    letter.cupsPageSize[0] = 612;
    expectFailure(
        streamCommand(rasterText({{sidedHeader(Edge::longEdge), numbered(1)}, {letter, numbered(2)}})),
        "The raster's page size changes within a two-sided job.");
}

/// Behind the last page: everything that was announced has been rendered and handed over by then.
TEST_F(RendererProcessTest, AFailureBetweenPagesFailsTheJobOfTheFilterToo) {
    installFilter();
    forLayouts([this](const Layout &layout) {
        if (layout.pages > 2 || layout.copies > 2) {
            return;
        }
        SCOPED_TRACE(describe(layout));
        const std::string broken = document(layout.pages, sidedHeader(layout.edge, layout.copies)) + "more";
        expectFailure(
            filterCommand(broken, layout.collate ? "collate=true" : "", std::to_string(layout.copies)),
            "The raster ends in the header of page " + std::to_string(layout.pages + 1) + ".");
    });
}

/// Both sides of a sheet, in two copies.
TEST_F(RendererProcessTest, DamagedRasterNeverMakesADamagedStream) {
    std::uint32_t random = 1;
    const auto next = [&random] {
        random = random * 1664525 + 1013904223;
        return random >> 8;
    };
    for (const FormedRaster &raster : everyForm(sheets(2, sidedHeader(Edge::longEdge)))) {
        for (int round = 0; round < 12; ++round) {
            std::string damaged = raster.text;
            for (int changes = 0; changes < 3; ++changes) {
                // Mostly in the numbers of a header, else anywhere.
                const std::size_t at = next() % 4 == 0
                                           ? next() % damaged.size()
                                           : raster.pageEnds[next() % 2] + 256 + next() % (420 - 256);
                damaged[at] = static_cast<char>(next());
            }
            const ProcessResult result = runToEnd(streamCommand(damaged, "", "2"));
            const StreamContents contents = contentsOf(result.output);
            if (result.exitStatus == 0) {
                EXPECT_TRUE(contents.wellFormed);
                EXPECT_TRUE(contents.endOfJob);
                EXPECT_EQ(contents.pages.size(), 4U) << raster.form << ", round " << round;
                EXPECT_THAT(contents.problems, IsEmpty());
            } else {
                EXPECT_EQ(result.exitStatus, 1);
                EXPECT_THAT(result.errors, HasSubstr("ERROR: "));
                EXPECT_FALSE(contents.endOfJob);
            }
        }
    }
}

TEST_F(RendererProcessTest, ACutIsNoticedInEveryForm) {
    installFilter();
    for (const Edge edge : {Edge::none, Edge::longEdge}) {
        for (const FormedRaster &raster : everyForm(sheets(2, sidedHeader(edge)))) {
            const std::size_t second = raster.pageEnds[1];
            for (const auto &[size, error] :
                 {std::pair(second - 1, "The raster ends in the middle of page 1."),
                  std::pair(second + 1, "The raster ends in the header of page 2."),
                  std::pair(second + 300, "The raster ends in the header of page 2.")}) {
                SCOPED_TRACE(raster.form);
                expectFailure(filterCommand(raster.text.substr(0, size), "", edge == Edge::none ? "1" : "2"),
                              error);
            }
        }
    }
}

TEST_F(RendererProcessTest, TheFilterIsFoundWhereTheSchedulerHasIts) {
    expectFailure(filterCommand(document(1)),
                  "The print filter veltrin is not installed beside veltrin-raster.");
    installFilter("/tmp/serverbin/filter");
    environment["CUPS_SERVERBIN"] = "/tmp/serverbin";
    const ProcessResult result = runToEnd(filterCommand(document(1)));
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(numbersOn(contentsOf(result.output)), ElementsAre(1));
}

TEST_F(RendererProcessTest, AFilterThatCannotBeStartedIsSaid) {
    writeFile(std::string(programDirectory) + "/veltrin", "no program");
    std::filesystem::permissions(std::string(programDirectory) + "/veltrin", std::filesystem::perms::all);
    expectFailure(filterCommand(document(1)),
                  "The print filter /tmp/programs/veltrin cannot be started: Exec format error.");
}

TEST_F(RendererProcessTest, TheFilterIsGivenItsArgumentsAndNothingElseThatIsOpen) {
    writeFile(std::string(programDirectory) + "/veltrin", "#!/bin/sh\n"
                                                          "tr '\\0' '\\n' < /proc/$$/cmdline\n"
                                                          "for fd in /proc/$$/fd/*; do readlink $fd; done\n"
                                                          "cat > /dev/null\n");
    std::filesystem::permissions(std::string(programDirectory) + "/veltrin", std::filesystem::perms::all);
    const ProcessResult result = runToEnd(filterCommand(document(1), "job-name='a b' media=A5"));
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(linesOf(result.output),
                testing::Contains(testing::AllOf(HasSubstr("job-name=a\\ b"), HasSubstr("media=A4"),
                                                 Not(HasSubstr("A5")))));
    EXPECT_THAT(result.output, HasSubstr("\n17\nanna\na title\n1\n"));
    // Input, output, errors, and the script itself.
    const std::vector<std::string> lines = linesOf(result.output);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &line) { return line.starts_with("pipe:"); }),
              3);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &line) { return line.starts_with("/dev/"); }),
              0);
}

TEST_F(RendererProcessTest, TheFilterGoesByTheQueuesName) {
    installFilter();
    writeFile("/tmp/cups/ppd/queue.ppd", ppdWith("*NickName: \"The queue's own\"\n"));
    writeFile(debugMarkerPath, "");
    const ProcessResult result = runToEnd(filterCommand(document(1)));
    const std::string log = readFile(debugLogPath);
    std::filesystem::remove(debugMarkerPath);
    std::filesystem::remove(debugLogPath);
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_THAT(log, HasSubstr("ppd attr"));
    EXPECT_THAT(log, HasSubstr("Option media = A4"));
}

TEST_F(RendererProcessTest, EndsOnSIGTERMInTheMiddleOfAPage) {
    const std::string whole = document(3);
    const std::string part = whole.substr(0, whole.size() / 2);
    Command command = streamCommand("", "", "2");
    command.input = Pipe();
    Process process(command);
    process.write(part);
    EXPECT_TRUE(
        process.waitUntil([&] { return process.errors().find("Rendering page 2") != std::string::npos; }));
    process.send(SIGTERM);
    const ProcessResult result = process.finish(std::chrono::seconds(5));
    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(contentsOf(result.output).endOfJob);
    EXPECT_THAT(namesIn(spoolDirectory), IsEmpty());
}

/// Whether the process runs. Whoever takes over an ended one may leave it as a zombie.
bool isAtWork(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    return file >> number >> name >> state && state != "Z" && state != "X";
}

/// Waits for the end of a process that is not the test's child.
bool hasGone(pid_t process) {
    const auto deadline = std::chrono::steady_clock::now() + processDeadline;
    while (isAtWork(process) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return !isAtWork(process);
}

/// What the process has open, by the descriptors' numbers.
std::map<int, std::string> descriptorsOf(pid_t process) {
    std::map<int, std::string> open;
    for (const auto &entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
        open[std::stoi(entry.path().filename())] = std::filesystem::read_symlink(entry.path());
    }
    return open;
}

/// Whether the pipe that is this process's descriptor takes no more.
bool isFull(pid_t process, int descriptor) {
    const std::string path = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    pollfd pipe = {open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), POLLOUT, 0};
    EXPECT_NE(pipe.fd, -1) << path;
    const bool full = poll(&pipe, 1, 0) == 0;
    close(pipe.fd);
    return full;
}

/// Whether the process has a handler for the signal.
bool handles(pid_t process, int signal) {
    constexpr std::string_view marker = "SigCgt:";
    for (const std::string &line : linesOf(readFile("/proc/" + std::to_string(process) + "/status"))) {
        if (line.starts_with(marker)) {
            constexpr int hexadecimal = 16;
            return (std::stoull(line.substr(marker.size()), nullptr, hexadecimal) >> (signal - 1) & 1U) != 0;
        }
    }
    return false;
}

class RenderingJob : public RendererProcessTest {
  protected:
    RenderingJob() {
        installFilter();
        EXPECT_EQ(pipe2(printer.data(), O_CLOEXEC), 0);
    }

    ~RenderingJob() override {
        closePrinter();
        close(printer[1]);
    }

    /// Renderer and filter of a job whose raster the test feeds, in a process group of their own as those of
    /// a scheduler are.
    [[nodiscard]] Command jobThatIsFed(const std::string &options = "",
                                       const std::string &copies = "2") const {
        return inGroup({"/usr/bin/setsid", executable, "17", "anna", "a title", copies, options});
    }

    [[nodiscard]] Command inGroup(const std::vector<std::string> &arguments) const {
        return {.program = arguments.front(),
                .arguments = arguments,
                .environment = environment,
                .input = Pipe()};
    }

    /// The renderer's process, once the filter has been started in the first one and can be told to end.
    [[nodiscard]] static pid_t rendererOf(Process &job) {
        const std::string id = std::to_string(job.id());
        std::string children;
        EXPECT_TRUE(job.waitUntil([&] {
            children = readFile("/proc/" + id + "/task/" + id + "/children");
            return !children.empty() && readFile("/proc/" + id + "/comm") == "veltrin\n" &&
                   handles(job.id(), SIGTERM);
        }));
        return children.empty() ? -1 : std::stoi(children);
    }

    /// Feeds half of three pages; the renderer then waits in the middle of the second.
    static void feedHalf(Process &job) {
        const std::string whole = document(3, sidedHeader(Edge::longEdge));
        job.write(whole.substr(0, whole.size() / 2));
        EXPECT_TRUE(
            job.waitUntil([&] { return job.errors().find("Rendering page 2") != std::string::npos; }));
    }

    static std::string noisyPages(std::uint32_t pages, std::uint32_t copies) {
        return rasterText(std::vector<RasterSheet>(pages, {sidedHeader(Edge::none, copies), noise()}));
    }

    /// Waits until nothing moves, since the test takes nothing off the printer's pipe: the filter stands in
    /// front of that one, the renderer in front of the filter's.
    static void waitUntilBlocked(Process &job, pid_t renderer) {
        EXPECT_TRUE(job.waitUntil(
            [&] { return isFull(job.id(), STDOUT_FILENO) && isFull(renderer, STDOUT_FILENO); }));
    }

    void closePrinter() {
        if (printer[0] != -1) {
            close(printer[0]);
            printer[0] = -1;
        }
    }

    /// Takes what is printed, to its end.
    std::string print() {
        close(printer[1]);
        printer[1] = -1;
        std::string all;
        std::array<char, 65536> block;
        for (ssize_t got = 1; got > 0;) {
            got = read(printer[0], block.data(), block.size());
            all.append(block.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        return all;
    }

    void expectFailedAndGone(Process &job, pid_t renderer) const {
        const ProcessResult result = job.finish();
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.signal, std::nullopt);
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_TRUE(hasGone(renderer));
        EXPECT_THAT(namesIn(spoolDirectory), IsEmpty());
    }

    std::array<int, 2> printer{-1, -1}; ///< the pipe for what is printed, where a test holds that up
};

TEST_F(RenderingJob, ItsRendererHoldsNothingOfTheFiltersOpen) {
    // The scheduler's channels to the backend, and one more.
    Process job(inGroup({"/bin/sh", "-c", R"(exec "$0" "$@" 3</dev/null 4</dev/zero 9</dev/full)", executable,
                         "17", "anna", "a title", "2", ""}));
    feedHalf(job);
    const pid_t renderer = rendererOf(job);
    std::map<int, std::string> renderers = descriptorsOf(renderer);
    const std::map<int, std::string> filters = descriptorsOf(job.id());
    EXPECT_TRUE(filters.contains(4));
    // The pages of a job with several copies have no name.
    std::erase_if(renderers, [](const auto &open) { return open.second.ends_with("(deleted)"); });
    ASSERT_EQ(renderers.size(), 3U) << testing::PrintToString(renderers);
    EXPECT_EQ(renderers.at(STDOUT_FILENO), filters.at(STDIN_FILENO));
    EXPECT_EQ(renderers.at(STDERR_FILENO), filters.at(STDERR_FILENO));
    EXPECT_NE(renderers.at(STDIN_FILENO), filters.at(STDIN_FILENO));
    job.closeInput();
    expectFailedAndGone(job, renderer);
}

class JobWaitingForRaster : public RenderingJob {
  protected:
    JobWaitingForRaster() {
        feedHalf(job);
        renderer = rendererOf(job);
    }

    Process job{jobThatIsFed()};
    pid_t renderer = -1;
};

TEST_F(JobWaitingForRaster, EndsOnSIGTERM) {
    kill(-job.id(), SIGTERM);
    expectFailedAndGone(job, renderer); // though the input is still open
}

TEST_F(JobWaitingForRaster, EndsOnSIGTERMOfItsRenderer) {
    kill(renderer, SIGTERM);
    expectFailedAndGone(job, renderer);
}

TEST_F(JobWaitingForRaster, EndsOnSIGTERMOfItsFilter) {
    job.send(SIGTERM);
    // A scheduler that does not run as root signals each process alone: the document's end comes with that
    // of the program in front.
    job.closeInput();
    expectFailedAndGone(job, renderer);
}

TEST_F(JobWaitingForRaster, EndsWithItsFilter) {
    job.send(SIGKILL);
    EXPECT_TRUE(hasGone(renderer)); // though the input is still open
    job.closeInput();
    job.finish();
}

TEST_F(JobWaitingForRaster, EndsWithItsRendererThatWasKilledWithoutAWord) {
    kill(renderer, SIGKILL);
    expectFailedAndGone(job, renderer);
}

/// Where SIGTERM finds a job whose printer takes nothing.
struct HeldUp {
    const char *name;
    const char *options;
    std::uint32_t pages;
    bool wholeDocument; ///< the input has ended
};

constexpr auto heldUpJobs = std::to_array<HeldUp>({
    {"among the copies of its first page", "", 2, false},
    {"among the copies behind its last page", "collate=true", 2, true},
});

class HeldUpJob : public RenderingJob, public testing::WithParamInterface<HeldUp> {
  protected:
    HeldUpJob() {
        Command command = jobThatIsFed(GetParam().options, "30");
        command.output = Descriptor{printer[1]};
        job.emplace(command);
        job->write(noisyPages(GetParam().pages, 30));
        if (GetParam().wholeDocument) {
            job->closeInput();
            const std::string last = "PAGE: " + std::to_string(GetParam().pages) + " 30\n";
            EXPECT_TRUE(job->waitUntil([&] { return job->errors().find(last) != std::string::npos; }));
        }
        renderer = rendererOf(*job);
        waitUntilBlocked(*job, renderer);
        EXPECT_EQ(job->errors().find("Rendering page 2") != std::string::npos, GetParam().wholeDocument);
    }

    std::optional<Process> job;
    pid_t renderer = -1;
};

TEST_P(HeldUpJob, EndsOnSIGTERM) {
    kill(-job->id(), SIGTERM);
    EXPECT_TRUE(hasGone(renderer));
    closePrinter(); // the backend has had the signal, too
    expectFailedAndGone(*job, renderer);
}

TEST_P(HeldUpJob, EndsOnSIGTERMOfItsFilter) {
    job->send(SIGTERM);
    closePrinter();
    expectFailedAndGone(*job, renderer);
}

TEST_P(HeldUpJob, EndsOnSIGTERMOfItsRenderer) {
    kill(renderer, SIGTERM);
    EXPECT_TRUE(hasGone(renderer));
    EXPECT_FALSE(contentsOf(print()).pages.empty()) << "what was rendered is printed";
    expectFailedAndGone(*job, renderer);
}

INSTANTIATE_TEST_SUITE_P(RendererProcess, HeldUpJob, testing::ValuesIn(heldUpJobs), nameOfCase<HeldUp>);

TEST_F(RendererProcessTest, AnOutputThatCannotBeWrittenFailsTheJob) {
    Command command = streamCommand(document(1));
    command.output = File{"/dev/full"};
    const ProcessResult result = run(command);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors,
                HasSubstr("ERROR: The rendered pages cannot be passed on: No space left on device.\n"));
}

} // namespace
} // namespace veltrin::test
